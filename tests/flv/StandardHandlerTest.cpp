// The adaptor in the standard reading, behind the tag reader, with frames that encoders made.

#include "flv/FlvHandler.h"
#include "flv/FlvReader.h"
#include "support/FlvWriter.h"
#include "support/LogCapture.h"
#include "support/media/FlvStream.h"

#include <gmock/gmock.h>

extern "C" {
#include <libavcodec/packet.h>
#include <libavutil/channel_layout.h>
}

#include <algorithm>
#include <optional>

namespace ko_player {
namespace {

using mediaworker::test::AmfValue;
using mediaworker::test::AudioCodec;
using mediaworker::test::Clip;
using mediaworker::test::ClipPacket;
using mediaworker::test::ClipSpec;
using mediaworker::test::encode;
using mediaworker::test::FlvOptions;
using mediaworker::test::FlvWriter;
using mediaworker::test::lengthPrefixed;
using mediaworker::test::LogCapture;
using mediaworker::test::makeFlv;
using mediaworker::test::toBytes;
using mediaworker::test::VideoCodec;
using testing::ElementsAre;
using testing::IsEmpty;

using Bytes = std::vector<std::uint8_t>;

Bytes bytesOf(const AVCodecParameters& params) {
    return {params.extradata, params.extradata + params.extradata_size};
}

std::optional<Bytes> sideData(const ff_wrap::Packet& packet) {
    std::size_t size = 0;
    const std::uint8_t* data = av_packet_get_side_data(packet.get(), AV_PKT_DATA_NEW_EXTRADATA, &size);
    return data == nullptr ? std::nullopt : std::optional<Bytes>(Bytes(data, data + size));
}

class StandardHandler : public testing::Test {
protected:
    StandardHandler() {
        handler_.onMetadata = [this](const Metadata& metadata) { metadata_.push_back(metadata); };
        handler_.expectPicture = [this](int width, int height) { sizes_.emplace_back(width, height); };
        handler_.onVideoParams = [this](const AVCodecParameters*) { return ++videoAnnounced_ > 0; };
        handler_.onAudioParams = [this](const AVCodecParameters*) { return ++audioAnnounced_ > 0; };
        handler_.onVideoPacket = [this](auto packet) { video_.push_back(std::move(packet)); };
        handler_.onAudioPacket = [this](auto packet) { audio_.push_back(std::move(packet)); };
        writer_.header();
    }

    void feed(const Bytes& bytes) { EXPECT_FALSE(reader_.consume(bytes.data(), bytes.size())); }
    void feed(FlvWriter& writer) { feed(writer.take()); }

    /// The lines for the user.
    [[nodiscard]] std::vector<std::string> complaints() const {
        std::vector<std::string> found;
        for (const std::string& line : log_.lines()) {
            if (line.starts_with("sound unavailable: ") || line.starts_with("pictures unavailable: ")) {
                found.push_back(line);
            }
        }
        return found;
    }

