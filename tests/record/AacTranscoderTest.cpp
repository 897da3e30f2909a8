#include "record/AacTranscoder.h"

#include "ffmpeg/ChannelLayout.h"
#include "flv/FillPacket.h"

#include <gmock/gmock.h>

#include <cmath>
#include <numbers>
#include <stdexcept>

extern "C" {
#include <libavcodec/codec_par.h>
#include <libavcodec/packet.h>
}

namespace ko_player {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr int kFrame = 1024; // samples of AAC

ff_wrap::CodecParametersPtr g711(int sampleRate, int channels = 1, AVCodecID codec = AV_CODEC_ID_PCM_ALAW) {
    auto parameters = ff_wrap::makeCodecParameters();
    parameters->codec_type = AVMEDIA_TYPE_AUDIO;
    parameters->codec_id = codec;
    parameters->sample_rate = sampleRate;
    parameters->ch_layout = ff_wrap::layoutFromMask(0, channels);
    return parameters;
}

/// Takes G.711 at 8 kHz and collects what comes out.
class Transcoding {
public:
    explicit Transcoding(const AVCodecParameters& source) : transcoder_(source) {}

    /// Samples of all channels, one byte each.
    Transcoding& take(std::int64_t ms, std::size_t samples) {
        const std::vector<std::uint8_t> bytes(samples, 0x55);
        std::vector<std::uint8_t> noSideData;
        ff_wrap::Packet packet;
        FillPacket(packet, bytes.data(), static_cast<std::uint32_t>(samples), ms, noSideData, 0);
        transcoder_.take(*packet.get(), sink());
        return *this;
    }
    /// 40 ms each at 8 kHz, from `fromMs` up to `toMs`.
    Transcoding& takeSteadily(std::int64_t fromMs, std::int64_t toMs) {
        for (std::int64_t ms = fromMs; ms < toMs; ms += 40) {
            take(ms, 320);
        }
        return *this;
    }
    std::vector<std::int64_t> finish() {
        transcoder_.finish(sink());
        return stamps_;
    }
    [[nodiscard]] const std::vector<std::int64_t>& stamps() const { return stamps_; }
    [[nodiscard]] const AVCodecParameters& parameters() const { return transcoder_.parameters(); }

private:
    AacTranscoder::Sink sink() {
        return [this](std::shared_ptr<ff_wrap::Packet> packet) {
            EXPECT_GT((*packet)->size, 0);
            stamps_.push_back((*packet)->pts);
        };
    }

