#include "record/ExportProgress.h"
#include "record/FileRecorder.h"

#include "Mp4File.h"
#include "support/ChildProcess.h"
#include "support/LogCapture.h"
#include "support/media/FlvStream.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <utility>

namespace mediaworker::test {
namespace {

using ko_player::FileRecorder;
using ko_player::FlvReading;

/// In FLV of common programs. Times as ffprobe tells them are exact to a microsecond.
constexpr double kHalfAMillisecond = 0.502;

ClipSpec specOf(VideoCodec codec, AudioCodec audio) {
    ClipSpec spec;
    spec.codec = codec;
    spec.audio = audio;
    spec.bFrames = 2;
    if (audio == AudioCodec::ALaw || audio == AudioCodec::MuLaw) {
        spec.sampleRate = 8000;
        spec.channels = 1;
    }
    return spec;
}

/// Without the sound that lasts longer than the pictures, which a server does not send.
Clip clipOf(const ClipSpec& spec) {
    Clip clip = encode(spec);
    std::erase_if(clip.audio, [&](const ClipPacket& packet) { return packet.dtsMs >= clip.durationMs(); });
    return clip;
}

std::vector<std::uint8_t> bodyOfAacConfig(const Clip& clip) {
    std::vector<std::uint8_t> body = {0xAF, FlvWriter::kSequenceHeader};
    body.insert(body.end(), clip.audioConfig.begin(), clip.audioConfig.end());
    return body;
}

std::vector<std::uint8_t> bodyOfAvcConfig(const Clip& clip) {
    std::vector<std::uint8_t> body = {0x17, FlvWriter::kSequenceHeader, 0, 0, 0};
    body.reserve(body.size() + clip.videoConfig.size()); // or GCC for Windows warns of the insertion
    body.insert(body.end(), clip.videoConfig.begin(), clip.videoConfig.end());
    return body;
}

/// The tags of a stream, ordered by their times at the end.
class Tape {
public:
    Tape& configurations(const Clip& clip, std::uint32_t ms = 0) {
        add(ms, [&clip, ms](FlvWriter& out) {
            out.video(ms, clip.spec.codec, true, FlvWriter::kSequenceHeader, clip.videoConfig);
        });
        if (clip.spec.audio == AudioCodec::Aac) {
            add(ms,
                [&clip, ms](FlvWriter& out) { out.aac(ms, FlvWriter::kSequenceHeader, clip.audioConfig); });
        }
        return *this;
    }
    Tape& pictures(const Clip& clip, std::int64_t startMs = 0, std::size_t from = 0) {
        for (std::size_t i = from; i < clip.video.size(); ++i) {
            const ClipPacket& picture = clip.video[i];
            const std::int64_t ms = picture.dtsMs + startMs;
            add(ms, [&clip, &picture, ms](FlvWriter& out) {
                out.video(static_cast<std::uint32_t>(ms), clip.spec.codec, picture.isKey, FlvWriter::kFrames,
                          picture.bytes, static_cast<std::int32_t>(picture.ptsMs - picture.dtsMs));
            });
        }
        return *this;
    }
    Tape& sound(const Clip& clip, std::int64_t startMs = 0) {
        for (const ClipPacket& packet : clip.audio) {
            const std::int64_t ms = packet.dtsMs + startMs;
            add(ms, [&clip, &packet, ms](FlvWriter& out) {
                const auto stamp = static_cast<std::uint32_t>(ms);
                if (clip.spec.audio == AudioCodec::Aac) {
                    out.aac(stamp, FlvWriter::kFrames, packet.bytes);
                } else {
                    out.audio(stamp, audioHeaderByteOf(clip.spec), packet.bytes);
                }
            });
        }
        return *this;
    }
    /// An audio or a video tag with any body.
    Tape& tag(std::int64_t ms, std::uint8_t type, const std::vector<std::uint8_t>& body) {
        return add(ms, [=](FlvWriter& out) { out.tag(type, static_cast<std::uint32_t>(ms), body); });
    }

