#pragma once

#include <cstddef>
#include <memory>

struct AVPacket;

namespace ko_player::ff_wrap {

/// Owns one FFmpeg packet, empty at first. Travels between threads as std::shared_ptr<Packet>; never copied.
class Packet {
public:
    /// Throws std::bad_alloc.
    Packet();

    [[nodiscard]] AVPacket* get() noexcept { return packet_.get(); }
    [[nodiscard]] const AVPacket* get() const noexcept { return packet_.get(); }
    AVPacket* operator->() noexcept { return packet_.get(); }
    const AVPacket* operator->() const noexcept { return packet_.get(); }

    /// Payload size in bytes, for accounting. Throws std::runtime_error "ff_wrap::Packet size neg".
    [[nodiscard]] int size() const;

    /// What a packet costs beside payload and side data: itself, what counts its references, padding, and
    /// what the allocator adds to each of its half dozen pieces. Measured with channels full of packets of
    /// 1 and 5 bytes: 430 to 460 bytes each.
    static constexpr std::size_t kOverheadBytes = 512;
    /// What it costs in memory, about. Throws as size() does.
    [[nodiscard]] std::size_t heldBytes() const;

private:
    struct Free {
        void operator()(AVPacket* packet) const noexcept;
    };
    std::unique_ptr<AVPacket, Free> packet_;
};

} // namespace ko_player::ff_wrap
