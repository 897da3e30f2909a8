#include "tools/view/SoundControl.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <ostream>

namespace mediaworker::view {

using Command = SoundControl::Command;

inline void PrintTo(const Command& command, std::ostream* out) {
    *out << (command.kind == Command::Kind::StopAudio ? "stop audio" : "volume ") << command.percent;
}

namespace {

constexpr Command kStop{Command::Kind::StopAudio, 0};

constexpr Command volume(int percent) {
    return {Command::Kind::SetVolume, percent};
}

TEST(SoundControl, TellsANewWorkerTheVolumeUnlessItIsMuted) {
    EXPECT_EQ(SoundControl(70, false).forNewWorker(), volume(70));
    EXPECT_EQ(SoundControl(70, true).forNewWorker(), std::nullopt);
    EXPECT_EQ(SoundControl(0, false).forNewWorker(), volume(0));
}

struct SliderCase {
    const char* name;
    int percent;
    bool isMuted;
    int target;
    std::optional<Command> expected;
};

class Slider : public testing::TestWithParam<SliderCase> {};

TEST_P(Slider, SetsTheVolumeAndEndsAMute) {
    SoundControl sound(GetParam().percent, GetParam().isMuted);
    EXPECT_EQ(sound.setPercent(GetParam().target), GetParam().expected);
    EXPECT_FALSE(sound.isMuted());
    EXPECT_EQ(sound.percent(), std::clamp(GetParam().target, 0, 100));
}

INSTANTIATE_TEST_SUITE_P(Moves, Slider,
                         testing::Values(SliderCase{"Up", 50, false, 60, volume(60)},
                                         SliderCase{"ToZero", 50, false, 0, volume(0)},
                                         SliderCase{"Nowhere", 50, false, 50, std::nullopt},
                                         SliderCase{"NowhereWhileMuted", 50, true, 50, volume(50)},
                                         SliderCase{"UpWhileMuted", 50, true, 55, volume(55)},
                                         SliderCase{"TooFarUp", 50, false, 150, volume(100)},
                                         SliderCase{"TooFarDown", 50, false, -1, volume(0)}),
                         [](const auto& instance) { return instance.param.name; });

struct StepCase {
    int percent;
    int direction;
    std::optional<Command> expected;
};

class Step : public testing::TestWithParam<StepCase> {};

TEST_P(Step, GoesToTheNextMultipleOfFive) {
    SoundControl sound(GetParam().percent);
    EXPECT_EQ(sound.step(GetParam().direction), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Keys, Step,
                         testing::Values(StepCase{80, 1, volume(85)}, StepCase{80, -1, volume(75)},
                                         StepCase{82, 1, volume(85)}, StepCase{82, -1, volume(80)},
                                         StepCase{98, 1, volume(100)}, StepCase{100, 1, std::nullopt},
                                         StepCase{3, -1, volume(0)}, StepCase{0, -1, std::nullopt}));

TEST(SoundControl, MutesAndComesBackWithTheSameVolume) {
    SoundControl sound(65);
    EXPECT_EQ(sound.setMuted(true), kStop);
    EXPECT_TRUE(sound.isMuted());
    EXPECT_EQ(sound.percent(), 65);
    EXPECT_EQ(sound.setMuted(true), std::nullopt);
    EXPECT_EQ(sound.setMuted(false), volume(65));
    EXPECT_EQ(sound.setMuted(false), std::nullopt);
}

TEST(SoundControl, TakesNoVolumeOutOfRange) {
    EXPECT_EQ(SoundControl(101).percent(), 100);
    EXPECT_EQ(SoundControl(-5).percent(), 0);
}

} // namespace
} // namespace mediaworker::view
