// The engine's sound in step with pictures, on a device whose clock is not that of the computer, over
// simulated hours.

#include "output/AudioSwr.h"
#include "output/SyncedSound.h"
#include "sound/AudioSink.h"
#include "support/LogCapture.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/frame.h>
#include <libavutil/samplefmt.h>
}

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>
#include <functional>
#include <vector>

namespace {

constexpr int kRate = 8000;
constexpr double kSamplesPerMs = 8;
/// A sample tells its stamp: eight steps a millisecond, and round again.
constexpr int kCodeMs = 4000;
constexpr int kPictureMs = 40;
constexpr int kSoundMs = 40;

/// Whoever waits moves time on; one thread does everything.
class SimulatedClock final : public base::Clock {
public:
    /// What the world does meanwhile; called every millisecond.
    std::function<void(double ms)> world = [](double) {};

    [[nodiscard]] base::TimePoint now() const override { return now_; }
    [[nodiscard]] double ms() const {
        return std::chrono::duration<double, std::milli>(now_ - kBegin).count();
    }
    void sleepUntil(base::TimePoint deadline) override {
        while (now_ < deadline) {
            now_ += std::min<base::nanoseconds>(deadline - now_, std::chrono::milliseconds(1));
            world(ms());
        }
    }
    using base::Clock::waitUntil;
    void waitUntil(std::condition_variable&, std::unique_lock<std::mutex>& lock,
                   base::TimePoint deadline) override {
        lock.unlock();
        sleepUntil(std::min(deadline, now_ + std::chrono::milliseconds(1)));
        lock.lock();
    }
    [[nodiscard]] static base::TimePoint at(double ms) {
        return kBegin +
               std::chrono::duration_cast<base::nanoseconds>(std::chrono::duration<double, std::milli>(ms));
    }

private:
    static constexpr base::TimePoint kBegin{std::chrono::hours(1)};
    base::TimePoint now_ = kBegin;
};

/// A sound server that takes blocks, and knows what it plays at any moment.
class Card final : public AudioDevice {
public:
    /// Is known at `place` while it lives.
    Card(Card*& place, int& timesDry, double speed, double blockMs)
        : place_(place), timesDry_(timesDry), speed_(speed), blockMs_(blockMs) {
        place_ = this;
    }
    Card(const Card&) = delete;
    Card& operator=(const Card&) = delete;
    ~Card() override { place_ = nullptr; }

    void setBufferSize(int bytes) override { bufferBytes_ = bytes; }
    void start() override {}
    AudioError error() const override { return AudioError::None; }
    bool isWritable() const override { return true; }
    int bufferSize() const override { return bufferBytes_; }
    int bytesFree() const override { return bufferBytes_ - static_cast<int>(2 * (written_ - taken_)); }
    qint64 write(const char* data, qint64 size) override {
        std::vector<std::int16_t> samples(static_cast<std::size_t>(size) / 2);
        std::memcpy(samples.data(), data, samples.size() * 2);
        samples_.insert(samples_.end(), samples.begin(), samples.end());
        written_ += static_cast<double>(samples.size());
        return size;
    }
    QString errorString() const override { return {}; }
    double volume() const override { return 1; }
    void setVolume(double) override {}
    void suspend() override { isSuspended_ = true; }
    void resume() override { isSuspended_ = false; }

    /// A millisecond goes by.
    void pass() {
        if (isSuspended_) {
            return;
        }
        const double buffered = written_ - taken_;
        if (!isPlaying_ && 2 * buffered >= bufferBytes_ * 0.95) {
            isPlaying_ = true;
        }
        if (!isPlaying_) {
            return;
        }
        if (played_ >= taken_) {
            taken_ = std::min(written_, taken_ + blockMs_ * kSamplesPerMs);
        }
        played_ += kSamplesPerMs * speed_;
        if (played_ >= written_) {
            played_ = taken_ = written_;
            isPlaying_ = false;
            ++timesDry_;
        }
    }
    /// What is heard now; below 0: nothing.
    [[nodiscard]] int sample() const {
        return isPlaying_ && !isSuspended_ ? samples_[static_cast<std::size_t>(played_)] : -1;
    }

private:
    Card*& place_;
    int& timesDry_;
    const double speed_;
    const double blockMs_;
    int bufferBytes_ = 0;
    std::vector<std::int16_t> samples_;
    double written_ = 0;
    double taken_ = 0;
    double played_ = 0;
    bool isPlaying_ = false;
    bool isSuspended_ = false;
};

std::shared_ptr<ko_player::ff_wrap::Frame> soundFrame(double ms) {
    auto frame = std::make_shared<ko_player::ff_wrap::Frame>();
    AVFrame* sound = frame->get();
    sound->nb_samples = static_cast<int>(kSoundMs * kSamplesPerMs);
    sound->sample_rate = kRate;
    sound->format = AV_SAMPLE_FMT_S16;
    sound->pts = static_cast<std::int64_t>(ms);
    av_channel_layout_default(&sound->ch_layout, 1);
    if (av_frame_get_buffer(sound, 0) < 0) {
        throw std::bad_alloc();
    }
    auto* samples = reinterpret_cast<std::int16_t*>(sound->data[0]);
    for (int i = 0; i < sound->nb_samples; ++i) {
        const auto code = (static_cast<std::int64_t>(ms) * 8 + i) % (std::int64_t{8} * kCodeMs);
        samples[i] = static_cast<std::int16_t>(code);
    }
    return frame;
}

struct World {
    double speed = 1;
    double blockMs = 20;
    int bufferMs = 400;
    double aheadMs = 1000; ///< how long before their time sound frames come
    double minutes = 1;
    double soundFromMs = 0;
    double picturesStopAtMs = 1e9;
};

struct Result {
    std::vector<std::pair<double, double>> late; ///< every 10 ms that were heard: time, and by how much
    int timesDry = 0;
    double lastHeardMs = 0;

