#include "queues/PauseCtrl.h"

namespace ko_player::details {

void PauseCtrl::change(PauseReason reason, bool add) {
    const std::lock_guard lock(mutex_);
    if (disabled_) {
        return;
    }
    const auto bit = static_cast<std::uint32_t>(reason);
    const std::uint32_t before = reasons_;
    reasons_ = add ? before | bit : before & ~bit;
    if (reasons_ == 0 && before != 0) {
        resumeReason_ = reason;
    }
    changed_.notify_all();
}

void PauseCtrl::setDisabled(bool disabled) {
    const std::lock_guard lock(mutex_);
    disabled_ = disabled;
}

bool PauseCtrl::wait() {
    std::unique_lock lock(mutex_);
    if (reasons_ == 0) {
        return false;
    }
    ++waiting_;
    changed_.wait(lock, [&] { return reasons_ == 0 || stopped_; });
    --waiting_;
    return !stopped_ && resumeReason_ == PauseReason::User;
}

void PauseCtrl::sleepUntil(base::Clock& clock, base::TimePoint deadline) {
    std::unique_lock lock(mutex_);
    // After a stop a reason that is still set interrupts nothing, or whoever sleeps in a loop would spin.
    clock.waitUntil(changed_, lock, deadline, [&] { return reasons_ != 0 && !stopped_; });
}

void PauseCtrl::stop() {
    const std::lock_guard lock(mutex_);
    stopped_ = true;
    changed_.notify_all();
}

int PauseCtrl::waiting() const {
    const std::lock_guard lock(mutex_);
    return waiting_;
}

bool PauseCtrl::isPaused() const {
    const std::lock_guard lock(mutex_);
    return reasons_ != 0;
}

bool PauseCtrl::isStopped() const {
    const std::lock_guard lock(mutex_);
    return stopped_;
}

} // namespace ko_player::details
