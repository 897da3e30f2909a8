#include "parent/CommandQueue.h"

#include <algorithm>

namespace mediaworker::parent {

namespace {

// A volume whose data is not four bytes long: the worker takes it and does nothing. It must not be empty
// either, because an empty packet carries the data of the one before.
const QByteArray& idlePacket() {
    static const QByteArray packet = encodePacket(MessageType::Volume, QByteArray(1, '\0'));
    return packet;
}

// Beyond this the log is out of sight, and waiting for it idle.
constexpr std::size_t kMaxUnacknowledged = 64;

} // namespace

bool CommandQueue::pushVolume(std::uint32_t percent) {
    if (!commands_.empty() && commands_.back().type == MessageType::Volume) {
        commands_.back().volumePercent = percent;
        return true;
    }
    return push(MessageType::Volume, percent);
}

bool CommandQueue::push(MessageType type, std::uint32_t volumePercent) {
    if (commands_.size() >= kCapacity) {
        return false;
    }
    commands_.push_back({type, volumePercent});
    return true;
}

void CommandQueue::acknowledged(std::uint8_t type) {
    const auto taken =
        std::find(unacknowledged_.begin(), unacknowledged_.end(), static_cast<MessageType>(type));
    if (taken != unacknowledged_.end()) {
        // The worker takes them in order: what stands before it was taken too.
        unacknowledged_.erase(unacknowledged_.begin(), taken + 1);
        leftLying_ = !unacknowledged_.empty();
    }
}

QByteArray CommandQueue::take(TimePoint now) {
    if (leftLying_) {
        leftLying_ = false;
        deadline_ = now + fallback_;
        return writeIdleBytes(1);
    }
    if (commands_.empty() || (!unacknowledged_.empty() && now < deadline_)) {
        return {};
    }
    deadline_ = now + fallback_;
    if (idleBytesLeft_ > 0) {
        return writeIdleBytes(idleBytesLeft_);
    }
    const Command command = commands_.front();
    commands_.pop_front();
    written(command.type);
    return command.type == MessageType::Volume ? encodeVolume(command.volumePercent)
                                               : encodePacket(command.type);
}

QByteArray CommandQueue::writeIdleBytes(int count) {
    if (idleBytesLeft_ == 0) {
        idleBytesLeft_ = idlePacket().size();
    }
    QByteArray bytes = idlePacket().right(idleBytesLeft_).left(count);
    idleBytesLeft_ -= bytes.size();
    if (idleBytesLeft_ == 0) {
        written(MessageType::Volume);
    }
    return bytes;
}

void CommandQueue::written(MessageType type) {
    unacknowledged_.push_back(type);
    if (unacknowledged_.size() > kMaxUnacknowledged) {
        unacknowledged_.pop_front();
    }
}

std::optional<CommandQueue::TimePoint> CommandQueue::deadline() const {
    if (commands_.empty() || unacknowledged_.empty()) {
        return std::nullopt;
    }
    return deadline_;
}

void CommandQueue::clear() {
    *this = CommandQueue(fallback_);
}

} // namespace mediaworker::parent
