#include "Session.h"

#include "support/ChildProcess.h"
#include "support/Platform.h"
#include "support/servers/HttpServer.h"
#include "support/servers/Pacing.h"
#include "support/servers/PulseSink.h"
#include "support/servers/Tone.h"

#include <gmock/gmock.h>

#include <cmath>
#include <span>

namespace mediaworker::test {
namespace {

using namespace std::chrono_literals;

constexpr const char* kStarted = "Trying to start audio device: audio device has been sucessfully started";
/// Until a new volume is heard. On Windows, what the device's buffer of a second holds comes first.
constexpr auto kVolumeTakes = platform::kIsWindows ? 1700ms : 700ms;

/// The amplitude of the tone. Wine's driver drops some 10 ms now and then, which puts the tone out of step.
double levelIn(std::span<const std::int16_t> samples, double hz) {
    return platform::kIsWindows ? steadyToneLevel(samples, PulseSink::kRate, hz)
                                : toneLevel(samples, PulseSink::kRate, hz);
}

class Sound : public testing::Test {
protected:
    Sound() : session_({.environment = sink_.environment(), .readsPictures = false}) {}

    /// A live stream with a tone, of at least half a minute.
    void play(const ClipSpec& spec) {
        clip_ = encode(spec);
        server_.route("/live.flv", pacedHandler(makeFlv(clip_, lasting(clip_, 30s)), {.burstMs = 1500}));
        session_.start(server_.url("/live.flv"));
        ASSERT_TRUE(session_.waitForFrames(3)) << session_.logText();
    }

    static ClipSpec tone(double hz) {
        ClipSpec spec;
        spec.frames = 250;
        spec.audio = AudioCodec::Aac;
        spec.toneHz = hz;
        return spec;
    }

    std::vector<std::int16_t> record(std::chrono::milliseconds duration) {
        sink_.startRecording();
        session_.listen(duration);
        return sink_.stopRecording();
    }

    double levelOf(double hz) { return levelIn(record(800ms), hz); }

    /// The level of a tone of 1 kHz once it is as expected, or after some seconds: a command, and what the
    /// device still holds, take longer where the machine is busy.
    template <class IsExpected>
    double levelWhen(IsExpected isExpected) {
        constexpr int kTries = 5;
        double level = levelOf(1000);
        for (int i = 1; i < kTries && !isExpected(level); ++i) {
            level = levelOf(1000);
        }
        return level;
    }

    void setVolume(int percent) {
        ASSERT_TRUE(session_.worker().setVolume(percent));
        session_.listen(kVolumeTakes);
    }