    /// From that time on.
    [[nodiscard]] std::pair<double, double> range(double fromMs) const {
        double least = 1e9;
        double most = -1e9;
        for (const auto& [time, ms] : late) {
            if (time >= fromMs) {
                least = std::min(least, ms);
                most = std::max(most, ms);
            }
        }
        return {least, most};
    }
};

ko_player::AudioParams soundParams() {
    ko_player::AudioParams params;
    params.format = AV_SAMPLE_FMT_S16;
    params.sampleRate = kRate;
    params.channels = 1;
    params.channelLayout = AV_CH_LAYOUT_MONO;
    return params;
}

class Handler final : public ko_player::AudioHandler {
public:
    explicit Handler(AudioSink& sink) : sink_(sink) {}
    bool onAudioParams(const ko_player::AudioParams&, ko_player::AudioParams&) override { return true; }
    void onAudioData(const std::uint8_t* data, int size) override { sink_.write(data, size); }
    std::optional<ko_player::SoundLevel> soundLevel() override { return sink_.level(); }
    void onAudioPause(bool paused) override { sink_.setPaused(paused); }

private:
    AudioSink& sink_;
};

class SoundInStep : public testing::Test {
protected:
    Result play(
        const World& world, const std::function<void(double ms)>& events = [](double) {}) {
        AudioSink played([](const std::function<void()>& function) { function(); },
                         [&](const PcmFormat&) {
                             return std::make_unique<Card>(card_, result_.timesDry, world.speed,
                                                           world.blockMs);
                         },
                         clock, world.bufferMs);
        ko_player::AudioParams ofDevice;
        played.setParams(soundParams(), ofDevice);
        played.start();
        sink = &played;
        nextSoundMs_ = world.soundFromMs;
        clock.world = [&](double ms) {
            events(ms);
            pass(world, ms);
            listen(world, ms);
        };
        ko_player::AudioSwr converter(soundParams());
        ko_player::SyncedSound sound({.frames = frames_,
                                      .handler = std::make_shared<Handler>(played),
                                      .state = std::make_shared<ko_player::PlayerState>(pause_, record_),
                                      .convert =
                                          [&](const AVFrame& frame) {
                                              const auto [size, bytes] = converter.convert(frame);
                                              return std::span(bytes,
                                                               static_cast<std::size_t>(std::max(size, 0)));
                                          },
                                      .setSpeedUp = [&](int ppm) { converter.setSpeedUp(ppm); }},
                                     soundParams(), clock);
        sound.play();
        sink = nullptr;
        return result_;
    }

    SimulatedClock clock;
    AudioSink* sink = nullptr; ///< while it plays

private:
    void pass(const World& world, double ms) {
        if (card_ != nullptr) {
            card_->pass();
        }
        for (; nextSoundMs_ <= ms + world.aheadMs; nextSoundMs_ += kSoundMs) {
            if (ms >= world.minutes * 60'000) {
                frames_->abort();
                break;
            }
            frames_->push(soundFrame(nextSoundMs_));
        }
        if (ms >= nextPictureMs_ && ms < world.picturesStopAtMs) {
            record_->publish({static_cast<std::int64_t>(nextPictureMs_), SimulatedClock::at(nextPictureMs_)});
            nextPictureMs_ += kPictureMs;
        }
    }
    void listen(const World& world, double ms) {
        // The resampler rings where the code begins again.
        const bool isClear = std::abs(std::remainder(ms, kCodeMs)) > 100;
        const int code = card_ != nullptr ? card_->sample() : -1;
        result_.lastHeardMs = code >= 0 ? ms : result_.lastHeardMs;
        if (code > 0 && isClear && static_cast<int>(ms) % 10 == 0 && ms < world.minutes * 60'000) {
            result_.late.emplace_back(ms, std::remainder(ms - code / 8.0, kCodeMs));
        }
    }

