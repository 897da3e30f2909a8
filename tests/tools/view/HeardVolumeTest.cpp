#include "Stage.h"

#include "support/servers/PulseSink.h"
#include "support/servers/Tone.h"

#include <QAction>
#include <QSlider>
#include <QTest>
#include <QToolBar>

namespace mediaworker::test {
namespace {

using namespace std::chrono_literals;

constexpr double kToneHz = 1000;
constexpr double kLoud = 0.3; // the tone has an amplitude of 0.5
constexpr double kSilent = 0.01;

/// A viewer whose workers play where it can be recorded.
class HeardVolume : public Stage {
protected:
    HeardVolume() {
        // Workers inherit it.
        for (const auto& [name, value] : sink_.environment()) {
            before_.emplace_back(name, qgetenv(name.c_str()));
            qputenv(name.c_str(), QByteArray::fromStdString(value));
        }
        ClipSpec spec;
        spec.frames = 250;
        spec.audio = AudioCodec::Aac;
        spec.toneHz = kToneHz;
        serveLive("/live.flv", spec);
    }
    ~HeardVolume() override {
        for (const auto& [name, value] : before_) {
            if (value.isNull()) {
                qunsetenv(name.c_str());
            } else {
                qputenv(name.c_str(), value);
            }
        }
    }

    double level() {
        sink_.startRecording();
        QTest::qWait(400);
        return toneLevel(sink_.stopRecording(), PulseSink::kRate, kToneHz);
    }
    /// What was written to the device before a change is heard for a while.
    bool hear(const std::function<bool(double)>& isRight) {
        return waitUntil([&] { return isRight(heard_ = level()); });
    }

    void clickMute() {
        auto* const toolbar = window().findChild<QToolBar*>();
        QTest::mouseClick(toolbar->widgetForAction(&action("mute")), Qt::LeftButton);
    }
    QSlider& slider() { return *window().findChild<QSlider*>(QStringLiteral("volume")); }

    PulseSink sink_;
    std::vector<std::pair<std::string, QByteArray>> before_;
    double heard_ = 0;
};

TEST_F(HeardVolume, FollowsSliderAndMute) {
    const auto isLoud = [](double level) { return level > kLoud; };
    const auto isSilent = [](double level) { return level < kSilent; };

    view::StreamSettings settings = silent();
    settings.isMuted = false;
    settings.volumePercent = 100;
    show({"/live.flv"}, settings);
    ASSERT_TRUE(hear(isLoud)) << heard_;
    const double loud = heard_;
    EXPECT_EQ(view().status().soundProblem.toStdString(), "")
        << "the first attempt came too early for a device";

    clickMute();
    EXPECT_TRUE(waitUntil([&] { return sink_.playingStreams() == 0; }));
    EXPECT_TRUE(hear(isSilent)) << heard_;

    slider().setValue(25); // ends the mute
    EXPECT_FALSE(action("mute").isChecked());
    const auto isQuiet = [loud](double level) { return level > kSilent && level < loud / 2; };
    EXPECT_TRUE(hear(isQuiet)) << heard_;
    EXPECT_TRUE(isQuiet(level())); // and not only on its way to somewhere else

    slider().setValue(0);
    EXPECT_TRUE(hear(isSilent)) << heard_;
    EXPECT_FALSE(action("mute").isChecked());
    slider().setValue(100);
    EXPECT_TRUE(hear(isLoud)) << heard_;
}

TEST_F(HeardVolume, IsOfEachStreamByItself) {
    ClipSpec spec;
    spec.frames = 250;
    spec.audio = AudioCodec::Aac;
    spec.toneHz = 440;
    serveLive("/other.flv", spec);
    view::StreamSettings settings = silent();
    settings.isMuted = false;
    settings.volumePercent = 50;
    show({"/live.flv", "/other.flv"}, settings);
    EXPECT_TRUE(waitUntil([&] { return sink_.playingStreams() == 2; }));
    clickMute(); // the first one is chosen
    EXPECT_TRUE(waitUntil([&] { return sink_.playingStreams() == 1; }));
    EXPECT_TRUE(hear([](double level) { return level < kSilent; })) << heard_;
    sink_.startRecording();
    QTest::qWait(400);
    EXPECT_GT(toneLevel(sink_.stopRecording(), PulseSink::kRate, spec.toneHz), kSilent);
}

} // namespace
} // namespace mediaworker::test
