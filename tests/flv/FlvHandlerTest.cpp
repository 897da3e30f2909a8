#include "flv/FlvHandler.h"

#include "support/LogCapture.h"

#include <gmock/gmock.h>

extern "C" {
#include <libavcodec/defs.h>
#include <libavcodec/packet.h>
#include <libavutil/channel_layout.h>
}

#include <limits>
#include <optional>

namespace ko_player {
namespace {

using mediaworker::test::LogCapture;
using testing::ElementsAre;
using testing::IsEmpty;

using Bytes = std::vector<std::uint8_t>;

constexpr double kInfinity = std::numeric_limits<double>::infinity();

const Bytes kAvcConfig{1, 0x64, 0, 0x28, 0xFF};
const Bytes kSlice{0, 0, 0, 2, 0x41, 0x9A};
const Bytes kIdr{0, 0, 0, 2, 0x65, 0x88};

const flv::NumberProperties kAacMeta{
    {"audiocodecid", 175}, {"audiosamplerate", 44100}, {"audiosamplesize", 16}, {"audiochannels", 2}};
const flv::NumberProperties kAvcMeta{{"videocodecid", 7}, {"width", 640}, {"height", 480}};

/// Owns the payload of a packet for the time of the call.
struct VideoData {
    Bytes payload;
    std::uint32_t timestamp = 0;
    bool key = false;
    bool sequenceHeader = false;
};

class FlvHandlerTest : public testing::Test {
protected:
    FlvHandlerTest() {
        handler_.onMetadata = [this](const Metadata& metadata) { metadata_.push_back(metadata); };
        handler_.onVideoParams = [this](const AVCodecParameters* params) {
            EXPECT_EQ(params, &handler_.videoParams());
            videoExtradata_.push_back(extradata(*params));
            return false; // ignored
        };
        handler_.onAudioParams = [this](const AVCodecParameters* params) {
            EXPECT_EQ(params, &handler_.audioParams());
            audioExtradata_.push_back(extradata(*params));
            return false; // ignored
        };
        handler_.onVideoPacket = [this](auto packet) { videoPackets_.push_back(std::move(packet)); };
        handler_.onAudioPacket = [this](auto packet) { audioPackets_.push_back(std::move(packet)); };
    }

    static Bytes extradata(const AVCodecParameters& params) {
        return {params.extradata, params.extradata + params.extradata_size};
    }

    static Bytes payload(ff_wrap::Packet& packet) { return {packet->data, packet->data + packet->size}; }

    /// The new extradata that the packet carries, nothing if it carries none.
    static std::optional<Bytes> sideData(const ff_wrap::Packet& packet) {
        std::size_t size = 0;
        const std::uint8_t* data = av_packet_get_side_data(packet.get(), AV_PKT_DATA_NEW_EXTRADATA, &size);
        return data == nullptr ? std::nullopt : std::optional<Bytes>(Bytes(data, data + size));
    }

    void video(const VideoData& data) {
        flv::VideoPacket packet;
        packet.timestamp = data.timestamp;
        packet.data = data.payload.data();
        packet.size = static_cast<std::uint32_t>(data.payload.size());
        packet.valid = true;
        packet.isKeyFrame = data.key;
        packet.isSequenceHeader = data.sequenceHeader;
        handler_.onVideoTag(packet);
    }

    void audio(std::uint32_t format, const Bytes& bytes, bool sequenceHeader = false,
               std::uint32_t timestamp = 0) {
        flv::AudioPacket packet;
        packet.timestamp = timestamp;
        packet.data = bytes.data();
        packet.size = static_cast<std::uint32_t>(bytes.size());
        packet.valid = true;
        packet.soundFormat = format;
        packet.sampleRate = 44000;
        packet.is16Bit = true;
        packet.channels = 2;
        packet.isSequenceHeader = sequenceHeader;
        handler_.onAudioTag(packet);
    }

    void meta(const flv::NumberProperties& properties) { handler_.onScriptData(properties); }

