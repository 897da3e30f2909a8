#include "Session.h"

#include "support/ChildProcess.h"
#include "support/Platform.h"
#include "support/servers/HttpServer.h"
#include "support/servers/Pacing.h"
#include "support/servers/PulseSink.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <map>
#include <ostream>
#include <set>
#include <string>

namespace mediaworker::test {
namespace {

using namespace std::chrono_literals;
using testing::Contains;
using testing::Each;
using testing::HasSubstr;

/// How each attack ends, by the number of the error.
using Outcome = std::map<std::string, int>;

/// What attacks_linux.cpp has to fail with in a worker that plays a stream.
const Outcome kRefusals{
    // by Landlock
    {"read-secret", EACCES},
    {"list-home", EACCES},
    {"write-home", EACCES},
    {"write-beside", EACCES},
    {"overwrite-beside", EACCES},
    {"write-temporary", EACCES},
    {"remove", EACCES},
    {"rename", EACCES},
    {"make-folder", EACCES},
    {"read-parent-environment", EACCES},
    // by the filter of system calls
    {"truncate", EPERM},
    {"change-mode", EPERM},
    {"execute", EPERM},
    {"fork", EPERM},
    {"clone3", ENOSYS},
    {"ptrace", EPERM},
    {"read-parent-memory", EPERM},
    {"signal-parent", EPERM},
    {"signal-all", EPERM},
    {"raw-socket", EPERM},
    {"packet-socket", EPERM},
    {"ping-socket", EPERM},
    {"vsock", EPERM},
    {"netlink-audit", EPERM},
    {"listen", EPERM},
    {"mount", EPERM},
    {"keyctl", EPERM},
    {"bpf", EPERM},
    {"io_uring", EPERM},
    {"unshare", EPERM},
    {"set-namespace", EPERM},
    {"userfaultfd", EPERM},
    {"performance-counters", EPERM},
    {"load-module", EPERM},
    {"new-kernel", EPERM},
    {"shared-memory", EPERM},
    {"type-into-terminal", EPERM},
    {"type-with-high-bits", EPERM},
    {"family-with-high-bits", EPERM},
#ifdef __x86_64__
    {"calls-of-x32", EPERM},
#endif
    // and what is not to be refused
    {"allowed-tcp", 0},
    {"allowed-names", 0},
    {"allowed-link", 0},
    {"allowed-library", 0},
    {"allowed-thread", 0},
    {"allowed-signal-to-self", 0},
    {"allowed-output", ENOENT}, // not an export
};

Outcome outcomeIn(const Session& session) {
    Outcome outcome;
    for (const LogLine& line : session.log()) {
        const std::string begin = "attack ";
        const std::size_t colon = line.text.find(": ");
        if (line.text.starts_with(begin) && colon != std::string::npos) {
            outcome[line.text.substr(begin.size(), colon - begin.size())] =
                std::stoi(line.text.substr(colon + 2));
        }
    }
    return outcome;
}

class Confinement : public testing::Test {
protected:
    Confinement() {
        for (const char* name : {"home/.ssh", "out"}) {
            std::filesystem::create_directories(folder_ / name);
        }
        for (const char* name : {"home/.ssh/id_test", "out/film.mp4"}) {
            writeFile(folder_ / name, "secret");
        }
        server_.route("/live.flv", pacedHandler(makeFlv(clip_, lasting(clip_, 60s)), {.burstMs = 1500}));
    }

    void SetUp() override {
        if (const auto obstacle = confinementObstacle()) {
            GTEST_SKIP() << *obstacle;
        }
    }

    /// A worker in whose thread of that name everything is tried.
    Session::Options attackedIn(const std::string& thread, const std::string& options) const {
        std::vector<std::pair<std::string, std::string>> environment{
            {"LD_PRELOAD", ATTACKS_LIBRARY},
            {"ASAN_OPTIONS", "verify_asan_link_order=0:detect_leaks=0"},
            {"HOME", (folder_ / "home").string()},
            {"MW_ATTACKED_FOLDER", folder_.path().string()},
            {"MW_ATTACKING_THREAD", thread}};
        if (!options.empty()) {
            environment.emplace_back("MEDIAWORKER_OPTIONS", options);
        }
        return {.environment = environment};
    }

