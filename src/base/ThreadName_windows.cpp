#include "base/ThreadName.h"

#include <windows.h>

#include <string>

namespace base {

void setThreadName(const char* name) noexcept {
    // SetThreadDescription exists from Windows 10 1607 on, so it is looked up instead of linked.
    using SetThreadDescription = HRESULT(WINAPI*)(HANDLE, PCWSTR);
    const HMODULE kernel = GetModuleHandleW(L"kernel32.dll");
    if (kernel == nullptr) {
        return;
    }
    const auto set = reinterpret_cast<SetThreadDescription>(
        reinterpret_cast<void*>(GetProcAddress(kernel, "SetThreadDescription")));
    if (set != nullptr) {
        const std::string narrow(name);
        const std::wstring wide(narrow.begin(), narrow.end());
        set(GetCurrentThread(), wide.c_str());
    }
}

} // namespace base
