#include "sound/AudioSink.h"

#include "base/Log.h"
#include "sound/VolumeRule.h"

#include <algorithm>
#include <chrono>
#include <limits>
#include <string>
#include <utility>

namespace {

constexpr int kBytesPerSample = 2;
constexpr int kMsPerSecond = 1000;
constexpr std::chrono::milliseconds kFullDeviceWait{100};
constexpr int kMostEmptyPasses = 4;

const char* startText(AudioError error) {
    switch (error) {
    case AudioError::None:
        return "audio device has been sucessfully started";
    case AudioError::Open:
        return "an error occurred opening the audio device";
    case AudioError::ReadWrite:
        return "an error occurred during read/write of audio device";
    case AudioError::Underrun:
        return "audio data is not being fed to the audio device at a fast enough rate";
    case AudioError::Fatal:
        return "a non-recoverable error has occurred, the audio device is not usable at this time";
    case AudioError::Unknown:
        break;
    }
    return "";
}

/// Rate and channels come from the stream.
int bufferBytes(const PcmFormat& format, int bufferMs) {
    constexpr std::int64_t kMost = std::numeric_limits<int>::max() / kBytesPerSample;
    const std::int64_t perSecond =
        std::clamp(std::int64_t{format.sampleRate} * format.channels, -kMost, kMost);
    return static_cast<int>(std::clamp(perSecond * bufferMs / kMsPerSecond, -kMost, kMost) * kBytesPerSample);
}

} // namespace

AudioSink::AudioSink(RunOnDeviceThread runOnDeviceThread, AudioDeviceFactory makeDevice, base::Clock& clock,
                     int bufferMs)
    : runOnDeviceThread_(std::move(runOnDeviceThread)), makeDevice_(std::move(makeDevice)), clock_(clock),
      bufferMs_(bufferMs) {}

AudioSink::~AudioSink() {
    runOnDeviceThread_([this] { dropDevice(); });
}

bool AudioSink::setParams(const ko_player::AudioParams& in, ko_player::AudioParams& out) {
    out = ko_player::deviceParams(in);

    bool accepted = true;
    runOnDeviceThread_([&] {
        format_ = {.sampleRate = in.sampleRate, .channels = in.channels};
        if (device_) {
            accepted = restartDevice();
        }
    });
    return accepted;
}

void AudioSink::write(const std::uint8_t* data, int size) {
    const std::uint64_t device = currentDevice_;
    if (device == 0 || data == nullptr || size < 1) {
        return;
    }
    std::int64_t remaining = size;
    int emptyPasses = 0;
    while (true) {
        Pass pass = Pass::Failed;
        runOnDeviceThread_([&] { pass = writePass(device, data, remaining); });
        if (pass == Pass::Failed || remaining <= 0) {
            return;
        }
        if (pass == Pass::WroteNothing && ++emptyPasses == kMostEmptyPasses) {
            return;
        }
        clock_.sleepUntil(clock_.now() + kFullDeviceWait);
        if (currentDevice_ != device) {
            return;
        }
    }
}

AudioSink::Pass AudioSink::writePass(std::uint64_t device, const std::uint8_t*& data,
                                     std::int64_t& remaining) {
    if (currentDevice_ != device || !device_->isWritable()) {
        return Pass::Failed;
    }
    const std::int64_t size = std::min<std::int64_t>(remaining, device_->bytesFree());
    const std::int64_t written = device_->write(reinterpret_cast<const char*>(data), size);
    const bool complete = written == size;
    base::logLine("audio written: ", written, ", len: ", size, ", vol: ", device_->volume(),
                  complete ? "" : " ", complete ? std::string() : device_->errorString().toStdString());
    if (written < 0) {
        return Pass::Failed;
    }
    if (written == 0) {
        return Pass::WroteNothing;
    }
    data += written;
    remaining -= written;
    if (blocks_) {
        blocks_->wrote(written);
    }
    held_->wrote(durationMs(written), clock_.now());
    return Pass::Wrote;
}

std::optional<ko_player::SoundLevel> AudioSink::level() {
    std::optional<ko_player::SoundLevel> level;
    if (currentDevice_ == 0) {
        return level;
    }
    runOnDeviceThread_([&] {
        if (currentDevice_ == 0 || !device_->isWritable() || device_->bufferSize() < 1) {
            return;
        }
        const int freeBytes = device_->bytesFree();
        const int capacityBytes = device_->bufferSize();
        held_->update(durationMs(queuedBytes(freeBytes, capacityBytes)), clock_.now());
        level = {.device = currentDevice_,
                 .isPlaying = held_->isPlaying(),
                 .heldMs = held_->ms(),
                 .roomMs = durationMs(freeBytes),
                 .capacityMs = durationMs(capacityBytes)};
    });
    return level;
}

std::int64_t AudioSink::queuedBytes(int freeBytes, int capacityBytes) {
    return blocks_ ? blocks_->held(freeBytes) : std::max(capacityBytes - freeBytes, 0);
}

double AudioSink::durationMs(std::int64_t bytes) const {
    const double bytesPerSecond = 1.0 * format_.sampleRate * format_.channels * kBytesPerSample;
    return bytesPerSecond > 0 ? static_cast<double>(bytes) * kMsPerSecond / bytesPerSecond : 0;
}

void AudioSink::setPaused(bool paused) {
    if (currentDevice_ == 0) {
        return;
    }
    runOnDeviceThread_([&] {
        if (currentDevice_ == 0) {
            return;
        }
        if (paused) {
            device_->suspend();
            held_->suspend(clock_.now());
        } else {
            device_->resume();
            held_->resume(clock_.now());
        }
    });
}

void AudioSink::start() {
    runOnDeviceThread_([this] {
        if (!device_) {
            restartDevice();
        }
    });
}

void AudioSink::stop() {
    runOnDeviceThread_([this] {
        volumePercent_ = 0;
        dropDevice();
    });
}

void AudioSink::setVolume(int percent) {
    runOnDeviceThread_([this, percent] { applyVolume(percent); });
}

bool AudioSink::restartDevice() {
    dropDevice();
    device_ = makeDevice_(format_);
    if (!device_) {
        base::logLine("Failed to create audio output");
        return false;
    }
    currentDevice_ = ++devicesMade_;
    held_.emplace(device_->roomComes());
    device_->setBufferSize(bufferBytes(format_, bufferMs_));
    device_->start();
    blocks_.reset();
    if (device_->blockSize() > 0) {
        blocks_.emplace(device_->blockSize(), device_->bufferSize());
    }
    const AudioError error = device_->error();
    base::logLine("Trying to start audio device: ", startText(error));
    if (error != AudioError::None) {
        return false;
    }
    applyVolume(volumePercent_);
    return true;
}

void AudioSink::dropDevice() {
    currentDevice_ = 0;
    device_.reset();
}

void AudioSink::applyVolume(int percent) {
    if (device_) {
        device_->setVolume(outputVolume(percent, device_->volume()));
    }
    volumePercent_ = percent;
}