    const Clip clip_ = encode(ClipSpec{});
    TemporaryFolder folder_;
    HttpServer server_;
};

class ConfinedThread : public Confinement, public testing::WithParamInterface<const char*> {};

TEST_P(ConfinedThread, CanDoNothingButItsWork) {
    Session session(attackedIn(GetParam(), "sandbox=required"));
    session.start(server_.url("/live.flv"));
    ASSERT_TRUE(session.waitForLine("attack is over")) << session.logText();
    EXPECT_EQ(outcomeIn(session), kRefusals) << session.logText();
    EXPECT_TRUE(session.waitForFrames(3)) << "and it plays on: " << session.logText();
    EXPECT_EQ(readFile(folder_ / "out/film.mp4"), "secret");
}

INSTANTIATE_TEST_SUITE_P(Threads, ConfinedThread,
                         testing::Values("main", "link", "buffer watcher", "codec loader", "video decoder",
                                         "video output"),
                         [](const auto& instance) {
                             std::string name = instance.param;
                             std::erase(name, ' ');
                             return name;
                         });

TEST_F(Confinement, IsWhatRefusesThat) {
    auto options = attackedIn("video output", "");
    options.environment.emplace_back("MW_ATTACK_SPARES_PROGRAM", "1");
    Session session(options);
    session.start(server_.url("/live.flv"));
    ASSERT_TRUE(session.waitForLine("attack is over")) << session.logText();
    Outcome outcome = outcomeIn(session);
    for (const char* name : {"read-secret", "list-home", "write-home", "write-beside", "fork",
                             "signal-parent", "read-parent-environment", "remove"}) {
        EXPECT_EQ(outcome[name], 0) << name;
    }
    for (const char* name : {"listen", "set-namespace", "keyctl", "io_uring", "bpf"}) {
        EXPECT_NE(outcome[name], EPERM) << name << ": these arguments are wrong, and nothing else";
    }
}

TEST_F(Confinement, LetsAnExportWriteItsFileAndNoOther) {
    auto options = attackedIn("main", "sandbox=required");
    Session session(options);
    parent::ExportJob job;
    job.url = QString::fromStdString(server_.url("/live.flv"));
    job.outputPath = QString::fromStdString((folder_ / "out/out.mp4").string());
    job.durationMs = 1000;
    ASSERT_TRUE(session.worker().start(job));
    EXPECT_EQ(session.waitForExit(), 0) << session.logText();
    Outcome expected = kRefusals;
    expected["allowed-output"] = 0;
    EXPECT_EQ(outcomeIn(session), expected) << session.logText();
    EXPECT_EQ(readFile(folder_ / "out/film.mp4"), "secret");
    EXPECT_FALSE(std::filesystem::exists(folder_ / "out/other.mp4"));
    EXPECT_GT(std::filesystem::file_size(folder_ / "out/out.mp4"), 1000U);
}

TEST_F(Confinement, LetsALocalFileHaveNoNetwork) {
    Session session(attackedIn("video output", "sandbox=required"));
    session.start(platform::fileUrl(encodedFile(ClipSpec{})));
    ASSERT_TRUE(session.waitForLine("attack is over")) << session.logText();
    Outcome expected = kRefusals;
    expected["allowed-tcp"] = EPERM;
    expected["allowed-names"] = EPERM;
    EXPECT_EQ(outcomeIn(session), expected) << session.logText();
    ASSERT_EQ(session.waitForExit(), 2) << session.logText();
    EXPECT_EQ(session.shown().size(), clip_.video.size());
}

/// The values of a field of each thread's state.
std::multiset<std::string> ofAllThreads(qint64 pid, const std::string& field) {
    std::multiset<std::string> values;
    for (const auto& thread : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task")) {
        std::ifstream status(thread.path() / "status");
        for (std::string line; std::getline(status, line);) {
            if (line.starts_with(field)) {
                values.insert(line.substr(field.size()));
            }
        }
    }
    return values;
}

TEST_F(Confinement, CoversTheThreadsOfLibrariesAsWell) {
    ClipSpec spec;
    spec.audio = AudioCodec::Aac;
    const Clip clip = encode(spec);
    server_.route("/sound.flv", pacedHandler(makeFlv(clip, lasting(clip, 60s)), {.burstMs = 1500}));
    const PulseSink sink;
    auto environment = sink.environment();
    environment.emplace_back("MEDIAWORKER_OPTIONS", "sandbox=required");
    Session session({.environment = environment});
    session.start(server_.url("/sound.flv"));
    ASSERT_TRUE(session.waitForFrames(3)) << session.logText();
    ASSERT_TRUE(session.worker().setVolume(50));
    ASSERT_TRUE(
        session.waitForLine("Trying to start audio device: audio device has been sucessfully started"))
        << session.logText();
    ASSERT_TRUE(session.waitUntil([&] { return sink.playingStreams() == 1; })) << session.logText();
    const auto filters = ofAllThreads(session.worker().processId(), "Seccomp:\t");
    EXPECT_GT(filters.size(), 8U) << "HTTP, the sound server's client, and ours";
    EXPECT_THAT(filters, Each(std::string("2")));
    EXPECT_THAT(ofAllThreads(session.worker().processId(), "NoNewPrivs:\t"), Each(std::string("1")));
}

/// Of a worker whose kernel is older.
class OldKernel : public Confinement {
protected:
    Session::Options playing(const std::string& options, const std::string& variable,
                             const std::string& value) const {
        auto result = attackedIn("video output", options);
        result.environment.front().second = ATTACKS_LIBRARY ":" OLD_KERNEL_LIBRARY;
        result.environment.emplace_back(variable, value);
        return result;
    }
};

class OldLandlock : public OldKernel, public testing::WithParamInterface<const char*> {};

TEST_P(OldLandlock, RefusesTheSame) {
    Session session(playing("sandbox=required", "MW_LANDLOCK_VERSION", GetParam()));
    session.start(server_.url("/live.flv"));
    ASSERT_TRUE(session.waitForLine("attack is over")) << session.logText();
    EXPECT_EQ(outcomeIn(session), kRefusals) << session.logText();
    EXPECT_TRUE(session.waitForFrames(3)) << "and it plays on: " << session.logText();
}

INSTANTIATE_TEST_SUITE_P(Versions, OldLandlock, testing::Values("1", "2", "3", "4", "5"),
                         [](const auto& instance) { return std::string("Version").append(instance.param); });

struct LackingCase {
    const char* name;
    const char* variable;
    const char* line;         ///< its beginning
    const char* stillRefused; ///< by what there is
    int error;
    const char* noLongerRefused;