    AacTranscoder transcoder_;
    std::vector<std::int64_t> stamps_;
};

TEST(AacTranscoder, IsForG711) {
    EXPECT_TRUE(AacTranscoder::isNeededFor(AV_CODEC_ID_PCM_ALAW));
    EXPECT_TRUE(AacTranscoder::isNeededFor(AV_CODEC_ID_PCM_MULAW));
    EXPECT_FALSE(AacTranscoder::isNeededFor(AV_CODEC_ID_AAC));
    EXPECT_FALSE(AacTranscoder::isNeededFor(AV_CODEC_ID_MP3));
    EXPECT_FALSE(AacTranscoder::isNeededFor(AV_CODEC_ID_NONE));
}

struct RateCase {
    int source;
    int aac;
};

void PrintTo(const RateCase& row, std::ostream* out) {
    *out << row.source;
}

class AacRateOf : public testing::TestWithParam<RateCase> {};

TEST_P(AacRateOf, IsTheSourcesOrTheNext) {
    for (const int channels : {1, 2}) {
        Transcoding transcoding(*g711(GetParam().source, channels, AV_CODEC_ID_PCM_MULAW));
        const AVCodecParameters& aac = transcoding.parameters();
        EXPECT_EQ(aac.codec_id, AV_CODEC_ID_AAC);
        EXPECT_EQ(aac.sample_rate, GetParam().aac);
        EXPECT_EQ(aac.ch_layout.nb_channels, 1);
        EXPECT_GT(aac.extradata_size, 0);
        EXPECT_LE(aac.bit_rate, 64'000);
        // One second, whatever the rate: the frames that it takes, and the one that the encoder begins with.
        transcoding.take(0, static_cast<std::size_t>(GetParam().source * channels));
        const double frames = std::ceil(static_cast<double>(GetParam().aac) / kFrame);
        EXPECT_NEAR(static_cast<double>(transcoding.finish().size()), frames + 1, 1);
    }
}

INSTANTIATE_TEST_SUITE_P(Rates, AacRateOf,
                         testing::Values(RateCase{4000, 7350}, RateCase{7000, 7350}, RateCase{7350, 7350},
                                         RateCase{8000, 8000}, RateCase{8001, 11025}, RateCase{11025, 11025},
                                         RateCase{16000, 16000}, RateCase{44000, 44100},
                                         RateCase{48000, 48000}, RateCase{96000, 96000},
                                         RateCase{192000, 96000}),
                         testing::PrintToStringParamName());

TEST(AacTranscoder, CannotBeMadeForSoundWithoutARate) {
    EXPECT_THROW(AacTranscoder{*g711(0)}, std::runtime_error);
}

/// The encoder's first packet stands one frame in front of the sound, which decoders drop.
TEST(AacTranscoder, PutsTheSoundWhereItWas) {
    Transcoding transcoding(*g711(8000));
    EXPECT_THAT(transcoding.takeSteadily(500, 980).finish(),
                ElementsAre(4000 - kFrame, 4000, 4000 + kFrame, 4000 + 2 * kFrame, 4000 + 3 * kFrame));
}

TEST(AacTranscoder, StaysExactWhereStampsAreRounded) {
    Transcoding transcoding(*g711(8000));
    for (int i = 0; i < 100; ++i) { // 300 samples are 37.5 ms
        transcoding.take(i * 75 / 2, 300);
    }
    const auto stamps = transcoding.finish();
    ASSERT_EQ(stamps.size(), 31U);
    for (std::size_t i = 0; i < stamps.size(); ++i) {
        EXPECT_EQ(stamps[i], (static_cast<std::int64_t>(i) - 1) * kFrame);
    }
}

TEST(AacTranscoder, KeepsAGap) {
    Transcoding transcoding(*g711(8000));
    const auto stamps = transcoding.takeSteadily(0, 1000).takeSteadily(60'000, 61'000).finish();
    // 8000 samples, silence up to the end of the eighth frame, and then nothing until the sound goes on.
    constexpr std::int64_t kLater = 480'000;
    EXPECT_THAT(stamps, ElementsAre(-1024, 0, 1024, 2048, 3072, 4096, 5120, 6144, 7168, kLater, kLater + 1024,
                                    kLater + 2048, kLater + 3072, kLater + 4096, kLater + 5120, kLater + 6144,
                                    kLater + 7168));
}

TEST(AacTranscoder, KeepsASmallGap) {
    Transcoding transcoding(*g711(8000));
    // What lacks of the first frame is silence; the sound goes on at sample 1600, where it was.
    const auto stamps = transcoding.takeSteadily(0, 80).takeSteadily(200, 480).finish();
    EXPECT_THAT(stamps, ElementsAre(-1024, 0, 1600, 2624, 3648));
}

TEST(AacTranscoder, TakesJitterForOnePiece) {
    Transcoding transcoding(*g711(8000));
    const auto stamps = transcoding.takeSteadily(0, 80).takeSteadily(140, 420).finish();
    EXPECT_THAT(stamps, ElementsAre(-1024, 0, 1024, 2048));
}

TEST(AacTranscoder, DropsWhatComesASecondTime) {
    Transcoding transcoding(*g711(8000));
    transcoding.takeSteadily(0, 1040).takeSteadily(0, 960).takeSteadily(1040, 2080);
    EXPECT_EQ(transcoding.finish().size(), 1U + 17); // of 2080 ms
}

TEST(AacTranscoder, GivesWhatIsCompleteAtOnce) {
    Transcoding transcoding(*g711(8000));
    transcoding.take(0, 1023);
    EXPECT_THAT(transcoding.stamps(), IsEmpty());
    EXPECT_THAT(transcoding.finish(), ElementsAre(-1024, 0));
}

TEST(AacTranscoder, FinishesWithoutSound) {
    Transcoding transcoding(*g711(8000));
    EXPECT_THAT(transcoding.finish(), IsEmpty());
}

TEST(AacTranscoder, TakesStampsFromAnywhere) {
    constexpr std::int64_t kDays = 20LL * 86'400'000;
    for (const std::int64_t start : {kDays, -kDays}) {
        Transcoding transcoding(*g711(8000));
        const auto stamps = transcoding.takeSteadily(start, start + 1000).finish();
        ASSERT_FALSE(stamps.empty());
        EXPECT_EQ(stamps.front(), start * 8 - kFrame);
    }
}

} // namespace
} // namespace ko_player
