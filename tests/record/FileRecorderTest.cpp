#include "record/FileRecorder.h"

#include "FileSizeLimit.h"
#include "Mp4File.h"
#include "support/ChildProcess.h"
#include "support/FlvWriter.h"
#include "support/LogCapture.h"
#include "support/Platform.h"

#include <gmock/gmock.h>

#include <filesystem>

namespace ko_player {
namespace {

using mediaworker::test::AmfValue;
using mediaworker::test::FileSizeLimit;
using mediaworker::test::FlvWriter;
using mediaworker::test::LogCapture;
using mediaworker::test::readMp4;
using mediaworker::test::TemporaryFolder;
using mediaworker::test::VideoCodec;
using testing::Contains;
using testing::ElementsAre;

using Bytes = std::vector<std::uint8_t>;

const Bytes kAvcConfig = {1, 0x42, 0, 0x1E, 0xFF, 0xE1, 0, 4, 0x67, 0x42, 0, 0x1E, 1, 0, 2, 0x68, 0xCE};
const Bytes kAacConfig = {0x12, 0x10};

const std::string kBegin = "ko_player::FileRecorder::beginRecordStreams: ";
const std::string kTryVideo = kBegin + "try add video stream";

std::string headerLine(bool started, bool forced) {
    return kBegin + "try write header with audio: started: " + (started ? "1" : "0") +
           ", forced: " + (forced ? "1" : "0");
}

/// One NAL unit behind its length, `size` bytes in all.
Bytes slice(std::size_t size, std::uint8_t nalHeader) {
    Bytes result(size, 0x55);
    const std::size_t length = size - 4;
    for (unsigned i = 0; i < 4; ++i) {
        result[i] = static_cast<std::uint8_t>(length >> (24 - 8 * i));
    }
    result[4] = nalHeader;
    return result;
}

class FileRecorderTest : public testing::Test {
public:
    FileRecorderTest() { writer_.header(); }

    static AmfValue::Properties videoMeta() { return {{"videocodecid", 7}, {"width", 320}, {"height", 180}}; }
    static AmfValue::Properties audioMeta(int headerByte = 0xAF) {
        return {{"audiocodecid", headerByte},
                {"audiosamplerate", 44100},
                {"audiosamplesize", 16},
                {"audiochannels", 2}};
    }

    FileRecorderTest& metadata(const AmfValue::Properties& properties) {
        writer_.metadata(0, properties);
        return *this;
    }
    FileRecorderTest& bothMetadata() {
        auto both = videoMeta();
        for (const auto& property : audioMeta()) {
            both.push_back(property);
        }
        return metadata(both);
    }
    FileRecorderTest& avcConfig() {
        writer_.video(0, VideoCodec::Avc, true, FlvWriter::kSequenceHeader, kAvcConfig);
        return *this;
    }
    FileRecorderTest& aacConfig() {
        writer_.aac(0, FlvWriter::kSequenceHeader, kAacConfig);
        return *this;
    }
    FileRecorderTest& video(std::uint32_t ms, std::size_t size = 20, bool key = true) {
        writer_.video(ms, VideoCodec::Avc, key, FlvWriter::kFrames,
                      slice(size, key ? std::uint8_t{0x65} : std::uint8_t{0x41}));
        return *this;
    }
    FileRecorderTest& aac(std::uint32_t ms) {
        writer_.aac(ms, FlvWriter::kFrames, Bytes{0x21, 0x10, 0x04, 0x60, 0x8C, 0x1C});
        return *this;
    }

    [[nodiscard]] bool fed() {
        const Bytes bytes = writer_.take();
        return recorder_.consume(bytes.data(), bytes.size());
    }
    /// What the recorder itself has logged, and nothing of FFmpeg and of the adaptor.
    std::vector<std::string> lines() const {
        std::vector<std::string> result;
        for (const std::string& line : log_.lines()) {
            if (line.starts_with("ko_player::FileRecorder::")) {
                result.push_back(line);
            }
        }
        return result;
    }
    [[nodiscard]] bool fileExists() const { return std::filesystem::exists(path_); }

