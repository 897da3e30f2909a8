#pragma once

#include <cstdint>
#include <memory>

namespace mediaworker::parent {

/// On Windows, a job object: what is in it ends with this object, also where this process is killed, and
/// takes no more memory than it may. On POSIX there is no such thing, and a worker ends with its link.
class ProcessGroup {
public:
    /// `mostBytes`: of each process; 0 for any number.
    explicit ProcessGroup(std::uint64_t mostBytes);
    ProcessGroup(const ProcessGroup&) = delete;
    ProcessGroup& operator=(const ProcessGroup&) = delete;
    ~ProcessGroup();

    /// False where the system does not do that.
    bool adopt(std::int64_t pid);

private:
    struct Job;
    std::unique_ptr<Job> job_;
};

} // namespace mediaworker::parent
