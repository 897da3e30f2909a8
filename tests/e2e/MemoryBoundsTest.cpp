#include "Session.h"

#include "support/ChildProcess.h"
#include "support/FlvWriter.h"
#include "support/Platform.h"
#include "support/servers/HttpServer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <iostream>
#include <string>
#include <vector>

namespace mediaworker::test {
namespace {

using namespace std::chrono_literals;
using Bytes = std::vector<std::uint8_t>;

/// A worker with small pictures never needs more, whatever it is sent. A good stream stays below 60 MB.
constexpr std::int64_t kLimitBytes = 200'000'000;
constexpr std::uint32_t kStampMs = 2000; ///< behind the clip
constexpr std::size_t kMegabyte = std::size_t{1} << 20U;
// Bytes of codec configurations: nearly the longest that is taken, and one that is not.
constexpr std::size_t kLong = 60'000;
constexpr std::size_t kAbsurd = 4'000'000;

/// What keeps the worker from showing what it is sent.
enum class Hold { Pause, FutureStamps, Buffering, Export };

struct Row {
    const char* name;
    AudioCodec sound;
    const char* options; ///< of the worker
    /// What is sent over and over.
    std::function<void(FlvWriter&, const Clip&)> addTags;
    std::size_t mostBytes; ///< to be sent, if the worker takes them
    Hold hold = Hold::Pause;
    bool sendsSound = true; ///< in the clip; it is announced anyway
};

void PrintTo(const Row& row, std::ostream* out) {
    *out << row.name;
}

/// One NAL unit of one byte: nothing that a decoder makes a picture of.
void addTinyPicture(FlvWriter& writer) {
    const Bytes picture{0, 0, 0, 1, 0x41};
    writer.video(kStampMs, VideoCodec::Avc, false, FlvWriter::kFrames, picture);
}

void addTinyPictures(FlvWriter& writer, const Clip&) {
    for (int i = 0; i < 40'000; ++i) {
        addTinyPicture(writer);
    }
}

void addTinySound(FlvWriter& writer, const Clip& clip) {
    const Bytes sample{0xD5};
    for (int i = 0; i < 50'000; ++i) {
        writer.audio(kStampMs, audioHeaderByteOf(clip.spec), sample);
    }
}

void addLongSound(FlvWriter& writer, const Clip& clip) {
    writer.audio(kStampMs, audioHeaderByteOf(clip.spec), Bytes(4'000'000, 0xD5));
}

/// The clip's configuration with nonsense behind it, other nonsense each time.
Bytes longer(Bytes configuration, std::size_t size, std::uint8_t fill) {
    configuration.resize(size, fill);
    return configuration;
}

template <std::size_t size>
void addVideoConfigurations(FlvWriter& writer, const Clip& clip) {
    for (std::size_t bytes = 0; bytes < kAbsurd; bytes += size) {
        writer.video(kStampMs, VideoCodec::Avc, true, FlvWriter::kSequenceHeader,
                     longer(clip.videoConfig, size, static_cast<std::uint8_t>(bytes / size)));
        addTinyPicture(writer);
    }
}

const Bytes kSilence{0x21, 0x10, 0x04, 0x60, 0x8C, 0x1C}; ///< a frame of AAC in stereo

template <std::size_t size>
void addSoundConfigurations(FlvWriter& writer, const Clip& clip) {
    for (std::size_t bytes = 0; bytes < kAbsurd; bytes += size) {
        writer.aac(kStampMs, FlvWriter::kSequenceHeader,
                   longer(clip.audioConfig, size, static_cast<std::uint8_t>(bytes / size)));
        writer.aac(kStampMs, FlvWriter::kFrames, kSilence);
    }
}

class MemoryBounds : public testing::TestWithParam<Row> {
protected:
    void SetUp() override {
        if (!kMeasuresMemory || platform::kIsWindows) {
            GTEST_SKIP() << "the memory of a process is not measured here";
        }
        server_.route("/live.flv", [this](HttpResponse& response) { serve(response); });
    }

    void serve(HttpResponse& response) {
        const Row& row = GetParam();
        response.send(clipOf(row));
        FlvWriter writer;
        row.addTags(writer, clip_);
        const Bytes tags = writer.take();
        while (!mayGoOn_ && response.sleepMs(5)) {
        }
        while (sent_ < row.mostBytes && response.send(tags)) {
            sent_ += tags.size();
        }
        response.waitForClientToLeave();
    }

    [[nodiscard]] Bytes clipOf(const Row& row) const {
        constexpr std::int64_t kTooShortToPlayMs = 400; // buffering lasts a second of video
        FlvWriter writer;
        for (const TimedBytes& piece : makeFlv(clip_)) {
            const bool isSound = piece.kind == PieceKind::Audio;
            if ((!isSound || row.sendsSound) &&
                (row.hold != Hold::Buffering || piece.ms < kTooShortToPlayMs)) {
                writer.raw(piece.bytes);
            }
        }
        if (row.hold == Hold::FutureStamps) {
            constexpr std::uint32_t kStepMs = 1100; // a longer one is not waited for
            for (std::uint32_t i = 1; i <= 10; ++i) {
                writer.video(kStampMs + i * kStepMs, VideoCodec::Avc, true, FlvWriter::kFrames,
                             clip_.video[0].bytes);
            }
        }
        return writer.take();
    }

