#include "record/Muxer.h"

#include "FileSizeLimit.h"
#include "Mp4File.h"
#include "ffmpeg/CodecParameters.h"
#include "flv/FillPacket.h"
#include "support/ChildProcess.h"

#include <gmock/gmock.h>

extern "C" {
#include <libavcodec/codec_par.h>
#include <libavcodec/packet.h>
#include <libavformat/avio.h>
#include <libavutil/avutil.h>
#include <libavutil/channel_layout.h>
}

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <tuple>

namespace ko_player {
namespace {

using mediaworker::test::FileSizeLimit;
using mediaworker::test::readFile;
using mediaworker::test::readMp4;
using mediaworker::test::TemporaryFolder;
using testing::ElementsAre;

const std::vector<std::uint8_t> kAvcConfig = {1,    0x42, 0,    0x1E, 0xFF, 0xE1, 0,    4,   0x67,
                                              0x42, 0,    0x1E, 1,    0,    2,    0x68, 0xCE};

ff_wrap::CodecParametersPtr videoParameters() {
    auto parameters = ff_wrap::makeCodecParameters();
    parameters->codec_type = AVMEDIA_TYPE_VIDEO;
    parameters->codec_id = AV_CODEC_ID_H264;
    parameters->width = 320;
    parameters->height = 180;
    parameters->codec_tag = 7; // of another container
    ff_wrap::allocExtradata(*parameters, kAvcConfig.size());
    std::copy(kAvcConfig.begin(), kAvcConfig.end(), parameters->extradata);
    return parameters;
}

ff_wrap::CodecParametersPtr audioParameters(AVCodecID codec = AV_CODEC_ID_MP3) {
    auto parameters = ff_wrap::makeCodecParameters();
    parameters->codec_type = AVMEDIA_TYPE_AUDIO;
    parameters->codec_id = codec;
    parameters->sample_rate = 48000;
    av_channel_layout_default(&parameters->ch_layout, 1);
    return parameters;
}

std::shared_ptr<ff_wrap::Packet> packet(std::int64_t dtsMs, std::size_t size = 6) {
    auto result = std::make_shared<ff_wrap::Packet>();
    const std::vector<std::uint8_t> bytes(size, 0x41);
    std::vector<std::uint8_t> noSideData;
    FillPacket(*result, bytes.data(), static_cast<std::uint32_t>(bytes.size()), dtsMs, noSideData,
               AV_PKT_FLAG_KEY);
    return result;
}

std::string textOf(const auto& action) {
    try {
        action();
    } catch (const std::exception& error) {
        return error.what();
    }
    return "nothing thrown";
}

class MuxerTest : public testing::Test {
protected:
    void addVideo(Muxer& muxer, AVRational inputTimeBase = {1, 1000}) const {
        muxer.addStream({video_.get(), {1, 25}, inputTimeBase}, 0);
    }
    void addAudio(Muxer& muxer) const { muxer.addStream({audio_.get(), {1, 48000}, {1, 1000}}, 1); }

    /// The stamps of a file with these packets, in its own time base, counted from the first.
    std::vector<std::int64_t> written(const std::vector<std::int64_t>& dtsMs) const {
        Muxer muxer(path_);
        addVideo(muxer);
        muxer.openFile();
        for (const std::int64_t dts : dtsMs) {
            EXPECT_TRUE(muxer.writePacket(packet(dts), 0, nullptr));
        }
        muxer.close();
        const auto streams = readMp4(path_);
        EXPECT_EQ(streams.at(0).timeBase.den, kTicksPerSecond);
        return streams.at(0).stamps();
    }

    static constexpr int kTicksPerSecond = 12800; // what the writer makes of 1/25
    static constexpr std::int64_t kTicksPer40Ms = 512;

