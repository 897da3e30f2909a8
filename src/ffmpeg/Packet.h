#pragma once

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

private:
    struct Free {
        void operator()(AVPacket* packet) const noexcept;
    };
    std::unique_ptr<AVPacket, Free> packet_;
};

} // namespace ko_player::ff_wrap
