#include "player/LocalFile.h"
#include "FakeHandlers.h"
#include "Packets.h"
#include "support/LogCapture.h"
#include "support/Platform.h"
#include "support/media/Clip.h"

extern "C" {
#include <libavutil/avutil.h>
}

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <limits>
#include <system_error>

namespace ko_player {
namespace {

using namespace std::chrono_literals;

using mediaworker::test::FakeAudioHandler;
using mediaworker::test::FakeVideoHandler;
using mediaworker::test::LogCapture;
using mediaworker::test::makePacket;

TEST(LocalFileTime, IsConvertedToMilliseconds) {
    struct Row {
        AVRational timeBase;
        std::int64_t dts;
        std::int64_t pts;
        std::int64_t expectedDts;
        std::int64_t expectedPts;
    };
    constexpr auto kNone = AV_NOPTS_VALUE;
    const Row rows[] = {
        {{1, 90000}, 90000, 93600, 1000, 93600},
        {{1, 90000}, kNone, 45000, kNone, 500},
        {{1, 90000}, kNone, kNone, kNone, kNone},
        {{1, 1000}, 77, 78, 77, 78},
        {{1, 90000}, 89999, 0, 999, 0},
        {{1, 90000}, -89999, 0, -999, 0},
        {{1001, 30000}, 30, 0, 1001, 0},
        {{1, 1}, std::numeric_limits<std::int64_t>::max(), 0, std::numeric_limits<std::int64_t>::max(), 0},
        {{1, 0}, 0, 0, 0, 0},
    };
    for (const Row& row : rows) {
        const auto packet = makePacket(row.dts, 1);
        (*packet)->pts = row.pts;
        rescaleToMilliseconds(*packet->get(), row.timeBase);
        EXPECT_EQ((*packet)->dts, row.expectedDts);
        EXPECT_EQ((*packet)->pts, row.expectedPts);
    }
}

TEST(LocalFileTime, BothStampsAreConvertedWherePresentationTimesCount) {
    const DecodeRules rules = decodeRulesOf(FlvReading::Standard);
    const auto packet = makePacket(90000, 1);
    (*packet)->pts = 93600;
    rescaleToMilliseconds(*packet->get(), {1, 90000}, rules);
    EXPECT_EQ((*packet)->dts, 1000);
    EXPECT_EQ((*packet)->pts, 1040);
}

class LocalFileTest : public testing::Test {
protected:
    LogCapture log;
    std::shared_ptr<FakeVideoHandler> video = std::make_shared<FakeVideoHandler>();
    std::shared_ptr<FakeAudioHandler> audio = std::make_shared<FakeAudioHandler>();
    Player player{video, audio};
};

TEST_F(LocalFileTest, AMissingFileIsLogged) {
    player.start(Buffering::Off, {1s, 1s});
    player.playFile("/nowhere/at all.mp4");
    EXPECT_TRUE(log.contains("couldn't open file /nowhere/at all.mp4 : No such file or directory"));
}

TEST_F(LocalFileTest, ShowsThePicturesOfAFile) {
    mediaworker::test::ClipSpec spec;
    spec.frames = 5;
    spec.audio = mediaworker::test::AudioCodec::Aac;
    spec.zeroLatency = true;
    const auto file = mediaworker::test::encodedFile(spec);
    player.start(Buffering::Off, {5s, 5s});
    player.playFile(file.string().c_str());
    video->waitForShown(5);
    EXPECT_TRUE(audio->parts().empty()) << "a local file shows its pictures only";
    EXPECT_TRUE(log.contains("ko_player::AudioPipeline::open: AudioPipeline has been openned"));
}

/// Whether the file is still open when the decoder's thread ends.
class OpenFileWatch final : public base::LogSink {
public:
    explicit OpenFileWatch(std::filesystem::path file)
        : file_(std::move(file)), previous_(base::exchangeLogSink(this)) {}
    ~OpenFileWatch() override { base::exchangeLogSink(previous_); }

    void write(std::string_view text) override {
        if (text == "ko_player::QueuedDecoder::decodeTask: is finished\n") {
            ++(isOpen() ? endsBeforeClose_ : endsAfterClose_);
        }
    }
    [[nodiscard]] int endsBeforeClose() const { return endsBeforeClose_; }
    [[nodiscard]] int endsAfterClose() const { return endsAfterClose_; }

private:
    [[nodiscard]] bool isOpen() const {
        std::error_code error;
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            if (std::filesystem::read_symlink(entry.path(), error) == file_) {
                return true;
            }
        }
        return false;
    }

    const std::filesystem::path file_;
    base::LogSink* const previous_;
    std::atomic<int> endsBeforeClose_{0};
    std::atomic<int> endsAfterClose_{0};
};

TEST_F(LocalFileTest, StaysOpenUntilTheDecodersHaveEnded) {
    if (mediaworker::test::platform::kIsWindows) {
        GTEST_SKIP() << "Windows does not tell which files are open";
    }
    mediaworker::test::ClipSpec spec;
    spec.frames = 5;
    spec.audio = mediaworker::test::AudioCodec::Aac;
    spec.zeroLatency = true;
    const auto file = std::filesystem::canonical(mediaworker::test::encodedFile(spec));
    OpenFileWatch watch(file);
    {
        Player other(video, audio);
        other.start(Buffering::Off, {5s, 5s});
        other.playFile(file.string().c_str());
        video->waitForShown(5);
    }
    EXPECT_EQ(watch.endsBeforeClose(), 2);
    EXPECT_EQ(watch.endsAfterClose(), 0);
}

TEST_F(LocalFileTest, ShowsEveryPictureWherePresentationTimesCount) {
    mediaworker::test::ClipSpec spec;
    spec.frames = 10;
    spec.bFrames = 2;
    const auto file = mediaworker::test::encodedFile(spec);
    Player standard(video, audio, base::steadyClock(), {.flv = FlvReading::Standard});
    standard.start(Buffering::Off, {std::chrono::seconds(5), std::chrono::seconds(5)});
    standard.playFile(file.string().c_str());
    video->waitForShown(10);
    const auto shown = video->shown();
    for (std::size_t i = 1; i < shown.size(); ++i) {
        EXPECT_EQ(shown[i] - shown[i - 1], 40);
    }
}

} // namespace
} // namespace ko_player
