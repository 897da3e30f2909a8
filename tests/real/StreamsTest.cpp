#include "Judge.h"

#include "support/ChildProcess.h"

#include <gtest/gtest.h>

namespace mediaworker::test {
namespace {

/// The end of a log, for the message of a failed expectation.
std::string endOf(const std::string& log) {
    constexpr std::size_t kEnough = 3000;
    return "\n" + (log.size() <= kEnough ? log : "[...]" + log.substr(log.size() - kEnough));
}

class Stream : public testing::TestWithParam<Source> {
protected:
    /// Skips the test, visibly, where the program that makes the stream is not there.
    void SetUp() override {
        try {
            made_ = Workshop::get(GetParam().name, GetParam().recipe);
        } catch (const MissingTool& missing) {
            GTEST_SKIP() << missing.what();
        }
    }

    Made made_;
};

TEST_P(Stream, IsSeenWholeAndHeard) {
    const Source& source = GetParam();
    const PlayedBoth played = play(source, made_, source.strictToo ? StrictSound::On : StrictSound::Off);
    const std::string log = endOf(played.standard.log);
    EXPECT_EQ(played.standard.exitCode, 3) << log;
    EXPECT_EQ(played.strict.exitCode, 3) << endOf(played.strict.log);
    if (!source.hasVideo) {
        return; // without pictures there is nothing to wait for, and no promise
    }
    EXPECT_GT(played.standard.sent, 0U);
    EXPECT_EQ(seenComplaint(played.standard), "") << log;
    EXPECT_EQ(heardComplaint(source, played.standard), "") << log;
    EXPECT_EQ(played.standard.log.find("\nsound unavailable: ") != std::string::npos,
              source.sound == Sound::Unplayable)
        << log;
    EXPECT_EQ(played.strict.log.find("sound unavailable"), std::string::npos) << endOf(played.strict.log);
    if (source.strictToo) {
        EXPECT_EQ(seenComplaint(played.strict), "") << endOf(played.strict.log);
        EXPECT_EQ(heardComplaint(source, played.strict), "") << endOf(played.strict.log);
    }
}

TEST_P(Stream, IsExportedInStep) {
    const Source& source = GetParam();
    const TemporaryFolder folder;
    const Exporting standard = exportStream(source, made_, Reading::Standard, folder / "standard.mp4");
    EXPECT_EQ(exportComplaint(source, standard), "") << endOf(standard.log);
    const Exporting strict = exportStream(source, made_, Reading::Strict, folder / "strict.mp4");
    EXPECT_EQ(strict.exitCode, source.strictExportExit) << endOf(strict.log);
    if (source.strictToo) {
        EXPECT_NE(strict.track(/*isVideo*/ false), nullptr) << endOf(strict.log);
    }
}

INSTANTIATE_TEST_SUITE_P(Of, Stream, testing::ValuesIn(allSources()),
                         [](const auto& instance) { return instance.param.name; });

} // namespace
} // namespace mediaworker::test
