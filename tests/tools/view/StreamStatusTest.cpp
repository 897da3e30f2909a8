#include "tools/view/StreamStatus.h"

#include <QDir>

#include <gtest/gtest.h>

#include <limits>

namespace mediaworker::view {
namespace {

using parent::PlaybackState;

struct StateCase {
    const char* name;
    PlaybackState state;
    const char* endWords;
    const char* expected;
};

class State : public testing::TestWithParam<StateCase> {};

TEST_P(State, IsToldInWords) {
    StreamStatus status;
    status.state = GetParam().state;
    status.endWords = QString::fromUtf8(GetParam().endWords);
    EXPECT_EQ(stateText(status).toStdString(), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(All, State,
                         testing::Values(StateCase{"Idle", PlaybackState::Idle, "", "no stream"},
                                         StateCase{"Connecting", PlaybackState::Connecting, "", "connecting"},
                                         StateCase{"Buffering", PlaybackState::Buffering, "", "buffering"},
                                         StateCase{"Playing", PlaybackState::Playing, "", "playing"},
                                         StateCase{"Paused", PlaybackState::Paused, "", "paused"},
                                         StateCase{"Ended", PlaybackState::Ended, "", "ended"},
                                         StateCase{"EndedWithWords", PlaybackState::Ended, "it was late",
                                                   "ended: it was late"}),
                         [](const auto& instance) { return instance.param.name; });

TEST(StateText, TellsWhenTheNextAttemptIs) {
    StreamStatus status;
    status.state = PlaybackState::Ended;
    status.endWords = QStringLiteral("the server answered 404 Not Found");
    for (const auto& [left, seconds] :
         {std::pair{4000, 4}, {3999, 4}, {3001, 4}, {3000, 3}, {1, 1}, {0, 0}}) {
        status.untilNextAttempt = std::chrono::milliseconds(left);
        EXPECT_EQ(stateText(status).toStdString(),
                  "the server answered 404 Not Found – again in " + std::to_string(seconds) + " s");
    }
}

struct ClockCase {
    qint64 ms;
    const char* expected;
};

class ClockText : public testing::TestWithParam<ClockCase> {};

TEST_P(ClockText, ReadsLikeAClock) {
    EXPECT_EQ(clockText(GetParam().ms).toStdString(), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Times, ClockText,
    testing::Values(ClockCase{0, "0:00.0"}, ClockCase{99, "0:00.0"}, ClockCase{100, "0:00.1"},
                    ClockCase{5299, "0:05.2"}, ClockCase{59999, "0:59.9"}, ClockCase{60000, "1:00.0"},
                    ClockCase{3599999, "59:59.9"}, ClockCase{3600000, "1:00:00.0"},
                    ClockCase{36610500, "10:10:10.5"}, ClockCase{-1500, "-0:01.5"},
                    ClockCase{std::numeric_limits<qint64>::min(), "-2562047788015:12:55.8"}));

TEST(StatusTexts, SayNothingBeforeThereIsAnything) {
    const StreamStatus status;
    EXPECT_EQ(sizeText(status), QString());
    EXPECT_EQ(rateText(status), QString());
    EXPECT_EQ(positionText(status), QString());
    EXPECT_EQ(delayText(status), QString());
}

StreamStatus playing() {
    StreamStatus status;
    status.state = PlaybackState::Playing;
    status.pictureSize = QSize(1920, 1080);
    status.framesPerSecond = 25;
    status.positionMs = 83400;
    status.delayMs = 120;
    return status;
}

TEST(StatusTexts, DescribeAStreamThatPlays) {
    const StreamStatus status = playing();
    EXPECT_EQ(sizeText(status).toStdString(), "1920 × 1080");
    EXPECT_EQ(rateText(status).toStdString(), "25 fps");
    EXPECT_EQ(positionText(status).toStdString(), "1:23.4");
    EXPECT_EQ(delayText(status).toStdString(), "delay 0.12 s");
    EXPECT_EQ(captionText(QStringLiteral("door"), status).toStdString(),
              "door – playing, 1920 × 1080, 25 fps");
}

TEST(StatusTexts, SayWhyNothingIsHeardWhilePicturesCome) {
    StreamStatus status = playing();
    EXPECT_EQ(soundText(status), QString());
    status.soundProblem = QStringLiteral("nellymoser: no decoder");
    EXPECT_EQ(soundText(status).toStdString(), "no sound: nellymoser: no decoder");
    EXPECT_EQ(captionText(QStringLiteral("door"), status).toStdString(),
              "door – playing, 1920 × 1080, 25 fps, no sound: nellymoser: no decoder");
    for (const PlaybackState state : {PlaybackState::Buffering, PlaybackState::Paused}) {
        status.state = state;
        EXPECT_NE(soundText(status), QString());
    }
    for (const PlaybackState state : {PlaybackState::Connecting, PlaybackState::Ended}) {
        status.state = state;
        EXPECT_EQ(soundText(status), QString());
    }
}

TEST(StatusTexts, HaveNoRateWhereNothingMoves) {
    StreamStatus status = playing();
    status.state = PlaybackState::Paused;
    EXPECT_EQ(rateText(status), QString());
    EXPECT_EQ(captionText(QStringLiteral("door"), status).toStdString(), "door – paused");
    status.state = PlaybackState::Ended;
    EXPECT_EQ(rateText(status), QString());
    EXPECT_EQ(delayText(status), QString());
    EXPECT_EQ(positionText(status).toStdString(), "1:23.4");
}

TEST(StatusTexts, PreferTheAbsoluteTime) {
    StreamStatus status = playing();
    status.absoluteTimeMs = 1'400'000'000'000;
    EXPECT_EQ(positionText(status).toStdString(), "2014-05-13 16:53:20");
    // Not milliseconds since 1970: shown as it is.
    status.absoluteTimeMs = 1'400'000'000;
    EXPECT_EQ(positionText(status).toStdString(), "1400000000");
    status.absoluteTimeMs = std::numeric_limits<qint64>::max();
    EXPECT_EQ(positionText(status).toStdString(), "9223372036854775807");
}

TEST(StatusTexts, ADelayMayBeNegative) {
    StreamStatus status = playing();
    status.delayMs = -40;
    EXPECT_EQ(delayText(status).toStdString(), "delay -0.04 s");
    status.delayMs = -4;
    EXPECT_EQ(delayText(status).toStdString(), "delay 0.00 s");
}

/// With the root of the file system ("/", "C:/") for each "%/".
QString onThisSystem(const char* text) {
    const QString root = QDir::rootPath();
    QString result = QString::fromUtf8(text);
    // The third slash of a file URL is the root where the root has no name.
    result.replace(QStringLiteral("file:///%/"),
                   QStringLiteral("file://") +
                       (root.startsWith(QLatin1Char('/')) ? QString() : QStringLiteral("/")) + root);
    return result.replace(QStringLiteral("%/"), root);
}

struct UrlCase {
    const char* typed;
    const char* url;
    const char* name;
};

class Url : public testing::TestWithParam<UrlCase> {};

TEST_P(Url, IsMadeOfWhatWasTyped) {
    const QString url = streamUrl(onThisSystem(GetParam().typed), onThisSystem("%/home/me"));
    EXPECT_EQ(url, onThisSystem(GetParam().url));
    EXPECT_EQ(streamName(url).toStdString(), GetParam().name);
}

INSTANTIATE_TEST_SUITE_P(Kinds, Url,
                         testing::Values(UrlCase{"http://cam.example/live.flv", "http://cam.example/live.flv",
                                                 "cam.example/live.flv"},
                                         UrlCase{"  https://u:p@cam.example:8443/a/archive.flv?speed=2 ",
                                                 "https://u:p@cam.example:8443/a/archive.flv?speed=2",
                                                 "cam.example/archive.flv"},
                                         UrlCase{"http://cam.example/", "http://cam.example/", "cam.example"},
                                         UrlCase{"file:///data/a b.mp4", "file:///data/a b.mp4", "a b.mp4"},
                                         UrlCase{"%/data/50%20.mp4", "file:///%/data/50%20.mp4", "50%20.mp4"},
                                         UrlCase{"clip.mp4", "file:///%/home/me/clip.mp4", "clip.mp4"},
                                         UrlCase{"file.mp4", "file:///%/home/me/file.mp4", "file.mp4"},
                                         UrlCase{"../clip.mp4", "file:///%/home/clip.mp4", "clip.mp4"},
                                         UrlCase{"  ", "", ""}));

} // namespace
} // namespace mediaworker::view
