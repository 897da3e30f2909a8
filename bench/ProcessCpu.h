#pragma once

#include <cstdint>
#include <memory>

namespace mediaworker::bench {

/// The processor time of one child process, which must not have been waited for yet when this is made.
class ProcessCpu {
public:
    explicit ProcessCpu(std::int64_t pid);
    ~ProcessCpu();
    ProcessCpu(const ProcessCpu&) = delete;
    ProcessCpu& operator=(const ProcessCpu&) = delete;

    /// Seconds, user and system, of its whole life. Call when it has ended and been waited for.
    [[nodiscard]] double seconds() const;

private:
    struct System;
    std::unique_ptr<System> system_;
};

} // namespace mediaworker::bench
