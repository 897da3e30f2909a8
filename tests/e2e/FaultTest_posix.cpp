#include "Session.h"

#include "support/ChildProcess.h"
#include "support/servers/HttpServer.h"
#include "support/servers/Pacing.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <iterator>
#include <ostream>
#include <string>
#include <tuple>

#include <signal.h> // NOLINT(modernize-deprecated-headers): of POSIX
#include <sys/syscall.h>
#include <unistd.h>

namespace mediaworker::test {
namespace {

using namespace std::chrono_literals;

// In the order that the library in the worker knows.
const char* const kFaults[] = {"AccessViolation", "IllegalInstruction", "StackOverflow", "UncaughtException",
                               "Abort"};

struct Thread {
    const char* name;
    const char* systemName; ///< empty: the main thread

    friend void PrintTo(const Thread& thread, std::ostream* out) { *out << thread.name; }
};

const Thread kThreads[] = {{"Main", ""},
                           {"Link", "link"},
                           {"Watcher", "buffer watcher"},
                           {"Decoder", "video decoder"},
                           {"Output", "video output"},
                           {"AudioDecoder", "audio decoder"},
                           {"AudioOutput", "audio output"}};

/// 0 when the process has no such thread.
pid_t threadOf(pid_t process, const std::string& name) {
    if (name.empty()) {
        return process;
    }
    for (const auto& entry :
         std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task")) {
        if (readFile(entry.path() / "comm") == name + "\n") {
            return std::stoi(entry.path().filename().string());
        }
    }
    return 0;
}

bool makeFault(pid_t process, pid_t thread, int which) {
    siginfo_t info{};
    info.si_signo = SIGUSR1;
    info.si_code = SI_QUEUE;
    info.si_pid = getpid();
    info.si_uid = getuid();
    info.si_value.sival_int = which;
    return syscall(SYS_rt_tgsigqueueinfo, process, thread, SIGUSR1, &info) == 0;
}

class FaultIn : public testing::TestWithParam<std::tuple<Thread, int>> {};

TEST_P(FaultIn, EndsTheWorkerWithOne) {
    const auto& [thread, fault] = GetParam();
    ClipSpec spec;
    spec.audio = AudioCodec::Aac;
    const Clip clip = encode(spec);
    HttpServer server;
    server.route("/live.flv",
                 pacedHandler(makeFlv(clip, lasting(clip, 30s)), {.burstMs = 1500, .staysOpen = true}));
    // A sanitizer would tell about the fault instead.
    Session session({.environment = {{"LD_PRELOAD", FAULTS_LIBRARY},
                                     {"ASAN_OPTIONS", "verify_asan_link_order=0:detect_leaks=0"}}});
    session.start(server.url("/live.flv"));
    ASSERT_TRUE(session.waitForFrames(3)) << session.logText();
    const auto process = static_cast<pid_t>(session.worker().processId());
    const pid_t id = threadOf(process, thread.systemName);
    ASSERT_NE(id, 0);
    ASSERT_TRUE(makeFault(process, id, fault));
    const auto begin = Clock::now();
    EXPECT_EQ(session.waitForExit(), 1) << session.logText();
    EXPECT_LT(Clock::now() - begin, 10s * kSlowness);
}

INSTANTIATE_TEST_SUITE_P(Threads, FaultIn,
                         testing::Combine(testing::ValuesIn(kThreads),
                                          testing::Range(0, static_cast<int>(std::size(kFaults)))),
                         [](const auto& instance) {
                             return std::string(std::get<0>(instance.param).name) +
                                    kFaults[std::get<1>(instance.param)];
                         });

} // namespace
} // namespace mediaworker::test
