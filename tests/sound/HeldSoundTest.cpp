#include "sound/HeldSound.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>

namespace {

using RoomComes = AudioDevice::RoomComes;

const base::TimePoint kStart{std::chrono::hours(1)};

base::TimePoint at(double ms) {
    return kStart +
           std::chrono::duration_cast<base::nanoseconds>(std::chrono::duration<double, std::milli>(ms));
}

/// A device as systems have them: what is really heard is known here.
class Device {
public:
    Device(RoomComes roomComes, double blockMs, double startsAfterMs = 0, double speed = 1)
        : held(roomComes), roomComes_(roomComes), blockMs_(blockMs), startsAfterMs_(startsAfterMs),
          speed_(speed) {}

    void write(double ms, double nowMs) {
        if (written_ == 0) {
            beganMs_ = nowMs + startsAfterMs_;
        }
        written_ += ms;
        held.wrote(ms, at(nowMs));
    }
    [[nodiscard]] double heardMs(double nowMs) const {
        return std::clamp((nowMs - beganMs_) * speed_, 0.0, written_);
    }
    /// Asks the device, and returns how far the answer is off.
    double look(double nowMs) {
        const double heard = heardMs(nowMs);
        const double blocks = roomComes_ == RoomComes::BeforeItIsHeard ? std::floor(heard / blockMs_) + 1
                                                                       : std::floor(heard / blockMs_);
        const double taken = nowMs < beganMs_ ? 0 : std::min(blocks * blockMs_, written_);
        held.update(written_ - taken, at(nowMs));
        return held.ms() - (written_ - heard);
    }
    [[nodiscard]] double written() const { return written_; }

