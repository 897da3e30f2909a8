#include "output/AudioOutput.h"

#include "base/Log.h"
#include "base/Saturating.h"
#include "base/ThreadEntry.h"
#include "ffmpeg/FfmpegError.h"

extern "C" {
#include <libavutil/frame.h>
}

#include <chrono>
#include <cmath>
#include <exception>
#include <utility>

namespace ko_player {
namespace {

using std::chrono::milliseconds;

// Each pause is 20 ms shorter than the part written before it, so the device's buffer is kept ahead of the
// device.
constexpr milliseconds kPauseAfterLargePart{380};
constexpr milliseconds kPauseAfterSmallPart{180};
constexpr int kPartsPerLogLine = 100;

} // namespace

AudioOutput::AudioOutput(std::shared_ptr<FrameQueue> frames, const AudioParams& out,
                         std::shared_ptr<AudioHandler> handler, std::shared_ptr<PlayerState> state,
                         base::Clock& clock)
    : state_(std::move(state)), frames_(std::move(frames)), handler_(std::move(handler)), clock_(clock),
      converter_(out), out_(out), buffer_(out), thread_([this] { audioTask(); }) {}

AudioOutput::~AudioOutput() {
    frames_->close();
    if (thread_.joinable()) {
        thread_.join();
    }
}

void AudioOutput::join() {
    if (thread_.joinable()) {
        thread_.join();
    }
}

void AudioOutput::audioTask() {
    base::enterThread("audio output");
    try {
        if (state_->shown) {
            playInStep();
        } else {
            playParts();
        }
    } catch (const std::exception& error) {
        base::logAt("ko_player::AudioOutput::audioTask", "exception: ", error.what());
    }
    frames_->close();
    base::logLine("audioTask is finished");
}

void AudioOutput::playParts() {
    for (;;) {
        milliseconds pause = kPauseAfterSmallPart;
        if (std::exchange(resync_, false)) {
            buffer_.prime();
            pause = kPauseAfterLargePart;
        }
        fill();
        writeBuffered();
        clock_.sleepUntil(base::addClamped(clock_.now(), pause));
        if (frames_->isEnded() && buffer_.bufferedBytes() < buffer_.partSize()) {
            writeBuffered();
            return;
        }
    }
}

void AudioOutput::fill() {
    while (buffer_.bufferedBytes() < buffer_.partSize()) {
        const auto frame = frames_->waitPop();
        if (!frame) {
            return;
        }
        const auto bytes = convert(*(*frame)->get());
        buffer_.append(bytes.data(), bytes.size());
    }
}

std::span<const std::uint8_t> AudioOutput::convert(const AVFrame& frame) {
    const auto [size, bytes] = converter_.convert(frame);
    if (bytes == nullptr || size < 1) {
        base::logAt("ko_player::AudioOutput::handleFrame", "conversion failed: ", ff_wrap::errorText(size));
        return {};
    }
    const double durationMs = details::frameDuration(frame.nb_samples, frame.sample_rate);
    lastTimestampMs_ = frame.pts;
    endTimestampMs_ = base::addSaturated(frame.pts, base::toInt64Saturated(std::ceil(durationMs)));
    if (std::exchange(firstFrame_, false)) {
        firstTimestampMs_ = frame.pts;
    }
    return {bytes, static_cast<std::size_t>(size)};
}

void AudioOutput::writeBuffered() {
    constexpr auto kName = "ko_player::AudioOutput::writeBuffered";
    if (state_->pauseCtrl->wait()) {
        resync_ = true;
    }
    const auto part = buffer_.front();
    if (handler_ && !part.empty()) {
        handler_->onAudioData(part.data(), static_cast<int>(part.size()));
    }
    const bool wasLarge = buffer_.consumePart();
    ++partsWritten_;
    if (wasLarge) {
        base::logAt(kName, "AudioBuf big fragment is written: ", partsWritten_);
    }
    if (partsWritten_ % kPartsPerLogLine == 0) {
        base::logAt(kName, "AudioBuf ", partsWritten_, " parts were written");
    }
}

void AudioOutput::playInStep() {
    SyncedSound sound({.frames = frames_,
                       .handler = handler_,
                       .state = state_,
                       .convert = [this](const AVFrame& frame) { return convert(frame); },
                       .setSpeedUp = [this](int ppm) { converter_.setSpeedUp(ppm); }},
                      out_, clock_);
    sound.play();
}

} // namespace ko_player
