#include "parent/SharedLock.h"

#include <QDir>
#include <QFile>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>

#include <fcntl.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <unistd.h>

namespace mediaworker::parent {

namespace {

// The project number with which Qt makes its keys.
constexpr int kProject = 'Q';

[[noreturn]] void fail(const char* what) {
    throw std::runtime_error(std::string("semaphore: ") + what + ": " + std::strerror(errno));
}

// POSIX leaves this union to the program.
union SemaphoreArgument {
    int value;
    semid_ds* status;
    unsigned short* values;
};

} // namespace

struct SharedLock::Handle {
    explicit Handle(QByteArray path) : keyFile(std::move(path)) {}
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    ~Handle() {
        if (id >= 0) {
            semctl(id, 0, IPC_RMID);
        }
        if (ownsKeyFile) {
            unlink(keyFile.constData());
        }
    }

    [[nodiscard]] int change(short by, const timespec* timeout) const noexcept {
        sembuf operation{};
        operation.sem_op = by;
        operation.sem_flg = SEM_UNDO;
        int result = 0;
        do {
            result = semtimedop(id, &operation, 1, timeout);
        } while (result < 0 && errno == EINTR);
        return result;
    }

    QByteArray keyFile;
    bool ownsKeyFile = false;
    int id = -1;
};

std::unique_ptr<SharedLock> SharedLock::create(const QString& key, IfTaken ifTaken) {
    auto handle = std::make_unique<Handle>(QFile::encodeName(QDir::tempPath() + u'/' + nativeName(key)));
    const int file = open(handle->keyFile.constData(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, 0600);
    if (file < 0) {
        if (errno != EEXIST || ifTaken == IfTaken::Keep) {
            fail("key file");
        }
    } else {
        close(file);
    }
    handle->ownsKeyFile = true;

    // The key comes from the file's inode number, of which it keeps 16 bits: two files can have the same one.
    const key_t systemKey = ftok(handle->keyFile.constData(), kProject);
    if (systemKey == -1) {
        fail("ftok");
    }
    handle->id = semget(systemKey, 1, 0600 | IPC_CREAT | IPC_EXCL);
    if (handle->id < 0) {
        if (errno != EEXIST) {
            fail("semget");
        }
        if (ifTaken == IfTaken::Keep) {
            return std::unique_ptr<SharedLock>(new SharedLock(std::move(handle)));
        }
        handle->id = semget(systemKey, 1, 0600);
        if (handle->id < 0) {
            fail("semget");
        }
    }
    SemaphoreArgument argument{};
    argument.value = 1;
    if (semctl(handle->id, 0, SETVAL, argument) < 0) {
        fail("semctl");
    }
    return std::unique_ptr<SharedLock>(new SharedLock(std::move(handle)));
}

SharedLock::SharedLock(std::unique_ptr<Handle> handle) : handle_(std::move(handle)) {}

SharedLock::~SharedLock() = default;

bool SharedLock::isUsable() const noexcept {
    return handle_->id >= 0;
}

bool SharedLock::acquire(std::chrono::milliseconds timeout) noexcept {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(timeout);
    timespec limit{};
    limit.tv_sec = seconds.count();
    limit.tv_nsec = std::chrono::nanoseconds(timeout - seconds).count();
    return handle_->change(-1, &limit) == 0;
}

void SharedLock::release() noexcept {
    static_cast<void>(handle_->change(1, nullptr));
}

void SharedLock::reclaim() noexcept {
    // The system has done so.
}

bool SharedLock::mappingBlocksResize() noexcept {
    return false;
}

} // namespace mediaworker::parent