    PulseSink sink_;
    HttpServer server_;
    Clip clip_;
    Session session_;
};

TEST_F(Sound, IsOffUntilTheParentAsksForIt) {
    play(tone(1000));
    session_.listen(500ms);
    EXPECT_EQ(sink_.playingStreams(), 0);
    EXPECT_FALSE(session_.hasLineBeginning("audio written"));
}

TEST_F(Sound, LibrariesAreLoadedWhenTheParentAsksForItAndNotBefore) {
    const auto maps = [this] { return platform::loadedLibraries(session_.worker().processId()); };
    using testing::HasSubstr;
    play(tone(1000));
    EXPECT_THAT(maps(), Not(AnyOf(HasSubstr("mediaworker_sound"), HasSubstr("Qt5Multimedia"),
                                  HasSubstr("Qt5Gui"), HasSubstr("libGL"))));
    setVolume(100);
    ASSERT_TRUE(session_.waitForLine(kStarted)) << session_.logText();
    EXPECT_THAT(maps(), AllOf(HasSubstr("mediaworker_sound"), HasSubstr("Qt5Multimedia"),
                              HasSubstr(platform::kIsWindows ? "qtaudio_windows.dll" : "libpulse.so")));
}

struct Case {
    const char* name;
    AudioCodec codec;
    int sampleRate;
    int channels;
};

void PrintTo(const Case& row, std::ostream* out) {
    *out << row.name;
}

class SoundOf : public Sound, public testing::WithParamInterface<Case> {};

TEST_P(SoundOf, IsHeardWithItsTone) {
    ClipSpec spec = tone(700);
    spec.audio = GetParam().codec;
    spec.sampleRate = GetParam().sampleRate;
    spec.channels = GetParam().channels;
    play(spec);
    setVolume(100);
    EXPECT_TRUE(session_.waitForLine(kStarted)) << session_.logText();
    const auto samples = record(1000ms);
    EXPECT_NEAR(dominantFrequency(samples, PulseSink::kRate), 700, 3) << session_.logText();
    EXPECT_NEAR(levelIn(samples, 700), 0.5, 0.15);
}

INSTANTIATE_TEST_SUITE_P(Codecs, SoundOf,
                         testing::Values(Case{"AacStereo", AudioCodec::Aac, 44100, 2},
                                         Case{"AacMono", AudioCodec::Aac, 48000, 1},
                                         Case{"Mp3", AudioCodec::Mp3, 44100, 2},
                                         Case{"ALaw", AudioCodec::ALaw, 8000, 1},
                                         Case{"MuLaw", AudioCodec::MuLaw, 8000, 1}),
                         [](const auto& instance) { return instance.param.name; });

TEST_F(Sound, FollowsTheVolume) {
    play(tone(1000));
    setVolume(100);
    const double full = levelWhen([](double level) { return std::abs(level - 0.5) <= 0.15; });
    setVolume(25);
    const double quarter = levelWhen([full](double level) { return level > 0.01 && level < full * 0.6; });
    setVolume(0);
    const double none = levelWhen([](double level) { return level < 0.01; });
    setVolume(100);
    const double again = levelWhen([full](double level) { return std::abs(level - full) <= 0.1; });
    EXPECT_NEAR(full, 0.5, 0.15);
    EXPECT_GT(quarter, 0.01);
    EXPECT_LT(quarter, full * 0.6);
    EXPECT_LT(none, 0.01);
    EXPECT_NEAR(again, full, 0.1);
    EXPECT_EQ(session_.countLines(kStarted), 1);
}

TEST_F(Sound, StopsAndStartsAgainAtTheVolumeAskedFor) {
    play(tone(1000));
    setVolume(100);
    EXPECT_GT(levelOf(1000), 0.3);
    ASSERT_TRUE(session_.worker().stopAudio());
    ASSERT_TRUE(session_.waitUntil([&] { return sink_.playingStreams() == 0; }, 5s));
    EXPECT_LT(levelOf(1000), 0.01);
    setVolume(100);
    EXPECT_GT(levelOf(1000), 0.3);
    EXPECT_EQ(session_.countLines(kStarted), 2);
}

TEST_F(Sound, CanBeStartedAndStoppedHundredsOfTimes) {
    play(tone(1000));
    setVolume(100);
    const std::int64_t before = session_.residentBytes();
    const int rounds = kSlowness > 1 || platform::kIsWindows ? 60 : 200; // the stream lasts half a minute
    for (int round = 1; round <= rounds; ++round) {
        ASSERT_TRUE(session_.worker().stopAudio());
        ASSERT_TRUE(session_.worker().setVolume(100));
        ASSERT_TRUE(session_.waitForLine(kStarted, round + 1)) << session_.logText();
    }
    session_.listen(700ms);
    EXPECT_GT(levelOf(1000), 0.3);
    EXPECT_EQ(sink_.playingStreams(), 1);
    if (kMeasuresMemory) {
        EXPECT_LT(session_.residentBytes() - before, 16 << 20);
    }
    const std::size_t frames = session_.shown().size();
    EXPECT_TRUE(session_.waitForFrames(frames + 20)) << "the pictures stopped";
}

TEST_F(Sound, OfADeviceThatIsPulledDoesNotStopThePictures) {
    play(tone(1000));
    setVolume(100);
    sink_.kill();
    const std::size_t frames = session_.shown().size();
    EXPECT_TRUE(session_.waitForFrames(frames + 50)) << session_.logText();
    ASSERT_TRUE(session_.worker().stopAudio());
    EXPECT_TRUE(session_.waitForFrames(frames + 100)) << session_.logText();
}

TEST(SoundWithoutADevice, IsReportedAndDoesNotStopThePictures) {
    ClipSpec spec;
    spec.frames = 250;
    spec.audio = AudioCodec::Aac;
    const Clip clip = encode(spec);
    HttpServer server;
    server.route("/live.flv", pacedHandler(makeFlv(clip), {.burstMs = 1500}));
    PulseSink sink;
    sink.kill();
    Session session({.environment = sink.environment(), .readsPictures = false});
    session.start(server.url("/live.flv"));
    ASSERT_TRUE(session.waitForFrames(3)) << session.logText();
    ASSERT_TRUE(session.worker().setVolume(100));
    EXPECT_TRUE(
        session.waitForLine("Trying to start audio device: an error occurred opening the audio device"))
        << session.logText();
    EXPECT_TRUE(session.waitForFrames(session.shown().size() + 20)) << session.logText();
}

} // namespace
} // namespace mediaworker::test
