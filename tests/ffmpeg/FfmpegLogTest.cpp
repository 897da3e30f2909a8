#include "ffmpeg/FfmpegLog.h"

#include "support/LogCapture.h"

#include <gmock/gmock.h>

extern "C" {
#include <libavutil/log.h>
}

#include <string>

namespace ko_player::ff_wrap {
namespace {

using mediaworker::test::LogCapture;
using testing::ElementsAre;
using testing::IsEmpty;

class FfmpegLog : public testing::Test {
protected:
    FfmpegLog() { installFfmpegLog(); }
    ~FfmpegLog() override { av_log_set_callback(av_log_default_callback); }

    LogCapture log_;
};

TEST_F(FfmpegLog, CollectsALineFromItsPieces) {
    av_log(nullptr, AV_LOG_ERROR, "one %d, ", 1);
    EXPECT_THAT(log_.lines(), IsEmpty());
    av_log(nullptr, AV_LOG_ERROR, "two\n");
    av_log(nullptr, AV_LOG_ERROR, "three\n");
    EXPECT_THAT(log_.lines(), ElementsAre("one 1, two", "three"));
}

TEST_F(FfmpegLog, LeavesOutWhatIsBelowTheLevel) {
    av_log(nullptr, av_log_get_level() + 1, "detail\n");
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(FfmpegLog, EndsALineThatNeverEnds) {
    const std::string piece(500, 'x');
    for (int i = 0; i < 20; ++i) {
        av_log(nullptr, AV_LOG_ERROR, "%s", piece.c_str());
    }
    av_log(nullptr, AV_LOG_ERROR, "\n");
    EXPECT_GE(log_.lines().size(), 2U);
    for (const std::string& line : log_.lines()) {
        EXPECT_LE(line.size(), 5000U);
    }
}

} // namespace
} // namespace ko_player::ff_wrap
