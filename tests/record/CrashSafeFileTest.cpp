// Files that can be played wherever the writing stops, against those that are written as before.

#include "record/FileRecorder.h"

#include "FileSizeLimit.h"
#include "Mp4File.h"
#include "support/ChildProcess.h"
#include "support/LogCapture.h"
#include "support/media/FlvStream.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>

namespace mediaworker::test {
namespace {

using namespace std::chrono_literals;
using ko_player::FileRecorder;
using ko_player::FlvReading;
using ko_player::Mp4Policy;
using testing::HasSubstr;
using testing::Not;

constexpr std::int64_t kClipMs = 6000;

/// Six seconds with a key frame in five: a fragment does not wait for one.
ClipSpec specOf(VideoCodec codec, AudioCodec audio) {
    ClipSpec spec;
    spec.codec = codec;
    spec.audio = audio;
    spec.widthPx = 160;
    spec.heightPx = 90;
    spec.frames = 150;
    spec.gop = 125;
    spec.bFrames = 2;
    if (audio == AudioCodec::ALaw) {
        spec.sampleRate = 8000;
        spec.channels = 1;
    }
    return spec;
}

const Clip& clip() {
    static const Clip encoded = encode(specOf(VideoCodec::Avc, AudioCodec::Aac));
    return encoded;
}

/// Everything that a player hears of a track's packets, their content by its sum.
std::string packetsOf(const std::filesystem::path& file, const std::string& track) {
    return runCommand({"ffprobe", "-v", "error", "-select_streams", track, "-show_data_hash", "md5",
                       "-show_entries", "packet=pts,dts,duration,size,flags,data_hash", "-of", "csv",
                       file.string()});
}

std::string streamsOf(const std::filesystem::path& file) {
    return runCommand({"ffprobe", "-v", "error", "-show_entries",
                       "stream=codec_name,codec_tag_string,time_base,start_pts,duration_ts,nb_frames,r_frame_"
                       "rate,extradata_size:format=format_name,duration:format_tags",
                       "-of", "csv", file.string()});
}

class CrashSafeFile : public testing::Test {
protected:
    static bool feed(FileRecorder& recorder, const std::vector<std::uint8_t>& bytes) {
        return recorder.consume(bytes.data(), bytes.size());
    }
    /// Whether it says that the recording is whole.
    static bool record(const std::filesystem::path& file, const std::vector<std::uint8_t>& bytes,
                       FlvReading reading, Mp4Policy policy) {
        FileRecorder recorder(file.string(), reading, std::nullopt, policy);
        const bool isGood = feed(recorder, bytes);
        return recorder.pushEofAndClose() && isGood;
    }

    [[nodiscard]] std::size_t picturesIn(const std::filesystem::path& file) const {
        const std::string packets = packetsOf(file, "v");
        return static_cast<std::size_t>(std::count(packets.begin(), packets.end(), '\n'));
    }

    [[nodiscard]] std::string logText() const {
        std::string text;
        for (const std::string& line : log_.lines()) {
            text.append(line).append("\n");
        }
        return text;
    }

