#include "support/Platform.h"

#include <array>
#include <cstdlib>
#include <fstream>
#include <string_view>

#include <windows.h>

#include <psapi.h>
#include <tlhelp32.h>

namespace mediaworker::test::platform {
namespace {

/// A process by its id, open while this lives.
class Process {
public:
    Process(std::int64_t pid, DWORD access) : handle_(OpenProcess(access, FALSE, static_cast<DWORD>(pid))) {}
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;
    ~Process() {
        if (handle_ != nullptr) {
            CloseHandle(handle_);
        }
    }
    [[nodiscard]] HANDLE get() const { return handle_; }

private:
    HANDLE handle_;
};

/// Zeros when there is no such process.
PROCESS_MEMORY_COUNTERS memoryOf(std::int64_t pid) {
    const Process process(pid, PROCESS_QUERY_INFORMATION | PROCESS_VM_READ);
    PROCESS_MEMORY_COUNTERS counters{};
    return GetProcessMemoryInfo(process.get(), &counters, sizeof counters) != 0 ? counters
                                                                                : PROCESS_MEMORY_COUNTERS{};
}

} // namespace

bool isRunning(std::int64_t pid) {
    const Process process(pid, SYNCHRONIZE);
    return process.get() != nullptr && WaitForSingleObject(process.get(), 0) == WAIT_TIMEOUT;
}

bool makeCrash(std::int64_t pid) {
    const Process process(pid, PROCESS_ALL_ACCESS);
    const auto nowhere = reinterpret_cast<LPTHREAD_START_ROUTINE>(std::uintptr_t{16});
    HANDLE thread = CreateRemoteThread(process.get(), nullptr, 0, nowhere, nullptr, 0, nullptr);
    if (thread == nullptr) {
        return false;
    }
    CloseHandle(thread);
    return true;
}

std::int64_t residentBytes(std::int64_t pid) {
    return static_cast<std::int64_t>(memoryOf(pid).WorkingSetSize);
}

std::int64_t peakResidentBytes(std::int64_t pid) {
    return static_cast<std::int64_t>(memoryOf(pid).PeakWorkingSetSize);
}

std::string loadedLibraries(std::int64_t pid) {
    std::string result;
    HANDLE list = CreateToolhelp32Snapshot(TH32CS_SNAPMODULE, static_cast<DWORD>(pid));
    MODULEENTRY32W entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = Module32FirstW(list, &entry); more != 0; more = Module32NextW(list, &entry)) {
        result += std::filesystem::path(entry.szExePath).string() + "\n";
    }
    CloseHandle(list);
    return result;
}

std::vector<std::int64_t> childProcesses() {
    std::vector<std::int64_t> all;
    HANDLE list = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = Process32FirstW(list, &entry); more != 0; more = Process32NextW(list, &entry)) {
        if (entry.th32ParentProcessID == GetCurrentProcessId()) {
            all.push_back(entry.th32ProcessID);
        }
    }
    CloseHandle(list);
    return all;
}

int mappingsOf(const std::filesystem::path& folder) {
    // The names are those of devices, in which the drive has another one.
    const std::wstring part = folder.relative_path().wstring() + L"\\";
    int found = 0;
    MEMORY_BASIC_INFORMATION place{};
    const void* before = nullptr;
    for (const char* at = nullptr; VirtualQuery(at, &place, sizeof place) != 0; at += place.RegionSize) {
        at = static_cast<const char*>(place.BaseAddress);
        std::array<wchar_t, 1024> name{};
        if (place.Type == MEM_MAPPED && place.AllocationBase != before &&
            GetMappedFileNameW(GetCurrentProcess(), place.BaseAddress, name.data(), name.size()) != 0 &&
            std::wstring_view(name.data()).find(part) != std::wstring_view::npos) {
            ++found;
        }
        before = place.AllocationBase;
    }
    return found;
}

int openHandles() {
    DWORD count = 0;
    return GetProcessHandleCount(GetCurrentProcess(), &count) != 0 ? static_cast<int>(count) : -1;
}

void setVariable(const char* name, const char* value) {
    _putenv_s(name, value != nullptr ? value : ""); // an empty value removes it
}

std::vector<std::string> variableNames() {
    std::vector<std::string> names;
    for (char** entry = _environ; entry != nullptr && *entry != nullptr; ++entry) {
        const std::string_view text(*entry);
        names.emplace_back(text.substr(0, text.find('=')));
    }
    return names;
}

TemporaryDirectory::TemporaryDirectory(const std::filesystem::path& path) {
    const char* const before = std::getenv(kTemporaryVariable);
    before_ = before != nullptr ? before : "";
    _putenv_s(kTemporaryVariable, path.string().c_str());
}

TemporaryDirectory::~TemporaryDirectory() {
    _putenv_s(kTemporaryVariable, before_.c_str()); // an empty value removes it
}

bool hideSemaphoresOfOthers() {
    return false;
}

std::string semaphores() {
    return {};
}

std::optional<int> semaphoreOf(const std::filesystem::path& /*file*/) {
    return std::nullopt;
}

bool isSemaphore(int /*number*/) {
    return false;
}

FileThatOnlyGrows::FileThatOnlyGrows(const std::filesystem::path& path) {
    const std::ofstream file(path); // whoever maps it does the rest
}

FileThatOnlyGrows::~FileThatOnlyGrows() = default;

std::string fileUrl(const std::filesystem::path& file) {
    return "file:///" + file.generic_string();
}

} // namespace mediaworker::test::platform