    TemporaryFolder folder_;
    std::string path_ = (folder_ / "out.mp4").string();
    ff_wrap::CodecParametersPtr video_ = videoParameters();
    ff_wrap::CodecParametersPtr audio_ = audioParameters();
};

TEST_F(MuxerTest, RefusesAnEmptyFileName) {
    EXPECT_THROW(Muxer(""), std::invalid_argument);
    EXPECT_EQ(textOf([] { Muxer muxer(""); }), "Muxer.ctor empty filename");
}

TEST_F(MuxerTest, TouchesNoFileBeforeItIsOpened) {
    {
        Muxer muxer(path_);
        addVideo(muxer);
        muxer.close();
    }
    EXPECT_FALSE(std::filesystem::exists(path_));
}

TEST_F(MuxerTest, WritesStreamsWithTheirParameters) {
    Muxer muxer(path_);
    EXPECT_FALSE(muxer.isOpen());
    addVideo(muxer);
    addAudio(muxer);
    muxer.openFile();
    EXPECT_TRUE(muxer.isOpen());
    ASSERT_TRUE(muxer.writePacket(packet(0), 0, nullptr));
    ASSERT_TRUE(muxer.writePacket(packet(10), 1, nullptr));
    muxer.close();
    EXPECT_FALSE(muxer.isOpen());
    const auto streams = readMp4(path_);
    ASSERT_EQ(streams.size(), 2U);
    EXPECT_EQ(streams[0].codec, AV_CODEC_ID_H264);
    EXPECT_EQ(streams[0].widthPx, 320);
    EXPECT_EQ(streams[0].heightPx, 180);
    EXPECT_EQ(streams[0].extradata, kAvcConfig);
    EXPECT_EQ(streams[0].packets.size(), 1U);
    EXPECT_EQ(streams[1].codec, AV_CODEC_ID_MP3);
    EXPECT_EQ(streams[1].sampleRate, 48000);
    EXPECT_EQ(streams[1].packets.size(), 1U);
}

TEST_F(MuxerTest, RescalesStampsToTheFile) {
    EXPECT_THAT(written({0, 40, 80, 1000}), ElementsAre(0, 512, 1024, 12800));
}

TEST_F(MuxerTest, RoundsStampsToTheNearest) {
    EXPECT_THAT(written({0, 1, 2, 3}), ElementsAre(0, 13, 26, 38)); // 12.8, 25.6, 38.4
}

TEST_F(MuxerTest, MovesARepeatedStampOn) {
    EXPECT_THAT(written({0, 40, 40, 40, 80}), ElementsAre(0, 512, 513, 514, 1024));
}

TEST_F(MuxerTest, MovesAStampThatGoesBackBehindTheLast) {
    EXPECT_THAT(written({0, 40, 80, 40, 81}), ElementsAre(0, 512, 1024, 1025, 1037));
}

TEST_F(MuxerTest, BeginsAtZeroForANegativeStamp) {
    EXPECT_THAT(written({-40, -20, 0, 40}), ElementsAre(0, 1, 2, kTicksPer40Ms));
}

TEST_F(MuxerTest, TakesAPacketWithoutAStampAsTheFirst) {
    EXPECT_THAT(written({AV_NOPTS_VALUE, 40}), ElementsAre(0, kTicksPer40Ms));
}

TEST_F(MuxerTest, SurvivesTheLargestStamp) {
    Muxer muxer(path_);
    addVideo(muxer);
    muxer.openFile();
    EXPECT_TRUE(muxer.writePacket(packet(0), 0, nullptr));
    constexpr auto kLargest = std::numeric_limits<std::int64_t>::max();
    static_cast<void>(muxer.writePacket(packet(kLargest), 0, nullptr));
    static_cast<void>(muxer.writePacket(packet(kLargest), 0, nullptr));
    static_cast<void>(muxer.writePacket(packet(40), 0, nullptr));
    muxer.close();
    EXPECT_GE(readMp4(path_).at(0).packets.size(), 1U);
}

TEST_F(MuxerTest, KeepsTheStampsOfItsStreamsApart) {
    Muxer muxer(path_);
    addVideo(muxer);
    addAudio(muxer);
    muxer.openFile();
    ASSERT_TRUE(muxer.writePacket(packet(1000), 0, nullptr));
    ASSERT_TRUE(muxer.writePacket(packet(0), 1, nullptr));
    ASSERT_TRUE(muxer.writePacket(packet(20), 1, nullptr));
    ASSERT_TRUE(muxer.writePacket(packet(20), 1, nullptr));
    muxer.close();
    EXPECT_THAT(readMp4(path_).at(1).stamps(), ElementsAre(0, 960, 961));
}

TEST_F(MuxerTest, TakesThePacketsContentWithoutACopy) {
    Muxer muxer(path_);
    addVideo(muxer);
    muxer.openFile();
    auto given = packet(0);
    ASSERT_TRUE(muxer.writePacket(given, 0, nullptr));
    EXPECT_EQ((*given)->data, nullptr);
}

TEST_F(MuxerTest, RefusesASecondOpeningAndLeavesTheFile) {
    Muxer muxer(path_);
    addVideo(muxer);
    muxer.openFile();
    ASSERT_TRUE(muxer.writePacket(packet(0), 0, nullptr));
    EXPECT_THROW(muxer.openFile(), std::logic_error);
    EXPECT_EQ(textOf([&] { muxer.openFile(); }), "Muxer.openFile: second call");
    ASSERT_TRUE(muxer.writePacket(packet(40), 0, nullptr));
    muxer.close();
    EXPECT_EQ(readMp4(path_).at(0).packets.size(), 2U);
    EXPECT_EQ(textOf([&] { muxer.openFile(); }), "Muxer.openFile: second call");
    EXPECT_EQ(readMp4(path_).at(0).packets.size(), 2U);
}

TEST_F(MuxerTest, WritesTheIndexOnceWhenClosedTwice) {
    Muxer muxer(path_);
    addVideo(muxer);
    muxer.openFile();
    ASSERT_TRUE(muxer.writePacket(packet(0), 0, nullptr));
    muxer.close();
    const std::string closed = readFile(path_);
    muxer.close();
    EXPECT_EQ(readFile(path_), closed);
}

TEST_F(MuxerTest, ClosesAnUnfinishedFileWithoutAnIndex) {
    {
        Muxer muxer(path_);
        addVideo(muxer);
        muxer.openFile();
        ASSERT_TRUE(muxer.writePacket(packet(0), 0, nullptr));
    }
    EXPECT_EQ(readFile(path_).find("moov"), std::string::npos);
    EXPECT_THROW(std::ignore = readMp4(path_), std::runtime_error);
}

TEST_F(MuxerTest, SaysWhichFileCannotBeCreated) {
    const std::string missing = (folder_ / "missing").string() + "/out.mp4";
    Muxer muxer(missing);
    addVideo(muxer);
    EXPECT_EQ(textOf([&] { muxer.openFile(); }),
              "Muxer.writeHeader avio_open: file: " + missing + ", err: No such file or directory");
    EXPECT_FALSE(muxer.isOpen());
    muxer.close();
}

TEST_F(MuxerTest, SaysWhenTheHeaderIsRefused) {
    audio_ = audioParameters(AV_CODEC_ID_PCM_ALAW);
    Muxer muxer(path_);
    addVideo(muxer);
    addAudio(muxer);
    EXPECT_EQ(textOf([&] { muxer.openFile(); }),
              "Muxer.writeHeader avformat_write_header: file: " + path_ + ", err: Invalid argument");
    EXPECT_EQ(textOf([&] { muxer.openFile(); }), "Muxer.openFile: second call");
    EXPECT_THROW(static_cast<void>(muxer.writePacket(packet(0), 0, nullptr)), std::logic_error);
    muxer.close(); // there is no index to write
}

TEST_F(MuxerTest, RefusesCallsOutOfOrder) {
    Muxer muxer(path_);
    EXPECT_THROW(addAudio(muxer), std::logic_error);
    addVideo(muxer);
    EXPECT_THROW(addVideo(muxer), std::logic_error);
    EXPECT_THROW(static_cast<void>(muxer.writePacket(packet(0), 0, nullptr)), std::logic_error);
    muxer.openFile();
    EXPECT_THROW(addAudio(muxer), std::logic_error);
    EXPECT_THROW(static_cast<void>(muxer.writePacket(packet(0), 1, nullptr)), std::logic_error);
    EXPECT_THROW(static_cast<void>(muxer.writePacket(packet(0), -1, nullptr)), std::logic_error);
}

TEST_F(MuxerTest, ReportsADiskThatIsFullAtOnce) {
    Muxer muxer("/dev/full");
    addVideo(muxer);
    EXPECT_EQ(textOf([&] { muxer.openFile(); }),
              "Muxer.writeHeader avformat_write_header: file: /dev/full, err: No space left on device");
}

TEST_F(MuxerTest, ReportsADiskThatBecomesFull) {
    if (const auto obstacle = FileSizeLimit::obstacle()) {
        GTEST_SKIP() << *obstacle;
    }
    Muxer muxer(path_);
    addVideo(muxer);
    muxer.openFile();
    const FileSizeLimit full(500'000);
    std::string error;
    int written = 0;
    while (written < 100 && muxer.writePacket(packet(40 * written, 20'000), 0, &error)) {
        ++written;
    }
    EXPECT_GE(written, 20); // the first pieces stay in a buffer
    EXPECT_LT(written, 100);
    EXPECT_EQ(error, "File too large");
    EXPECT_FALSE(muxer.writePacket(packet(4000), 0, nullptr));
    EXPECT_EQ(textOf([&] { muxer.close(); }),
              "Muxer.close av_write_trailer: file: " + path_ + ", err: File too large");
    EXPECT_FALSE(muxer.isOpen());
    muxer.close();
}

TEST_F(MuxerTest, ReportsADiskThatIsFullOnlyAtTheEnd) {
    if (const auto obstacle = FileSizeLimit::obstacle()) {
        GTEST_SKIP() << *obstacle;
    }
    Muxer muxer(path_);
    addVideo(muxer);
    muxer.openFile();
    ASSERT_TRUE(muxer.writePacket(packet(0), 0, nullptr));
    const FileSizeLimit full(100);
    EXPECT_EQ(textOf([&] { muxer.close(); }),
              "Muxer.close av_write_trailer: file: " + path_ + ", err: File too large");
}

TEST_F(MuxerTest, KeepsABoundedAmountForAStreamThatNeverComes) {
    constexpr std::size_t kPacketBytes = 100'000;
    constexpr std::size_t kPackets = 400;
    Muxer muxer(path_);
    addVideo(muxer);
    addAudio(muxer);
    muxer.openFile();
    for (std::size_t i = 0; i < kPackets; ++i) {
        ASSERT_TRUE(muxer.writePacket(packet(0, kPacketBytes), 0, nullptr)); // time stands still
    }
    EXPECT_GT(std::filesystem::file_size(path_), kPackets * kPacketBytes / 2);
    muxer.close();
    EXPECT_EQ(readMp4(path_).at(0).packets.size(), kPackets);
}

} // namespace
} // namespace ko_player
