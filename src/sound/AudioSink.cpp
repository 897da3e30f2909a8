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

/// One second of sound. Rate and channels come from the stream.
int bufferBytes(const PcmFormat& format) {
    const std::int64_t bytes = std::int64_t{format.sampleRate} * format.channels;
    constexpr std::int64_t kMost = std::numeric_limits<int>::max();
    return static_cast<int>(std::clamp(bytes, -kMost / kBytesPerSample, kMost / kBytesPerSample) *
                            kBytesPerSample);
}

} // namespace

AudioSink::AudioSink(RunOnDeviceThread runOnDeviceThread, AudioDeviceFactory makeDevice, base::Clock& clock)
    : runOnDeviceThread_(std::move(runOnDeviceThread)), makeDevice_(std::move(makeDevice)), clock_(clock) {}

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
    return Pass::Wrote;
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
    device_->setBufferSize(bufferBytes(format_));
    device_->start();
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
