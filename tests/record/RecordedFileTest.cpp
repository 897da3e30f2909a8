#include "record/FileRecorder.h"

#include "Mp4File.h"
#include "support/ChildProcess.h"
#include "support/LogCapture.h"
#include "support/media/FlvStream.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <sstream>

namespace mediaworker::test {
namespace {

using testing::AnyOf;
using testing::HasSubstr;

/// Records real streams and has the files judged by programs that know nothing of the recorder.
class RecordedFile : public testing::Test {
protected:
    /// Everything in pieces of an odd size, then the end.
    [[nodiscard]] bool record(const std::vector<std::uint8_t>& bytes) {
        constexpr std::size_t kPiece = 7919;
        ko_player::FileRecorder recorder(path_.string());
        for (std::size_t at = 0; at < bytes.size(); at += kPiece) {
            if (!recorder.consume(bytes.data() + at, std::min(kPiece, bytes.size() - at))) {
                static_cast<void>(recorder.pushEofAndClose());
                return false;
            }
        }
        return recorder.pushEofAndClose();
    }
    [[nodiscard]] bool record(const std::vector<TimedBytes>& pieces) { return record(toBytes(pieces)); }

    /// The clip's pictures with other time stamps (milliseconds), without sound.
    [[nodiscard]] bool recordWithStamps(const Clip& clip, const std::vector<std::uint32_t>& stamps) {
        FlvOptions options;
        options.startMs = stamps.at(0);
        FlvWriter writer;
        for (const TimedBytes& piece : makeFlv(clip, options)) {
            if (piece.kind != PieceKind::Video) {
                writer.raw(piece.bytes);
            }
        }
        for (std::size_t i = 0; i < stamps.size(); ++i) {
            const ClipPacket& picture = clip.video.at(i);
            writer.video(stamps[i], clip.spec.codec, picture.isKey, FlvWriter::kFrames, picture.bytes);
        }
        return record(writer.bytes());
    }

    /// The stamps of the pictures in 1/12800 s, from the first on.
    [[nodiscard]] std::vector<std::int64_t> pictureStamps() const { return readMp4(path_).at(0).stamps(); }

    static bool isStrictlyIncreasing(const std::vector<std::int64_t>& stamps) {
        return std::adjacent_find(stamps.begin(), stamps.end(), std::greater_equal<>()) == stamps.end();
    }

    /// The packets are those of the clip, from that one on.
    static bool equalBytes(const std::vector<Mp4Packet>& read, const std::vector<ClipPacket>& sent,
                           std::size_t from = 0) {
        return read.size() <= sent.size() - from &&
               std::equal(read.begin(), read.end(), sent.begin() + static_cast<std::ptrdiff_t>(from),
                          [](const Mp4Packet& a, const ClipPacket& b) { return a.bytes == b.bytes; });
    }
    static std::size_t count(const std::vector<TimedBytes>& pieces, PieceKind kind) {
        return static_cast<std::size_t>(std::count_if(
            pieces.begin(), pieces.end(), [kind](const TimedBytes& piece) { return piece.kind == kind; }));
    }

