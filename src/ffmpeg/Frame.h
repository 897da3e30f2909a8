#pragma once

#include <cstddef>
#include <memory>

struct AVFrame;

namespace ko_player::ff_wrap {

/// Owns one FFmpeg frame, empty at first. Travels between threads as std::shared_ptr<Frame>; never copied.
class Frame {
public:
    /// Throws std::runtime_error "Frame av_frame_alloc failed".
    Frame();

    [[nodiscard]] AVFrame* get() noexcept { return frame_.get(); }
    [[nodiscard]] const AVFrame* get() const noexcept { return frame_.get(); }
    /// What its samples or pixels cost in memory.
    [[nodiscard]] std::size_t heldBytes() const noexcept;
    /// Drops what a decoder has attached to the samples or pixels: nobody asks for it, and a stream can
    /// attach megabytes to a small picture.
    void dropSideData() noexcept;

    AVFrame* operator->() noexcept { return frame_.get(); }
    const AVFrame* operator->() const noexcept { return frame_.get(); }

private:
    struct Free {
        void operator()(AVFrame* frame) const noexcept;
    };
    std::unique_ptr<AVFrame, Free> frame_;
};

} // namespace ko_player::ff_wrap