    void start(Session& session) {
        const Row& row = GetParam();
        const std::string url = server_.url("/live.flv");
        if (row.hold == Hold::Export) {
            parent::ExportJob job;
            job.url = QString::fromStdString(url);
            job.outputPath = QString::fromStdString((folder_ / "out.mp4").string());
            job.durationMs = 1'000'000;
            ASSERT_TRUE(session.worker().start(job));
        } else {
            session.start(url);
        }
        if (row.hold == Hold::Pause || row.hold == Hold::FutureStamps) {
            ASSERT_TRUE(session.waitForFrames(1)) << session.logText();
        } else {
            ASSERT_TRUE(session.waitUntil([&] { return session.connectedPid().has_value(); }));
        }
        if (row.hold == Hold::Pause) {
            ASSERT_TRUE(session.worker().pause());
            ASSERT_TRUE(session.waitForLine("ko_player::Player::setPause: paused: 1"));
        }
    }

    /// Until the worker has taken what it takes. The most memory that it had.
    std::int64_t peakWhileItIsSent(Session& session) {
        constexpr auto kStalled = 3s;
        std::int64_t peak = 0;
        std::size_t before = 0;
        auto progressed = Clock::now();
        mayGoOn_ = true;
        while (peak < kLimitBytes && Clock::now() < progressed + kStalled && !session.endedAt()) {
            session.listen(20ms);
            peak = std::max(peak, platform::peakResidentBytes(session.worker().processId()));
            if (sent_ != before) {
                before = sent_;
                progressed = Clock::now();
            }
        }
        return peak;
    }

    const Clip clip_ = [] {
        ClipSpec spec;
        spec.heightPx = 240;
        spec.audio = GetParam().sound;
        if (spec.audio == AudioCodec::ALaw) {
            spec.sampleRate = 8000;
            spec.channels = 1;
        }
        return encode(spec);
    }();
    std::atomic<bool> mayGoOn_{false};
    std::atomic<std::size_t> sent_{0};
    TemporaryFolder folder_;
    HttpServer server_;
};

TEST_P(MemoryBounds, HoldWhateverIsSent) {
    Session session(
        {.environment = {{parent::kOptionsVariable, GetParam().options}}, .readsPictures = false});
    ASSERT_NO_FATAL_FAILURE(start(session));
    const std::int64_t peak = peakWhileItIsSent(session);
    EXPECT_LT(peak, kLimitBytes) << sent_ << " bytes were sent";
    EXPECT_GT(peak, 0);
    // Without pictures that can be shown it may have ended by its time-out, an export by its own bound.
    const int end = GetParam().hold == Hold::Export ? 1 : 2;
    EXPECT_EQ(session.endedAt() ? session.waitForExit() : end, end) << session.logText();
    RecordProperty("peak_bytes", std::to_string(peak));
    std::cout << GetParam().name << ": " << peak / 1'000'000 << " MB of memory, sent " << sent_ / 1'000'000
              << " MB\n";
}

const std::vector<Row> kRows = {
    {"TinyPictures", AudioCodec::None, "", addTinyPictures, 60 * kMegabyte},
    {"TinyPicturesInTheFuture", AudioCodec::None, "", addTinyPictures, 60 * kMegabyte, Hold::FutureStamps},
    {"TinyPicturesWhileBuffering", AudioCodec::None, "", addTinyPictures, 60 * kMegabyte, Hold::Buffering},
    {"TinySound", AudioCodec::ALaw, "", addTinySound, 18 * kMegabyte},
    {"TinySoundInStep", AudioCodec::ALaw, "sync=on", addTinySound, 60 * kMegabyte},
    {"LongConfigurations", AudioCodec::None, "", addVideoConfigurations<kLong>, 300 * kMegabyte},
    {"AbsurdConfigurations", AudioCodec::None, "", addVideoConfigurations<kAbsurd>, 300 * kMegabyte},
    {"LongSoundConfigurations", AudioCodec::Aac, "", addSoundConfigurations<kLong>, 300 * kMegabyte},
    {"AbsurdSoundConfigurations", AudioCodec::Aac, "", addSoundConfigurations<kAbsurd>, 300 * kMegabyte},
    {"LongSound", AudioCodec::ALaw, "", addLongSound, 400 * kMegabyte},
    {"LongSoundInStep", AudioCodec::ALaw, "sync=on", addLongSound, 400 * kMegabyte},
    {"ExportOfTinyPictures", AudioCodec::None, "", addTinyPictures, 100 * kMegabyte, Hold::Export},
    {"ExportOfLongConfigurations", AudioCodec::Aac, "", addVideoConfigurations<kLong>, 300 * kMegabyte,
     Hold::Export, false},
    {"ExportOfAbsurdConfigurations", AudioCodec::Aac, "", addVideoConfigurations<kAbsurd>, 300 * kMegabyte,
     Hold::Export, false},
    {"ExportOfAbsurdConfigurationsBehindSound", AudioCodec::Aac, "", addVideoConfigurations<kAbsurd>,
     300 * kMegabyte, Hold::Export},
    {"ExportOfLongSound", AudioCodec::ALaw, "flv=standard", addLongSound, 100 * kMegabyte, Hold::Export},
};

INSTANTIATE_TEST_SUITE_P(All, MemoryBounds, testing::ValuesIn(kRows),
                         [](const auto& instance) { return instance.param.name; });

} // namespace
} // namespace mediaworker::test