    HeldSound held;

private:
    const RoomComes roomComes_;
    const double blockMs_;
    const double startsAfterMs_;
    const double speed_;
    double beganMs_ = 0;
    double written_ = 0;
};

struct Kind {
    const char* name;
    RoomComes roomComes;
    double blockMs;
    double startsAfterMs;
    double speed;
    double allowedMs;
};

void PrintTo(const Kind& kind, std::ostream* out) {
    *out << kind.name;
}

class HeldSoundOf : public testing::TestWithParam<Kind> {};

TEST_P(HeldSoundOf, IsKnownForAnHour) {
    const Kind& kind = GetParam();
    Device device(kind.roomComes, kind.blockMs, kind.startsAfterMs, kind.speed);
    device.write(400, 0);
    double now = 0;
    for (; !device.held.isPlaying(); now += 5) {
        ASSERT_NEAR(device.look(now), 0, 6);
        ASSERT_LT(now, kind.startsAfterMs + 20);
    }
    double worst = 0;
    for (; now < 3'600'000; now += 97) {
        worst = std::max(worst, std::abs(device.look(now)));
        ASSERT_TRUE(device.held.isPlaying()) << now;
        while (device.written() - device.heardMs(now) < 400) {
            device.write(100, now);
        }
    }
    EXPECT_LE(worst, kind.allowedMs);
}

INSTANTIATE_TEST_SUITE_P(
    HeldSound, HeldSoundOf,
    testing::Values(Kind{"Prompt", RoomComes::BeforeItIsHeard, 20, 0, 1, 6},
                    Kind{"LargeBlocks", RoomComes::BeforeItIsHeard, 360, 0, 1, 6},
                    Kind{"BeginsLate", RoomComes::BeforeItIsHeard, 360, 1600, 1, 12},
                    Kind{"Fast", RoomComes::BeforeItIsHeard, 20, 0, 1.0001, 12},
                    Kind{"Slow", RoomComes::BeforeItIsHeard, 20, 0, 0.9999, 12},
                    Kind{"FastInLargeBlocks", RoomComes::BeforeItIsHeard, 360, 0, 1.0001, 60},
                    Kind{"SlowInLargeBlocks", RoomComes::BeforeItIsHeard, 360, 0, 0.9999, 60},
                    Kind{"Wave", RoomComes::AfterItWasHeard, 80, 0, 1, 6},
                    Kind{"FastWave", RoomComes::AfterItWasHeard, 80, 0, 1.0001, 85},
                    Kind{"SlowWave", RoomComes::AfterItWasHeard, 80, 0, 0.9999, 85}),
    [](const auto& instance) { return instance.param.name; });

TEST(HeldSound, IsWhatWasWrittenUntilTheDeviceBegins) {
    HeldSound held(RoomComes::BeforeItIsHeard);
    held.wrote(400, at(0));
    held.update(400, at(1000));
    EXPECT_FALSE(held.isPlaying());
    EXPECT_EQ(held.ms(), 400);
}

TEST(HeldSound, IsNothingOnceTheDeviceRanDry) {
    Device device(RoomComes::BeforeItIsHeard, 20);
    device.write(400, 0);
    device.look(0);
    device.look(200);
    EXPECT_TRUE(device.held.isPlaying());
    EXPECT_NEAR(device.held.ms(), 200, 1);
    device.look(450);
    EXPECT_FALSE(device.held.isPlaying());
    EXPECT_EQ(device.held.ms(), 0);
}

TEST(HeldSound, AServerThatWaitsForMoreDoesNotPlay) {
    HeldSound held(RoomComes::BeforeItIsHeard);
    held.wrote(400, at(0));
    held.update(340, at(1));
    EXPECT_TRUE(held.isPlaying());
    held.update(340, at(200)); // it may only be late to tell
    EXPECT_TRUE(held.isPlaying());
    held.update(340, at(300));
    EXPECT_TRUE(held.isPlaying());
    held.update(340, at(390));
    EXPECT_FALSE(held.isPlaying());
    EXPECT_EQ(held.ms(), 340);
    held.update(280, at(400));
    EXPECT_TRUE(held.isPlaying());
    EXPECT_NEAR(held.ms(), 330, 0.01);
}

TEST(HeldSound, ABusyMachineThatTellsLateIsBelievedLater) {
    Device device(RoomComes::BeforeItIsHeard, 20);
    device.write(10'000, 0);
    double now = 0;
    for (; now < 3000; now += 50) {
        device.look(now);
    }
    device.held.update(device.written() - 2910, at(now)); // 90 ms ago
    for (; now < 6000; now += 50) {
        EXPECT_NEAR(device.look(now), 0, 6) << now;
    }
}

TEST(HeldSound, NorDoesASilenceOfTheServerMeanThatItStoodStill) {
    Device device(RoomComes::BeforeItIsHeard, 20);
    device.write(10'000, 0);
    device.look(0);
    double now = 0;
    for (; now < 3000; now += 50) {
        device.look(now);
    }
    for (; now < 3400; now += 50) {
        device.held.update(device.written() - 2980, at(now));
    }
    EXPECT_FALSE(device.held.isPlaying());
    EXPECT_NEAR(device.look(now), 0, 6);
    EXPECT_TRUE(device.held.isPlaying());
}

TEST(HeldSound, BeginsWhereItWasLastSeenNotTo) {
    HeldSound held(RoomComes::BeforeItIsHeard);
    held.wrote(400, at(0));
    held.update(200, at(200)); // a busy machine looks late
    EXPECT_NEAR(held.ms(), 200, 0.01);
}

TEST(HeldSound, StandsStillWhileSuspended) {
    HeldSound held(RoomComes::BeforeItIsHeard);
    held.wrote(400, at(0));
    held.update(380, at(0));
    held.update(280, at(100));
    held.suspend(at(150));
    EXPECT_NEAR(held.ms(), 250, 0.01);
    held.update(400, at(5000)); // devices tell nothing of use meanwhile
    EXPECT_NEAR(held.ms(), 250, 0.01);
    held.resume(at(5150));
    held.update(180, at(5200));
    EXPECT_NEAR(held.ms(), 200, 0.01);
}

} // namespace
