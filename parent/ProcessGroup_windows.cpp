#include "parent/ProcessGroup.h"

#include <QProcess>

#include <windows.h>

namespace mediaworker::parent {

QProcess* makeMortalProcess(QObject* owner) {
    return new QProcess(owner);
}

struct ProcessGroup::Job {
    Job() = default;
    Job(const Job&) = delete;
    Job& operator=(const Job&) = delete;
    ~Job() {
        if (handle != nullptr) {
            CloseHandle(handle);
        }
    }

    HANDLE handle = CreateJobObjectW(nullptr, nullptr);
};

ProcessGroup::ProcessGroup(std::uint64_t mostBytes) : job_(std::make_unique<Job>()) {
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    if (mostBytes != 0) {
        limits.BasicLimitInformation.LimitFlags |= JOB_OBJECT_LIMIT_PROCESS_MEMORY;
        limits.ProcessMemoryLimit = static_cast<SIZE_T>(mostBytes);
    }
    if (job_->handle != nullptr && SetInformationJobObject(job_->handle, JobObjectExtendedLimitInformation,
                                                           &limits, sizeof limits) == FALSE) {
        CloseHandle(job_->handle);
        job_->handle = nullptr;
    }
}

ProcessGroup::~ProcessGroup() = default;

bool ProcessGroup::adopt(std::int64_t pid) {
    const HANDLE process = OpenProcess(PROCESS_SET_QUOTA | PROCESS_TERMINATE, FALSE, static_cast<DWORD>(pid));
    if (process == nullptr) {
        return false;
    }
    const bool isIn = job_->handle != nullptr && AssignProcessToJobObject(job_->handle, process) != FALSE;
    CloseHandle(process);
    return isIn;
}

} // namespace mediaworker::parent
