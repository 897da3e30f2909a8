#include "output/StampedSound.h"

extern "C" {
#include <libavutil/samplefmt.h>
}

#include <algorithm>
#include <cmath>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace ko_player::details {
namespace {

constexpr double kBlendMs = 6;
/// A period of a deep voice.
constexpr double kSearchMs = 10;
/// Stamps are whole milliseconds and drift a little against the samples; more is a break.
constexpr double kBreakMs = 30;

} // namespace

StampedSound::StampedSound(const AudioParams& params) {
    const auto format = static_cast<AVSampleFormat>(params.format);
    const int frame = av_samples_get_buffer_size(nullptr, params.channels, 1, format, 1);
    if (frame < 1 || params.sampleRate < 1) {
        throw std::logic_error("AudioBuffer invalid audio params");
    }
    frameBytes_ = static_cast<std::size_t>(frame);
    bytesPerSecond_ = static_cast<double>(frame) * params.sampleRate;
    canBlend_ = format == AV_SAMPLE_FMT_S16;
}

std::size_t StampedSound::toBytes(double ms) const {
    return ms <= 0
               ? 0
               : static_cast<std::size_t>(ms * bytesPerSecond_ / 1000 / static_cast<double>(frameBytes_)) *
                     frameBytes_;
}

void StampedSound::append(const std::uint8_t* data, std::size_t size, std::int64_t stampMs) {
    if (size == 0) {
        return;
    }
    bytes_.insert(bytes_.end(), data, data + size);
    pieces_.push_back({size, 0, static_cast<double>(stampMs)});
    if (skipMs_ > 0) {
        skip(std::exchange(skipMs_, 0));
    }
    if (fadesIn_ && !bytes_.empty()) {
        fadeIn();
    }
}

double StampedSound::stampMs() const {
    return pieces_.empty() ? 0 : pieces_.front().stampMs + toMs(pieces_.front().consumed);
}

std::span<const std::uint8_t> StampedSound::take(double ms) {
    const std::size_t size = untilBreak(std::min(std::max(toBytes(ms), frameBytes_), bytes_.size()));
    taken_.assign(bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(size));
    dropBytes(size);
    return taken_;
}

std::size_t StampedSound::untilBreak(std::size_t limit) const {
    std::size_t size = 0;
    for (std::size_t i = 0; i < pieces_.size() && size < limit; ++i) {
        if (i > 0) {
            const Piece& before = pieces_[i - 1];
            if (std::abs(before.stampMs + toMs(before.bytes) - pieces_[i].stampMs) > kBreakMs) {
                return size;
            }
        }
        size += pieces_[i].bytes - pieces_[i].consumed;
    }
    return std::min(size, limit);
}

std::span<const std::uint8_t> StampedSound::silence(double ms) {
    const std::size_t size = toBytes(ms);
    taken_.assign(size, 0); // also in the unsigned 8-bit format, which no device gets
    fadesIn_ = fadesIn_ || size > 0;
    if (fadesIn_ && !bytes_.empty()) {
        fadeIn();
    }
    return taken_;
}

void StampedSound::skip(double ms) {
    const std::size_t wanted = toBytes(ms);
    std::size_t size = std::min(wanted, bytes_.size());
    const std::size_t blended = std::min(toBytes(kBlendMs), size);
    const std::vector<std::uint8_t> before(bytes_.begin(),
                                           bytes_.begin() + static_cast<std::ptrdiff_t>(blended));
    skipMs_ = toMs(wanted - size);
    const std::size_t range = toBytes(kSearchMs);
    if (canBlend_ && blended > 0 && size >= range / 2 && size + range / 2 + blended <= bytes_.size()) {
        size = mostLikeFront((size - range / 2) / frameBytes_, range / frameBytes_) * frameBytes_;
    }
    dropBytes(size);
    blendIn(before);
}

std::int16_t StampedSound::sampleAt(std::size_t frame) const {
    std::int16_t sample = 0;
    std::memcpy(&sample, bytes_.data() + frame * frameBytes_, sizeof(sample));
    return sample;
}

std::size_t StampedSound::mostLikeFront(std::size_t frame, std::size_t range) const {
    const std::size_t compared = toBytes(kBlendMs) / frameBytes_;
    const auto likeness = [&](std::size_t place) {
        double product = 0;
        double energy = 1;
        for (std::size_t i = 0; i < compared; ++i) { // the first channel will do
            const double there = sampleAt(place + i);
            product += there * sampleAt(i);
            energy += there * there;
        }
        return product / std::sqrt(energy);
    };
    std::size_t best = frame + range / 2;
    double bestLikeness = likeness(best);
    for (std::size_t place = frame; place <= frame + range; ++place) {
        if (const double here = likeness(place); here > bestLikeness) {
            bestLikeness = here;
            best = place;
        }
    }
    return best;
}

void StampedSound::drop(double ms) {
    dropBytes(std::min(std::max(toBytes(ms), frameBytes_), bytes_.size()));
}

void StampedSound::dropBytes(std::size_t bytes) {
    bytes_.erase(bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(bytes));
    while (bytes > 0) {
        Piece& piece = pieces_.front();
        const std::size_t part = std::min(bytes, piece.bytes - piece.consumed);
        piece.consumed += part;
        bytes -= part;
        if (piece.consumed == piece.bytes) {
            pieces_.pop_front();
        }
    }
}

void StampedSound::blendIn(std::span<const std::uint8_t> before) {
    if (!canBlend_) {
        return;
    }
    const std::size_t frames = std::min(before.size(), bytes_.size()) / frameBytes_;
    const std::size_t channels = frameBytes_ / sizeof(std::int16_t);
    for (std::size_t i = 0; i < frames * channels; ++i) {
        std::int16_t from = 0;
        std::int16_t to = 0;
        std::memcpy(&from, before.data() + i * sizeof(from), sizeof(from));
        std::memcpy(&to, bytes_.data() + i * sizeof(to), sizeof(to));
        const std::size_t frame = i / channels;
        const double share = static_cast<double>(frame + 1) / static_cast<double>(frames + 1);
        to = static_cast<std::int16_t>(std::lround(from + (to - from) * share));
        std::memcpy(bytes_.data() + i * sizeof(to), &to, sizeof(to));
    }
}

void StampedSound::fadeIn() {
    fadesIn_ = false;
    blendIn(std::vector<std::uint8_t>(toBytes(kBlendMs), 0));
}

} // namespace ko_player::details
