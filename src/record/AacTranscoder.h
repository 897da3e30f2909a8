#pragma once

#include "ffmpeg/CodecParameters.h"
#include "ffmpeg/Decoder.h"
#include "ffmpeg/Packet.h"

#include <cstdint>
#include <functional>
#include <memory>

struct AVAudioFifo;
struct AVCodecContext;
struct AVCodecParameters;
struct AVFrame;
struct AVPacket;
struct SwrContext;

namespace ko_player {

/// Turns sound that an MP4 file cannot hold (G.711) into AAC-LC: one channel, at the rate of the source or
/// the next that AAC has, with 64 kbit/s at most. One thread at a time.
class AacTranscoder {
public:
    using Sink = std::function<void(std::shared_ptr<ff_wrap::Packet>)>;

    /// Whether sound of that codec (an AVCodecID) has to go through here.
    [[nodiscard]] static bool isNeededFor(int codecId);

    /// Throws std::runtime_error "AacTranscoder: ..." where decoder, converter or encoder cannot be made.
    explicit AacTranscoder(const AVCodecParameters& source);
    AacTranscoder(const AacTranscoder&) = delete;
    AacTranscoder& operator=(const AacTranscoder&) = delete;
    ~AacTranscoder();

    /// Of the AAC, with its configuration.
    [[nodiscard]] const AVCodecParameters& parameters() const { return *parameters_; }

    /// Takes a packet, whose decode time stamp (milliseconds) says where its sound belongs, and gives what is
    /// complete to `sink`, with stamps in samples of the new rate. A gap in the stamps stays one; sound that
    /// comes a second time is dropped, and so is what cannot be decoded.
    void take(const AVPacket& packet, const Sink& sink);
    /// No more input: gives the rest to `sink`.
    void finish(const Sink& sink);

private:
    struct FreeContext {
        void operator()(AVCodecContext* context) const noexcept;
    };
    struct FreeConverter {
        void operator()(SwrContext* context) const noexcept;
    };
    struct FreeFifo {
        void operator()(AVAudioFifo* fifo) const noexcept;
    };

    void openEncoder(int sourceRate);
    void openConverter();
    void place(std::int64_t position, const Sink& sink);
    void append(const AVFrame& decoded);
    void appendSilence(int samples);
    void encodeFullFrames(const Sink& sink);
    void encode(int samples, const Sink& sink);
    void receive(const Sink& sink);
    [[nodiscard]] int bufferedSamples() const;

    ff_wrap::Decoder decoder_;
    std::unique_ptr<AVCodecContext, FreeContext> encoder_;
    std::unique_ptr<SwrContext, FreeConverter> converter_;
    std::unique_ptr<AVAudioFifo, FreeFifo> fifo_; ///< less than a frame of the encoder between two calls
    ff_wrap::CodecParametersPtr parameters_;
    bool hasPosition_ = false;
    std::int64_t position_ = 0; ///< of the first sample in the fifo, in samples
};

} // namespace ko_player