    LogCapture log_;
    FlvHandler handler_;
    std::vector<Metadata> metadata_;
    std::vector<Bytes> videoExtradata_; ///< of each announcement
    std::vector<Bytes> audioExtradata_;
    std::vector<std::shared_ptr<ff_wrap::Packet>> videoPackets_;
    std::vector<std::shared_ptr<ff_wrap::Packet>> audioPackets_;
};

std::string at(const std::string& function, const std::string& text) {
    return "ko_player::FlvHandler::" + function + ": " + text;
}

TEST_F(FlvHandlerTest, StartsWithEmptyParameters) {
    EXPECT_EQ(handler_.videoParams().codec_type, AVMEDIA_TYPE_VIDEO);
    EXPECT_EQ(handler_.audioParams().codec_type, AVMEDIA_TYPE_AUDIO);
    EXPECT_EQ(handler_.videoParams().codec_id, AV_CODEC_ID_NONE);
    EXPECT_EQ(handler_.audioParams().codec_id, AV_CODEC_ID_NONE);
    EXPECT_TRUE(handler_.pendingAudioSideData().empty());
}

TEST_F(FlvHandlerTest, LogsHeaderAndErrors) {
    handler_.onHeader(true, false);
    handler_.onError("flv_tag_video:");
    EXPECT_THAT(log_.lines(), ElementsAre(at("onHeader", "audio: 1, video: 0"),
                                          at("onError", "flv parser error: flv_tag_video:")));
}

// --- metadata

TEST_F(FlvHandlerTest, TellsThePictureSizeWhereThereIsOne) {
    std::vector<std::pair<int, int>> sizes;
    handler_.expectPicture = [&](int width, int height) {
        EXPECT_EQ(handler_.videoParams().width, 0) << "too late to prepare for it";
        sizes.emplace_back(width, height);
    };
    meta({{"videocodecid", 7}, {"width", 640}});
    meta({{"videocodecid", 7}, {"width", 8000}, {"height", 480}});
    meta({{"width", 640}, {"height", 480}});
    EXPECT_THAT(sizes, testing::IsEmpty());
    meta(kAvcMeta);
    EXPECT_THAT(sizes, ElementsAre(std::pair(640, 480)));
}

TEST_F(FlvHandlerTest, ConfiguresVideoThenAudioFromMetadata) {
    meta({{"audiocodecid", 0x7E},
          {"audiosamplerate", 8000},
          {"audiosamplesize", 8},
          {"audiochannels", 1},
          {"videocodecid", 12},
          {"width", 1920},
          {"height", 1080},
          {"unknown", 3}});
    EXPECT_THAT(log_.lines(), ElementsAre(at("handleVideoMetaInfo", "vcodec: h265, w: 1920, h: 1080"),
                                          at("handleAudioMetaInfo",
                                             "acodec: pcma, samplerate: 8000, ch: 1, samplesize: 8")));
    const AVCodecParameters& v = handler_.videoParams();
    EXPECT_EQ(v.codec_id, AV_CODEC_ID_HEVC);
    EXPECT_EQ(v.format, AV_PIX_FMT_YUV420P);
    EXPECT_EQ(v.width, 1920);
    EXPECT_EQ(v.height, 1080);
    const AVCodecParameters& a = handler_.audioParams();
    EXPECT_EQ(a.codec_id, AV_CODEC_ID_PCM_ALAW);
    EXPECT_EQ(a.ch_layout.nb_channels, 1);
    EXPECT_EQ(a.ch_layout.u.mask, std::uint64_t{AV_CH_LAYOUT_MONO});
    EXPECT_EQ(a.sample_rate, 8000);
    EXPECT_EQ(a.bits_per_coded_sample, 8);
    EXPECT_EQ(a.extradata, nullptr);
    EXPECT_THAT(metadata_, IsEmpty());
}

TEST_F(FlvHandlerTest, ChecksWidthEvenWithoutACodec) {
    meta({{"duration", 10}, {"width", 8000}});
    EXPECT_THAT(log_.lines(), ElementsAre(at("videoFrameSize", "bad size: 8000")));
    EXPECT_EQ(handler_.videoParams().codec_id, AV_CODEC_ID_NONE);
    EXPECT_THAT(metadata_, IsEmpty());
}

TEST_F(FlvHandlerTest, TakesBadSizesAsZero) {
    meta({{"videocodecid", 12}, {"width", 8000}, {"height", 7999}});
    EXPECT_THAT(log_.lines(), ElementsAre(at("videoFrameSize", "bad size: 8000"),
                                          at("handleVideoMetaInfo", "vcodec: h265, w: 0, h: 7999")));
    log_.clear();
    meta({{"videocodecid", 7}, {"width", 0}, {"height", -1}});
    EXPECT_THAT(log_.lines(),
                ElementsAre(at("videoFrameSize", "bad size: 0"), at("videoFrameSize", "bad size: -1"),
                            at("handleVideoMetaInfo", "vcodec: h264, w: 0, h: 0")));
    EXPECT_EQ(handler_.videoParams().width, 0);
    EXPECT_EQ(handler_.videoParams().height, 0);
}

TEST_F(FlvHandlerTest, ConvertsHostileNumbersWithoutOverflow) {
    meta({{"videocodecid", 7},
          {"width", kInfinity},
          {"height", std::numeric_limits<double>::quiet_NaN()},
          {"absolute_time", 1e300},
          {"fragmentPosition", -kInfinity},
          {"fragmentDuration", -9223372036854775808.0}});
    EXPECT_THAT(log_.lines(), ElementsAre(at("videoFrameSize", "bad size: 9223372036854775807"),
                                          at("videoFrameSize", "bad size: 0"),
                                          at("handleVideoMetaInfo", "vcodec: h264, w: 0, h: 0")));
    constexpr auto kMin = std::numeric_limits<std::int64_t>::min();
    constexpr auto kMax = std::numeric_limits<std::int64_t>::max();
    EXPECT_THAT(metadata_, ElementsAre(Metadata{kMin, kMin, kMax, 0}));
}

TEST_F(FlvHandlerTest, TakesTheLowBitsOfHugeAudioValues) {
    meta({{"audiocodecid", 0x70},
          {"audiosamplerate", 4294967296.0 + 8000},
          {"audiochannels", 4294967296.0 + 2}});
    EXPECT_THAT(log_.lines(), ElementsAre(at("handleAudioMetaInfo",
                                             "acodec: pcma, samplerate: 8000, ch: 2, samplesize: 0")));
    EXPECT_EQ(handler_.audioParams().sample_rate, 8000);
}

TEST_F(FlvHandlerTest, TakesTheLastValueOfAKeyAndComparesKeysExactly) {
    meta({{"videocodecid", 7},
          {"width", 1},
          {"Width", 5},
          {"width ", 6},
          {"widt", 7},
          {"width", 2},
          {"height", 3}});
    EXPECT_EQ(handler_.videoParams().width, 2);
    EXPECT_EQ(handler_.videoParams().height, 3);
    log_.clear();
    meta({{"videocodecid", 7}, {"videocodecid", 2}});
    EXPECT_THAT(log_.lines(), ElementsAre(at("vcodecFromMeta", "unknown vcodec: 2")))
        << "the last one is unknown, so there is none";
}

TEST_F(FlvHandlerTest, LogsUnknownCodecs) {
    meta({{"videocodecid", 2}, {"audiocodecid", 10}, {"width", 640}});
    meta({{"audiocodecid", -1}});
    EXPECT_THAT(log_.lines(), ElementsAre(at("vcodecFromMeta", "unknown vcodec: 2"),
                                          at("acodecFromMeta", "unknown acodec: 0"),
                                          at("acodecFromMeta", "unknown acodec: -1")));
    EXPECT_EQ(handler_.videoParams().codec_id, AV_CODEC_ID_NONE);
    EXPECT_EQ(handler_.audioParams().codec_id, AV_CODEC_ID_NONE);
}

TEST_F(FlvHandlerTest, ReportsPositions) {
    meta({{"absolute_time", 1.4e12}});
    meta({{"fragmentPosition", 5}});
    meta({{"fragmentDuration", 6}, {"fragmentPosition", -5}});
    EXPECT_THAT(metadata_, ElementsAre(Metadata{0, 0, 1'400'000'000'000, 0}, Metadata{5, 0, 0, 0},
                                       Metadata{-5, 6, 0, 0}));
}

TEST_F(FlvHandlerTest, ReportsNoPositionWithoutAPositiveValue) {
    meta({{"fragmentPosition", -5}, {"fragmentDuration", 0}});
    meta({{"absolute_time", -1}});
    EXPECT_THAT(metadata_, IsEmpty());
}

TEST_F(FlvHandlerTest, ReconfiguresWithEachMessage) {
    meta(kAvcMeta);
    meta({{"videocodecid", 12}, {"width", 320}});
    EXPECT_EQ(handler_.videoParams().codec_id, AV_CODEC_ID_HEVC);
    EXPECT_EQ(handler_.videoParams().width, 320);
    EXPECT_EQ(handler_.videoParams().height, 0);
}

TEST_F(FlvHandlerTest, GeneratesAacExtradataWithASyncExtensionInThePadding) {
    meta(kAacMeta);
    const AVCodecParameters& a = handler_.audioParams();
    EXPECT_EQ(a.codec_id, AV_CODEC_ID_AAC);
    EXPECT_EQ(a.ch_layout.nb_channels, 2);
    EXPECT_EQ(a.ch_layout.u.mask, std::uint64_t{AV_CH_LAYOUT_STEREO});
    ASSERT_EQ(a.extradata_size, 2);
    Bytes expected{0x12, 0x10, 0x56, 0xE5, 0x00};
    expected.resize(2 + AV_INPUT_BUFFER_PADDING_SIZE);
    EXPECT_EQ(Bytes(a.extradata, a.extradata + expected.size()), expected);
}

TEST_F(FlvHandlerTest, GeneratesAacExtradataOnlyWhileThereIsNone) {
    meta({{"audiocodecid", 175}, {"audiosamplerate", 45000}, {"audiochannels", 2}});
    EXPECT_TRUE(log_.contains(at("generateAacExtraData", "ivalid aac sample_rate: 45000")));
    EXPECT_EQ(handler_.audioParams().extradata, nullptr);
    EXPECT_EQ(handler_.audioParams().sample_rate, 45000);
    meta({{"audiocodecid", 175}, {"audiosamplerate", 48000}, {"audiochannels", 1}});
    EXPECT_EQ(extradata(handler_.audioParams()), (Bytes{0x11, 0x88}));
    meta(kAacMeta);
    EXPECT_EQ(extradata(handler_.audioParams()), (Bytes{0x11, 0x88}));
    EXPECT_EQ(handler_.audioParams().sample_rate, 44100);
}

TEST_F(FlvHandlerTest, SetsTheAudioCodecButNothingElseForBadChannelsOrRate) {
    const std::vector<std::pair<double, double>> rows{{44100, 0}, {44100, 3}, {44100, -1}, {0, 2}, {-1, 2}};
    for (const auto& [rate, channels] : rows) {
        log_.clear();
        FlvHandler handler;
        handler.onScriptData({{"audiocodecid", 175}, {"audiosamplerate", rate}, {"audiochannels", channels}});
        EXPECT_EQ(log_.lines().size(), 2U);
        EXPECT_TRUE(log_.contains(at("handleAudioMetaInfo", "ivalid channels or rate")));
        EXPECT_EQ(handler.audioParams().codec_id, AV_CODEC_ID_AAC);
        EXPECT_EQ(handler.audioParams().sample_rate, 0);
        EXPECT_EQ(handler.audioParams().extradata, nullptr);
    }
}

// --- video

TEST_F(FlvHandlerTest, AnnouncesVideoWithoutMetadataAsH264) {
    video({.payload = kAvcConfig, .timestamp = 0, .key = true, .sequenceHeader = true});
    EXPECT_THAT(log_.lines(),
                ElementsAre(at("onFirstVideoData", "first video frame with sps-value: 1, size: 5"),
                            at("onFirstVideoData", "no video meta info, use default"),
                            at("handleVideoMetaInfo", "vcodec: h264, w: 0, h: 0")));
    EXPECT_THAT(videoExtradata_, ElementsAre(kAvcConfig));
    EXPECT_EQ(handler_.videoParams().codec_id, AV_CODEC_ID_H264);
    EXPECT_EQ(handler_.videoParams().width, 0);
    EXPECT_THAT(videoPackets_, IsEmpty());
}

TEST_F(FlvHandlerTest, EmitsAFirstVideoPacketThatIsAFrame) {
    meta(kAvcMeta);
    log_.clear();
    video({.payload = kIdr, .timestamp = 40, .key = true});
    EXPECT_THAT(log_.lines(),
                ElementsAre(at("onFirstVideoData", "first video frame with sps-value: 0, size: 6"),
                            at("onFirstVideoData", "first video frame is not AVC")));
    EXPECT_THAT(videoExtradata_, ElementsAre(Bytes{}));
    ASSERT_EQ(videoPackets_.size(), 1U);
    EXPECT_EQ(payload(*videoPackets_[0]), kIdr);
    EXPECT_EQ((*videoPackets_[0])->dts, 40);
    EXPECT_EQ((*videoPackets_[0])->pts, AV_NOPTS_VALUE);
    EXPECT_EQ((*videoPackets_[0])->flags & AV_PKT_FLAG_KEY, AV_PKT_FLAG_KEY);
    video({.payload = kSlice, .timestamp = 0xFFFFFFFF});
    ASSERT_EQ(videoPackets_.size(), 2U);
    EXPECT_EQ((*videoPackets_[1])->dts, 4294967295LL);
    EXPECT_EQ((*videoPackets_[1])->flags & AV_PKT_FLAG_KEY, 0);
    EXPECT_EQ(videoExtradata_.size(), 1U) << "announced once";
}

TEST_F(FlvHandlerTest, AnnouncesEvenWhereTheFirstVideoPacketIsDropped) {
    meta(kAvcMeta);
    video({.payload = {0, 0, 0, 2, 6, 1}});
    EXPECT_EQ(videoExtradata_.size(), 1U);
    EXPECT_THAT(videoPackets_, IsEmpty());
}

TEST_F(FlvHandlerTest, PutsALaterConfigurationOnTheNextFrameOnly) {
    meta(kAvcMeta);
    video({.payload = kAvcConfig, .sequenceHeader = true});
    video({.payload = kIdr, .key = true});
    video({.payload = {1, 1, 1}, .sequenceHeader = true});
    video({.payload = {2, 2}, .sequenceHeader = true});
    video({.payload = {0, 0, 0, 2, 6, 1}}); // dropped, so the configuration waits on
    video({.payload = kIdr, .key = true});
    video({.payload = kSlice});
    ASSERT_EQ(videoPackets_.size(), 3U);
    EXPECT_EQ(sideData(*videoPackets_[0]), std::nullopt);
    EXPECT_EQ(sideData(*videoPackets_[1]), (Bytes{2, 2}));
    EXPECT_EQ(sideData(*videoPackets_[2]), std::nullopt);
    EXPECT_EQ(extradata(handler_.videoParams()), kAvcConfig);
    EXPECT_EQ(videoExtradata_.size(), 1U);
}

TEST_F(FlvHandlerTest, DropsPayloadsWithNothingButSupplementalInformation) {
    meta(kAvcMeta);
    video({.payload = kAvcConfig, .sequenceHeader = true});
    video({.payload = {0, 0, 0, 2, 6, 1}});
    EXPECT_THAT(videoPackets_, IsEmpty());
    const Bytes seiAndIdr{0, 0, 0, 2, 6, 1, 0, 0, 0, 2, 0x65, 0x88};
    video({.payload = seiAndIdr, .key = true});
    ASSERT_EQ(videoPackets_.size(), 1U);
    EXPECT_EQ(payload(*videoPackets_[0]), seiAndIdr);
}

TEST_F(FlvHandlerTest, FiltersByTheCodecOfTheMetadata) {
    meta({{"videocodecid", 12}});
    video({.payload = {1}, .sequenceHeader = true});
    video({.payload = {0, 0, 0, 2, 78, 1, 0, 0, 0, 2, 0x26, 1}});
    EXPECT_THAT(videoPackets_, IsEmpty());
    video({.payload = {0, 0, 0, 2, 0x26, 1}, .key = true});
    EXPECT_EQ(videoPackets_.size(), 1U);
}

// --- audio

TEST_F(FlvHandlerTest, TakesAacConfigurationFromTheFirstPacket) {
    meta({{"audiocodecid", 175}, {"audiosamplerate", 48000}, {"audiochannels", 1}});
    log_.clear();
    audio(10, {0x12, 0x10}, true);
    EXPECT_THAT(log_.lines(),
                ElementsAre(at("onFirstAudioData", "first audio frame: fmt: 10, rate: 44000, ch: 2, s16: 1"),
                            at("initAacExtradataFromPacket", "copy from pack: 2 bytes")));
    EXPECT_THAT(audioExtradata_, ElementsAre(Bytes{0x12, 0x10}));
    EXPECT_THAT(audioPackets_, IsEmpty());
    audio(10, {0x21, 0x22}, false, 23);
    ASSERT_EQ(audioPackets_.size(), 1U);
    EXPECT_EQ(payload(*audioPackets_[0]), (Bytes{0x21, 0x22}));
    EXPECT_EQ((*audioPackets_[0])->dts, 23);
    EXPECT_EQ((*audioPackets_[0])->pts, AV_NOPTS_VALUE);
    EXPECT_EQ((*audioPackets_[0])->flags, 0);
    EXPECT_EQ(sideData(*audioPackets_[0]), std::nullopt);
}

TEST_F(FlvHandlerTest, UsesTheGeneratedConfigurationOtherwise) {
    meta(kAacMeta);
    log_.clear();
    audio(10, {0x21});
    EXPECT_TRUE(log_.contains(at("initAacExtradataFromPacket", "using defaults from metadata: 2 bytes")));
    EXPECT_THAT(audioExtradata_, ElementsAre(Bytes{0x12, 0x10}));
    EXPECT_EQ(audioPackets_.size(), 1U) << "a first frame is emitted";
}

TEST_F(FlvHandlerTest, AnnouncesAacWithoutAnyConfiguration) {
    meta({{"audiocodecid", 175}, {"audiosamplerate", 45000}, {"audiochannels", 2}});
    log_.clear();
    audio(10, {0x21});
    EXPECT_TRUE(
        log_.contains(at("initAacExtradataFromPacket", "ERROR: no aac config in packet or in metadata")));
    EXPECT_THAT(audioExtradata_, ElementsAre(Bytes{}));
    EXPECT_EQ(audioPackets_.size(), 1U);
}

TEST_F(FlvHandlerTest, AnnouncesPlainCodecsWithoutExtradata) {
    meta({{"audiocodecid", 0x20}, {"audiosamplerate", 44100}, {"audiochannels", 2}});
    log_.clear();
    audio(2, {0xFF, 0xFB});
    EXPECT_EQ(log_.lines().size(), 1U);
    EXPECT_THAT(audioExtradata_, ElementsAre(Bytes{}));
    EXPECT_EQ(audioPackets_.size(), 1U);
}

TEST_F(FlvHandlerTest, NeverAnnouncesAudioOfAnotherCodecButEmitsWhatFollows) {
    meta({{"audiocodecid", 10}});
    log_.clear();
    audio(10, {0x12, 0x10}, true);
    EXPECT_THAT(
        log_.lines(),
        ElementsAre(at("onFirstAudioData", "first audio frame: fmt: 10, rate: 44000, ch: 2, s16: 1"),
                    at("onFirstAudioData",
                       "codec in metadata is not equal to codec of packet: must: 0, received: 86018")));
    audio(10, {0x21});
    EXPECT_THAT(audioExtradata_, IsEmpty());
    ASSERT_EQ(audioPackets_.size(), 1U);
    EXPECT_EQ(sideData(*audioPackets_[0]), std::nullopt);
}

TEST_F(FlvHandlerTest, LosesAFirstPacketOfAnotherCodec) {
    meta(kAacMeta);
    audio(2, {0xFF, 0xFB});
    EXPECT_TRUE(
        log_.contains(at("onFirstAudioData",
                         "codec in metadata is not equal to codec of packet: must: 86018, received: 86017")));
    EXPECT_THAT(audioPackets_, IsEmpty());
}

TEST_F(FlvHandlerTest, LosesAFirstPacketOfAnUnsupportedCodec) {
    audio(11, {1});
    EXPECT_THAT(log_.lines(),
                ElementsAre(at("onFirstAudioData", "first audio frame: fmt: 11, rate: 44000, ch: 2, s16: 1"),
                            at("acodecFromMeta", "unknown acodec: 11"),
                            at("onFirstAudioData", "codec of packet is unsupported")));
    EXPECT_THAT(audioExtradata_, IsEmpty());
    EXPECT_THAT(audioPackets_, IsEmpty());
}

TEST_F(FlvHandlerTest, PutsALaterAacConfigurationOnTheNextPacketOnly) {
    meta(kAacMeta);
    audio(10, {0x12, 0x10}, true);
    audio(10, {0x11, 0x90}, true);
    audio(10, {0x21});
    audio(10, {0x22});
    ASSERT_EQ(audioPackets_.size(), 2U);
    EXPECT_EQ(sideData(*audioPackets_[0]), (Bytes{0x11, 0x90}));
    EXPECT_EQ(sideData(*audioPackets_[1]), std::nullopt);
}

TEST_F(FlvHandlerTest, CarriesSideDataThatItsOwnerSets) {
    meta(kAacMeta);
    audio(10, {0x21});
    handler_.pendingAudioSideData() = {1, 2, 3};
    audio(10, {0x22});
    ASSERT_EQ(audioPackets_.size(), 2U);
    EXPECT_EQ(sideData(*audioPackets_[1]), (Bytes{1, 2, 3}));
    EXPECT_TRUE(handler_.pendingAudioSideData().empty());
}

TEST_F(FlvHandlerTest, NeedsNoCallbacks) {
    FlvHandler handler;
    handler.onScriptData(
        {{"absolute_time", 1}, {"audiocodecid", 175}, {"audiosamplerate", 44100}, {"audiochannels", 2}});
    flv::VideoPacket frame;
    frame.data = kIdr.data();
    frame.size = static_cast<std::uint32_t>(kIdr.size());
    frame.valid = true;
    handler.onVideoTag(frame);
    handler.onVideoTag(frame);
    flv::AudioPacket sound;
    sound.data = kIdr.data();
    sound.size = 1;
    sound.soundFormat = 10;
    sound.valid = true;
    handler.onAudioTag(sound);
    handler.onAudioTag(sound);
    EXPECT_EQ(handler.videoParams().codec_id, AV_CODEC_ID_H264);
}

TEST_F(FlvHandlerTest, IgnoresAConfigurationThatNoCodecHas) {
    const LogCapture log;
    handler_.onScriptData(kAvcMeta);
    Bytes longest = kAvcConfig;
    longest.resize(FlvHandler::kMaxConfigurationBytes);
    Bytes absurd = longest;
    absurd.push_back(0);
    video({.payload = absurd, .sequenceHeader = true});
    EXPECT_THAT(videoExtradata_, IsEmpty()) << "not even announced by it";
    video({.payload = longest, .sequenceHeader = true});
    EXPECT_THAT(videoExtradata_, ElementsAre(longest));
    video({.payload = absurd, .sequenceHeader = true});
    video({.payload = kIdr, .key = true});
    ASSERT_EQ(videoPackets_.size(), 1U);
    EXPECT_EQ(sideData(*videoPackets_[0]), std::nullopt);
    video({.payload = longest, .sequenceHeader = true});
    video({.payload = kIdr, .key = true});
    ASSERT_EQ(videoPackets_.size(), 2U);
    EXPECT_EQ(sideData(*videoPackets_[1]), longest);
    EXPECT_EQ(log.count("ko_player::FlvHandler: a codec configuration of 65537 bytes is ignored"), 1);
}

TEST_F(FlvHandlerTest, IgnoresAConfigurationOfSoundThatNoCodecHas) {
    handler_.onScriptData(kAacMeta);
    Bytes absurd{0x12, 0x10};
    absurd.resize(FlvHandler::kMaxConfigurationBytes + 1);
    audio(10, {0x12, 0x10}, true);
    audio(10, absurd, true);
    audio(10, {0x21, 0x10});
    ASSERT_EQ(audioPackets_.size(), 1U);
    EXPECT_EQ(sideData(*audioPackets_[0]), std::nullopt);
}

} // namespace
} // namespace ko_player
