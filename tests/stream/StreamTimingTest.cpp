#include "stream/StreamTiming.h"

#include <gmock/gmock.h>

namespace {

using ::testing::ElementsAre;

struct TimingRow {
    const char* url;
    int firstFrameSeconds;
    int nextFrameSeconds;
    const char* logLine;
};

void PrintTo(const TimingRow& row, std::ostream* out) {
    *out << row.url;
}

class StreamTimeoutTest : public ::testing::TestWithParam<TimingRow> {};

TEST_P(StreamTimeoutTest, FollowsFromTheUrl) {
    const StreamTiming timing = streamTiming(QString::fromUtf8(GetParam().url));
    EXPECT_EQ(timing.firstFrame.count(), GetParam().firstFrameSeconds);
    EXPECT_EQ(timing.nextFrame.count(), GetParam().nextFrameSeconds);
    ASSERT_FALSE(timing.logLines.empty());
    EXPECT_EQ(timing.logLines.front(), GetParam().logLine);
}

INSTANTIATE_TEST_SUITE_P(
    Urls, StreamTimeoutTest,
    ::testing::Values(
        TimingRow{"http://h/live", 5, 3,
                  "set timeouts for live local: first frame 5 seconds, inter frame 3 seconds"},
        TimingRow{"https://h/live", 8, 5,
                  "set timeouts for live cloud: first frame 8 seconds, inter frame 5 seconds"},
        TimingRow{"http://h/archive", 10, 5,
                  "set timeouts for archive local: first frame 10 seconds, inter frame 5 seconds"},
        TimingRow{"https://h/archive", 13, 7,
                  "set timeouts for archive cloud: first frame 13 seconds, inter frame 7 seconds"},
        TimingRow{"http://h/?to=archive", 10, 5,
                  "set timeouts for archive local: first frame 10 seconds, inter frame 5 seconds"},
        TimingRow{"http://h/Archive", 5, 3,
                  "set timeouts for live local: first frame 5 seconds, inter frame 3 seconds"},
        TimingRow{"HTTP://h/live", 1, 1,
                  "set timeouts for file HTTP://h/live: first frame 1 seconds, inter frame 1 seconds"},
        TimingRow{"file:///tmp/é.mp4", 1, 1,
                  "set timeouts for file file:///tmp/é.mp4: first frame 1 seconds, inter frame 1 seconds"}));

struct BufferingRow {
    const char* url;
    bool buffering;
    bool saysSo;
};

void PrintTo(const BufferingRow& row, std::ostream* out) {
    *out << row.url;
}

class StreamBufferingTest : public ::testing::TestWithParam<BufferingRow> {};

TEST_P(StreamBufferingTest, FollowsFromTheUrl) {
    const StreamTiming timing = streamTiming(QString::fromUtf8(GetParam().url));
    EXPECT_EQ(timing.buffering, GetParam().buffering);
    ASSERT_EQ(timing.logLines.size(), GetParam().saysSo ? 2U : 1U);
    if (GetParam().saysSo) {
        EXPECT_EQ(timing.logLines.back(), "disable buffering");
    }
}

INSTANTIATE_TEST_SUITE_P(Urls, StreamBufferingTest,
                         ::testing::Values(BufferingRow{"http://h/live", true, false},
                                           BufferingRow{"http://h/live?speed=4", true, false},
                                           BufferingRow{"http://h/archive", true, false},
                                           BufferingRow{"http://h/archive?speed=1", true, false},
                                           BufferingRow{"http://h/archive?speed=", true, false},
                                           BufferingRow{"http://h/archive?speed=2", false, true},
                                           BufferingRow{"http://h/archive?speed=0.5", false, true},
                                           BufferingRow{"http://h/archive?speed=1.0", false, true},
                                           BufferingRow{"http://h/archive?a=b&speed=2", false, true},
                                           BufferingRow{"http://h/archive?Speed=2", true, false},
                                           BufferingRow{"https://h/archive?speed=2", false, true},
                                           BufferingRow{"file:///tmp/a.mp4", false, false},
                                           BufferingRow{"file:///archive/a.mp4?speed=2", false, true}));

TEST(StreamTimingWithoutBuffering, NoUrlIsBuffered) {
    for (const char* url : {"http://h/live", "https://h/archive", "http://h/archive?speed=2"}) {
        const StreamTiming timing = streamTiming(QString::fromUtf8(url), ko_player::BufferingPolicy::Never);
        EXPECT_FALSE(timing.buffering) << url;
        ASSERT_EQ(timing.logLines.size(), 2U) << url;
        EXPECT_EQ(timing.logLines.back(), "disable buffering") << url;
        EXPECT_EQ(timing.firstFrame, streamTiming(QString::fromUtf8(url)).firstFrame) << url;
    }
}

} // namespace
