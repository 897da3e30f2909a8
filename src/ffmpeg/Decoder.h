#pragma once

#include <memory>

struct AVCodecContext;
struct AVCodecParameters;
struct AVRational;

namespace ko_player::ff_wrap {

/// An opened decoder. Used by one thread at a time; in production the decoder thread of its QueuedDecoder.
class Decoder {
public:
    /// `timeBase` is that of the packets. Throws std::runtime_error with "Decoder.ctor: ..." where the
    /// parameters are refused or no decoder can be opened for them.
    Decoder(const AVCodecParameters* parameters, AVRational timeBase);

    [[nodiscard]] AVCodecContext* context() const noexcept { return context_.get(); }

private:
    struct Free {
        void operator()(AVCodecContext* context) const noexcept;
    };
    std::unique_ptr<AVCodecContext, Free> context_;
};

} // namespace ko_player::ff_wrap
