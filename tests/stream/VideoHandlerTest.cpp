#include "stream/VideoHandler.h"

#include <gmock/gmock.h>

#include <functional>
#include <vector>

namespace {

using ::testing::ElementsAre;
using ::testing::ExitedWithCode;

TEST(VideoHandler, ForwardsEachCallToItsCallable) {
    std::vector<std::string> calls;
    std::uint8_t picture = 0;
    VideoHandler handler({[&] { calls.emplace_back("stopped"); },
                          [&](const ko_player::VideoParams& in, ko_player::VideoParams& out) {
                              calls.emplace_back("params");
                              out = in;
                              return &picture;
                          },
                          [&](const std::uint8_t* data, int size, std::int64_t pts) {
                              EXPECT_EQ(data, &picture);
                              calls.push_back("frame " + std::to_string(size) + " " + std::to_string(pts));
                          },
                          [&](std::int64_t value) { calls.push_back("value " + std::to_string(value)); },
                          [&](std::int64_t first, std::int64_t second) {
                              calls.push_back("pair " + std::to_string(first) + " " + std::to_string(second));
                          },
                          [&] {
                              calls.emplace_back("lock");
                              return ko_player::ResourceGuard([&] { calls.emplace_back("release"); });
                          },
                          [&](int width, int height) {
                              calls.push_back("expect " + std::to_string(width) + " " +
                                              std::to_string(height));
                          }});
    handler.expectPicture(640, 360);
    ko_player::VideoParams out;
    EXPECT_EQ(handler.onVideoParams({0, 640, 480, {1, 1}}, out), &picture);
    EXPECT_EQ(out.width, 640);
    { const ko_player::ResourceGuard guard = handler.lockFrameBuffer(); }
    handler.onFrame(&picture, 7, 40);
    handler.onMetadataValue(8);
    handler.onMetadataPair(9, 10);
    handler.onStopped();
    EXPECT_THAT(calls, ElementsAre("expect 640 360", "params", "lock", "release", "frame 7 40", "value 8",
                                   "pair 9 10", "stopped"));
}

TEST(VideoHandler, HintsAndTheStopWithoutACallableAreIgnoredAndAnyOtherCallIsAnError) {
    VideoHandler handler({});
    ko_player::VideoParams out;
    EXPECT_NO_THROW(handler.onStopped());
    EXPECT_NO_THROW(handler.expectPicture(16, 16));
    EXPECT_THROW(handler.onVideoParams({}, out), std::bad_function_call);
    EXPECT_THROW(handler.onFrame(nullptr, 0, 0), std::bad_function_call);
    EXPECT_THROW(handler.onMetadataValue(0), std::bad_function_call);
    EXPECT_THROW(handler.onMetadataPair(0, 0), std::bad_function_call);
    EXPECT_THROW(handler.lockFrameBuffer(), std::bad_function_call);
}

TEST(VideoHandlerDeathTest, FrameTimeoutEndsTheProcessWithCode2) {
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(VideoHandler({}).onFrameTimeout(), ExitedWithCode(2), "^exit on frame timeout\n$");
}

} // namespace
