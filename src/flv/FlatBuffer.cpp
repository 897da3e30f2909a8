#include "flv/FlatBuffer.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace ko_player::flv {
namespace {

constexpr std::size_t kSmallestCapacity = 4096;

} // namespace

void FlatBuffer::requireRoom(std::size_t length) const {
    if (length > maxSize_ - (end_ - readOffset_)) {
        throw std::out_of_range("FlatBuffer.push gt maxSize");
    }
}

void FlatBuffer::push(const std::uint8_t* data, std::size_t length) {
    requireRoom(length);
    makeRoom(length);
    if (length > 0) {
        std::memcpy(storage_.get() + end_, data, length);
        end_ += length;
    }
}

void FlatBuffer::makeRoom(std::size_t length) {
    const std::size_t unreadBytes = end_ - readOffset_;
    const bool compact = readOffset_ > kCompactAfterBytes;
    const std::size_t front = compact ? 0 : readOffset_;
    const std::size_t required = front + unreadBytes + length;
    if (required > capacity_) {
        const std::size_t largest = maxSize_ + kCompactAfterBytes;
        const std::size_t wanted = std::min(std::max(kSmallestCapacity, capacity_ * 2), largest);
        const std::size_t newCapacity = std::max(required, wanted);
        auto storage = std::make_unique_for_overwrite<std::uint8_t[]>(newCapacity);
        if (unreadBytes > 0) {
            std::memcpy(storage.get() + front, storage_.get() + readOffset_, unreadBytes);
        }
        storage_ = std::move(storage);
        capacity_ = newCapacity;
    } else if (compact) {
        std::memmove(storage_.get(), storage_.get() + readOffset_, unreadBytes);
    }
    readOffset_ = front;
    end_ = front + unreadBytes;
}

void FlatBuffer::consume(std::size_t count) {
    if (count > end_ - readOffset_) {
        throw std::out_of_range("FlatBuffer.consume gt size");
    }
    readOffset_ += count;
    if (readOffset_ == end_) {
        readOffset_ = 0;
        end_ = 0;
        if (capacity_ > kKeptBytes) {
            storage_.reset();
            capacity_ = 0;
        }
    }
}

} // namespace ko_player::flv
