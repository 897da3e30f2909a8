#pragma once

#include <cstdint>
#include <memory>

class QObject;
class QProcess;

namespace mediaworker::parent {

/// A process that belongs to `owner` and is to be started by this thread. On Linux the system kills it when
/// this process dies, whatever the process does, if the thread is the main one: the system looks at the end
/// of the thread, and others may well end before their workers. Such a process is in a group of its own: a
/// signal for this process's group does not reach it. Elsewhere it is left to its link, and on
/// Windows to the ProcessGroup.
[[nodiscard]] QProcess* makeMortalProcess(QObject* owner);

/// On Windows, a job object: what is in it ends with this object, also where this process is killed, and
/// takes no more memory than it may. On POSIX there is no such thing: see makeMortalProcess().
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
