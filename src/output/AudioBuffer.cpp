#include "output/AudioBuffer.h"

#include "base/Log.h"

extern "C" {
#include <libavutil/samplefmt.h>
}

#include <algorithm>
#include <stdexcept>

namespace ko_player::details {
namespace {

constexpr std::size_t kLargePartTenths = 4; ///< of a second
constexpr std::size_t kSmallPartTenths = 2;

} // namespace

double frameDuration(int samples, int sampleRate) {
    if (samples > 0) {
        return samples * 1000.0 / sampleRate;
    }
    base::logAt("ko_player::details::frameDuration", "ivalid frame sample rate: ", samples);
    return 0.0;
}

AudioBuffer::AudioBuffer(const AudioParams& params) : sampleRate_(params.sampleRate) {
    const auto format = static_cast<AVSampleFormat>(params.format);
    bytesPerSampleFrame_ = av_samples_get_buffer_size(nullptr, params.channels, 1, format, 1);
    bytesPerSecond_ = av_samples_get_buffer_size(nullptr, params.channels, params.sampleRate, format, 1);
    if (bytesPerSampleFrame_ < 1 || bytesPerSecond_ < 1) {
        throw std::logic_error("AudioBuffer invalid audio params");
    }
    const auto tenth = static_cast<std::size_t>(bytesPerSecond_ / 10);
    largePartSize_ = kLargePartTenths * tenth;
    smallPartSize_ = kSmallPartTenths * tenth;
    base::logAt("ko_player::details::AudioBuffer::AudioBuffer", "AudioBuffer: bps: ", bytesPerSecond_,
                " rate: ", sampleRate_, " minpart: ", smallPartSize_);
}

void AudioBuffer::append(const std::uint8_t* data, std::size_t size) {
    bytes_.insert(bytes_.end(), data, data + size);
    bufferedDurationMs_ += std::max(0.0, durationOf(size));
}

std::span<const std::uint8_t> AudioBuffer::front() const {
    return std::span(bytes_).first(std::min(partSize(), bytes_.size()));
}

bool AudioBuffer::consumePart() {
    const std::size_t part = partSize();
    if (bytes_.size() <= part) {
        bytes_.clear();
        bufferedDurationMs_ = 0.0;
    } else {
        bytes_.erase(bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(part));
        bufferedDurationMs_ = std::max(0.0, durationOf(bytes_.size()));
    }
    const bool wasLarge = !largePartWritten_;
    largePartWritten_ = true;
    return wasLarge;
}

double AudioBuffer::durationOf(std::size_t bytes) const {
    return frameDuration(static_cast<int>(bytes / static_cast<std::size_t>(bytesPerSampleFrame_)),
                         sampleRate_);
}

} // namespace ko_player::details
