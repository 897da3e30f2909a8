#pragma once

#include "records/Handlers.h"

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

extern "C" {
#include <libavutil/pixfmt.h>
}

/// The far side of the engine, for tests: it writes down what it is told.
namespace mediaworker::test {

class FakeVideoHandler final : public ko_player::VideoHandler {
public:
    // Set before the engine runs.
    std::function<bool()> timeoutAnswer = [] { return false; };
    std::function<std::uint8_t*(const ko_player::VideoParams&, ko_player::VideoParams&)> answerParams =
        [](const ko_player::VideoParams& in, ko_player::VideoParams& out) -> std::uint8_t* {
        out = in;
        out.format = AV_PIX_FMT_BGRA;
        return nullptr;
    };

    void expectPicture(int width, int height) override {
        add("expect " + std::to_string(width) + "x" + std::to_string(height));
    }
    bool onFrameTimeout() override {
        add("timeout");
        return timeoutAnswer();
    }
    void onStopped() override { add("stopped"); }
    std::uint8_t* onVideoParams(const ko_player::VideoParams& in, ko_player::VideoParams& out) override {
        add("params " + std::to_string(in.width) + "x" + std::to_string(in.height));
        return answerParams(in, out);
    }
    void onFrame(const std::uint8_t* data, int size, std::int64_t pts) override {
        const std::lock_guard lock(mutex_);
        lastData_ = data;
        lastSize_ = size;
        shown_.push_back(pts);
        events_.push_back("frame " + std::to_string(pts));
        changed_.notify_all();
    }
    void onMetadataValue(std::int64_t value) override { add("value " + std::to_string(value)); }
    void onMetadataPair(std::int64_t first, std::int64_t second) override {
        add("pair " + std::to_string(first) + " " + std::to_string(second));
    }
    ko_player::ResourceGuard lockFrameBuffer() override {
        return ko_player::ResourceGuard([this] { add("lock"); }, [this] { add("unlock"); });
    }

    [[nodiscard]] std::vector<std::string> events() const {
        const std::lock_guard lock(mutex_);
        return events_;
    }
    [[nodiscard]] std::vector<std::int64_t> shown() const {
        const std::lock_guard lock(mutex_);
        return shown_;
    }
    [[nodiscard]] int lastSize() const {
        const std::lock_guard lock(mutex_);
        return lastSize_;
    }
    [[nodiscard]] const std::uint8_t* lastData() const {
        const std::lock_guard lock(mutex_);
        return lastData_;
    }
    [[nodiscard]] int count(const std::string& event) const {
        const std::lock_guard lock(mutex_);
        return static_cast<int>(std::count(events_.begin(), events_.end(), event));
    }
    void waitForShown(std::size_t pictures) const {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return shown_.size() >= pictures; });
    }
    void waitForEvent(const std::string& event, int times = 1) const {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return std::count(events_.begin(), events_.end(), event) >= times; });
    }

private:
    void add(std::string event) {
        const std::lock_guard lock(mutex_);
        events_.push_back(std::move(event));
        changed_.notify_all();
    }

    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    // Guarded by mutex_.
    std::vector<std::string> events_;
    std::vector<std::int64_t> shown_;
    const std::uint8_t* lastData_ = nullptr;
    int lastSize_ = 0;
};

class FakeAudioHandler final : public ko_player::AudioHandler {
public:
    std::function<bool(const ko_player::AudioParams&, ko_player::AudioParams&)> answerParams =
        [](const ko_player::AudioParams& in, ko_player::AudioParams& out) {
            out = in;
            out.format = 1; // AV_SAMPLE_FMT_S16
            return true;
        };

    bool onAudioParams(const ko_player::AudioParams& in, ko_player::AudioParams& out) override {
        return answerParams(in, out);
    }
    void onAudioData(const std::uint8_t* data, int size) override {
        const std::lock_guard lock(mutex_);
        parts_.emplace_back(data, data + size);
        if (level_) {
            level_->heldMs += size / kBytesPerMs;
            level_->roomMs -= size / kBytesPerMs;
        }
        changed_.notify_all();
    }
    std::optional<ko_player::SoundLevel> soundLevel() override {
        const std::lock_guard lock(mutex_);
        return level_;
    }
    void onAudioPause(bool paused) override {
        const std::lock_guard lock(mutex_);
        pauses_ += paused ? "pause " : "resume ";
        changed_.notify_all();
    }

    /// It rises with what is written: 8000 Hz, mono, 16 bit.
    void setLevel(const std::optional<ko_player::SoundLevel>& level) {
        const std::lock_guard lock(mutex_);
        level_ = level;
    }
    void waitForPauses(const std::string& expected) const {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return pauses_ == expected; });
    }
    [[nodiscard]] std::vector<std::vector<std::uint8_t>> parts() const {
        const std::lock_guard lock(mutex_);
        return parts_;
    }
    void waitForParts(std::size_t count) const {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return parts_.size() >= count; });
    }

private:
    static constexpr double kBytesPerMs = 16;

    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    // Guarded by mutex_.
    std::vector<std::vector<std::uint8_t>> parts_;
    std::optional<ko_player::SoundLevel> level_; ///< nothing: no device
    std::string pauses_;
};

} // namespace mediaworker::test
