#include "sound/AudioSink.h"

#include "support/LogCapture.h"
#include "support/ManualClock.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/samplefmt.h>
}

#include <gmock/gmock.h>

#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace {

using mediaworker::test::LogCapture;
using mediaworker::test::ManualClock;
using std::chrono::milliseconds;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// What the fake devices of a test share. Everything about devices runs under `thread`, as if it were one
/// thread.
struct FakeSystem {
    std::mutex thread;
    // Guarded by thread.
    AudioError startError = AudioError::None;
    bool canMake = true;
    bool writable = true;
    int bytesFree = 1 << 20;
    std::vector<qint64> results; ///< of the next writes; everything is taken after that
    int alive = 0;
    int made = 0;
    PcmFormat format;
    int bufferBytes = 0;
    double volume = 1.0;
    std::string played;
    int bufferSize = 0; ///< as the device tells it
    int blockSize = 0;
    std::string calls;
};

class FakeDevice final : public AudioDevice {
public:
    explicit FakeDevice(FakeSystem& system) : system_(system) {
        ++system_.alive;
        ++system_.made;
        system_.volume = 1.0;
    }
    FakeDevice(const FakeDevice&) = delete;
    FakeDevice& operator=(const FakeDevice&) = delete;
    ~FakeDevice() override { --system_.alive; }

    void setBufferSize(int bytes) override { system_.bufferBytes = bytes; }
    void start() override {}
    AudioError error() const override { return system_.startError; }
    bool isWritable() const override { return system_.writable; }
    int bytesFree() const override { return system_.bytesFree; }
    qint64 write(const char* data, qint64 size) override {
        qint64 written = size;
        if (!system_.results.empty()) {
            written = system_.results.front();
            system_.results.erase(system_.results.begin());
        }
        if (written > 0) {
            system_.played.append(data, static_cast<std::size_t>(written));
        }
        return written;
    }
    QString errorString() const override { return QStringLiteral("it is full"); }
    double volume() const override { return system_.volume; }
    void setVolume(double volume) override { system_.volume = volume; }
    int bufferSize() const override { return system_.bufferSize; }
    int blockSize() const override { return system_.blockSize; }
    RoomComes roomComes() const override {
        return system_.blockSize > 0 ? RoomComes::AfterItWasHeard : RoomComes::BeforeItIsHeard;
    }
    void suspend() override { system_.calls += "suspend "; }
    void resume() override { system_.calls += "resume "; }

private:
    FakeSystem& system_;
};

class AudioSinkTest : public ::testing::Test {
protected:
    static ko_player::AudioParams params(int rate, int channels) {
        ko_player::AudioParams result;
        result.format = AV_SAMPLE_FMT_FLTP;
        result.sampleRate = rate;
        result.channels = channels;
        return result;
    }
    bool announce(int rate, int channels) { return sink.setParams(params(rate, channels), out); }
    void write(const std::string& text) {
        sink.write(reinterpret_cast<const std::uint8_t*>(text.data()), static_cast<int>(text.size()));
    }
    template <class Change>
    void change(Change apply) {
        const std::lock_guard lock(system.thread);
        apply(system);
    }

    LogCapture log;
    ManualClock clock;
    FakeSystem system;
    ko_player::AudioParams out;
    AudioSink sink{[this](const std::function<void()>& function) {
                       const std::lock_guard lock(system.thread);
                       function();
                   },
                   [this](const PcmFormat& format) -> std::unique_ptr<AudioDevice> {
                       system.format = format;
                       if (!system.canMake) {
                           return nullptr;
                       }
                       return std::make_unique<FakeDevice>(system);
                   },
                   clock};
};

TEST_F(AudioSinkTest, AsksFor16BitSamplesInTheRateAndChannelsOfTheStream) {
    EXPECT_TRUE(announce(44100, 6));
    EXPECT_EQ(out.format, AV_SAMPLE_FMT_S16);
    EXPECT_EQ(out.sampleRate, 44100);
    EXPECT_EQ(out.channels, 6);
    EXPECT_EQ(out.channelLayout, std::uint64_t{AV_CH_LAYOUT_5POINT1_BACK});
    EXPECT_EQ(system.made, 0);
}

TEST_F(AudioSinkTest, StartsADeviceInTheStreamsFormatWithASecondOfBuffer) {
    announce(48000, 2);
    sink.start();
    EXPECT_EQ(system.made, 1);
    EXPECT_EQ(system.bufferBytes, 48000 * 2 * 2);
    EXPECT_EQ(system.format, (PcmFormat{.sampleRate = 48000, .channels = 2}));
    EXPECT_THAT(log.lines(),
                ElementsAre("Trying to start audio device: audio device has been sucessfully started"));
}

