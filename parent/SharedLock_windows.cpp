#include "parent/SharedLock.h"

#include <atomic>
#include <climits>
#include <stdexcept>
#include <string>
#include <utility>

#include <windows.h>

namespace mediaworker::parent {

struct SharedLock::Handle {
    explicit Handle(HANDLE object) : semaphore(object) {}
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    ~Handle() { CloseHandle(semaphore); }

    HANDLE semaphore;
    bool usable = true;
    std::atomic<bool> isOurs = false; ///< acquired by this process
};

std::unique_ptr<SharedLock> SharedLock::create(const QString& key, IfTaken ifTaken) {
    const std::wstring name = nativeName(key).toStdWString();
    HANDLE object = CreateSemaphoreW(nullptr, 1, LONG_MAX, name.c_str());
    const DWORD error = GetLastError();
    if (object == nullptr) {
        throw std::runtime_error("semaphore: CreateSemaphore: error " + std::to_string(error));
    }
    auto handle = std::make_unique<Handle>(object);
    if (error == ERROR_ALREADY_EXISTS) {
        handle->usable = ifTaken == IfTaken::Reset;
        if (handle->usable) {
            // The count cannot be set: take what is there, then give one.
            while (WaitForSingleObject(object, 0) == WAIT_OBJECT_0) {
            }
            ReleaseSemaphore(object, 1, nullptr);
        }
    }
    return std::unique_ptr<SharedLock>(new SharedLock(std::move(handle)));
}

SharedLock::SharedLock(std::unique_ptr<Handle> handle) : handle_(std::move(handle)) {}

SharedLock::~SharedLock() = default;

bool SharedLock::isUsable() const noexcept {
    return handle_->usable;
}

bool SharedLock::acquire(std::chrono::milliseconds timeout) noexcept {
    const bool acquired =
        WaitForSingleObject(handle_->semaphore, static_cast<DWORD>(timeout.count())) == WAIT_OBJECT_0;
    if (acquired) {
        handle_->isOurs = true;
    }
    return acquired;
}

void SharedLock::release() noexcept {
    handle_->isOurs = false;
    ReleaseSemaphore(handle_->semaphore, 1, nullptr);
}

void SharedLock::reclaim() noexcept {
    // Taken by nobody or by the dead one, the count is 1 afterwards.
    if (!handle_->isOurs) {
        WaitForSingleObject(handle_->semaphore, 0);
        ReleaseSemaphore(handle_->semaphore, 1, nullptr);
    }
}

bool SharedLock::mappingBlocksResize() noexcept {
    return true;
}

} // namespace mediaworker::parent
