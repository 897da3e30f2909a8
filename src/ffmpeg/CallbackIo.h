#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

struct AVIOContext;

namespace ko_player::ff_wrap {

/// A place for FFmpeg's writers to write to that is no file: everything goes to a function. One thread at a
/// time.
class CallbackIo {
public:
    /// Takes bytes for a position; gives an FFmpeg error, or 0. What it throws becomes "out of memory".
    using Write = std::function<int(std::int64_t position, const std::uint8_t* data, std::size_t size)>;

    /// Throws std::bad_alloc.
    explicit CallbackIo(Write write);
    CallbackIo(const CallbackIo&) = delete;
    CallbackIo& operator=(const CallbackIo&) = delete;
    ~CallbackIo() = default;

    [[nodiscard]] AVIOContext* get() const noexcept { return io_.get(); }
    /// Where the next byte goes.
    [[nodiscard]] std::int64_t position() const;
    /// An FFmpeg error, or 0.
    [[nodiscard]] int seek(std::int64_t position);
    /// Passes on what is still held; gives the first error that a write had, or 0.
    [[nodiscard]] int flush();

private:
    struct Free {
        void operator()(AVIOContext* io) const noexcept;
    };

    int pass(const std::uint8_t* data, int size) noexcept;
    std::int64_t go(std::int64_t offset, int whence) noexcept;

    const Write write_;
    std::int64_t position_ = 0; ///< of what is passed on next
    std::unique_ptr<AVIOContext, Free> io_;
};

} // namespace ko_player::ff_wrap