    mediaworker::test::LogCapture log_; ///< keeps the sink's lines off the screen
    Card* card_ = nullptr;              ///< while there is a device
    Result result_;
    double nextSoundMs_ = 0;
    double nextPictureMs_ = 0;
    const std::shared_ptr<ko_player::FrameQueue> frames_ = std::make_shared<ko_player::FrameQueue>(1000);
    const std::shared_ptr<ko_player::ShownRecord> record_ = std::make_shared<ko_player::ShownRecord>();
    const std::shared_ptr<ko_player::details::PauseCtrl> pause_ =
        std::make_shared<ko_player::details::PauseCtrl>();
};

TEST_F(SoundInStep, BeginsInStep) {
    const Result result = play({});
    const auto [least, most] = result.range(0);
    EXPECT_GT(least, -10);
    EXPECT_LT(most, 45);
    EXPECT_LE(result.timesDry, 1) << "at its end";
    EXPECT_NEAR(result.lastHeardMs, 61'000, 50) << "what came before the end is played out";
}

TEST_F(SoundInStep, BeginsWhereTheStreamHasIt) {
    const Result result = play({.soundFromMs = 760});
    EXPECT_NEAR(result.late.at(0).first, 760, 25);
    const auto [least, most] = result.range(800);
    EXPECT_GT(least, -10);
    EXPECT_LT(most, 45);
}

TEST_F(SoundInStep, OfAStreamWithoutBufferingIsLateByLittle) {
    const Result result = play({.bufferMs = 100, .aheadMs = -5});
    const auto [least, most] = result.range(1000);
    EXPECT_GT(least, 0);
    EXPECT_LT(most, 125);
    EXPECT_LE(result.timesDry, 1);
}

TEST_F(SoundInStep, TurnedOnLaterAndAnewIsInStepAtOnce) {
    bool isOn = true;
    const Result result = play({.speed = 1.0001, .minutes = 0.5}, [&](double ms) {
        const bool wanted = ms > 5000 && (ms < 10'000 || ms > 15'300);
        if (wanted != isOn) {
            isOn = wanted;
            isOn ? sink->start() : sink->stop();
        }
    });
    const auto [least, most] = result.range(0);
    EXPECT_GT(least, -10);
    EXPECT_LT(most, 45);
    EXPECT_NEAR(result.late.at(0).first, 5000, 130);
}

TEST_F(SoundInStep, PicturesThatStopDoNotStopTheSound) {
    const Result result = play({.picturesStopAtMs = 20'000});
    const auto [least, most] = result.range(0);
    EXPECT_GT(least, -10);
    EXPECT_LT(most, 45);
    EXPECT_GT(result.late.back().first, 59'000);
}

TEST_F(SoundInStep, OfADeviceThatNeverPlaysGoesBy) {
    const Result result = play({.speed = 0});
    EXPECT_TRUE(result.late.empty());
    EXPECT_LT(clock.ms(), 65'000) << "or it would stop the stream";
}

struct Drift {
    const char* name;
    double speed;
    double blockMs;
};

void PrintTo(const Drift& drift, std::ostream* out) {
    *out << drift.name;
}

class SoundInStepOn : public SoundInStep, public testing::WithParamInterface<Drift> {};

TEST_P(SoundInStepOn, StaysSoForAnHour) {
    const Result result = play({.speed = GetParam().speed, .blockMs = GetParam().blockMs, .minutes = 60});
    const auto [least, most] = result.range(1000);
    EXPECT_GT(least, -45);
    EXPECT_LT(most, 60);
    EXPECT_LE(result.timesDry, 1);
    double jump = 0;
    for (std::size_t i = 1; i < result.late.size(); ++i) {
        jump = std::max(jump, std::abs(result.late[i].second - result.late[i - 1].second));
    }
    EXPECT_LT(jump, 5) << "no gap, no cut";
}

INSTANTIATE_TEST_SUITE_P(Cards, SoundInStepOn,
                         testing::Values(Drift{"Fast", 1.0001, 20}, Drift{"Slow", 0.9999, 20},
                                         Drift{"FastInLargeBlocks", 1.0001, 360},
                                         Drift{"SlowInLargeBlocks", 0.9999, 360}),
                         [](const auto& instance) { return instance.param.name; });

} // namespace