    TemporaryFolder folder_;
    std::filesystem::path path_ = folder_ / "out.mp4";
    LogCapture log_;
};

ClipSpec specOf(VideoCodec codec, AudioCodec audio) {
    ClipSpec spec;
    spec.codec = codec;
    spec.audio = audio;
    return spec;
}

struct CodecCase {
    const char* name;
    VideoCodec video;
    AudioCodec audio;
    const char* videoName;
    const char* audioName;
};

void PrintTo(const CodecCase& row, std::ostream* out) {
    *out << row.name;
}

/// A decoder configuration record of HEVC (ISO/IEC 14496-15, 8.3.3.1.2) without what it says about whether
/// all parameter sets of a kind are in it: from FFmpeg 6.1 on the writer puts the record together anew, and
/// no longer claims that. Any other configuration as it is.
std::vector<std::uint8_t> withoutCompleteness(std::vector<std::uint8_t> config, VideoCodec codec) {
    constexpr std::size_t kFirstArray = 23;
    if (codec != VideoCodec::Hevc || config.size() < kFirstArray) {
        return config;
    }
    std::size_t at = kFirstArray;
    for (int arrays = config[at - 1]; arrays > 0 && at + 3 <= config.size(); --arrays) {
        config[at] &= 0x7F;
        int units = config[at + 1] << 8 | config[at + 2];
        for (at += 3; units > 0 && at + 2 <= config.size(); --units) {
            at += 2U + static_cast<std::size_t>(config[at] << 8 | config[at + 1]);
        }
    }
    return config;
}

class RecordedCodecs : public RecordedFile, public testing::WithParamInterface<CodecCase> {};

TEST_P(RecordedCodecs, HoldWhatWasSent) {
    const Clip clip = encode(specOf(GetParam().video, GetParam().audio));
    const auto pieces = makeFlv(clip);
    ASSERT_TRUE(record(pieces));

    const bool hasAudio = GetParam().audio != AudioCodec::None;
    const auto streams = readMp4(path_);
    ASSERT_EQ(streams.size(), hasAudio ? 2U : 1U);
    EXPECT_EQ(withoutCompleteness(streams[0].extradata, GetParam().video),
              withoutCompleteness(clip.videoConfig, GetParam().video));
    EXPECT_TRUE(equalBytes(streams[0].packets, clip.video));
    EXPECT_EQ(streams[0].packets.size(), clip.video.size());
    EXPECT_TRUE(isStrictlyIncreasing(streams[0].stamps()));
    for (std::size_t i = 0; i < streams[0].packets.size(); ++i) {
        const Mp4Packet& packet = streams[0].packets[i];
        EXPECT_EQ(packet.isKey, clip.video[i].isKey) << i;
        EXPECT_EQ(packet.pts, packet.dts) << i;
        EXPECT_EQ(packet.dts, clip.video[i].dtsMs * 12800 / 1000) << i;
    }
    std::ostringstream expected;
    expected << GetParam().videoName << ",320,180," << clip.video.size() << '\n';
    if (hasAudio) {
        EXPECT_EQ(streams[1].extradata, clip.audioConfig);
        EXPECT_TRUE(equalBytes(streams[1].packets, clip.audio));
        EXPECT_TRUE(isStrictlyIncreasing(streams[1].stamps()));
        EXPECT_EQ(streams[1].packets.size(), count(pieces, PieceKind::Audio));
        expected << GetParam().audioName << ',' << streams[1].packets.size() << '\n';
    }
    EXPECT_EQ(probe(path_), expected.str());
    EXPECT_EQ(complaints(path_), "");
    const double seconds = std::stod(runCommand(
        {"ffprobe", "-v", "error", "-show_entries", "format=duration", "-of", "csv=p=0", path_.string()}));
    EXPECT_NEAR(seconds, 2, 0.1);
}

INSTANTIATE_TEST_SUITE_P(
    All, RecordedCodecs,
    testing::Values(CodecCase{"AvcAac", VideoCodec::Avc, AudioCodec::Aac, "h264", "aac"},
                    CodecCase{"AvcMp3", VideoCodec::Avc, AudioCodec::Mp3, "h264", "mp3"},
                    CodecCase{"Avc", VideoCodec::Avc, AudioCodec::None, "h264", ""},
                    CodecCase{"HevcAac", VideoCodec::Hevc, AudioCodec::Aac, "hevc", "aac"},
                    CodecCase{"HevcMp3", VideoCodec::Hevc, AudioCodec::Mp3, "hevc", "mp3"},
                    CodecCase{"Hevc", VideoCodec::Hevc, AudioCodec::None, "hevc", ""}),
    [](const auto& instance) { return instance.param.name; });

TEST_F(RecordedFile, OfAlawSoundIsRefused) {
    ClipSpec spec = specOf(VideoCodec::Avc, AudioCodec::ALaw);
    spec.sampleRate = 8000;
    spec.channels = 1;
    EXPECT_FALSE(record(makeFlv(encode(spec))));
    EXPECT_TRUE(log_.contains("ko_player::FileRecorder::consume: consume failed with exception: "
                              "Muxer.writeHeader avformat_write_header: file: " +
                              path_.string() + ", err: Invalid argument"));
}

/// When sound comes in a stream of four seconds of pictures.
class RecordedSound : public RecordedFile {
protected:
    RecordedSound() {
        ClipSpec spec = specOf(VideoCodec::Avc, AudioCodec::Aac);
        spec.frames = 100;
        clip_ = encode(spec);
        pieces_ = makeFlv(clip_);
    }

    [[nodiscard]] std::size_t sounds() const { return readMp4(path_).at(1).packets.size(); }

