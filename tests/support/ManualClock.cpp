#include "support/ManualClock.h"

#include <algorithm>
#include <thread>

namespace mediaworker::test {

/// Keeps a waiter listed while its thread waits. Both ends take the clock's mutex.
class ManualClock::Registration {
public:
    Registration(ManualClock& clock, Waiter& waiter) : clock_(clock), waiter_(waiter) {
        const std::lock_guard lock(clock_.mutex_);
        clock_.waiters_.push_back(&waiter_);
        clock_.changed_.notify_all();
    }
    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;
    ~Registration() {
        const std::lock_guard lock(clock_.mutex_);
        std::erase(clock_.waiters_, &waiter_);
        clock_.changed_.notify_all();
    }

private:
    ManualClock& clock_;
    Waiter& waiter_;
};

base::TimePoint ManualClock::now() const {
    const std::lock_guard lock(mutex_);
    return now_;
}

void ManualClock::sleepUntil(base::TimePoint deadline) {
    Waiter waiter{nullptr, nullptr, deadline};
    const Registration registration(*this, waiter);
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return now_ >= deadline; });
}

void ManualClock::waitUntil(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
                            base::TimePoint deadline) {
    Waiter waiter{&condition, lock.mutex(), deadline};
    const Registration registration(*this, waiter);
    // advance() locks the waiter's mutex before it notifies, and this thread holds that mutex from the check
    // of the time to the wait, so no wake-up is lost.
    if (now() < deadline) {
        condition.wait(lock);
    }
}

void ManualClock::advance(base::nanoseconds duration) {
    std::unique_lock lock(mutex_);
    now_ += duration;
    changed_.notify_all();
    for (Waiter* waiter : waiters_) {
        waiter->mustWake = waiter->condition != nullptr;
    }
    // A listed waiter's mutex and condition exist: it must take this clock's mutex to leave the list. Waiters
    // hold their own mutex when they do so, hence no waiting for theirs under this one.
    for (bool again = true; again;) {
        again = false;
        for (Waiter* waiter : waiters_) {
            if (!waiter->mustWake) {
                continue;
            }
            if (waiter->mutex->try_lock()) {
                waiter->condition->notify_all();
                waiter->mutex->unlock();
                waiter->mustWake = false;
            } else {
                again = true;
            }
        }
        if (again) {
            lock.unlock();
            std::this_thread::yield();
            lock.lock();
        }
    }
}

int ManualClock::pendingLocked() const {
    return static_cast<int>(std::count_if(waiters_.begin(), waiters_.end(),
                                          [&](const Waiter* waiter) { return waiter->deadline > now_; }));
}

void ManualClock::waitForWaiters(int count) const {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return pendingLocked() >= count; });
}

void ManualClock::waitForDeadline(base::TimePoint deadline) const {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] {
        return std::any_of(waiters_.begin(), waiters_.end(),
                           [&](const Waiter* waiter) { return waiter->deadline == deadline; });
    });
}

base::TimePoint ManualClock::earliestDeadline() const {
    const std::lock_guard lock(mutex_);
    base::TimePoint earliest = base::TimePoint::max();
    for (const Waiter* waiter : waiters_) {
        earliest = std::min(earliest, waiter->deadline);
    }
    return earliest;
}

} // namespace mediaworker::test
