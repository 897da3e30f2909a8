#include "sandbox/Confine.h"

#include <cstdint>
#include <optional>

#include <windows.h>

namespace sandbox {
namespace {

// Policies of the system, as numbers and flags: headers of compilers know them since Windows 8 or 10 only
// where these are asked for, and older systems have none of them.

struct Policy {
    const char* name;
    int number;
    std::uint32_t flags;
};

constexpr Policy kStrictHandles{"strict handle checks", 3, 0b11}; // raise, for good
constexpr Policy kNoExtensions{"extension points off", 6, 0b1};   // input methods, hooks, AppInit
constexpr Policy kNoRemoteImages{"no images from the network", 10, 1};
constexpr Policy kImages{"no images of low integrity, System32 first", 10, 0b110};
constexpr Policy kNoChildren{"no child processes", 13, 0b1};

using SetPolicy = BOOL(WINAPI*)(int policy, void* value, SIZE_T size);

SetPolicy setPolicy() {
    const HMODULE kernel = GetModuleHandleW(L"kernel32.dll");
    return reinterpret_cast<SetPolicy>(
        reinterpret_cast<void*>(GetProcAddress(kernel, "SetProcessMitigationPolicy")));
}

std::string withError(const char* name, DWORD error) {
    return std::string(name).append(" (error ").append(std::to_string(error)).append(")");
}

std::optional<std::string> apply(const Policy& policy) {
    static const SetPolicy set = setPolicy();
    std::uint32_t flags = policy.flags;
    if (set == nullptr) {
        return withError(policy.name, ERROR_PROC_NOT_FOUND);
    }
    return set(policy.number, &flags, sizeof flags) != FALSE
               ? std::nullopt
               : std::optional(withError(policy.name, GetLastError()));
}

/// A worker that lies in the network has to load its libraries from there.
bool isProgramRemote() {
    wchar_t path[MAX_PATH + 1] = {};
    if (GetModuleFileNameW(nullptr, path, MAX_PATH) < 3) {
        return false;
    }
    if (path[0] == L'\\') {
        return true;
    }
    path[3] = L'\0'; // "C:\"
    return GetDriveTypeW(path) == DRIVE_REMOTE;
}

/// A job of one process. It lasts as long as the process.
bool enterJobOfOne() {
    const HANDLE job = CreateJobObjectW(nullptr, nullptr);
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_ACTIVE_PROCESS;
    limits.BasicLimitInformation.ActiveProcessLimit = 1;
    return job != nullptr &&
           SetInformationJobObject(job, JobObjectExtendedLimitInformation, &limits, sizeof limits) != FALSE &&
           AssignProcessToJobObject(job, GetCurrentProcess()) != FALSE;
}

} // namespace

Surroundings surroundings() {
    return {}; // paths are not restricted here
}

std::vector<std::string> confine(const Needs& /*needs*/) {
    std::vector<std::string> missing;
    const auto take = [&missing](const std::optional<std::string>& obstacle) {
        if (obstacle) {
            missing.push_back(*obstacle);
        }
    };
    take(apply(kNoExtensions));
    take(apply(kImages));
    // One of its own: it is left out where it would take the program's libraries away.
    if (!isProgramRemote()) {
        take(apply(kNoRemoteImages));
    }
    take(apply(kStrictHandles));
    // Either does; systems that have not the one have the other.
    const bool isAlone = enterJobOfOne();
    if (const auto obstacle = apply(kNoChildren); !isAlone) {
        take(obstacle);
    }
    return missing;
}

} // namespace sandbox
