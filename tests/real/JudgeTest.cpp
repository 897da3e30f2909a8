#include "Judge.h"
#include "Onset.h"

#include "support/ChildProcess.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace mediaworker::test {
namespace {

/// What the judge makes of files that ffmpeg has copied the stream into, which is what an export is to be
/// like.
class Judge : public testing::TestWithParam<const char*> {
protected:
    static Made get(const std::string& name) {
        const auto sources = allSources();
        const auto source = std::find_if(sources.begin(), sources.end(),
                                         [&](const Source& candidate) { return candidate.name == name; });
        return Workshop::get(source->name, source->recipe);
    }

    std::vector<WrittenTrack> copyWith(const Words& arguments) {
        const Made made = get(GetParam());
        const auto file = folder_ / "copy.mp4";
        Workshop::ffmpeg(joined({{"-i", made.reference.string()}, arguments, {file.string()}}));
        return compare(contentsOf(made), ffprobe(file));
    }

    const TemporaryFolder folder_;
};

TEST_P(Judge, FindsACopyInStep) {
    const auto tracks = copyWith({"-c", "copy"});
    ASSERT_EQ(tracks.size(), 2U);
    for (const WrittenTrack& track : tracks) {
        EXPECT_TRUE(track.isInStep) << track.codec;
        EXPECT_EQ(track.sent, track.written) << track.codec;
    }
}

TEST_P(Judge, FindsLaterSoundOutOfStep) {
    const auto tracks = copyWith({"-c", "copy", "-bsf:a", "setts=ts=TS+SR/100"});
    ASSERT_EQ(tracks.size(), 2U);
    EXPECT_TRUE(tracks[0].isInStep);
    EXPECT_FALSE(tracks[1].isInStep);
}

TEST_P(Judge, FindsDecodeTimesForPresentationTimesOutOfStep) {
    const auto tracks = copyWith({"-c", "copy", "-bsf:v", "setts=pts=DTS"});
    ASSERT_EQ(tracks.size(), 2U);
    EXPECT_FALSE(tracks[0].isInStep);
}

TEST_P(Judge, FindsAMissingPacketOutOfStep) {
    const auto tracks = copyWith({"-c", "copy", "-bsf:a", "noise=drop=eq(n\\,9)"});
    ASSERT_EQ(tracks.size(), 2U);
    EXPECT_FALSE(tracks[1].isInStep);
}

INSTANTIATE_TEST_SUITE_P(Of, Judge,
                         testing::Values("FfmpegBFrames", "FfmpegLateSound", "FfmpegLatePictures",
                                         "FfmpegFrom30Minutes", "EnhancedHevc"),
                         [](const auto& instance) { return std::string(instance.param); });

class JudgeOfConvertedSound : public Judge {
protected:
    /// How much later the tone begins in a file that ffmpeg has made.
    std::chrono::microseconds lateness(const Words& arguments) {
        const Made made = get(GetParam());
        const auto file = folder_ / "converted.mp4";
        Workshop::ffmpeg(
            joined({{"-i", made.flv.string(), "-c:v", "copy", "-c:a", "aac"}, arguments, {file.string()}}));
        return toneBegin(file) - toneBegin(made.flv);
    }
};

TEST_P(JudgeOfConvertedSound, FindsItInStep) {
    EXPECT_LE(std::abs(lateness({}).count()), 10'000);
}

TEST_P(JudgeOfConvertedSound, FindsItLate) {
    EXPECT_NEAR(static_cast<double>(lateness({"-af", "adelay=100"}).count()), 100'000, 10'000);
}

INSTANTIATE_TEST_SUITE_P(Of, JudgeOfConvertedSound, testing::Values("FfmpegALaw", "FfmpegMuLaw"),
                         [](const auto& instance) { return std::string(instance.param); });

} // namespace
} // namespace mediaworker::test
