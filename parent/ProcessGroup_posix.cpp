#include "parent/ProcessGroup.h"

#include <QProcess>

#include <csignal>

#include <unistd.h>
#if __has_include(<sys/prctl.h>)
#include <sys/prctl.h>
#endif

namespace mediaworker::parent {

namespace {

#ifdef PR_SET_PDEATHSIG
class MortalProcess : public QProcess {
public:
    using QProcess::QProcess;

protected:
    // Runs in the child, before the program: nothing but calls of the system.
    void setupChildProcess() override {
        // What a terminal or timeout(1) sends to this application's group is for the application to answer.
        setpgid(0, 0);
        // Nobody can block this one.
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        // Who died before that cannot be heard of. 0: lives in another namespace of processes.
        const pid_t parent = getppid();
        if (parent != starter_ && parent != 0) {
            _exit(1);
        }
    }

private:
    const pid_t starter_ = getpid();
};
#endif

} // namespace

QProcess* makeMortalProcess(QObject* owner) {
#ifdef PR_SET_PDEATHSIG
    if (gettid() == getpid()) {
        return new MortalProcess(owner);
    }
#endif
    return new QProcess(owner);
}

struct ProcessGroup::Job {};

ProcessGroup::ProcessGroup(std::uint64_t /*mostBytes*/) {}

ProcessGroup::~ProcessGroup() = default;

bool ProcessGroup::adopt(std::int64_t /*pid*/) {
    return false;
}

} // namespace mediaworker::parent
