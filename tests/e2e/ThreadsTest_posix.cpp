#include "Session.h"

#include "support/ChildProcess.h"
#include "support/Platform.h"
#include "support/servers/HttpServer.h"
#include "support/servers/Pacing.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <ostream>
#include <string>

namespace mediaworker::test {
namespace {

using namespace std::chrono_literals;

constexpr int kMostThreads = 30; ///< more than any worker has

struct Mode {
    const char* name;
    int fewestThreads; ///< of our own and of the libraries, on the way to the first picture or the file's end

    friend void PrintTo(const Mode& mode, std::ostream* out) { *out << mode.name; }
};

const Mode kLive{"Live", 7};
const Mode kFile{"File", 6};
const Mode kExport{"Export", 1};

/// A worker that gets so many threads from the system, and then so many times none.
class WorkerWithFewThreads : public testing::TestWithParam<Mode> {
protected:
    WorkerWithFewThreads() {
        server_.route("/live.flv", pacedHandler(makeFlv(clip_, lasting(clip_, 30s)),
                                                {.burstMs = 1500, .staysOpen = true}));
        server_.route("/clip.flv", pacedHandler(makeFlv(clip_), {.speed = 0}));
    }

    /// Starts one, and waits for its end or for what it is there for.
    struct Run {
        Session session;
        bool works = false;
        std::optional<int> code;
        Run(const Session::Options& options) : session(options) {}
    };
    std::unique_ptr<Run> run(int given, int refused) {
        auto run = std::make_unique<Run>(
            Session::Options{.environment = {{"LD_PRELOAD", THREAD_LIMIT_LIBRARY},
                                             {"ASAN_OPTIONS", "verify_asan_link_order=0:detect_leaks=0"},
                                             {"THREADS_GIVEN", std::to_string(given)},
                                             {"THREADS_REFUSED", std::to_string(refused)}}});
        Session& session = run->session;
        if (GetParam().name == kExport.name) {
            parent::ExportJob job;
            job.url = QString::fromStdString(server_.url("/clip.flv"));
            job.outputPath = QString::fromStdString((folder_ / "out.mp4").string());
            job.durationMs = 1000;
            EXPECT_TRUE(session.worker().start(job));
            run->code = session.waitForExit();
            run->works = run->code == 0;
            return run;
        }
        session.start(GetParam().name == kLive.name ? server_.url("/live.flv")
                                                    : platform::fileUrl(encodedFile(clip_.spec)));
        run->works = session.waitForFrames(5);
        if (!run->works) {
            run->code = session.waitForExit();
        }
        return run;
    }

    static int complaints(const Session& session) {
        return static_cast<int>(std::ranges::count_if(session.log(), [](const LogLine& line) {
            return line.text.find("Resource temporarily unavailable") != std::string::npos;
        }));
    }

    static Clip makeClip() {
        ClipSpec spec;
        spec.audio = AudioCodec::Aac;
        return encode(spec);
    }

    const Clip clip_ = makeClip();
    HttpServer server_;
    const TemporaryFolder folder_;
};

TEST_P(WorkerWithFewThreads, EndsWithOneAndSaysWhy) {
    int given = 0;
    for (; given < kMostThreads; ++given) {
        const auto begin = Clock::now();
        const auto worker = run(given, 1'000'000);
        if (worker->works && complaints(worker->session) == 0) {
            break;
        }
        if (worker->works) {
            continue; // one that it can do without
        }
        ASSERT_EQ(worker->code, 1) << given << "\n" << worker->session.logText();
        EXPECT_GE(complaints(worker->session), 1) << given << "\n" << worker->session.logText();
        EXPECT_LT(Clock::now() - begin, 10s * kSlowness) << given;
    }
    EXPECT_LT(given, kMostThreads);
    EXPECT_GE(given, GetParam().fewestThreads);
}

TEST_P(WorkerWithFewThreads, GoesOnOrEndsWithOneWhereASingleOneIsRefused) {
    int goneOn = 0;
    for (int given = 0; given < kMostThreads; ++given) {
        const auto worker = run(given, 1);
        const bool complains = complaints(worker->session) > 0;
        if (worker->works) {
            goneOn += complains ? 1 : 0;
            if (!complains && given >= GetParam().fewestThreads) {
                break;
            }
        } else {
            ASSERT_EQ(worker->code, 1) << given << "\n" << worker->session.logText();
        }
    }
    // The thread that loads the codecs ahead, and that which bounds the end of an export.
    EXPECT_EQ(goneOn, GetParam().name == kFile.name ? 0 : 1);
}

INSTANTIATE_TEST_SUITE_P(Modes, WorkerWithFewThreads, testing::Values(kLive, kFile, kExport),
                         [](const auto& instance) { return instance.param.name; });

} // namespace
} // namespace mediaworker::test