    [[nodiscard]] std::vector<std::uint8_t> bytes(const AmfValue::Properties& metadata = {}) {
        FlvWriter writer;
        writer.header();
        if (!metadata.empty()) {
            writer.metadata(0, metadata);
        }
        std::stable_sort(tags_.begin(), tags_.end(), [](const Tag& a, const Tag& b) { return a.ms < b.ms; });
        for (const Tag& tag : tags_) {
            tag.write(writer);
        }
        return writer.take();
    }

private:
    struct Tag {
        std::int64_t ms;
        std::function<void(FlvWriter&)> write;
    };
    Tape& add(std::int64_t ms, std::function<void(FlvWriter&)> write) {
        tags_.push_back({ms, std::move(write)});
        return *this;
    }
    std::vector<Tag> tags_;
};

class StandardRecording : public testing::Test {
protected:
    [[nodiscard]] bool record(const std::vector<std::uint8_t>& bytes,
                              FlvReading reading = FlvReading::Standard) {
        constexpr std::size_t kPiece = 1009;
        FileRecorder recorder(path_.string(), reading);
        for (std::size_t at = 0; at < bytes.size(); at += kPiece) {
            if (!recorder.consume(bytes.data() + at, std::min(kPiece, bytes.size() - at))) {
                static_cast<void>(recorder.pushEofAndClose());
                return false;
            }
            seenDts_.push_back(recorder.maxVideoDts());
            largestHeld_ = std::max(largestHeld_, recorder.bufferedBytes());
        }
        const bool isGood = recorder.pushEofAndClose();
        seenDts_.push_back(recorder.maxVideoDts());
        return isGood;
    }
    [[nodiscard]] bool record(const std::vector<TimedBytes>& pieces) { return record(toBytes(pieces)); }

    /// All pictures from that one on, and all sound from that one on, have the clip's times up to one
    /// constant.
    void expectTimesOf(const Clip& clip, std::size_t firstPicture = 0, std::size_t firstSound = 0) {
        expectTimesOf(clip, 0, firstPicture, firstSound);
    }
    /// The same where the sound came later than in the clip.
    void expectTimesOf(const Clip& clip, std::int64_t soundLaterMs, std::size_t firstPicture,
                       std::size_t firstSound) {
        const auto video = packetTimes(path_, "v");
        ASSERT_EQ(video.size(), clip.video.size() - firstPicture);
        const double constant = video.front().ptsMs - static_cast<double>(clip.video[firstPicture].ptsMs);
        for (std::size_t i = 0; i < video.size(); ++i) {
            const ClipPacket& sent = clip.video[i + firstPicture];
            ASSERT_NEAR(video[i].ptsMs - static_cast<double>(sent.ptsMs), constant, 0.01) << "picture " << i;
            ASSERT_NEAR(video[i].dtsMs - static_cast<double>(sent.dtsMs), constant, 0.01) << "picture " << i;
        }
        const auto audio = packetTimes(path_, "a");
        ASSERT_EQ(audio.size(), clip.audio.size() - firstSound);
        for (std::size_t i = 0; i < audio.size(); ++i) {
            const double sentMs = static_cast<double>(clip.audio[i + firstSound].dtsMs + soundLaterMs);
            ASSERT_NEAR(audio[i].ptsMs - sentMs, constant, kHalfAMillisecond + 0.5) << "sound " << i;
        }
    }
    void expectPictures(std::size_t count) {
        EXPECT_EQ(readMp4(path_).at(0).packets.size(), count);
        EXPECT_EQ(complaintsAtAnyRate(path_), "");
        EXPECT_EQ(runCommand({"ffprobe", "-v", "error", "-count_frames", "-select_streams", "v",
                              "-show_entries", "stream=nb_read_frames", "-of", "csv=p=0", path_.string()}),
                  std::to_string(count) + "\n");
    }
    [[nodiscard]] std::string told(const std::string& track, const std::string& entry) const {
        return runCommand({"ffprobe", "-v", "error", "-select_streams", track, "-show_entries",
                           "stream=" + entry, "-of", "csv=p=0", path_.string()});
    }

