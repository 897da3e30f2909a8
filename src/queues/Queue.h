#pragma once

#include "base/Clock.h"

#include <algorithm>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <limits>
#include <mutex>
#include <optional>
#include <utility>

namespace ko_player::details {

/// How a wait for an element ended without one.
enum class NoElement { TimedOut, Ended };

/// A FIFO bounded by the number of its elements and, if wanted, by their bytes. An element of any size fits
/// into an empty queue. Thread-safe.
///
/// Two flags end it: closed is set by the consuming side (pushes fail, nothing is taken any more), aborted by
/// the producing side when it ends (pushes fail, what is queued is still taken). When it is full, push()
/// waits and pushReplacing() drops the oldest element.
template <class T>
class Queue {
public:
    /// How many bytes may wait, and what tells those of an element, which must not change while it waits.
    struct ByteBound {
        std::size_t most = std::numeric_limits<std::size_t>::max();
        std::size_t (*bytesOf)(const T&) = [](const T&) -> std::size_t { return 0; };
    };

    explicit Queue(std::size_t capacity, ByteBound bound = {}) : capacity_(capacity), bound_(bound) {}

    /// Waits for room. Returns false, without storing, once the queue is closed or aborted.
    bool push(T element) {
        const std::size_t bytes = bound_.bytesOf(element);
        std::unique_lock lock(mutex_);
        spaceFreed_.wait(lock, [&] { return hasRoomLocked(bytes) || endedLocked(); });
        if (endedLocked()) {
            return false;
        }
        bytes_ += bytes;
        elements_.push_back(std::move(element));
        elementAvailable_.notify_all();
        return true;
    }

    /// Never waits: a full queue loses its oldest elements. Does nothing once closed or aborted.
    void pushReplacing(T element) {
        const std::size_t bytes = bound_.bytesOf(element);
        const std::lock_guard lock(mutex_);
        if (endedLocked()) {
            return;
        }
        while (!hasRoomLocked(bytes)) {
            bytes_ -= bound_.bytesOf(elements_.front());
            elements_.pop_front();
        }
        bytes_ += bytes;
        elements_.push_back(std::move(element));
        elementAvailable_.notify_all();
    }

    /// Takes the front element if there is one and the queue is not closed.
    [[nodiscard]] std::optional<T> tryPop() {
        return tryPopIf([](const T&) { return true; });
    }

    /// The same, only if `predicate` holds for the front element; it is called under the queue's lock.
    template <class Predicate>
    [[nodiscard]] std::optional<T> tryPopIf(Predicate predicate) {
        const std::lock_guard lock(mutex_);
        if (closed_ || elements_.empty() || !predicate(std::as_const(elements_.front()))) {
            return std::nullopt;
        }
        return takeFrontLocked();
    }

    /// Takes the first element for which `predicate` holds, wherever it stands, if the queue is not closed.
    /// The predicate is called under the queue's lock.
    template <class Predicate>
    [[nodiscard]] std::optional<T> tryTakeFirst(Predicate predicate) {
        const std::lock_guard lock(mutex_);
        const auto found = std::find_if(elements_.begin(), elements_.end(), predicate);
        if (closed_ || found == elements_.end()) {
            return std::nullopt;
        }
        bytes_ -= bound_.bytesOf(*found);
        std::optional<T> element(std::move(*found));
        elements_.erase(found);
        spaceFreed_.notify_all();
        return element;
    }

    /// Waits until there is an element; nothing once the queue is closed, or aborted and drained.
    [[nodiscard]] std::optional<T> waitPop() {
        std::unique_lock lock(mutex_);
        elementAvailable_.wait(lock, [&] { return !elements_.empty() || endedLocked(); });
        if (closed_ || elements_.empty()) {
            return std::nullopt;
        }
        return takeFrontLocked();
    }

    /// The same until a deadline; on failure `why` says how the wait ended.
    [[nodiscard]] std::optional<T> waitPopUntil(base::Clock& clock, base::TimePoint deadline,
                                                NoElement& why) {
        std::unique_lock lock(mutex_);
        clock.waitUntil(elementAvailable_, lock, deadline,
                        [&] { return !elements_.empty() || endedLocked(); });
        if (closed_ || elements_.empty()) {
            why = endedLocked() ? NoElement::Ended : NoElement::TimedOut;
            return std::nullopt;
        }
        return takeFrontLocked();
    }

    /// The consumer is gone.
    void close() {
        const std::lock_guard lock(mutex_);
        closed_ = true;
        notifyLocked();
    }

    /// The producer has ended.
    void abort() {
        const std::lock_guard lock(mutex_);
        aborted_ = true;
        notifyLocked();
    }

    [[nodiscard]] bool isEnded() const {
        const std::lock_guard lock(mutex_);
        return endedLocked();
    }

    [[nodiscard]] std::size_t size() const {
        const std::lock_guard lock(mutex_);
        return elements_.size();
    }

private:
    [[nodiscard]] bool endedLocked() const { return closed_ || aborted_; }

    [[nodiscard]] bool hasRoomLocked(std::size_t bytes) const {
        return elements_.empty() ||
               (elements_.size() < capacity_ && bytes_ <= bound_.most && bytes <= bound_.most - bytes_);
    }

    [[nodiscard]] T takeFrontLocked() {
        bytes_ -= bound_.bytesOf(elements_.front());
        T element = std::move(elements_.front());
        elements_.pop_front();
        spaceFreed_.notify_all();
        return element;
    }

    void notifyLocked() {
        spaceFreed_.notify_all();
        elementAvailable_.notify_all();
    }

    const std::size_t capacity_;
    const ByteBound bound_;
    mutable std::mutex mutex_;
    std::condition_variable spaceFreed_;
    std::condition_variable elementAvailable_;

    // Guarded by mutex_.
    std::deque<T> elements_;
    std::size_t bytes_ = 0;
    bool closed_ = false;
    bool aborted_ = false;
};

} // namespace ko_player::details
