#include "player/BufferWatcher.h"

#include "base/Log.h"
#include "base/ThreadEntry.h"

#include <exception>
#include <utility>

namespace ko_player {

Player::BufferWatcher::BufferWatcher(std::chrono::seconds timeout, Callback callback, base::Clock& clock)
    : timeout_(timeout), callback_(std::move(callback)), clock_(clock),
      task_(std::async(std::launch::async, [this] { watch(); })) {}

Player::BufferWatcher::~BufferWatcher() {
    stop();
}

void Player::BufferWatcher::stop() noexcept {
    if (!task_.valid()) {
        return;
    }
    try {
        requests_.close();
        task_.get();
    } catch (const std::exception& error) {
        base::logAt("ko_player::Player::BufferWatcher::~BufferWatcher", "BufferWatcher.dtor: ", error.what());
    }
}

void Player::BufferWatcher::arm() {
    ++generation_;
    requests_.pushReplacing(generation_);
}

void Player::BufferWatcher::disarm() {
    requests_.pushReplacing(kDisarm);
}

void Player::BufferWatcher::watch() {
    base::enterThread("buffer watcher");
    while (const auto request = requests_.waitPop()) {
        if (*request != kDisarm) {
            waitArmed(*request);
        }
    }
}

void Player::BufferWatcher::waitArmed(std::uint64_t generation) {
    for (;;) {
        const auto deadline = base::addClamped(clock_.now(), timeout_);
        auto why = details::NoElement::Ended;
        const auto request = requests_.waitPopUntil(clock_, deadline, why);
        if (!request) {
            if (why == details::NoElement::TimedOut) {
                callback_(generation);
            }
            return;
        }
        if (*request == kDisarm) {
            return;
        }
        generation = *request;
    }
}

} // namespace ko_player
