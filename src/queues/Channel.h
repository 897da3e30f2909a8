#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <limits>
#include <mutex>
#include <utility>

namespace ko_player::details {

/// Whether a push may wait for room.
enum class Blocking { No, Yes };

enum class PushResult {
    Pushed,
    Full,  ///< refused because of its size; only without blocking
    Ended, ///< refused because the channel is stopped or closed
};

/// How much a channel holds. The payload is what a stream is reckoned by; what packets cost in memory is more
/// than that, and much more where they are tiny or carry something else.
struct ChannelRoom {
    std::uint64_t payloadBytes = 0;
    std::uint64_t memoryBytes = std::numeric_limits<std::uint64_t>::max();
};

/// A FIFO of packets bounded by the sums of their sizes. One writer, one reader; thread-safe.
///
/// When it is full, push() waits or refuses, as the caller asks. A packet is always accepted into an empty
/// channel, however large, so that no packet can block for ever.
///
/// `PacketPtr` points to an object with `size()`, of the payload, and `heldBytes()`, of memory. Both may
/// throw for a size that is no size.
template <class PacketPtr>
class Channel {
public:
    explicit Channel(ChannelRoom room) : room_(room) {}
    explicit Channel(std::uint64_t payloadBytes) : Channel(ChannelRoom{.payloadBytes = payloadBytes}) {}

    PushResult push(PacketPtr packet, Blocking blocking) {
        const auto size = static_cast<std::uint64_t>(packet->size());
        const std::uint64_t memory = packet->heldBytes();
        std::unique_lock lock(mutex_);
        const auto hasRoom = [&] {
            return packets_.empty() ||
                   (bytes_ + size <= room_.payloadBytes && memory_ + memory <= room_.memoryBytes);
        };
        if (blocking == Blocking::Yes) {
            spaceFreed_.wait(lock, [&] { return state_ != State::Open || hasRoom(); });
        }
        if (state_ != State::Open) {
            return PushResult::Ended;
        }
        if (!hasRoom()) {
            return PushResult::Full;
        }
        packets_.push_back(std::move(packet));
        bytes_ += size;
        memory_ += memory;
        packetAvailable_.notify_all();
        return PushResult::Pushed;
    }

    /// Waits for a packet. Returns an empty pointer once the channel is stopped, or closed and drained.
    PacketPtr pop() {
        std::unique_lock lock(mutex_);
        packetAvailable_.wait(lock, [&] { return !packets_.empty() || state_ != State::Open; });
        if (state_ == State::Stopped || packets_.empty()) {
            return {};
        }
        PacketPtr packet = std::move(packets_.front());
        packets_.pop_front();
        bytes_ -= static_cast<std::uint64_t>(packet->size());
        memory_ -= packet->heldBytes();
        spaceFreed_.notify_all();
        return packet;
    }

    /// No more input; what is queued is still delivered. Does not overwrite stop().
    void close() { change(State::Closed); }

    /// Abandons what is queued, and ends both sides' waits.
    void stop() { change(State::Stopped); }

    [[nodiscard]] bool isStopped() const {
        const std::lock_guard lock(mutex_);
        return state_ == State::Stopped;
    }

    /// Of payload.
    [[nodiscard]] std::uint64_t bytesHeld() const {
        const std::lock_guard lock(mutex_);
        return bytes_;
    }
    [[nodiscard]] std::uint64_t memoryHeld() const {
        const std::lock_guard lock(mutex_);
        return memory_;
    }

private:
    enum class State { Open, Stopped, Closed };

    void change(State state) {
        const std::lock_guard lock(mutex_);
        if (state_ != State::Stopped) {
            state_ = state;
        }
        spaceFreed_.notify_all();
        packetAvailable_.notify_all();
    }

    const ChannelRoom room_;
    mutable std::mutex mutex_;
    std::condition_variable spaceFreed_;
    std::condition_variable packetAvailable_;

    // Guarded by mutex_.
    std::deque<PacketPtr> packets_;
    std::uint64_t bytes_ = 0;  ///< of payload
    std::uint64_t memory_ = 0; ///< bytes
    State state_ = State::Open;
};

} // namespace ko_player::details
