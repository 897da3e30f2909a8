#include "base/SharedLibrary.h"

#include <windows.h>

#include <stdexcept>

namespace base {

SharedLibrary::SharedLibrary(const std::string& name, int majorVersion) {
    const std::string file = name + "-" + std::to_string(majorVersion) + ".dll";
    handle_ = LoadLibraryA(file.c_str());
    if (handle_ == nullptr) {
        throw std::runtime_error(file + ": error " + std::to_string(GetLastError()));
    }
}

void* SharedLibrary::address(const char* symbol) const {
    void* found = reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(handle_), symbol));
    if (found == nullptr) {
        throw std::runtime_error(std::string(symbol) + ": error " + std::to_string(GetLastError()));
    }
    return found;
}

} // namespace base
