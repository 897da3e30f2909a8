#pragma once

#include "records/MediaParams.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <span>
#include <vector>

namespace ko_player::details {

/// Converted sound on its way to the device, which knows the time stamp of its every byte. Where it is cut or
/// silence comes between, its ends are blended over a few milliseconds, so that nothing clicks; it is cut
/// where both sides are alike, so that a voice or tone goes on (16-bit samples only). Used by the audio
/// output thread only.
class StampedSound {
public:
    /// Throws std::logic_error "AudioBuffer invalid audio params".
    explicit StampedSound(const AudioParams& params);

    /// `stampMs` is that of the first sample.
    void append(const std::uint8_t* data, std::size_t size, std::int64_t stampMs);

    [[nodiscard]] double durationMs() const { return toMs(bytes_.size()); }
    [[nodiscard]] bool empty() const { return bytes_.empty(); }
    /// Of the next sample; 0 when there is none.
    [[nodiscard]] double stampMs() const;

    /// Takes up to that much from the front, but no more than up to a break in the stamps: what lies behind
    /// one has a place of its own. At least one sample if there is one. Valid until the next call.
    [[nodiscard]] std::span<const std::uint8_t> take(double ms);
    /// Silence, blended into what comes next. Valid until the next call.
    [[nodiscard]] std::span<const std::uint8_t> silence(double ms);
    /// Drops that much, to a few milliseconds, blended over; what is not there yet is dropped when it comes.
    void skip(double ms);
    /// Drops up to that much of what is there, for nobody hears it.
    void drop(double ms);

private:
    struct Piece {
        std::size_t bytes;
        std::size_t consumed;
        double stampMs;
    };

    [[nodiscard]] double toMs(std::size_t bytes) const {
        return static_cast<double>(bytes) * 1000 / bytesPerSecond_;
    }
    /// Whole sample frames.
    [[nodiscard]] std::size_t toBytes(double ms) const;
    [[nodiscard]] std::size_t untilBreak(std::size_t limit) const;
    void dropBytes(std::size_t bytes);
    [[nodiscard]] std::int16_t sampleAt(std::size_t frame) const;
    /// The place within `range` frames from `frame` on that is most like the front.
    [[nodiscard]] std::size_t mostLikeFront(std::size_t frame, std::size_t range) const;
    void blendIn(std::span<const std::uint8_t> before);
    void fadeIn();

    std::vector<std::uint8_t> bytes_;
    std::vector<std::uint8_t> taken_;
    std::deque<Piece> pieces_; ///< what bytes_ is made of
    double skipMs_ = 0;        ///< still to be dropped
    bool fadesIn_ = false;     ///< silence lies before the next sample
    std::size_t frameBytes_ = 0;
    double bytesPerSecond_ = 0;
    bool canBlend_ = false;
};

} // namespace ko_player::details