TEST_F(AudioSinkTest, HugeRatesFromTheStreamDoNotOverflowTheBufferSize) {
    announce(2'000'000'000, 200);
    sink.start();
    EXPECT_GT(system.bufferBytes, 0);
}

TEST_F(AudioSinkTest, SecondStartDoesNothing) {
    announce(48000, 2);
    sink.start();
    sink.start();
    EXPECT_EQ(system.made, 1);
}

TEST_F(AudioSinkTest, NewParametersRestartADeviceThatIsThere) {
    announce(48000, 2);
    sink.start();
    sink.setVolume(30);
    EXPECT_TRUE(announce(8000, 1));
    EXPECT_EQ(system.made, 2);
    EXPECT_EQ(system.alive, 1);
    EXPECT_EQ(system.bufferBytes, 8000 * 2);
    EXPECT_DOUBLE_EQ(system.volume, 0.3);
}

TEST_F(AudioSinkTest, FailedDeviceStaysUntilNewParametersRestartIt) {
    system.startError = AudioError::Open;
    system.writable = false;
    sink.start();
    EXPECT_EQ(system.alive, 1);
    EXPECT_FALSE(announce(48000, 2));
    system.startError = AudioError::None;
    system.writable = true;
    EXPECT_TRUE(announce(48000, 2));
    write("sound");
    EXPECT_EQ(system.played, "sound");
}

struct StartErrorRow {
    AudioError error;
    const char* text;
};

TEST_F(AudioSinkTest, TellsTheOutcomeOfAStart) {
    for (const auto& [error, text] :
         {StartErrorRow{AudioError::Open, "an error occurred opening the audio device"},
          StartErrorRow{AudioError::ReadWrite, "an error occurred during read/write of audio device"},
          StartErrorRow{AudioError::Underrun,
                        "audio data is not being fed to the audio device at a fast enough rate"},
          StartErrorRow{AudioError::Fatal,
                        "a non-recoverable error has occurred, the audio device is not usable at this time"},
          StartErrorRow{AudioError::Unknown, ""}}) {
        log.clear();
        system.startError = error;
        sink.start();
        EXPECT_THAT(log.lines(), ElementsAre(std::string("Trying to start audio device: ") + text));
        sink.stop();
    }
}

TEST_F(AudioSinkTest, DeviceThatCannotBeMadeIsReportedAndLeavesNone) {
    system.canMake = false;
    sink.start();
    EXPECT_THAT(log.lines(), ElementsAre("Failed to create audio output"));
    sink.start();
    EXPECT_EQ(log.count("Failed to create audio output"), 2);
    write("sound");
    EXPECT_EQ(system.played, "");
}

TEST_F(AudioSinkTest, StartAfterAStopPlaysAtVolume0UntilAVolumeComes) {
    announce(48000, 2);
    sink.setVolume(70);
    sink.start();
    EXPECT_DOUBLE_EQ(system.volume, 0.7);
    sink.stop();
    EXPECT_EQ(system.alive, 0);
    sink.start();
    EXPECT_DOUBLE_EQ(system.volume, 0.0);
    sink.setVolume(40);
    EXPECT_DOUBLE_EQ(system.volume, 0.4);
}

TEST_F(AudioSinkTest, VolumeThatTheOutputHasAlreadyIsNudged) {
    sink.setVolume(100);
    announce(48000, 2);
    sink.start();
    EXPECT_DOUBLE_EQ(system.volume, 0.99);
}

TEST_F(AudioSinkTest, WritesABlockInOnePassAndSaysSo) {
    announce(48000, 2);
    sink.setVolume(50);
    sink.start();
    log.clear();
    write("sound");
    EXPECT_EQ(system.played, "sound");
    EXPECT_THAT(log.lines(), ElementsAre("audio written: 5, len: 5, vol: 0.5"));
}

TEST_F(AudioSinkTest, DropsSoundWithoutAWordWhileThereIsNoDevice) {
    announce(48000, 2);
    write("sound");
    sink.start();
    log.clear();
    sink.write(nullptr, 5);
    sink.write(reinterpret_cast<const std::uint8_t*>("x"), 0);
    sink.write(reinterpret_cast<const std::uint8_t*>("x"), -1);
    system.writable = false;
    write("sound");
    EXPECT_EQ(system.played, "");
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(AudioSinkTest, FailedWriteEndsTheBlockAndTheNextOneTriesAgain) {
    announce(48000, 2);
    sink.start();
    log.clear();
    system.results = {-1};
    write("lost");
    write("kept");
    EXPECT_EQ(system.played, "kept");
    EXPECT_THAT(log.lines(), ElementsAre("audio written: -1, len: 4, vol: 0 it is full",
                                         "audio written: 4, len: 4, vol: 0"));
}

TEST_F(AudioSinkTest, FullDeviceIsTriedAgainEvery100Milliseconds) {
    announce(48000, 2);
    sink.start();
    system.bytesFree = 3;
    std::thread writer([&] { write("abcdefgh"); });
    clock.waitForWaiters(1);
    EXPECT_EQ(clock.earliestDeadline() - clock.now(), milliseconds(100));
    change([](FakeSystem& it) { EXPECT_EQ(it.played, "abc"); });
    clock.advance(milliseconds(100));
    clock.waitForWaiters(1);
    change([](FakeSystem& it) { EXPECT_EQ(it.played, "abcdef"); });
    clock.advance(milliseconds(100));
    writer.join();
    EXPECT_EQ(system.played, "abcdefgh");
}

TEST_F(AudioSinkTest, FourPassesThatWroteNothingLoseTheRestOfTheBlock) {
    announce(48000, 2);
    sink.start();
    log.clear();
    system.results = {2, 0, 0, 1, 0, 0};
    system.bytesFree = 4;
    std::thread writer([&] { write("abcdefgh"); });
    for (int sleep = 0; sleep < 5; ++sleep) {
        clock.waitForWaiters(1);
        clock.advance(milliseconds(100));
    }
    writer.join();
    EXPECT_EQ(system.played, "abc");
    EXPECT_EQ(log.lines().size(), 6U);
    EXPECT_EQ(log.count("audio written: 0, len: 4, vol: 0 it is full"), 4);
}

TEST_F(AudioSinkTest, StopDuringTheWaitDropsTheRestAndIsNotHeldUp) {
    announce(48000, 2);
    sink.start();
    system.bytesFree = 3;
    std::thread writer([&] { write("abcdefgh"); });
    clock.waitForWaiters(1);
    sink.stop();
    sink.start(); // another device: the rest of the block is not for it
    clock.advance(milliseconds(100));
    writer.join();
    EXPECT_EQ(system.played, "abc");
}

TEST_F(AudioSinkTest, ThousandStartsAndStopsWhilePlaying) {
    announce(48000, 2);
    std::atomic<bool> done{false};
    std::thread player([&] {
        while (!done) {
            write("sound");
        }
    });
    for (int i = 0; i < 1000; ++i) {
        sink.start();
        sink.setVolume(i % 100);
        if (i % 10 == 0) {
            announce(48000, 1 + i % 2);
        }
        sink.stop();
    }
    done = true;
    player.join();
    EXPECT_EQ(system.alive, 0);
    EXPECT_GE(system.made, 1000);
}

TEST_F(AudioSinkTest, TellsWhatTheDeviceHolds) {
    EXPECT_EQ(sink.level(), std::nullopt);
    announce(8000, 1); // 16 bytes a millisecond
    sink.start();
    EXPECT_EQ(sink.level(), std::nullopt) << "one that does not tell";
    system.bufferSize = system.bytesFree = 1600;
    write(std::string(800, 'x'));
    system.bytesFree = 800;
    const auto full = sink.level();
    ASSERT_TRUE(full);
    EXPECT_FALSE(full->isPlaying);
    EXPECT_DOUBLE_EQ(full->heldMs, 50);
    EXPECT_DOUBLE_EQ(full->roomMs, 50);
    EXPECT_DOUBLE_EQ(full->capacityMs, 100);
    system.bytesFree = 1120; // it took 20 ms at once, and plays them
    EXPECT_TRUE(sink.level()->isPlaying);
    clock.advance(milliseconds(10));
    EXPECT_DOUBLE_EQ(sink.level()->heldMs, 40);
    system.writable = false;
    EXPECT_EQ(sink.level(), std::nullopt) << "it is gone";
}

TEST_F(AudioSinkTest, TellsWhatTheBlocksOfADeviceHold) {
    announce(8000, 1);
    system.bufferSize = system.bytesFree = 1600;
    system.blockSize = 320;
    sink.start();
    write(std::string(400, 'x')); // a block, and a part of one
    system.bytesFree = 960;
    EXPECT_DOUBLE_EQ(sink.level()->heldMs, 25);
    system.bytesFree = 1280; // the block was heard
    EXPECT_DOUBLE_EQ(sink.level()->heldMs, 5);
}

TEST_F(AudioSinkTest, EachDeviceHasANumberOfItsOwn) {
    announce(8000, 1);
    system.bufferSize = 1600;
    sink.start();
    const auto first = sink.level();
    sink.stop();
    EXPECT_EQ(sink.level(), std::nullopt);
    sink.start();
    EXPECT_NE(sink.level()->device, first->device);
    EXPECT_EQ(sink.level()->heldMs, 0);
}

TEST_F(AudioSinkTest, ADeviceThatIsPausedKeepsWhatItHolds) {
    sink.setPaused(true);
    announce(8000, 1);
    system.bufferSize = system.bytesFree = 1600;
    sink.start();
    write(std::string(1600, 'x'));
    system.bytesFree = 320;
    EXPECT_DOUBLE_EQ(sink.level()->heldMs, 100);
    clock.advance(milliseconds(30));
    sink.setPaused(true);
    clock.advance(milliseconds(5000));
    sink.setPaused(false);
    EXPECT_EQ(system.calls, "suspend resume ");
    EXPECT_DOUBLE_EQ(sink.level()->heldMs, 70);
}

} // namespace