    Clip clip_;
    std::vector<TimedBytes> pieces_;
};

TEST_F(RecordedSound, BeforeThePictureIsDropped) {
    // Sound and its configuration first, for one second; then the whole rest in its order.
    std::stable_partition(pieces_.begin(), pieces_.end(), [](const TimedBytes& piece) {
        const bool isSound = piece.kind == PieceKind::Audio && piece.ms < 1000;
        const bool isSoundConfig = piece.kind == PieceKind::Config && piece.bytes[0] == FlvWriter::kAudioTag;
        return piece.kind == PieceKind::Header || piece.kind == PieceKind::Metadata || isSound ||
               isSoundConfig;
    });
    const auto early = std::count_if(pieces_.begin(), pieces_.end(), [](const TimedBytes& piece) {
        return piece.kind == PieceKind::Audio && piece.ms < 1000;
    });
    const auto all = std::count_if(pieces_.begin(), pieces_.end(),
                                   [](const TimedBytes& piece) { return piece.kind == PieceKind::Audio; });
    ASSERT_TRUE(record(pieces_));
    EXPECT_EQ(log_.count("ko_player::FileRecorder::pushAudio: ignore audio packet before started"), early);
    EXPECT_EQ(sounds(), static_cast<std::size_t>(all - early));
    EXPECT_EQ(readMp4(path_).at(0).packets.size(), clip_.video.size());
    EXPECT_EQ(complaints(path_), "");
}

TEST_F(RecordedSound, SoonAfterThePictureIsAllThere) {
    std::stable_partition(pieces_.begin(), pieces_.end(), [](const TimedBytes& piece) {
        return piece.kind != PieceKind::Audio && piece.ms < 200 &&
               !(piece.kind == PieceKind::Config && piece.bytes[0] == FlvWriter::kAudioTag);
    });
    ASSERT_TRUE(record(pieces_));
    EXPECT_TRUE(log_.contains("ko_player::FileRecorder::beginRecordStreams: try write header with audio: "
                              "started: 1, forced: 1"));
    EXPECT_TRUE(equalBytes(readMp4(path_).at(1).packets, clip_.audio));
    EXPECT_EQ(sounds(), count(pieces_, PieceKind::Audio));
    EXPECT_EQ(readMp4(path_).at(0).packets.size(), clip_.video.size());
    EXPECT_EQ(complaints(path_), "");
}

TEST_F(RecordedSound, LongAfterThePictureIsAllThere) {
    std::erase_if(pieces_,
                  [](const TimedBytes& piece) { return piece.kind == PieceKind::Audio && piece.ms < 3500; });
    std::stable_partition(pieces_.begin(), pieces_.end(), [](const TimedBytes& piece) {
        return piece.kind != PieceKind::Audio && piece.ms < 3500 &&
               !(piece.kind == PieceKind::Config && piece.bytes[0] == FlvWriter::kAudioTag);
    });
    const auto late = std::count_if(pieces_.begin(), pieces_.end(),
                                    [](const TimedBytes& piece) { return piece.kind == PieceKind::Audio; });
    ASSERT_GT(late, 10);
    ASSERT_TRUE(record(pieces_));
    EXPECT_TRUE(log_.contains("ko_player::FileRecorder::beginRecordStreams: no audio when 3040 ms of video "
                              "already buffered"));
    EXPECT_TRUE(log_.contains("ko_player::FileRecorder::startAudio: audio started after header"));
    EXPECT_EQ(sounds(), static_cast<std::size_t>(late));
    EXPECT_EQ(readMp4(path_).at(0).packets.size(), clip_.video.size());
    EXPECT_EQ(complaints(path_), "");
}

TEST_F(RecordedFile, GoesOnWhenTheConfigurationChanges) {
    ClipSpec larger = specOf(VideoCodec::Avc, AudioCodec::Aac);
    larger.widthPx = 640;
    larger.heightPx = 360;
    const Clip first = encode(specOf(VideoCodec::Avc, AudioCodec::Aac));
    const Clip second = encode(larger);
    ASSERT_TRUE(record(makeFlv({&first, &second})));
    const auto streams = readMp4(path_);
    EXPECT_EQ(streams.at(0).packets.size(), first.video.size() + second.video.size());
    EXPECT_TRUE(isStrictlyIncreasing(streams.at(0).stamps()));
    EXPECT_TRUE(isStrictlyIncreasing(streams.at(1).stamps()));
    EXPECT_EQ(streams.at(0).extradata, first.videoConfig);
}

struct StampCase {
    const char* name;
    std::vector<std::uint32_t> sentMs;
    std::vector<std::int64_t> ticks; ///< expected, 1/12800 s from the first
};

void PrintTo(const StampCase& row, std::ostream* out) {
    *out << row.name;
}

class RecordedStamps : public RecordedFile, public testing::WithParamInterface<StampCase> {};

TEST_P(RecordedStamps, IncreaseAndKeepTheirDistances) {
    const Clip clip = encode(specOf(VideoCodec::Avc, AudioCodec::None));
    ASSERT_TRUE(recordWithStamps(clip, GetParam().sentMs));
    EXPECT_EQ(pictureStamps(), GetParam().ticks);
    EXPECT_EQ(complaintsAtAnyRate(path_), "");
}

INSTANTIATE_TEST_SUITE_P(
    All, RecordedStamps,
    testing::Values(
        StampCase{"Repeating", {0, 40, 40, 40, 80}, {0, 512, 513, 514, 1024}},
        StampCase{"GoingBack", {0, 40, 80, 40, 0, 81}, {0, 512, 1024, 1025, 1026, 1037}},
        StampCase{
            "JumpingByHours", {0, 40, 7'200'000, 7'200'040}, {0, 512, 7200LL * 12800, 7200LL * 12800 + 512}},
        StampCase{"JumpingBackByHours", {7'200'000, 7'200'040, 0, 40}, {0, 512, 513, 514}},
        StampCase{"JumpingByDays",
                  {0, 40, 1'000'000'000, 1'000'000'040},
                  {0, 512, 513, 514}}, // more than the container can express
        StampCase{"BeginningAtTwoToThe31", {0x80000000U, 0x80000028U, 0x80000050U}, {0, 512, 1024}},
        StampCase{"AtTheEndOfTheRange", {0xFFFFFFB0U, 0xFFFFFFD8U, 0, 40}, {0, 512, 513, 514}}),
    [](const auto& instance) { return instance.param.name; });

TEST_F(RecordedFile, MayBeginWithADeltaPicture) {
    const Clip clip = encode(specOf(VideoCodec::Avc, AudioCodec::Aac));
    auto pieces = makeFlv(clip);
    pieces.erase(std::find_if(pieces.begin(), pieces.end(),
                              [](const TimedBytes& piece) { return piece.kind == PieceKind::Video; }));
    ASSERT_TRUE(record(pieces));
    const auto streams = readMp4(path_);
    EXPECT_TRUE(equalBytes(streams.at(0).packets, clip.video, 1));
    EXPECT_EQ(streams.at(0).packets.size(), clip.video.size() - 1);
    EXPECT_FALSE(streams.at(0).packets.at(0).isKey);
}

TEST_F(RecordedFile, MayGetItsConfigurationLate) {
    const Clip clip = encode(specOf(VideoCodec::Avc, AudioCodec::None));
    auto pieces = makeFlv(clip);
    // The configuration comes behind the first group of pictures.
    const auto config = std::find_if(pieces.begin(), pieces.end(),
                                     [](const TimedBytes& piece) { return piece.kind == PieceKind::Config; });
    const auto secondKey = std::find_if(pieces.begin(), pieces.end(),
                                        [](const TimedBytes& piece) { return piece.isKey && piece.ms > 0; });
    ASSERT_NE(secondKey, pieces.end());
    std::rotate(config, config + 1, secondKey);
    ASSERT_TRUE(record(pieces));
    EXPECT_TRUE(log_.contains("ko_player::FlvHandler::onFirstVideoData: first video frame is not AVC"));
    const auto streams = readMp4(path_);
    EXPECT_EQ(streams.at(0).packets.size(), clip.video.size());
    EXPECT_EQ(streams.at(0).extradata, clip.videoConfig);
    EXPECT_EQ(complaints(path_), "");
}

TEST_F(RecordedFile, IsClosedAndPlayableWhenTheStreamBreaks) {
    const Clip clip = encode(specOf(VideoCodec::Avc, AudioCodec::Aac));
    auto bytes = toBytes(makeFlv(clip));
    bytes.insert(bytes.end(), 5000, 0xA5);
    EXPECT_FALSE(record(bytes));
    EXPECT_EQ(readMp4(path_).at(0).packets.size(), clip.video.size());
    EXPECT_EQ(complaints(path_), "");
}

TEST_F(RecordedFile, OfACutStreamHasAllWholePictures) {
    const Clip clip = encode(specOf(VideoCodec::Avc, AudioCodec::Aac));
    auto bytes = toBytes(makeFlv(clip));
    bytes.resize(bytes.size() / 2);
    ASSERT_TRUE(record(bytes));
    EXPECT_GT(readMp4(path_).at(0).packets.size(), 10U);
    EXPECT_EQ(complaints(path_), "");
}

} // namespace
} // namespace mediaworker::test
