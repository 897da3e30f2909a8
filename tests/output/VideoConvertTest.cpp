#include "output/VideoConvert.h"
#include "Frames.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace ko_player {
namespace {

using mediaworker::test::makePicture;

VideoParams params(int format, int width, int height) {
    return {format, width, height, {0, 1}};
}

std::string failureOf(const VideoParams& in, const VideoParams& out) {
    try {
        const VideoConvert converter(in, out, nullptr);
        return "none";
    } catch (const std::runtime_error& error) {
        return error.what();
    }
}

TEST(VideoConvert, WritesPackedRowsIntoTheOutsideBuffer) {
    // 5 pixels: a row of 20 bytes, which any padding would betray.
    std::vector<std::uint8_t> buffer(5 * 3 * 4 + 16, 0xEE);
    VideoConvert converter(params(AV_PIX_FMT_YUV420P, 5, 3), params(AV_PIX_FMT_BGRA, 5, 3), buffer.data());
    EXPECT_EQ(converter.bufferSize(), 60);
    EXPECT_EQ(converter.buffer(), buffer.data());
    ASSERT_GE(converter.convert(*makePicture(0, 5, 3, AV_PIX_FMT_YUV420P, 235)->get()), 0);
    for (std::size_t i = 0; i < 60; ++i) {
        EXPECT_GE(buffer[i], 0xFD) << "white and opaque at byte " << i;
    }
    for (std::size_t i = 60; i < buffer.size(); ++i) {
        EXPECT_EQ(buffer[i], 0xEE) << "nothing behind the picture";
    }
}

TEST(VideoConvert, AllocatesItsOwnBufferWhenNoneIsGiven) {
    VideoConvert converter(params(AV_PIX_FMT_YUV420P, 64, 48), params(AV_PIX_FMT_BGRA, 32, 24), nullptr);
    ASSERT_NE(converter.buffer(), nullptr);
    EXPECT_EQ(converter.bufferSize(), 32 * 24 * 4);
    EXPECT_EQ(converter.buffer()[0], 0) << "starts zeroed";
    ASSERT_GE(converter.convert(*makePicture(0, 64, 48, AV_PIX_FMT_YUV420P, 235)->get()), 0);
    EXPECT_GE(converter.buffer()[0], 0xFD);
}

TEST(VideoConvert, OrdersBytesBlueGreenRedAlpha) {
    const auto picture = makePicture(0, 16, 16, AV_PIX_FMT_YUV420P, 81);
    std::memset((*picture)->data[1], 90, static_cast<std::size_t>((*picture)->linesize[1]) * 8);
    std::memset((*picture)->data[2], 240, static_cast<std::size_t>((*picture)->linesize[2]) * 8);
    VideoConvert converter(params(AV_PIX_FMT_YUV420P, 16, 16), params(AV_PIX_FMT_BGRA, 16, 16), nullptr);
    ASSERT_GE(converter.convert(*picture->get()), 0);
    EXPECT_LE(converter.buffer()[0], 4) << "blue";
    EXPECT_LE(converter.buffer()[1], 4) << "green";
    EXPECT_GE(converter.buffer()[2], 250) << "red";
    EXPECT_EQ(converter.buffer()[3], 255) << "alpha";
}

TEST(VideoConvert, SaysWhyItCannotBeBuilt) {
    EXPECT_EQ(failureOf(params(-1, 64, 48), params(AV_PIX_FMT_BGRA, 64, 48)),
              "VideoConvert: sws creating failed");
    EXPECT_EQ(failureOf(params(AV_PIX_FMT_YUV420P, 64, 48), params(AV_PIX_FMT_BGRA, 30000, 30000)),
              "VideoConvert: out bufSize <= 0");
}

} // namespace
} // namespace ko_player