    TemporaryFolder folder_;
    std::filesystem::path path_ = folder_ / "out.mp4";
    LogCapture log_;
    std::vector<std::int64_t> seenDts_; ///< after each piece
    std::uint64_t largestHeld_ = 0;
};

FlvOptions startingAt(std::uint32_t ms, bool hasMetadata = true) {
    FlvOptions options;
    options.startMs = ms;
    options.hasMetadata = hasMetadata;
    return options;
}

FlvOptions withMetadata(const AmfValue::Properties& metadata) {
    FlvOptions options;
    options.metadata = metadata;
    return options;
}

TEST(ExactEnd, IsThePictureThatBeginsBehindIt) {
    struct Row {
        std::int64_t endMs;
        std::size_t pictures;
        std::int64_t recordedMs;
    };
    const Clip clip = clipOf(specOf(VideoCodec::Avc, AudioCodec::Aac));
    for (const FlvReading reading : {FlvReading::Strict, FlvReading::Standard}) {
        for (const Row& row : {Row{1000, 25, 1000}, Row{1001, 26, 1040}, Row{40, 1, 40}, Row{1, 1, 40},
                               Row{3000, 75, 3000}, Row{60000, 100, 4000}}) {
            const TemporaryFolder folder;
            const auto path = folder / "out.mp4";
            LogCapture log;
            FlvOptions options = startingAt(7'000'000);
            options.repeats = 2; // four seconds
            FileRecorder recorder(path.string(), reading, row.endMs);
            for (const TimedBytes& piece : makeFlv(clip, options)) {
                ASSERT_TRUE(recorder.consume(piece.bytes.data(), piece.bytes.size()))
                    << testing::PrintToString(log.lines());
            }
            EXPECT_EQ(recorder.isAtEnd(), row.endMs < 4000) << row.endMs;
            ASSERT_TRUE(recorder.pushEofAndClose()) << testing::PrintToString(log.lines());
            EXPECT_EQ(recorder.recordedMs(), row.recordedMs) << row.endMs;
            EXPECT_TRUE(recorder.hasSound());
            const auto streams = readMp4(path);
            ASSERT_EQ(streams.size(), 2U);
            EXPECT_EQ(streams[0].packets.size(), row.pictures) << row.endMs;
            EXPECT_LE(static_cast<std::int64_t>(streams[1].packets.size()) * 1024 * 1000 / 44100,
                      row.recordedMs + 50)
                << "nor does the sound go on";
        }
    }
}

struct StartCase {
    const char* name;
    VideoCodec video;
    AudioCodec audio;
    FlvOptions options;
};

void PrintTo(const StartCase& row, std::ostream* out) {
    *out << row.name;
}

class StandardStreams : public StandardRecording, public testing::WithParamInterface<StartCase> {};

TEST_P(StandardStreams, KeepTheirPresentationTimes) {
    const Clip clip = clipOf(specOf(GetParam().video, GetParam().audio));
    ASSERT_TRUE(record(makeFlv(clip, GetParam().options)));
    expectTimesOf(clip);
    expectPictures(clip.video.size());
    EXPECT_EQ(told("v", "width,height"), "320,180\n");
    EXPECT_EQ(told("v", "codec_tag_string"), GetParam().video == VideoCodec::Hevc ? "hvc1\n" : "avc1\n");
    EXPECT_EQ(told("a", "codec_name,sample_rate"),
              GetParam().audio == AudioCodec::Aac ? "aac,44100\n" : "mp3,44100\n");

    ko_player::ExportProgress progress(static_cast<int>(clip.durationMs()) - clip.spec.fps);
    int last = 0;
    for (const std::int64_t dts : seenDts_) {
        const auto step = progress.update(dts);
        ASSERT_FALSE(step.isOver);
        ASSERT_GE(step.percent.value_or(last), last);
        ASSERT_LE(step.percent.value_or(last) - last, 20) << "time jumped";
        last = step.percent.value_or(last);
    }
    EXPECT_GE(last, 98);
}

constexpr std::uint32_t kHalfAnHour = 1'800'000;
constexpr std::uint32_t kTwentyDays = 1'728'000'000;

INSTANTIATE_TEST_SUITE_P(
    Streams, StandardStreams,
    testing::Values(StartCase{"Plain", VideoCodec::Avc, AudioCodec::Aac, {}},
                    StartCase{"FromHalfAnHourOn", VideoCodec::Avc, AudioCodec::Aac, startingAt(kHalfAnHour)},
                    StartCase{"FromDaysOn", VideoCodec::Avc, AudioCodec::Aac, startingAt(kTwentyDays)},
                    StartCase{"AcrossTheWrap", VideoCodec::Avc, AudioCodec::Aac, startingAt(0xFFFFFC00U)},
                    StartCase{"WithoutMetadata", VideoCodec::Avc, AudioCodec::Aac, startingAt(24'000, false)},
                    StartCase{"WithWrongMetadata", VideoCodec::Avc, AudioCodec::Aac,
                              withMetadata({{"width", 17},
                                            {"height", 5},
                                            {"videocodecid", 12},
                                            {"audiocodecid", 2},
                                            {"audiosamplerate", 8000}})},
                    StartCase{"WithASampleRateOfNothing", VideoCodec::Avc, AudioCodec::Aac,
                              withMetadata({{"audiosamplerate", 0}})},
                    StartCase{"Mp3", VideoCodec::Avc, AudioCodec::Mp3, startingAt(kHalfAnHour)},
                    StartCase{"Hevc", VideoCodec::Hevc, AudioCodec::Aac, startingAt(0, false)}),
    [](const auto& instance) { return instance.param.name; });

struct OffsetCase {
    const char* name;
    std::int64_t picturesMs;
    std::int64_t soundMs;
    bool hasMetadata;
};

void PrintTo(const OffsetCase& row, std::ostream* out) {
    *out << row.name;
}

class StandardOffsets : public StandardRecording, public testing::WithParamInterface<OffsetCase> {};

TEST_P(StandardOffsets, LeaveSoundAndPicturesInTheirPlaces) {
    ClipSpec spec = specOf(VideoCodec::Avc, AudioCodec::Aac);
    spec.frames = 150; // much longer than the wait for sound
    const Clip clip = clipOf(spec);
    Tape tape;
    tape.configurations(clip).pictures(clip, GetParam().picturesMs).sound(clip, GetParam().soundMs);
    const AmfValue::Properties metadata = {
        {"videocodecid", 7}, {"audiocodecid", 10}, {"audiosamplerate", 44100}};
    ASSERT_TRUE(record(tape.bytes(GetParam().hasMetadata ? metadata : AmfValue::Properties{})));
    // Of sound that came long before the pictures the last three seconds are held.
    const std::int64_t heldFromMs = GetParam().picturesMs - FileRecorder::kMaxWaitMs;
    const auto firstHeld = std::find_if(clip.audio.begin(), clip.audio.end(), [&](const ClipPacket& packet) {
        return packet.dtsMs + GetParam().soundMs >= heldFromMs - 24;
    });
    const auto dropped = std::max<std::ptrdiff_t>(firstHeld - clip.audio.begin() - 1, 0);
    const std::size_t written = readMp4(path_).at(1).packets.size();
    EXPECT_NEAR(static_cast<double>(clip.audio.size() - written), static_cast<double>(dropped), 2);
    expectTimesOf(clip, GetParam().soundMs - GetParam().picturesMs, 0, clip.audio.size() - written);
    expectPictures(clip.video.size());
}

INSTANTIATE_TEST_SUITE_P(Offsets, StandardOffsets,
                         testing::Values(OffsetCase{"SoundHalfASecondLater", 0, 500, true},
                                         OffsetCase{"SoundTwoSecondsLater", 0, 2000, true},
                                         OffsetCase{"SoundAfterTheHeader", 0, 3600, true},
                                         OffsetCase{"SoundAfterTheHeaderWithoutMetadata", 0, 3600, false},
                                         OffsetCase{"SoundFiveSecondsLater", 0, 5000, true},
                                         OffsetCase{"PicturesHalfASecondLater", 500, 0, true},
                                         OffsetCase{"PicturesTwoSecondsLater", 2000, 0, false},
                                         OffsetCase{"PicturesFiveSecondsLater", 5000, 0, true},
                                         OffsetCase{"PicturesEightSecondsLaterInDays", kTwentyDays + 8000,
                                                    kTwentyDays + 4000, true}),
                         [](const auto& instance) { return instance.param.name; });

TEST_F(StandardRecording, HoldsOnlyThreeSecondsOfSoundWhileNoPictureComes) {
    ClipSpec spec = specOf(VideoCodec::Avc, AudioCodec::Aac);
    spec.frames = 250;
    const Clip clip = clipOf(spec);
    ASSERT_FALSE(record(Tape().configurations(clip).sound(clip).bytes()));
    std::uint64_t all = 0;
    for (const ClipPacket& packet : clip.audio) {
        all += packet.bytes.size();
    }
    EXPECT_LT(largestHeld_, all * 35 / 100);
    EXPECT_GT(largestHeld_, all * 25 / 100);
    EXPECT_FALSE(std::filesystem::exists(path_));
}

TEST_F(StandardRecording, BeginsWithTheFirstKeyFrameOfAStreamJoinedInItsMiddle) {
    const Clip clip = clipOf(specOf(VideoCodec::Avc, AudioCodec::Aac));
    constexpr std::size_t kJoined = 10;
    const auto key = std::find_if(clip.video.begin() + kJoined, clip.video.end(),
                                  [](const ClipPacket& picture) { return picture.isKey; });
    const auto first = static_cast<std::size_t>(key - clip.video.begin());
    ASSERT_LT(first, clip.video.size());
    ASSERT_TRUE(record(Tape().configurations(clip).pictures(clip, 0, kJoined).sound(clip).bytes()));
    expectTimesOf(clip, first);
    expectPictures(clip.video.size() - first);
    EXPECT_EQ(seenDts_.back(), clip.video.back().dtsMs - clip.video[first].dtsMs);
}

TEST_F(StandardRecording, WaitsThreeSecondsForSoundThatNeverComes) {
    ClipSpec spec = specOf(VideoCodec::Avc, AudioCodec::None);
    spec.frames = 100;
    const Clip clip = clipOf(spec);
    const auto bytes = Tape().configurations(clip, kHalfAnHour).pictures(clip, kHalfAnHour).bytes();
    FileRecorder recorder(path_.string(), FlvReading::Standard);
    for (const std::uint8_t& byte : bytes) {
        ASSERT_TRUE(recorder.consume(&byte, 1));
        ASSERT_EQ(std::filesystem::exists(path_), recorder.maxVideoDts() > FileRecorder::kMaxWaitMs);
    }
    ASSERT_TRUE(recorder.pushEofAndClose());
    EXPECT_EQ(readMp4(path_).size(), 1U);
    expectPictures(clip.video.size());
}

TEST_F(StandardRecording, HasNoTrackForSoundThatWasAnnouncedAndNeverCame) {
    ClipSpec spec = specOf(VideoCodec::Avc, AudioCodec::Aac);
    spec.frames = 100;
    const Clip clip = clipOf(spec);
    ASSERT_TRUE(record(Tape().configurations(clip).pictures(clip).bytes()));
    EXPECT_EQ(readMp4(path_).size(), 1U);
    expectPictures(clip.video.size());
}

struct G711Case {
    const char* name;
    AudioCodec codec;
    FlvOptions options;
    const char* line;
};

void PrintTo(const G711Case& row, std::ostream* out) {
    *out << row.name;
}

class StandardG711 : public StandardRecording, public testing::WithParamInterface<G711Case> {};

TEST_P(StandardG711, BecomesAac) {
    const Clip clip = clipOf(specOf(VideoCodec::Avc, GetParam().codec));
    ASSERT_TRUE(record(makeFlv(clip, GetParam().options)));
    EXPECT_EQ(log_.count(GetParam().line), 1);
    expectPictures(clip.video.size());
    EXPECT_EQ(told("a", "codec_name,profile,sample_rate,channels"), "aac,LC,8000,1\n");
    // The first packet is the encoder's own beginning, a frame of 128 ms.
    const auto video = packetTimes(path_, "v");
    const auto audio = packetTimes(path_, "a");
    const double constant = video.at(0).dtsMs - static_cast<double>(clip.video[0].dtsMs);
    EXPECT_NEAR(audio.at(1).ptsMs, static_cast<double>(clip.audio[0].dtsMs) + constant, 1);
    EXPECT_NEAR(audio.back().ptsMs, 2000, 130);
}

INSTANTIATE_TEST_SUITE_P(
    Streams, StandardG711,
    testing::Values(
        G711Case{"ALaw", AudioCodec::ALaw, {}, "sound is converted: G.711 A-law, 8000 Hz, to AAC, 8000 Hz"},
        G711Case{
            "MuLaw", AudioCodec::MuLaw, {}, "sound is converted: G.711 mu-law, 8000 Hz, to AAC, 8000 Hz"},
        G711Case{"FromHalfAnHourOn", AudioCodec::ALaw, startingAt(kHalfAnHour),
                 "sound is converted: G.711 A-law, 8000 Hz, to AAC, 8000 Hz"},
        G711Case{"ARateOfNothing", AudioCodec::ALaw, withMetadata({{"audiosamplerate", 0}}),
                 "sound is converted: G.711 A-law, 8000 Hz, to AAC, 8000 Hz"},
        G711Case{"ARateOfNonsense", AudioCodec::ALaw, withMetadata({{"audiosamplerate", 1e9}}),
                 "sound is converted: G.711 A-law, 8000 Hz, to AAC, 8000 Hz"}),
    [](const auto& instance) { return instance.param.name; });

TEST_F(StandardRecording, TakesTheFramingOffAac) {
    const Clip clip = clipOf(specOf(VideoCodec::Avc, AudioCodec::Aac));
    Tape tape;
    tape.tag(0, FlvWriter::kVideoTag, bodyOfAvcConfig(clip)).pictures(clip);
    for (const ClipPacket& packet : clip.audio) {
        const std::size_t size = packet.bytes.size() + 7;
        std::vector<std::uint8_t> body = {0xAF,
                                          1,
                                          0xFF,
                                          0xF1,
                                          0x50, // LC, 44.1 kHz
                                          static_cast<std::uint8_t>(0x80 | size >> 11),
                                          static_cast<std::uint8_t>(size >> 3 & 0xFF),
                                          static_cast<std::uint8_t>((size & 7) << 5 | 0x1F),
                                          0xFC};
        body.insert(body.end(), packet.bytes.begin(), packet.bytes.end());
        tape.tag(packet.dtsMs, FlvWriter::kAudioTag, body);
    }
    ASSERT_TRUE(record(tape.bytes()));
    const auto audio = readMp4(path_).at(1).packets;
    ASSERT_EQ(audio.size(), clip.audio.size());
    for (std::size_t i = 0; i < audio.size(); ++i) {
        ASSERT_EQ(audio[i].bytes, clip.audio[i].bytes) << i;
    }
    EXPECT_EQ(complaints(path_), "");
}

TEST_F(StandardRecording, GoesOnWhereTheClockStartsAnew) {
    const Clip clip = clipOf(specOf(VideoCodec::Avc, AudioCodec::Aac));
    auto pieces = makeFlv(clip, startingAt(kHalfAnHour));
    const auto again = makeFlv(clip, startingAt(0, false));
    pieces.insert(pieces.end(), again.begin() + 1, again.end()); // without its file header
    ASSERT_TRUE(record(pieces));
    const auto video = packetTimes(path_, "v");
    const auto audio = packetTimes(path_, "a");
    ASSERT_EQ(video.size(), 2 * clip.video.size());
    ASSERT_EQ(audio.size(), 2 * clip.audio.size());
    const double second = video[clip.video.size()].dtsMs - video[0].dtsMs;
    EXPECT_NEAR(second, static_cast<double>(clip.durationMs()), 100);
    for (std::size_t i = 0; i < clip.video.size(); ++i) {
        ASSERT_NEAR(video[i + clip.video.size()].ptsMs - video[i].ptsMs, second, 0.01) << i;
    }
    for (std::size_t i = 0; i < clip.audio.size(); ++i) {
        ASSERT_NEAR(audio[i + clip.audio.size()].ptsMs - audio[i].ptsMs, second, 1.01) << i;
    }
    EXPECT_NEAR(static_cast<double>(seenDts_.back()), 2.0 * static_cast<double>(clip.durationMs()), 140);
    expectPictures(2 * clip.video.size());
}

constexpr const char* kDecodeOneSecond =
    R"(ffmpeg -nostdin -v error -ss "$2" -i "$1" -map 0:v -t 1 -f null - 2>&1 || echo failed)";

class StandardConfigurations : public StandardRecording, public testing::WithParamInterface<VideoCodec> {};

TEST_P(StandardConfigurations, MayChangeAndChangeBack) {
    const Clip small = clipOf(specOf(GetParam(), AudioCodec::Aac));
    ClipSpec larger = specOf(GetParam(), AudioCodec::Aac);
    larger.widthPx = 640;
    larger.heightPx = 360;
    const Clip large = clipOf(larger);
    ASSERT_TRUE(record(makeFlv({&small, &large, &small})));
    expectPictures(2 * small.video.size() + large.video.size());
    EXPECT_EQ(told("v", "width,height"), "320,180\n");
    // A player that begins behind a change finds the configuration there.
    for (const char* const seconds : {"2.5", "3.5", "5"}) {
        EXPECT_EQ(runCommand({"sh", "-c", kDecodeOneSecond, "sh", path_.string(), seconds}), "");
    }
    const auto packets = readMp4(path_).at(0).packets;
    for (std::size_t i = 0; i < packets.size(); ++i) {
        const std::size_t clip = i / small.video.size();
        const ClipPacket& sent = (clip == 1 ? large : small).video.at(i % small.video.size());
        EXPECT_EQ(packets[i].bytes.size() > sent.bytes.size(), sent.isKey && clip > 0) << i;
    }
}

INSTANTIATE_TEST_SUITE_P(Codecs, StandardConfigurations, testing::Values(VideoCodec::Avc, VideoCodec::Hevc),
                         [](const auto& instance) {
                             return instance.param == VideoCodec::Avc ? "Avc" : "Hevc";
                         });

TEST_F(StandardRecording, LeavesSoundOutOnceItsConfigurationHasChanged) {
    const Clip first = clipOf(specOf(VideoCodec::Avc, AudioCodec::Aac));
    ClipSpec other = specOf(VideoCodec::Avc, AudioCodec::Aac);
    other.sampleRate = 48000;
    const Clip second = clipOf(other);
    ASSERT_TRUE(record(makeFlv({&first, &second})));
    EXPECT_EQ(log_.count("sound unavailable: AAC: its configuration has changed"), 1);
    expectPictures(first.video.size() + second.video.size());
    EXPECT_EQ(readMp4(path_).at(1).packets.size(), first.audio.size());
}

TEST_F(StandardRecording, LeavesSoundOutThatBeginsTooLateAndWasNotAnnounced) {
    ClipSpec spec = specOf(VideoCodec::Avc, AudioCodec::Mp3);
    spec.frames = 100;
    const Clip clip = clipOf(spec);
    ASSERT_TRUE(record(Tape().configurations(clip).pictures(clip).sound(clip, 3600).bytes()));
    EXPECT_EQ(log_.count("sound unavailable: MP3: it begins too late to be in the file"), 1);
    EXPECT_EQ(readMp4(path_).size(), 1U);
    expectPictures(clip.video.size());
}

TEST_F(StandardRecording, SaysThatNoFileCanHoldVp8) {
    EXPECT_FALSE(record(Tape()
                            .tag(0, FlvWriter::kVideoTag, {0x91, 'v', 'p', '0', '8', 1, 2, 3, 4})
                            .tag(4000, FlvWriter::kVideoTag, {0x91, 'v', 'p', '0', '8', 1, 2, 3, 4})
                            .bytes()));
    EXPECT_EQ(log_.count("pictures unavailable: VP8: an MP4 file cannot hold them"), 1);
}

struct ReadingCase {
    const char* name;
    FlvReading reading;
    bool dropsEarlySound;
    std::int64_t lastDts; ///< as time counts
    bool keepsPresentation;
};

void PrintTo(const ReadingCase& row, std::ostream* out) {
    *out << row.name;
}

class BothReadings : public StandardRecording, public testing::WithParamInterface<ReadingCase> {};

/// One stream that both readings accept: half a second of sound, and then pictures as well.
TEST_P(BothReadings, DifferWhereTheirRulesDo) {
    const Clip clip = clipOf(specOf(VideoCodec::Avc, AudioCodec::Aac));
    constexpr std::uint32_t kStartMs = 24'000;
    constexpr std::uint32_t kPicturesMs = kStartMs + 500;
    Tape tape;
    tape.tag(kStartMs, FlvWriter::kAudioTag, bodyOfAacConfig(clip)).sound(clip, kStartMs);
    tape.tag(kPicturesMs, FlvWriter::kVideoTag, bodyOfAvcConfig(clip)).pictures(clip, kPicturesMs);
    ASSERT_TRUE(record(tape.bytes({{"videocodecid", 7},
                                   {"width", 320},
                                   {"height", 180},
                                   {"audiocodecid", 0xAF},
                                   {"audiosamplerate", 44100},
                                   {"audiochannels", 2}}),
                       GetParam().reading));
    EXPECT_EQ(seenDts_.back(), GetParam().lastDts);
    const auto streams = readMp4(path_);
    EXPECT_EQ(streams.at(0).packets.size(), clip.video.size());
    const auto early = static_cast<std::size_t>(
        std::count_if(clip.audio.begin(), clip.audio.end(),
                      [](const ClipPacket& packet) { return packet.dtsMs + kStartMs < kPicturesMs; }));
    EXPECT_EQ(streams.at(1).packets.size(), clip.audio.size() - (GetParam().dropsEarlySound ? early : 0));
    const bool hasPresentation =
        std::any_of(streams[0].packets.begin(), streams[0].packets.end(),
                    [](const Mp4Packet& packet) { return packet.pts != packet.dts; });
    EXPECT_EQ(hasPresentation, GetParam().keepsPresentation);
}

INSTANTIATE_TEST_SUITE_P(All, BothReadings,
                         testing::Values(ReadingCase{"Strict", FlvReading::Strict, true, 26'460, false},
                                         ReadingCase{"Standard", FlvReading::Standard, false, 1960, true}),
                         [](const auto& instance) { return instance.param.name; });

} // namespace
} // namespace mediaworker::test
