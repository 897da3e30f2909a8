#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace ko_player::flv {

/// A byte queue whose unread bytes lie in one piece. Grows as needed up to a cap on the unread bytes, and
/// never fills memory that it is about to write. Not thread-safe.
class FlatBuffer {
public:
    /// How many consumed bytes may lie in front of the unread ones before push() moves these down. Large
    /// enough that a move is rare, small enough that the waste does not matter beside a video frame.
    static constexpr std::size_t kCompactAfterBytes = 10'240;

    /// What an emptied buffer keeps for the next bytes: the key frames of most cameras fit. One tag of
    /// megabytes is no reason to keep these as long as the stream lasts.
    static constexpr std::size_t kKeptBytes = 0x40000;

    /// `maxSize` is the most unread bytes that the buffer may hold.
    explicit FlatBuffer(std::size_t maxSize) : maxSize_(maxSize) {}

    /// Appends bytes. Throws std::out_of_range "FlatBuffer.push gt maxSize" and appends nothing where the
    /// unread bytes would exceed the cap. Invalidates unread().
    void push(const std::uint8_t* data, std::size_t length);

    /// Throws as push() would for that many bytes, and changes nothing.
    void requireRoom(std::size_t length) const;

    /// Valid until the next push() or consume().
    [[nodiscard]] std::span<const std::uint8_t> unread() const {
        return {storage_.get() + readOffset_, end_ - readOffset_};
    }
    [[nodiscard]] bool empty() const { return end_ == readOffset_; }

    /// Drops bytes from the front. Throws std::out_of_range "FlatBuffer.consume gt size" for more than there
    /// are. Never moves bytes. An emptied buffer keeps no more memory than kKeptBytes.
    void consume(std::size_t count);

    /// Consumed bytes that still lie in front of the unread ones.
    [[nodiscard]] std::size_t readOffset() const { return readOffset_; }
    /// Bytes of memory held.
    [[nodiscard]] std::size_t capacity() const { return capacity_; }

private:
    /// Makes room for `length` bytes behind the unread ones.
    void makeRoom(std::size_t length);

    std::size_t maxSize_;
    std::unique_ptr<std::uint8_t[]> storage_;
    std::size_t capacity_ = 0;
    std::size_t readOffset_ = 0;
    std::size_t end_ = 0; ///< of the unread bytes, counted from the start of the storage
};

} // namespace ko_player::flv
