#include "Judge.h"

#include "support/ChildProcess.h"

#include <gtest/gtest.h>

namespace mediaworker::test {
namespace {

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
    const PlayedBoth played = play(source, made_);
    const std::string log = "\n" + played.standard.log;
    if (source.hasVideo) {
        EXPECT_GT(played.standard.sent, 0U);
        EXPECT_EQ(played.standard.exitCode, 3) << log;
        EXPECT_EQ(seenComplaint(played.standard), "") << log;
        EXPECT_EQ(played.strict.exitCode, 3) << "\n" << played.strict.log;
    }
    EXPECT_EQ(heardComplaint(source, played.standard), "") << log;
}

TEST_P(Stream, IsExportedInStep) {
    const Source& source = GetParam();
    const TemporaryFolder folder;
    const Exporting standard = exportStream(made_, Reading::Standard, folder / "standard.mp4");
    EXPECT_EQ(exportComplaint(source, standard), "") << "\n" << standard.log;
    const Exporting strict = exportStream(made_, Reading::Strict, folder / "strict.mp4");
    EXPECT_EQ(strict.exitCode, source.strictExportExit) << "\n" << strict.log;
}

INSTANTIATE_TEST_SUITE_P(Of, Stream, testing::ValuesIn(allSources()),
                         [](const auto& instance) { return instance.param.name; });

} // namespace
} // namespace mediaworker::test
