#pragma once

#include "records/MediaParams.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace ko_player::details {

/// Duration in milliseconds. Logs "ivalid frame sample rate: " and gives 0 where there are no samples.
[[nodiscard]] double frameDuration(int samples, int sampleRate);

/// The staging buffer between the converter and the device: it cuts sound into one large part (400 ms) when
/// playback starts or resumes, and small parts (200 ms) after it. Used by the audio output thread only.
class AudioBuffer {
public:
    /// Throws std::logic_error "AudioBuffer invalid audio params".
    explicit AudioBuffer(const AudioParams& params);

    /// Bytes of the part that is to be written next.
    [[nodiscard]] std::size_t partSize() const { return largePartWritten_ ? smallPartSize_ : largePartSize_; }
    [[nodiscard]] std::size_t bufferedBytes() const { return bytes_.size(); }
    [[nodiscard]] double bufferedDurationMs() const { return bufferedDurationMs_; }

    void append(const std::uint8_t* data, std::size_t size);

    /// What the next part holds: at most `partSize()` bytes, fewer where fewer are buffered.
    [[nodiscard]] std::span<const std::uint8_t> front() const;

    /// Drops what front() gave. Returns true when that was the large part.
    bool consumePart();

    /// The next part is a large one again.
    void prime() { largePartWritten_ = false; }

private:
    [[nodiscard]] double durationOf(std::size_t bytes) const;

    bool largePartWritten_ = false;
    std::vector<std::uint8_t> bytes_; ///< filled at the end, consumed from the front
    double bufferedDurationMs_ = 0.0;
    int bytesPerSampleFrame_ = 0;
    int bytesPerSecond_ = 0;
    int sampleRate_ = 0; ///< Hz
    std::size_t largePartSize_ = 0;
    std::size_t smallPartSize_ = 0;
};

} // namespace ko_player::details
