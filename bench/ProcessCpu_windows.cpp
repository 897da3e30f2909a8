#include "ProcessCpu.h"

#include <windows.h>

namespace mediaworker::bench {

struct ProcessCpu::System {
    HANDLE process; ///< keeps the figures after the end

    explicit System(DWORD pid) : process(OpenProcess(PROCESS_QUERY_INFORMATION, FALSE, pid)) {}
    ~System() { CloseHandle(process); }
    System(const System&) = delete;
    System& operator=(const System&) = delete;
};

ProcessCpu::ProcessCpu(std::int64_t pid) : system_(std::make_unique<System>(static_cast<DWORD>(pid))) {}
ProcessCpu::~ProcessCpu() = default;

double ProcessCpu::seconds() const {
    FILETIME created;
    FILETIME ended;
    FILETIME system{};
    FILETIME user{};
    GetProcessTimes(system_->process, &created, &ended, &system, &user);
    const auto seconds = [](const FILETIME& time) { // in units of 100 ns
        return static_cast<double>(std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime) / 1e7;
    };
    return seconds(system) + seconds(user);
}

} // namespace mediaworker::bench