    LogCapture log_;
    FlvWriter writer_;
    FlvHandler handler_{FlvReading::Standard};
    flv::FlvReader reader_{&handler_, FlvReading::Standard};
    std::vector<Metadata> metadata_;
    std::vector<std::pair<int, int>> sizes_;
    int videoAnnounced_ = 0;
    int audioAnnounced_ = 0;
    std::vector<std::shared_ptr<ff_wrap::Packet>> video_;
    std::vector<std::shared_ptr<ff_wrap::Packet>> audio_;
};

// --- whole streams

struct StreamRow {
    const char* name;
    VideoCodec video;
    AVCodecID videoCodec;
    AudioCodec audio;
    AVCodecID audioCodec;
    int sampleRate = 44100;
    bool isEnhanced = true;
    int bFrames = 0;
};

void PrintTo(const StreamRow& row, std::ostream* out) {
    *out << row.name;
}

class StandardStreams : public StandardHandler, public testing::WithParamInterface<StreamRow> {
protected:
    static Clip clip() {
        ClipSpec spec;
        spec.codec = GetParam().video;
        spec.audio = GetParam().audio;
        spec.sampleRate = GetParam().sampleRate;
        spec.bFrames = GetParam().bFrames;
        return encode(spec);
    }
};

TEST_P(StandardStreams, AreReadWholeWithTheirTimes) {
    const Clip source = clip();
    FlvOptions options;
    options.isEnhanced = GetParam().isEnhanced;
    options.startMs = 1'800'000;
    feed(toBytes(makeFlv(source, options)));
    EXPECT_EQ(videoAnnounced_, 1);
    EXPECT_EQ(handler_.videoParams().codec_id, GetParam().videoCodec);
    EXPECT_EQ(bytesOf(handler_.videoParams()), source.videoConfig);
    ASSERT_EQ(video_.size(), source.video.size());
    for (std::size_t i = 0; i < video_.size(); ++i) {
        const AVPacket& packet = *video_[i]->get();
        EXPECT_EQ(packet.dts, 1'800'000 + source.video[i].dtsMs);
        EXPECT_EQ(packet.pts, 1'800'000 + source.video[i].ptsMs);
        EXPECT_EQ((packet.flags & AV_PKT_FLAG_KEY) != 0, source.video[i].isKey);
        EXPECT_EQ(Bytes(packet.data, packet.data + packet.size), source.video[i].bytes);
    }
    EXPECT_EQ(audioAnnounced_, 1);
    const AVCodecParameters& sound = handler_.audioParams();
    EXPECT_EQ(sound.codec_id, GetParam().audioCodec);
    EXPECT_EQ(sound.sample_rate, GetParam().sampleRate);
    EXPECT_EQ(sound.ch_layout.nb_channels, 2);
    EXPECT_EQ(bytesOf(sound), source.audioConfig);
    ASSERT_FALSE(audio_.empty());
    EXPECT_EQ((*audio_[0])->dts, 1'800'000 + source.audio[0].dtsMs);
    EXPECT_EQ((*audio_[0])->pts, (*audio_[0])->dts);
    EXPECT_THAT(complaints(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(All, StandardStreams,
                         testing::Values(StreamRow{"AvcAac", VideoCodec::Avc, AV_CODEC_ID_H264,
                                                   AudioCodec::Aac, AV_CODEC_ID_AAC, 44100, false, 2},
                                         StreamRow{"HevcMp3", VideoCodec::Hevc, AV_CODEC_ID_HEVC,
                                                   AudioCodec::Mp3, AV_CODEC_ID_MP3, 44100, false, 2},
                                         StreamRow{"AvcALaw", VideoCodec::Avc, AV_CODEC_ID_H264,
                                                   AudioCodec::ALaw, AV_CODEC_ID_PCM_ALAW, 8000, false},
                                         StreamRow{"AvcMuLaw", VideoCodec::Avc, AV_CODEC_ID_H264,
                                                   AudioCodec::MuLaw, AV_CODEC_ID_PCM_MULAW, 16000, false},
                                         StreamRow{"EnhancedAvcAac", VideoCodec::Avc, AV_CODEC_ID_H264,
                                                   AudioCodec::Aac, AV_CODEC_ID_AAC, 44100, true, 2},
                                         StreamRow{"EnhancedHevcOpus", VideoCodec::Hevc, AV_CODEC_ID_HEVC,
                                                   AudioCodec::Opus, AV_CODEC_ID_OPUS, 48000, true, 2},
                                         StreamRow{"EnhancedAv1Flac", VideoCodec::Av1, AV_CODEC_ID_AV1,
                                                   AudioCodec::Flac, AV_CODEC_ID_FLAC},
                                         StreamRow{"EnhancedVp9Ac3", VideoCodec::Vp9, AV_CODEC_ID_VP9,
                                                   AudioCodec::Ac3, AV_CODEC_ID_AC3, 48000},
                                         StreamRow{"EnhancedVp8Eac3", VideoCodec::Vp8, AV_CODEC_ID_VP8,
                                                   AudioCodec::Eac3, AV_CODEC_ID_EAC3, 48000},
                                         StreamRow{"EnhancedMp3", VideoCodec::Avc, AV_CODEC_ID_H264,
                                                   AudioCodec::Mp3, AV_CODEC_ID_MP3}),
                         [](const auto& test) { return test.param.name; });

TEST_F(StandardHandler, NeedsNoMetadataAndBelievesNoWrongOnes) {
    ClipSpec spec;
    spec.audio = AudioCodec::Aac;
    const Clip clip = encode(spec);
    FlvOptions without;
    without.hasMetadata = false;
    feed(toBytes(makeFlv(clip, without)));
    EXPECT_EQ(video_.size(), clip.video.size());
    EXPECT_EQ(audioAnnounced_, 1);
    EXPECT_THAT(sizes_, IsEmpty());
}

TEST_F(StandardHandler, SaysWhereTheMetadataAreWrong) {
    ClipSpec spec;
    spec.audio = AudioCodec::Aac;
    const Clip clip = encode(spec);
    FlvOptions wrong;
    wrong.metadata = {{"videocodecid", 12}, {"audiocodecid", 2}, {"audiosamplerate", 8000}, {"width", 16}};
    feed(toBytes(makeFlv(clip, wrong)));
    EXPECT_EQ(handler_.videoParams().codec_id, AV_CODEC_ID_H264);
    EXPECT_EQ(handler_.audioParams().codec_id, AV_CODEC_ID_AAC);
    EXPECT_EQ(handler_.audioParams().sample_rate, 44100);
    EXPECT_EQ(log_.count("ko_player::PacketIntake: codec in metadata: H.265, in packets, which count: H.264"),
              1);
    EXPECT_EQ(log_.count("ko_player::PacketIntake: codec in metadata: MP3, in packets, which count: AAC"), 1);
}

TEST_F(StandardHandler, SaysNothingWhereTheMetadataAreRightInAnyForm) {
    ClipSpec spec;
    spec.audio = AudioCodec::Aac;
    const Clip clip = encode(spec);
    for (const AmfValue& id : {AmfValue(10), AmfValue(175), AmfValue("mp4a"), AmfValue(1836069985)}) {
        FlvHandler handler(FlvReading::Standard);
        flv::FlvReader reader(&handler, FlvReading::Standard);
        FlvOptions options;
        options.metadata = {{"audiocodecid", id}, {"videocodecid", "avc1"}};
        const Bytes stream = toBytes(makeFlv(clip, options));
        EXPECT_FALSE(reader.consume(stream.data(), stream.size()));
        EXPECT_EQ(handler.audioParams().codec_id, AV_CODEC_ID_AAC);
    }
    for (const std::string& line : log_.lines()) {
        EXPECT_THAT(line, testing::Not(testing::HasSubstr("codec in metadata")));
    }
}

// --- pictures

const Bytes kAvcConfig{1, 0x64, 0, 0x28, 0xFF, 0xE1, 0, 0};
const Bytes kSlice = lengthPrefixed({{0x41, 0x9A}});
const Bytes kIdr = lengthPrefixed({{0x65, 0x88}});

TEST_F(StandardHandler, WaitsForAConfigurationThatIsNeeded) {
    writer_.video(0, VideoCodec::Avc, false, 1, kSlice).video(40, VideoCodec::Avc, false, 1, kSlice);
    feed(writer_);
    EXPECT_EQ(videoAnnounced_, 0);
    writer_.video(80, VideoCodec::Avc, true, 0, kAvcConfig).video(80, VideoCodec::Avc, true, 1, kIdr, 40);
    feed(writer_);
    EXPECT_EQ(videoAnnounced_, 1);
    EXPECT_EQ(bytesOf(handler_.videoParams()), kAvcConfig);
    ASSERT_EQ(video_.size(), 1U);
    EXPECT_EQ((*video_[0])->pts, 120);
    EXPECT_THAT(complaints(), IsEmpty());
}

TEST_F(StandardHandler, SaysOnceThatNoConfigurationCame) {
    for (std::uint32_t i = 0; i < 200; ++i) {
        writer_.video(i * 40, VideoCodec::Avc, true, 1, kIdr).aac(i * 20, 1, Bytes{0x21, 0x10, 5});
    }
    feed(writer_);
    EXPECT_EQ(videoAnnounced_, 0);
    EXPECT_EQ(audioAnnounced_, 0);
    EXPECT_THAT(complaints(),
                testing::UnorderedElementsAre("pictures unavailable: H.264: no configuration came",
                                              "sound unavailable: AAC: no configuration came"));
}

TEST_F(StandardHandler, TakesStartCodesForAConfigurationOfTheirOwn) {
    const Bytes annexB{0, 0, 0, 1, 0x67, 1, 2, 0, 0, 0, 1, 0x65, 1};
    writer_.video(0, VideoCodec::Avc, true, 1, annexB);
    feed(writer_);
    EXPECT_EQ(videoAnnounced_, 1);
    EXPECT_EQ(video_.size(), 1U);
}

TEST_F(StandardHandler, PutsANewConfigurationOnTheNextFrameOnly) {
    Bytes other = kAvcConfig;
    other[3] = 0x29;
    writer_.video(0, VideoCodec::Avc, true, 0, kAvcConfig).video(0, VideoCodec::Avc, true, 1, kIdr);
    writer_.video(40, VideoCodec::Avc, true, 0, kAvcConfig).video(40, VideoCodec::Avc, true, 1, kIdr);
    writer_.video(80, VideoCodec::Avc, true, 0, other).video(80, VideoCodec::Avc, true, 1, kIdr);
    writer_.video(120, VideoCodec::Avc, false, 1, kSlice);
    feed(writer_);
    ASSERT_EQ(video_.size(), 4U);
    EXPECT_EQ(sideData(*video_[1]), std::nullopt) << "the same again is nothing new";
    EXPECT_EQ(sideData(*video_[2]), other);
    EXPECT_EQ(sideData(*video_[3]), std::nullopt);
    EXPECT_EQ(videoAnnounced_, 1);
}

TEST_F(StandardHandler, SkipsAnotherCodecInMidStream) {
    writer_.video(0, VideoCodec::Avc, true, 0, kAvcConfig).video(0, VideoCodec::Avc, true, 1, kIdr);
    for (std::uint32_t i = 1; i < 5; ++i) {
        writer_.enhancedVideo(i * 40, "av01", true, 1, Bytes{1, 2});
    }
    writer_.video(200, VideoCodec::Avc, false, 1, kSlice);
    feed(writer_);
    EXPECT_EQ(video_.size(), 2U);
    EXPECT_THAT(complaints(), ElementsAre("pictures unavailable: AV1: the stream began with another codec"));
}

TEST_F(StandardHandler, SaysOnceWhatCannotBePlayed) {
    for (std::uint32_t i = 0; i < 5; ++i) {
        writer_.tag(9, i, Bytes{0x12, 1, 2})
            .tag(8, i, Bytes{0xB2, 1, 2})
            .enhancedVideo(i, "vvc1", true, 0, Bytes{1});
    }
    feed(writer_);
    EXPECT_EQ(videoAnnounced_ + audioAnnounced_, 0);
    EXPECT_THAT(complaints(), ElementsAre("pictures unavailable: H.263: this codec is not supported",
                                          "sound unavailable: Speex: this codec is not supported",
                                          "pictures unavailable: H.266: this codec is not supported"));
}

TEST_F(StandardHandler, BoundsWhatItSays) {
    for (std::uint32_t i = 0; i < 1000; ++i) {
        writer_.enhancedAudio(
            i, std::string{'a', 'b', static_cast<char>('0' + i / 50), static_cast<char>('0' + i % 50)}, 1,
            Bytes{1});
    }
    feed(writer_);
    EXPECT_EQ(complaints().size(), 8U);
}

TEST_F(StandardHandler, TellsCodecsOfMisnumberedTagsByTheirConfiguration) {
    ClipSpec spec;
    spec.codec = VideoCodec::Hevc;
    const Clip clip = encode(spec);
    writer_.video(0, VideoCodec::Avc, true, 0, clip.videoConfig);
    writer_.video(0, VideoCodec::Avc, true, 1, clip.video.at(0).bytes);
    feed(writer_);
    EXPECT_EQ(handler_.videoParams().codec_id, AV_CODEC_ID_HEVC);
    EXPECT_EQ(video_.size(), 1U);
}

TEST_F(StandardHandler, DropsTagsWithoutAPicture) {
    writer_.video(0, VideoCodec::Avc, true, 0, kAvcConfig);
    writer_.video(0, VideoCodec::Avc, true, 1, lengthPrefixed({{9, 0x10}, {6, 1}}));
    writer_.video(0, VideoCodec::Avc, true, 1, lengthPrefixed({{6, 1}, {0x65, 0x88}}));
    feed(writer_);
    EXPECT_EQ(video_.size(), 1U);
}

TEST_F(StandardHandler, BeginsWithAKeyFrameWhereNothingElseMakesSense) {
    writer_.enhancedVideo(0, "vp09", false, 1, Bytes{1}).enhancedVideo(40, "vp09", true, 1, Bytes{2});
    feed(writer_);
    ASSERT_EQ(video_.size(), 1U);
    EXPECT_EQ((*video_[0])->dts, 40);
}

TEST_F(StandardHandler, EstimatesHowManyPicturesAreOutOfOrder) {
    struct Row {
        std::int32_t compositionMs;
        int frameRate;
        int expected;
    };
    for (const Row& row : {Row{0, 25, 0}, Row{-40, 25, 0}, Row{40, 25, 1}, Row{80, 25, 2}, Row{67, 30, 2},
                           Row{80, 0, 2}, Row{1, 25, 1}, Row{5000, 25, 4}}) {
        FlvHandler handler(FlvReading::Standard);
        flv::FlvReader reader(&handler, FlvReading::Standard);
        FlvWriter writer;
        writer.header().metadata(0, {{"framerate", row.frameRate}});
        writer.video(0, VideoCodec::Avc, true, 0, kAvcConfig);
        const Bytes stream = writer.video(0, VideoCodec::Avc, true, 1, kIdr, row.compositionMs).take();
        EXPECT_FALSE(reader.consume(stream.data(), stream.size()));
        EXPECT_EQ(handler.videoParams().video_delay, row.expected)
            << row.compositionMs << " " << row.frameRate;
    }
}

TEST_F(StandardHandler, GoesOnWhereTheTimeStampsWrap) {
    writer_.video(0, VideoCodec::Avc, true, 0, kAvcConfig).video(0xFFFFFFF0, VideoCodec::Avc, true, 1, kIdr);
    writer_.audio(0xFFFFFFFF, 0x72, Bytes(160, 0xD5));
    writer_.video(0x18, VideoCodec::Avc, false, 1, kSlice, 40).audio(0x20, 0x72, Bytes(160, 0xD5));
    feed(writer_);
    ASSERT_EQ(video_.size(), 2U);
    EXPECT_EQ((*video_[0])->dts, 0xFFFFFFF0LL);
    EXPECT_EQ((*video_[1])->dts, 0x100000018LL);
    EXPECT_EQ((*video_[1])->pts, 0x100000040LL);
    ASSERT_EQ(audio_.size(), 2U);
    EXPECT_EQ((*audio_[1])->dts, 0x100000020LL);
}

TEST_F(StandardHandler, GoesOnWhereTheClockStartsAnew) {
    writer_.video(0, VideoCodec::Avc, true, 0, kAvcConfig).video(90'000, VideoCodec::Avc, true, 1, kIdr);
    writer_.audio(90'010, 0x72, Bytes(160, 0xD5)).video(90'040, VideoCodec::Avc, false, 1, kSlice, 80);
    writer_.video(0, VideoCodec::Avc, true, 1, kIdr, 40).audio(10, 0x72, Bytes(160, 0xD5));
    feed(writer_);
    ASSERT_EQ(video_.size(), 3U);
    EXPECT_EQ((*video_[1])->dts, 90'040);
    EXPECT_EQ((*video_[1])->pts, 90'120);
    EXPECT_EQ((*video_[2])->dts, 90'080);
    EXPECT_EQ((*video_[2])->pts, 90'120);
    ASSERT_EQ(audio_.size(), 2U);
    EXPECT_EQ((*audio_[0])->dts, 90'010);
    EXPECT_EQ((*audio_[1])->dts, 90'090);
    EXPECT_EQ((*audio_[1])->pts, 90'090);
}

TEST_F(StandardHandler, TakesAClockFromBeyondTheWrapForAnother) {
    // 3,000,000 s to 0 is nearer as a step of 15 days ahead.
    writer_.video(0, VideoCodec::Avc, true, 0, kAvcConfig);
    writer_.video(3'000'000'000, VideoCodec::Avc, true, 1, kIdr).audio(3'000'000'000, 0x72, Bytes(160, 0xD5));
    writer_.video(3'000'000'040, VideoCodec::Avc, false, 1, kSlice).video(0, VideoCodec::Avc, true, 1, kIdr);
    writer_.audio(5, 0x72, Bytes(160, 0xD5));
    feed(writer_);
    ASSERT_EQ(video_.size(), 3U);
    EXPECT_EQ((*video_[2])->dts, 3'000'000'080);
    ASSERT_EQ(audio_.size(), 2U);
    EXPECT_EQ((*audio_[1])->dts, 3'000'000'085);
}

// --- sound

TEST_F(StandardHandler, TakesTheRateOfG711FromTheMetadataWhereItMakesSense) {
    struct Row {
        AmfValue::Properties metadata;
        std::uint8_t header;
        int rate;
        int channels;
    };
    const std::vector<Row> rows{{{}, 0x72, 8000, 1},
                                {{}, 0x7E, 8000, 1}, // SoundRate 3 says 44 kHz, which it never is
                                {{}, 0x7F, 8000, 2},
                                {{{"audiosamplerate", 16000}, {"audiochannels", 1}}, 0x7F, 16000, 1},
                                {{{"audiosamplerate", 0}, {"audiochannels", 7}}, 0x72, 8000, 1},
                                {{{"audiosamplerate", 1e9}}, 0x82, 8000, 1},
                                {{{"audiosamplerate", 3999}}, 0x82, 8000, 1},
                                {{{"stereo", true}}, 0x72, 8000, 2},
                                {{{"stereo", true}, {"audiochannels", 1}}, 0x72, 8000, 1}};
    for (const Row& row : rows) {
        FlvHandler handler(FlvReading::Standard);
        flv::FlvReader reader(&handler, FlvReading::Standard);
        FlvWriter writer;
        writer.header().metadata(0, row.metadata);
        const Bytes stream = writer.audio(0, row.header, Bytes(320, 0xD5)).take();
        EXPECT_FALSE(reader.consume(stream.data(), stream.size()));
        EXPECT_EQ(handler.audioParams().sample_rate, row.rate) << testing::PrintToString(int{row.header});
        EXPECT_EQ(handler.audioParams().ch_layout.nb_channels, row.channels);
    }
}

TEST_F(StandardHandler, RefusesSampleRatesThatAreNone) {
    // audioObjectType 2, samplingFrequencyIndex 15, samplingFrequency 3 Hz in 24 bits, channelConfiguration 1
    const Bytes config{0x17, 0x80, 0x00, 0x01, 0x88};
    ClipSpec spec;
    spec.audio = AudioCodec::Aac;
    spec.channels = 1;
    const Clip clip = encode(spec);
    writer_.aac(0, 0, config);
    for (const ClipPacket& packet : clip.audio) {
        writer_.aac(static_cast<std::uint32_t>(packet.dtsMs), 1, packet.bytes);
    }
    feed(writer_);
    EXPECT_EQ(audioAnnounced_, 0);
    EXPECT_THAT(complaints(), ElementsAre("sound unavailable: AAC: a sample rate of 3 Hz is refused"));
    EXPECT_EQ(handler_.audioParams().codec_id, AV_CODEC_ID_NONE) << "nobody is to work with that";
    // A configuration that is right makes it good.
    writer_.aac(5000, 0, clip.audioConfig).aac(5000, 1, clip.audio[5].bytes);
    feed(writer_);
    EXPECT_EQ(audioAnnounced_, 1);
    EXPECT_EQ(handler_.audioParams().sample_rate, 44100);
}

TEST_F(StandardHandler, UnderstandsARateThatIsSpelledOut) {
    ClipSpec spec;
    spec.audio = AudioCodec::Aac;
    const Clip clip = encode(spec);
    // audioObjectType 2, samplingFrequencyIndex 15, 44100 in 24 bits, channelConfiguration 2
    writer_.aac(0, 0, Bytes{0x17, 0x80, 0x56, 0x22, 0x10}).aac(0, 1, clip.audio[0].bytes);
    feed(writer_);
    EXPECT_EQ(audioAnnounced_, 1);
    EXPECT_EQ(handler_.audioParams().sample_rate, 44100);
    EXPECT_EQ(bytesOf(handler_.audioParams()), (Bytes{0x12, 0x10}));
}

TEST_F(StandardHandler, GivesUpSoundThatCannotBeDecoded) {
    writer_.aac(0, 0, Bytes{0x12, 0x10});
    for (std::uint32_t i = 0; i < 100; ++i) {
        writer_.aac(i * 20, 1, Bytes(20, 0xFF));
    }
    feed(writer_);
    EXPECT_EQ(audioAnnounced_, 0);
    ASSERT_EQ(complaints().size(), 1U);
    EXPECT_THAT(complaints()[0], testing::StartsWith("sound unavailable: AAC: nothing can be decoded: "));
}

TEST_F(StandardHandler, BeginsWithTheFirstFrameThatCanBeDecoded) {
    ClipSpec spec;
    spec.audio = AudioCodec::Aac;
    const Clip clip = encode(spec);
    writer_.aac(0, 1, clip.audio[0].bytes); // no configuration yet
    writer_.aac(0, 0, clip.audioConfig);
    writer_.aac(23, 1, Bytes(20, 0xFF)); // broken
    writer_.aac(46, 1, clip.audio[1].bytes).aac(69, 1, clip.audio[2].bytes);
    feed(writer_);
    EXPECT_EQ(audioAnnounced_, 1);
    ASSERT_EQ(audio_.size(), 2U);
    EXPECT_EQ((*audio_[0])->dts, 46);
    EXPECT_THAT(complaints(), IsEmpty());
}

TEST_F(StandardHandler, MakesAConfigurationFromTheMetadataWhereNoneComes) {
    ClipSpec spec;
    spec.audio = AudioCodec::Aac;
    const Clip clip = encode(spec);
    writer_.metadata(0, {{"audiocodecid", 175}, {"audiosamplerate", 44100}, {"audiochannels", 2}});
    writer_.aac(0, 1, clip.audio[0].bytes);
    feed(writer_);
    EXPECT_EQ(audioAnnounced_, 1);
    EXPECT_EQ(bytesOf(handler_.audioParams()), (Bytes{0x12, 0x10}));
}

TEST_F(StandardHandler, MakesTheHeadThatOpusMayLack) {
    ClipSpec spec;
    spec.audio = AudioCodec::Opus;
    spec.sampleRate = 48000;
    const Clip clip = encode(spec);
    writer_.enhancedAudio(0, "Opus", 1, clip.audio[0].bytes);
    feed(writer_);
    EXPECT_EQ(audioAnnounced_, 1);
    EXPECT_EQ(handler_.audioParams().sample_rate, 48000);
    EXPECT_EQ(handler_.audioParams().extradata_size, 19);
}

TEST_F(StandardHandler, PutsANewSoundConfigurationOnTheNextFrame) {
    ClipSpec spec;
    spec.audio = AudioCodec::Aac;
    const Clip clip = encode(spec);
    writer_.aac(0, 0, clip.audioConfig).aac(0, 1, clip.audio[0].bytes);
    writer_.aac(20, 0, clip.audioConfig).aac(20, 1, clip.audio[1].bytes);
    writer_.aac(40, 0, Bytes{0x11, 0x90}).aac(40, 1, clip.audio[2].bytes);
    feed(writer_);
    ASSERT_EQ(audio_.size(), 3U);
    EXPECT_EQ(sideData(*audio_[1]), std::nullopt);
    EXPECT_EQ(sideData(*audio_[2]), (Bytes{0x11, 0x90}));
}

// --- metadata

TEST_F(StandardHandler, TellsSizeAndPositionWithoutACodec) {
    writer_.metadata(0, {{"width", 640}, {"height", 480}, {"absolute_time", 1.4e12}});
    writer_.metadata(0, {{"width", 640}, {"height", 0}});
    feed(writer_);
    EXPECT_THAT(sizes_, ElementsAre(std::pair(640, 480)));
    EXPECT_THAT(metadata_, ElementsAre(Metadata{0, 0, 1'400'000'000'000, 0}));
}

TEST_F(StandardHandler, KeepsWhatALaterMessageDoesNotSay) {
    writer_.metadata(0, {{"audiosamplerate", 16000}, {"width", 640}, {"height", 480}});
    writer_.metadata(0, {{"fragmentPosition", 5}});
    writer_.audio(0, 0x72, Bytes(320, 0xD5));
    writer_.video(0, VideoCodec::Avc, true, 0, kAvcConfig).video(0, VideoCodec::Avc, true, 1, kIdr);
    feed(writer_);
    EXPECT_EQ(handler_.audioParams().sample_rate, 16000);
    EXPECT_EQ(handler_.videoParams().width, 640);
    EXPECT_THAT(metadata_, ElementsAre(Metadata{5, 0, 0, 0}));
}

} // namespace
} // namespace ko_player