    TemporaryFolder folder_;
    std::string path_ = (folder_ / "out.mp4").string();
    LogCapture log_;
    FlvWriter writer_;
    FileRecorder recorder_{path_};
};

TEST_F(FileRecorderTest, WaitsForSoundAndThenWritesThePicturesHeldBack) {
    bothMetadata().avcConfig();
    for (std::uint32_t ms = 0; ms <= 200; ms += 40) {
        video(ms);
    }
    ASSERT_TRUE(fed());
    EXPECT_FALSE(fileExists());
    EXPECT_THAT(lines(), ElementsAre());
    EXPECT_EQ(recorder_.bufferedBytes(), 6U * 20);

    aacConfig().aac(205).video(240);
    ASSERT_TRUE(fed());
    EXPECT_THAT(lines(), ElementsAre(kTryVideo, headerLine(true, true)));
    EXPECT_EQ(recorder_.bufferedBytes(), 0U);
    EXPECT_EQ(recorder_.maxVideoDts(), 240);
    ASSERT_TRUE(recorder_.pushEofAndClose());
    const auto streams = readMp4(path_);
    ASSERT_EQ(streams.size(), 2U);
    EXPECT_THAT(streams[0].stamps(), ElementsAre(0, 512, 1024, 1536, 2048, 2560, 3072));
    EXPECT_EQ(streams[0].extradata, kAvcConfig);
    EXPECT_EQ(streams[1].packets.size(), 1U);
    EXPECT_EQ(streams[1].extradata, kAacConfig);
}

TEST_F(FileRecorderTest, DropsSoundThatComesBeforeThePicture) {
    bothMetadata().aacConfig().aac(0).aac(23);
    ASSERT_TRUE(fed());
    const std::string ignored = "ko_player::FileRecorder::pushAudio: ignore audio packet before started";
    EXPECT_THAT(lines(), ElementsAre(ignored, ignored));
    EXPECT_FALSE(fileExists());
    avcConfig(); // the header needs no picture then
    ASSERT_TRUE(fed());
    EXPECT_THAT(lines(), ElementsAre(ignored, ignored, kTryVideo, headerLine(true, true)));
    EXPECT_TRUE(fileExists());
    video(40).aac(46).video(80);
    ASSERT_TRUE(fed());
    ASSERT_TRUE(recorder_.pushEofAndClose());
    const auto streams = readMp4(path_);
    EXPECT_EQ(streams.at(0).packets.size(), 2U);
    EXPECT_EQ(streams.at(1).packets.size(), 1U);
}

TEST_F(FileRecorderTest, StopsWaitingForSoundAfterThreeSeconds) {
    metadata(videoMeta()).avcConfig().video(0).video(3000);
    ASSERT_TRUE(fed());
    EXPECT_THAT(lines(), ElementsAre());
    video(3001);
    ASSERT_TRUE(fed());
    EXPECT_THAT(lines(), ElementsAre(kTryVideo, kBegin + "no audio when 3001 ms of video already buffered",
                                     "ko_player::FileRecorder::addAudioStream: no audio codecId",
                                     headerLine(false, true)));
    ASSERT_TRUE(recorder_.pushEofAndClose());
    const auto streams = readMp4(path_);
    ASSERT_EQ(streams.size(), 1U);
    EXPECT_THAT(streams[0].stamps(), ElementsAre(0, 38400, 38413));
}

TEST_F(FileRecorderTest, AddsTheSoundThatTheMetadataNamesWhenItIsTiredOfWaiting) {
    bothMetadata().avcConfig().video(0).video(3001);
    ASSERT_TRUE(fed());
    EXPECT_THAT(lines(), ElementsAre(kTryVideo, kBegin + "no audio when 3001 ms of video already buffered",
                                     headerLine(true, true)));
    ASSERT_TRUE(recorder_.pushEofAndClose());
    const auto streams = readMp4(path_);
    ASSERT_EQ(streams.size(), 1U); // the writer leaves out what stayed empty
    EXPECT_EQ(streams[0].packets.size(), 2U);
}

TEST_F(FileRecorderTest, BeginsAtTheFirstPictureOfAStreamThatBeginsLate) {
    bothMetadata().avcConfig().video(5000);
    ASSERT_TRUE(fed());
    EXPECT_THAT(lines(), ElementsAre(kTryVideo, kBegin + "no audio when 5000 ms of video already buffered",
                                     headerLine(true, true)));
    EXPECT_EQ(recorder_.maxVideoDts(), 5000);
}

TEST_F(FileRecorderTest, StopsWaitingForSoundAtFiveMegabytes) {
    constexpr std::size_t kPacketBytes = 1 << 20; // five of them are the limit
    metadata(videoMeta()).avcConfig();
    for (std::uint32_t i = 0; i < 4; ++i) {
        video(i, kPacketBytes);
    }
    video(4, kPacketBytes - 1);
    ASSERT_TRUE(fed());
    EXPECT_EQ(recorder_.bufferedBytes(), FileRecorder::kMaxBufferedBytes - 1);
    EXPECT_THAT(lines(), ElementsAre());
    video(5);
    ASSERT_TRUE(fed());
    EXPECT_THAT(lines(), Contains(headerLine(false, true)));
    ASSERT_TRUE(recorder_.pushEofAndClose());
    EXPECT_EQ(readMp4(path_).at(0).packets.size(), 6U);
}

TEST_F(FileRecorderTest, HoldsBackOnlySoManyTinyPackets) {
    metadata(videoMeta()).avcConfig();
    for (std::size_t i = 1; i < FileRecorder::kMaxBufferedPackets; ++i) {
        video(0, 5);
    }
    ASSERT_TRUE(fed());
    EXPECT_THAT(lines(), ElementsAre());
    video(0, 5);
    ASSERT_TRUE(fed());
    EXPECT_THAT(lines(), Contains(headerLine(false, true)));
}

TEST_F(FileRecorderTest, KeepsTheLargestStampWhenStampsGoBack) {
    metadata(videoMeta()).avcConfig().video(80).video(40).video(60);
    ASSERT_TRUE(fed());
    EXPECT_EQ(recorder_.maxVideoDts(), 80);
}

TEST_F(FileRecorderTest, ClosedBeforeAnyPictureWritesNothing) {
    EXPECT_FALSE(recorder_.pushEofAndClose());
    bothMetadata().aacConfig().aac(0);
    ASSERT_TRUE(fed());
    EXPECT_FALSE(recorder_.pushEofAndClose());
    EXPECT_FALSE(fileExists());
}

TEST_F(FileRecorderTest, ClosedAfterNothingButTheConfigurationWritesNothing) {
    bothMetadata().avcConfig();
    ASSERT_TRUE(fed());
    EXPECT_FALSE(recorder_.pushEofAndClose());
    EXPECT_FALSE(fileExists());
}

TEST_F(FileRecorderTest, ClosedWithSoundButNoPictureIsNoRecording) {
    bothMetadata().avcConfig().aacConfig().aac(0).aac(23);
    ASSERT_TRUE(fed());
    EXPECT_FALSE(recorder_.pushEofAndClose());
}

TEST_F(FileRecorderTest, ClosedWhileWaitingWritesThePicturesWithoutSound) {
    bothMetadata().avcConfig().video(0).video(40);
    ASSERT_TRUE(fed());
    ASSERT_TRUE(recorder_.pushEofAndClose());
    EXPECT_THAT(lines(), ElementsAre(kTryVideo, kBegin + "no audio when 40 ms of video already buffered",
                                     headerLine(false, false)));
    const auto streams = readMp4(path_);
    ASSERT_EQ(streams.size(), 1U);
    EXPECT_EQ(streams[0].packets.size(), 2U);
}

TEST_F(FileRecorderTest, ClosedTwiceLeavesTheFile) {
    bothMetadata().avcConfig().aacConfig().video(0);
    ASSERT_TRUE(fed());
    ASSERT_TRUE(recorder_.pushEofAndClose());
    const std::string closed = mediaworker::test::readFile(path_);
    EXPECT_TRUE(recorder_.pushEofAndClose());
    EXPECT_EQ(mediaworker::test::readFile(path_), closed);
}

TEST_F(FileRecorderTest, WritesSoundThatBeginsAfterTheHeaderIfTheMetadataNamedIt) {
    bothMetadata().avcConfig().video(0).video(3001).aacConfig().aac(3010).aac(3033);
    ASSERT_TRUE(fed());
    EXPECT_THAT(lines(), Contains("ko_player::FileRecorder::startAudio: audio started after header"));
    ASSERT_TRUE(recorder_.pushEofAndClose());
    const auto streams = readMp4(path_);
    ASSERT_EQ(streams.size(), 2U);
    EXPECT_EQ(streams[1].packets.size(), 2U);
}

TEST_F(FileRecorderTest, GivesTheLateConfigurationToTheFirstSoundPacket) {
    // The metadata has no rate, so the header has no configuration; what comes later counts.
    auto meta = videoMeta();
    meta.insert(meta.end(), {{"audiocodecid", 0xAF}, {"audiosamplerate", 45000}, {"audiochannels", 2}});
    metadata(meta).avcConfig().video(0).video(3001).aacConfig().aac(3010);
    ASSERT_TRUE(fed());
    ASSERT_TRUE(recorder_.pushEofAndClose());
    EXPECT_EQ(readMp4(path_).at(1).extradata, kAacConfig);
}

TEST_F(FileRecorderTest, DropsSoundThatNoMetadataNamedBeforeTheHeader) {
    metadata(videoMeta()).avcConfig().video(0).video(3001);
    metadata(audioMeta()).aacConfig().aac(3010).aac(3033);
    ASSERT_TRUE(fed());
    const std::string ignored = "ko_player::FileRecorder::pushAudio: ignore audio packet, audio not started";
    auto heard = lines();
    heard.erase(heard.begin(), heard.begin() + 4);
    EXPECT_THAT(heard, ElementsAre("ko_player::FileRecorder::startAudio: audio started after header", ignored,
                                   ignored));
    ASSERT_TRUE(recorder_.pushEofAndClose());
    EXPECT_EQ(readMp4(path_).size(), 1U);
}

TEST_F(FileRecorderTest, ReportsABrokenStreamAndKeepsWhatWasGood) {
    bothMetadata().avcConfig().aacConfig().video(0).video(40);
    writer_.tag(77, 80, Bytes(5));
    EXPECT_FALSE(fed());
    EXPECT_THAT(lines(), Contains("ko_player::FileRecorder::consumeImpl: ec: Invalid argument, what: undef "
                                  "tag type:77"));
    ASSERT_TRUE(recorder_.pushEofAndClose());
    EXPECT_EQ(readMp4(path_).at(0).packets.size(), 2U);
}

TEST_F(FileRecorderTest, ReportsATagThatNeverEnds) {
    metadata(videoMeta()).avcConfig().video(0);
    writer_.tagHeader(FlvWriter::kVideoTag, 0xFFFFFF, 40);
    ASSERT_TRUE(fed());
    const Bytes rest(6 << 20, 0);
    EXPECT_FALSE(recorder_.consume(rest.data(), rest.size()));
    EXPECT_THAT(lines(), Contains("ko_player::FileRecorder::consume: consume failed with exception: "
                                  "FlatBuffer.push gt maxSize"));
    EXPECT_TRUE(recorder_.pushEofAndClose());
}

TEST_F(FileRecorderTest, CannotStoreG711) {
    auto meta = videoMeta();
    for (const auto& property : audioMeta(0x70 | 0x0E)) {
        meta.push_back(property);
    }
    metadata(meta).avcConfig().video(0);
    writer_.audio(10, 0x7E, Bytes(160, 0xD5));
    EXPECT_FALSE(fed());
    EXPECT_THAT(lines(), ElementsAre(kTryVideo, headerLine(true, true),
                                     "ko_player::FileRecorder::consume: consume failed with exception: "
                                     "Muxer.writeHeader avformat_write_header: file: " +
                                         path_ + ", err: Invalid argument"));
}

TEST_F(FileRecorderTest, CannotStorePicturesOfUnknownSize) {
    avcConfig().video(0).video(3001);
    EXPECT_FALSE(fed());
    EXPECT_THAT(lines(), Contains("ko_player::FileRecorder::consume: consume failed with exception: "
                                  "Muxer.writeHeader avformat_write_header: file: " +
                                  path_ + ", err: Invalid argument"));
}

TEST_F(FileRecorderTest, CannotStoreSoundOfUnknownRate) {
    auto meta = videoMeta();
    meta.insert(meta.end(), {{"audiocodecid", 0x2F}, {"audiosamplerate", 0}, {"audiochannels", 2}});
    metadata(meta).avcConfig().video(0).video(3001);
    EXPECT_FALSE(fed());
    EXPECT_THAT(lines(), Contains(testing::StartsWith(
                             "ko_player::FileRecorder::consume: consume failed with exception: "
                             "Muxer.writeHeader avformat_write_header: file: ")));
}

TEST_F(FileRecorderTest, RefusesAnEmptyPath) {
    EXPECT_THROW(FileRecorder(""), std::invalid_argument);
}

TEST_F(FileRecorderTest, SaysThatTheFolderIsMissing) {
    const std::string missing = (folder_ / "missing").string() + "/out.mp4";
    FileRecorder recorder(missing);
    bothMetadata().avcConfig().aacConfig().video(0);
    const Bytes bytes = writer_.take();
    EXPECT_FALSE(recorder.consume(bytes.data(), bytes.size()));
    EXPECT_TRUE(log_.contains("ko_player::FileRecorder::consume: consume failed with exception: "
                              "Muxer.writeHeader avio_open: file: " +
                              missing + ", err: No such file or directory"));
}

TEST_F(FileRecorderTest, SaysThatTheFileCannotBeWritten) {
    FileRecorder recorder(folder_.path().string());
    metadata(videoMeta()).avcConfig().video(0);
    const Bytes bytes = writer_.take();
    EXPECT_TRUE(recorder.consume(bytes.data(), bytes.size()));
    EXPECT_FALSE(recorder.pushEofAndClose());
    const std::string reason =
        mediaworker::test::platform::kIsWindows ? "Permission denied" : "Is a directory";
    EXPECT_TRUE(log_.contains("ko_player::FileRecorder::pushEofAndClose: pushEofAndClose failed with "
                              "exception: Muxer.writeHeader avio_open: file: " +
                              folder_.path().string() + ", err: " + reason));
}

TEST_F(FileRecorderTest, FailsOnAFullDiskAtOnce) {
    FileRecorder recorder("/dev/full");
    bothMetadata().avcConfig().aacConfig().video(0);
    const Bytes bytes = writer_.take();
    EXPECT_FALSE(recorder.consume(bytes.data(), bytes.size()));
    EXPECT_TRUE(log_.contains("ko_player::FileRecorder::consume: consume failed with exception: "
                              "Muxer.writeHeader avformat_write_header: file: /dev/full, err: No space left "
                              "on device"));
}

TEST_F(FileRecorderTest, FailsWhenTheDiskBecomesFullWhileRecording) {
    if (const auto obstacle = FileSizeLimit::obstacle()) {
        GTEST_SKIP() << *obstacle;
    }
    metadata(videoMeta()).avcConfig().video(4000);
    ASSERT_TRUE(fed());
    for (std::uint32_t i = 1; i < 50; ++i) {
        video(4000 + 40 * i, 20'000);
    }
    const FileSizeLimit full(300'000);
    EXPECT_FALSE(fed());
    EXPECT_THAT(lines(), Contains("ko_player::FileRecorder::consume: consume failed with exception: video "
                                  "packet mux error: File too large"));
    EXPECT_FALSE(recorder_.pushEofAndClose());
}

TEST_F(FileRecorderTest, FailsWhenTheDiskIsFullAtTheEnd) {
    if (const auto obstacle = FileSizeLimit::obstacle()) {
        GTEST_SKIP() << *obstacle;
    }
    bothMetadata().avcConfig().aacConfig().video(0).aac(10);
    ASSERT_TRUE(fed());
    const FileSizeLimit full(100);
    EXPECT_FALSE(recorder_.pushEofAndClose());
    EXPECT_EQ(lines().back(), "ko_player::FileRecorder::pushEofAndClose: pushEofAndClose failed with "
                              "exception: Muxer.close av_write_trailer: file: " +
                                  path_ + ", err: File too large");
}

TEST_F(FileRecorderTest, FailsWhereverTheDiskBecomesFull) {
    if (const auto obstacle = FileSizeLimit::obstacle()) {
        GTEST_SKIP() << *obstacle;
    }
    // From the header to the last bytes of the index: what fits is 620 kB and some.
    for (const std::uint64_t limit : {1U, 100'000U, 300'000U, 600'000U, 620'500U}) {
        bothMetadata().avcConfig().aacConfig();
        for (std::uint32_t i = 0; i < 31; ++i) {
            video(40 * i, 20'000);
            aac(40 * i);
        }
        const Bytes bytes = writer_.take();
        writer_.header();
        bool isWhole = true;
        {
            const FileSizeLimit full(limit);
            FileRecorder recorder(path_);
            isWhole = recorder.consume(bytes.data(), bytes.size());
            isWhole = recorder.pushEofAndClose() && isWhole;
        }
        EXPECT_FALSE(isWhole) << limit;
    }
}

} // namespace
} // namespace ko_player