    LogCapture log_;
    TemporaryFolder folder_;
    const std::filesystem::path path_ = folder_ / "safe.mp4";
    const std::filesystem::path ordinary_ = folder_ / "ordinary.mp4";
};

struct Kind {
    const char* name;
    FlvReading reading;
    VideoCodec video;
    AudioCodec audio;
    friend void PrintTo(const Kind& kind, std::ostream* out) { *out << kind.name; }
};

class CrashSafeFileOf : public CrashSafeFile, public testing::WithParamInterface<Kind> {};

TEST_P(CrashSafeFileOf, IsAtTheEndWhatAnOrdinaryOneIs) {
    const Kind& kind = GetParam();
    ClipSpec spec = specOf(kind.video, kind.audio);
    spec.bFrames = kind.reading == FlvReading::Strict ? 0 : spec.bFrames; // they would lie out of order
    spec.frames = 60;                                                     // three fragments
    const auto bytes = toBytes(makeFlv(encode(spec)));
    ASSERT_TRUE(record(ordinary_, bytes, kind.reading, Mp4Policy::AtOnce));
    ASSERT_TRUE(record(path_, bytes, kind.reading, Mp4Policy::Safe));
    EXPECT_THAT(logText(), Not(HasSubstr("stays in fragments")));
    EXPECT_EQ(picturesIn(path_), 60U);
    EXPECT_EQ(packetsOf(path_, "v"), packetsOf(ordinary_, "v"));
    EXPECT_EQ(packetsOf(path_, "a"), packetsOf(ordinary_, "a"));
    EXPECT_EQ(streamsOf(path_), streamsOf(ordinary_));
    EXPECT_EQ(complaintsAtAnyRate(path_), "");
    EXPECT_EQ(readFile(path_).substr(0, 28), readFile(ordinary_).substr(0, 28)) << "of the same format";
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, CrashSafeFileOf,
    testing::Values(Kind{"Strict", FlvReading::Strict, VideoCodec::Avc, AudioCodec::Aac},
                    Kind{"Standard", FlvReading::Standard, VideoCodec::Avc, AudioCodec::Aac},
                    Kind{"WithoutSound", FlvReading::Standard, VideoCodec::Avc, AudioCodec::None},
                    Kind{"Hevc", FlvReading::Standard, VideoCodec::Hevc, AudioCodec::Aac},
                    Kind{"Opus", FlvReading::Standard, VideoCodec::Av1, AudioCodec::Opus},
                    Kind{"Eac3", FlvReading::Standard, VideoCodec::Avc, AudioCodec::Eac3},
                    Kind{"SoundMadeToFit", FlvReading::Standard, VideoCodec::Avc, AudioCodec::ALaw}),
    [](const auto& instance) { return instance.param.name; });

/// When a server's clock is not that of the camera.
struct Clocks {
    const char* name;
    std::int64_t (*videoMs)(std::int64_t ms);
    std::int64_t (*audioMs)(std::int64_t ms); ///< less than 0: not sent
    friend void PrintTo(const Clocks& clocks, std::ostream* out) { *out << clocks.name; }
};

std::int64_t exact(std::int64_t ms) {
    return ms;
}

std::int64_t restless(std::int64_t ms) {
    return ms + ms * 7919 % 13;
}

template <std::int64_t at, std::int64_t by>
std::int64_t later(std::int64_t ms) {
    return ms < at ? ms : ms + by;
}

/// The next one begins 17 ms before the one before has ended, each second.
std::int64_t tooLong(std::int64_t ms) {
    return ms - ms / 1000 * 17;
}

template <std::int64_t from>
std::int64_t late(std::int64_t ms) {
    return ms < from ? -1 : ms;
}

std::vector<TimedBytes> sentBy(const Clocks& clocks) {
    std::vector<TimedBytes> pieces = makeFlv(clip());
    std::erase_if(pieces, [&](TimedBytes& piece) {
        if (piece.kind != PieceKind::Video && piece.kind != PieceKind::Audio) {
            return false;
        }
        const std::int64_t ms =
            piece.kind == PieceKind::Video ? clocks.videoMs(piece.ms) : clocks.audioMs(piece.ms);
        piece.ms = ms;
        constexpr std::size_t kStampAt = 4; // of the tag: three bytes, and one for what is above them
        for (std::size_t i = 0; i < 3; ++i) {
            piece.bytes.at(kStampAt + i) = static_cast<std::uint8_t>(ms >> (16 - 8 * i));
        }
        return ms < 0;
    });
    std::stable_sort(pieces.begin(), pieces.end(), [](const TimedBytes& a, const TimedBytes& b) {
        const auto isHead = [](const TimedBytes& piece) {
            return piece.kind != PieceKind::Video && piece.kind != PieceKind::Audio;
        };
        return isHead(a) != isHead(b) ? isHead(a) : !isHead(a) && a.ms < b.ms;
    });
    return pieces;
}

class CrashSafeFileBy : public CrashSafeFile, public testing::WithParamInterface<Clocks> {};

// Fragments are written when nobody knows yet when the next packet comes.
TEST_P(CrashSafeFileBy, HasTheSameTimesBeforeItIsFinished) {
    const auto pieces = sentBy(GetParam());
    const auto cut = folder_ / "cut.mp4";
    {
        FileRecorder recorder(path_.string(), FlvReading::Standard, std::nullopt, Mp4Policy::Safe);
        for (const TimedBytes& piece : pieces) {
            ASSERT_TRUE(feed(recorder, piece.bytes));
        }
        std::filesystem::copy_file(path_, cut);
        ASSERT_TRUE(recorder.pushEofAndClose());
    }
    ASSERT_TRUE(record(ordinary_, toBytes(pieces), FlvReading::Standard, Mp4Policy::AtOnce));
    for (const char* track : {"v", "a"}) {
        const auto expected = packetTimes(ordinary_, track);
        const auto finished = packetTimes(path_, track);
        const auto unfinished = packetTimes(cut, track);
        ASSERT_EQ(finished.size(), expected.size()) << track;
        ASSERT_LE(unfinished.size(), expected.size()) << track;
        EXPECT_GT(unfinished.size(), expected.size() * 3 / 4) << track;
        for (std::size_t i = 0; i < expected.size(); ++i) {
            ASSERT_EQ(finished[i].dtsMs, expected[i].dtsMs) << track << i;
            ASSERT_EQ(finished[i].ptsMs, expected[i].ptsMs) << track << i;
        }
        for (std::size_t i = 0; i < unfinished.size(); ++i) {
            ASSERT_NEAR(unfinished[i].dtsMs, expected[i].dtsMs, 0.1) << track << i;
            ASSERT_NEAR(unfinished[i].ptsMs, expected[i].ptsMs, 0.1) << track << i;
        }
    }
    EXPECT_THAT(logText(), Not(HasSubstr("out of range")));
    EXPECT_THAT(logText(), Not(HasSubstr("pts has no value")));
}

INSTANTIATE_TEST_SUITE_P(
    Clocks, CrashSafeFileBy,
    testing::Values(Clocks{"Exact", exact, exact}, Clocks{"RestlessPictures", restless, exact},
                    Clocks{"RestlessSound", exact, restless},
                    Clocks{"Gap", later<2500, 3000>, later<2500, 3000>},
                    Clocks{"GapOfPictures", later<2980, 700>, exact},
                    Clocks{"GapOfSound", exact, later<2980, 700>}, Clocks{"SoundTooLong", exact, tooLong},
                    Clocks{"PicturesTooLong", tooLong, exact}, Clocks{"LateSound", exact, late<1500>}),
    [](const auto& instance) { return instance.param.name; });

// What a killed process leaves, at every moment of the stream.
TEST_F(CrashSafeFile, HasAllButTheLastSecondWhereverTheStreamIs) {
    FileRecorder recorder(path_.string(), FlvReading::Standard, std::nullopt, Mp4Policy::Safe);
    std::int64_t looked = 800;
    for (const TimedBytes& piece : makeFlv(clip())) {
        ASSERT_TRUE(feed(recorder, piece.bytes));
        if (piece.kind != PieceKind::Video || piece.ms < looked + 900) {
            continue;
        }
        looked = piece.ms;
        const std::int64_t expected = (piece.ms - 1000) / 40;
        EXPECT_GE(static_cast<std::int64_t>(picturesIn(path_)), expected) << piece.ms << " ms";
        EXPECT_EQ(complaints(path_), "") << piece.ms << " ms";
    }
    EXPECT_GT(looked, kClipMs - 1000);
}

// A process that is killed while it writes, or a system that stops.
TEST_F(CrashSafeFile, CanBePlayedWhereverItIsCutOff) {
    {
        FileRecorder recorder(path_.string(), FlvReading::Standard, std::nullopt, Mp4Policy::Safe);
        ASSERT_TRUE(feed(recorder, toBytes(makeFlv(clip()))));
    }
    const std::string whole = readFile(path_);
    std::size_t before = 0;
    for (std::size_t eighths = 2; eighths <= 8; ++eighths) {
        writeFile(path_, std::string_view(whole).substr(0, whole.size() * eighths / 8 - 3));
        const std::size_t pictures = picturesIn(path_);
        EXPECT_GE(pictures, before) << eighths;
        EXPECT_GE(pictures + 26, 150 * (eighths - 1) / 8) << eighths;
        before = pictures;
    }
}

// Their payload goes past what is held of a fragment, and into the file in more than one piece.
TEST_F(CrashSafeFile, HoldsPicturesOfAnySize) {
    ClipSpec spec = specOf(VideoCodec::Avc, AudioCodec::Aac);
    spec.widthPx = 1280;
    spec.heightPx = 720;
    spec.frames = 60;
    spec.noise = 60;
    spec.bitrateKbps = 40'000;
    const Clip large = encode(spec);
    const auto largest =
        std::max_element(large.video.begin(), large.video.end(),
                         [](const auto& a, const auto& b) { return a.bytes.size() < b.bytes.size(); });
    ASSERT_GT(largest->bytes.size(), 300'000U);
    const auto bytes = toBytes(makeFlv(large));
    const auto cut = folder_ / "cut.mp4";
    {
        FileRecorder recorder(path_.string(), FlvReading::Standard, std::nullopt, Mp4Policy::Safe);
        ASSERT_TRUE(feed(recorder, bytes));
        std::filesystem::copy_file(path_, cut);
        ASSERT_TRUE(recorder.pushEofAndClose());
    }
    ASSERT_TRUE(record(ordinary_, bytes, FlvReading::Standard, Mp4Policy::AtOnce));
    EXPECT_THAT(logText(), Not(HasSubstr("stays in fragments")));
    EXPECT_EQ(packetsOf(path_, "v"), packetsOf(ordinary_, "v"));
    EXPECT_EQ(packetsOf(path_, "a"), packetsOf(ordinary_, "a"));
    EXPECT_GE(picturesIn(cut), 55U);
    EXPECT_EQ(complaints(cut), "");
}

TEST_F(CrashSafeFile, HasEverythingSoonWhereTheStreamStops) {
    FileRecorder recorder(path_.string(), FlvReading::Standard, std::nullopt, Mp4Policy::Safe);
    const auto pieces = makeFlv(clip());
    std::size_t pictures = 0;
    for (const TimedBytes& piece : pieces) {
        ASSERT_TRUE(feed(recorder, piece.bytes));
        pictures += piece.kind == PieceKind::Video ? 1 : 0;
        if (pictures == 40) {
            break;
        }
    }
    EXPECT_LT(picturesIn(path_), 40U);
    base::TimePoint now{};
    EXPECT_TRUE(recorder.keepUp(now));
    EXPECT_LT(picturesIn(path_), 40U);
    EXPECT_TRUE(recorder.keepUp(now + 1s));
    EXPECT_EQ(picturesIn(path_), 40U);
    EXPECT_TRUE(recorder.pushEofAndClose());
    EXPECT_EQ(picturesIn(path_), 40U);
}

TEST_F(CrashSafeFile, OnAFullDiskKeepsWhatWasRecorded) {
    if (const auto obstacle = FileSizeLimit::obstacle()) {
        GTEST_SKIP() << *obstacle;
    }
    const auto bytes = toBytes(makeFlv(clip()));
    ASSERT_TRUE(record(path_, bytes, FlvReading::Standard, Mp4Policy::Safe));
    const std::uint64_t size = std::filesystem::file_size(path_);
    for (const std::uint64_t percent : {30U, 60U, 90U}) {
        const std::uint64_t limit = size * percent / 100;
        {
            const FileSizeLimit full(limit);
            EXPECT_FALSE(record(path_, bytes, FlvReading::Standard, Mp4Policy::Safe)) << percent;
        }
        EXPECT_LE(std::filesystem::file_size(path_), limit);
        EXPECT_EQ(complaints(path_), "") << percent;
        EXPECT_GE(picturesIn(path_) + 26, 150 * percent / 100) << percent;
    }
    EXPECT_THAT(logText(), HasSubstr("mux error: "));
}

// The index finds no place any more: everything that was recorded is there nevertheless.
TEST_F(CrashSafeFile, StaysInFragmentsWhereTheDiskIsFullAtTheEnd) {
    if (const auto obstacle = FileSizeLimit::obstacle()) {
        GTEST_SKIP() << *obstacle;
    }
    const auto bytes = toBytes(makeFlv(clip()));
    ASSERT_TRUE(record(ordinary_, bytes, FlvReading::Standard, Mp4Policy::AtOnce));
    ASSERT_TRUE(record(path_, bytes, FlvReading::Standard, Mp4Policy::Safe));
    const std::uint64_t size = std::filesystem::file_size(path_);
    {
        const FileSizeLimit full(size - 1000);
        EXPECT_TRUE(record(path_, bytes, FlvReading::Standard, Mp4Policy::Safe));
    }
    EXPECT_THAT(logText(), HasSubstr("the file stays in fragments: "));
    EXPECT_EQ(picturesIn(path_), 150U);
    EXPECT_EQ(packetsOf(path_, "v"), packetsOf(ordinary_, "v"));
    EXPECT_EQ(complaints(path_), "");
}

} // namespace
} // namespace mediaworker::test