    friend void PrintTo(const LackingCase& lacking, std::ostream* out) { *out << lacking.name; }
};

class KernelWithout : public OldKernel, public testing::WithParamInterface<LackingCase> {};

TEST_P(KernelWithout, IsToldAndTheRestIsInForce) {
    auto options = playing("sandbox=on", GetParam().variable, "0");
    options.environment.emplace_back("MW_ATTACK_SPARES_PROGRAM", "1");
    Session session(options);
    session.start(server_.url("/live.flv"));
    ASSERT_TRUE(session.waitForLine("attack is over")) << session.logText();
    EXPECT_THAT(session.logText(), HasSubstr(GetParam().line));
    Outcome outcome = outcomeIn(session);
    EXPECT_EQ(outcome[GetParam().stillRefused], GetParam().error) << session.logText();
    EXPECT_EQ(outcome[GetParam().noLongerRefused], 0) << session.logText();
    EXPECT_TRUE(session.waitForFrames(3)) << session.logText();
}

TEST_P(KernelWithout, EndsAWorkerThatRequiresIt) {
    Session session(playing("sandbox=required", GetParam().variable, "0"));
    session.start(server_.url("/live.flv"));
    EXPECT_EQ(session.waitForExit(), 1) << session.logText();
    EXPECT_THAT(session.logText(), HasSubstr(GetParam().line));
    EXPECT_TRUE(session.hasLine("sandbox is required, exit")) << session.logText();
    EXPECT_EQ(server_.exchanges().size(), 0U) << "before anything is read";
}

INSTANTIATE_TEST_SUITE_P(
    Any, KernelWithout,
    testing::Values(
        LackingCase{"Landlock", "MW_LANDLOCK_VERSION",
                    "sandbox: this system does not have Landlock (the kernel: Function not implemented)",
                    "fork", EPERM, "read-secret"},
        LackingCase{"Filters", "MW_NO_SECCOMP",
                    "sandbox: this system does not have the filter of system calls (", "read-secret", EACCES,
                    "fork"}),
    [](const auto& instance) { return std::string(instance.param.name); });

TEST_F(Confinement, IsNotThereWithoutTheOption) {
    Session session({.environment = {{"MEDIAWORKER_OPTIONS", "sandbox=off"}}});
    session.start(server_.url("/live.flv"));
    ASSERT_TRUE(session.waitForFrames(3)) << session.logText();
    EXPECT_THAT(ofAllThreads(session.worker().processId(), "NoNewPrivs:\t"), Each(std::string("0")));
}

} // namespace
} // namespace mediaworker::test
