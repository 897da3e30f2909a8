#include "CtlProgram.h"

#include "support/servers/PulseSink.h"

#include <array>
#include <csignal>
#include <cstdlib>

#include <fcntl.h>
#include <unistd.h>

namespace mediaworker::test {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

/// A terminal of our own, of which the program has the other end.
class Terminal {
public:
    Terminal() : master_(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK)) {
        if (isThere() && ::grantpt(master_) == 0 && ::unlockpt(master_) == 0) {
            path_ = ::ptsname(master_);
            otherEnd_ = ::open(path_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
        }
    }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;
    ~Terminal() {
        ::close(otherEnd_);
        ::close(master_);
    }

    [[nodiscard]] bool isThere() const { return master_ >= 0; }
    [[nodiscard]] std::string path() const { return path_; }

    /// What was shown: it arrives when the system gets round to it.
    [[nodiscard]] std::string readUntil(const std::string& end) const {
        std::string shown;
        EXPECT_TRUE(eventually([&] {
            std::array<char, 4096> bytes{};
            const auto size = ::read(master_, bytes.data(), bytes.size());
            shown.append(bytes.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
            return shown.find(end) != std::string::npos;
        })) << shown;
        return shown;
    }

private:
    int master_;
    int otherEnd_ = -1; ///< keeps what was written when the program is gone
    std::string path_;
};

TEST_F(CtlPlay, PlaysTheSoundWhenAsked) {
    const PulseSink sink;
    for (const auto& variable : sink.environment()) {
        environment_.push_back(variable);
    }
    start({"play", server_.url("/long.flv"), "--volume", "50", "--json"});
    EXPECT_TRUE(waitForEvent("firstPicture")) << errors();
    EXPECT_TRUE(eventually([&] { return sink.playingStreams() == 1; })) << output() << errors();
    program_->signal(SIGINT);
    EXPECT_EQ(finish(), kDone) << errors();
}

TEST_F(CtlPlay, AWorkerThatDiesIsAFailure) {
    start({"play", server_.url("/long.flv"), "--seconds", "60", "--json"});
    ASSERT_TRUE(waitForEvent("firstPicture")) << errors();
    ::kill(intOf(events("connected").at(0), "pid"), SIGKILL);
    EXPECT_EQ(finish(), kNotDone);
    EXPECT_THAT(errors(), HasSubstr("of 60 seconds: the worker was killed"));
    const QJsonObject end = events("ended").at(0);
    EXPECT_FALSE(end.contains(QStringLiteral("exitCode")));
    EXPECT_EQ(textOf(end, "reason"), "the worker was killed");
}

TEST_F(CtlPlay, InterruptedIsDone) {
    start({"play", server_.url("/long.flv"), "--json"});
    ASSERT_TRUE(waitForEvent("firstPicture")) << errors();
    program_->signal(SIGINT);
    ASSERT_EQ(finish(), kDone) << errors();
    EXPECT_TRUE(events("ended").at(0)[QStringLiteral("ok")].toBool());
    EXPECT_EQ(errors(), "");
}

TEST_F(CtlPlay, InterruptedBeforeTheFirstPictureIsNotDone) {
    start({"play", server_.url("/silent.flv"), "--json"});
    ASSERT_TRUE(waitForEvent("connected")) << errors();
    program_->signal(SIGTERM);
    EXPECT_EQ(finish(), kNotDone);
    EXPECT_EQ(errors(), "mediaworker-ctl: interrupted before the first picture\n");
}

TEST_F(CtlPlay, InterruptedWhileItWaitsForAServer) {
    const std::string script = "http://h/;connect;hello;picture:16x8;send:0108000000000000000000;exit:3";
    start({"play", script, "--worker", FAKE_WORKER, "--reconnect", "--json"});
    ASSERT_TRUE(waitForEvent("reconnecting", 2)) << errors();
    program_->signal(SIGINT);
    EXPECT_EQ(finish(), kDone) << errors();
    EXPECT_GE(intOf(events("ended").at(0), "frames"), 2);

    start({"play", server_.url("/nothing.flv"), "--reconnect", "--json"});
    ASSERT_TRUE(waitForEvent("reconnecting", 3)) << errors();
    program_->signal(SIGINT);
    EXPECT_EQ(finish(), kNotDone);
    EXPECT_EQ(errors(), "mediaworker-ctl: interrupted before the first picture\n");
}

TEST_F(CtlPlay, CtrlCOfATerminalDoesNotReachTheWorker) {
    start({"play", server_.url("/long.flv"), "--json"});
    ASSERT_TRUE(waitForEvent("firstPicture")) << errors();
    ::kill(intOf(events("connected").at(0), "pid"), SIGINT);
    const std::size_t told = events("progress").size();
    ASSERT_TRUE(waitForEvent("progress", told + 2)) << errors();
    program_->signal(SIGINT);
    EXPECT_EQ(finish(), kDone) << errors();
}

TEST_F(CtlPlay, EndsWhenNobodyCanReadIt) {
    output_ = "/dev/full";
    EXPECT_EQ(run({"play", server_.url("/long.flv")}), kNotDone);
    EXPECT_THAT(errors(), HasSubstr("nobody reads"));
}

TEST_F(CtlPlay, WritesOneLineOverAndOverOnATerminal) {
    Terminal terminal;
    if (!terminal.isThere()) {
        GTEST_SKIP() << "no terminals here: is /dev/pts mounted?";
    }
    output_ = terminal.path();
    EXPECT_EQ(run({"play", server_.url("/long.flv"), "--seconds", "2"}), kDone) << errors();
    const std::string shown = terminal.readUntil("\npictures: ");
    EXPECT_THAT(shown, ContainsPattern("\r  frames +[0-9]+   fps +[0-9]+ [^\r\n]*\r  frames +[0-9]+ "));
    EXPECT_THAT(shown, Not(ContainsPattern("\n  frames")));
}

TEST_F(CtlExport, DrawsABarOnATerminal) {
    Terminal terminal;
    if (!terminal.isThere()) {
        GTEST_SKIP() << "no terminals here: is /dev/pts mounted?";
    }
    output_ = terminal.path();
    EXPECT_EQ(run({"export", server_.url("/clip.flv"), file_.generic_string(), "--duration", "2"}), kDone)
        << errors();
    const std::string shown = terminal.readUntil("\nexported: ");
    EXPECT_THAT(shown, ContainsPattern("\r  \\[=* +\\] +[0-9]+ %   after 0\\.[0-9] s *\r  \\["));
    EXPECT_THAT(shown, HasSubstr("\r  [======================================= ]  98 %   after "));
}

TEST_F(CtlExport, AWorkerThatDiesLeavesWhatItHasRecorded) {
    start({"export", server_.url("/long.flv"), file_.generic_string(), "--duration", "100", "--json"});
    const std::filesystem::path partial = file_.parent_path() / "film.partial.mp4";
    ASSERT_TRUE(eventually([&] {
        return std::filesystem::exists(partial) && readFile(partial).find("moof") != std::string::npos;
    })) << errors();
    ::kill(intOf(events("connected").at(0), "pid"), SIGKILL);
    EXPECT_EQ(finish(), kNotDone);
    EXPECT_THAT(errors(), HasSubstr("the export failed: the worker was killed"));
    EXPECT_THAT(errors(), HasSubstr("what was recorded until then is " + partial.string() + "\n"));
    EXPECT_EQ(events("ended").at(0)[QStringLiteral("partialFile")].toString().toStdString(),
              partial.string());
    EXPECT_THAT(files(), ElementsAre("film.partial.mp4"));
}

TEST_F(CtlExport, WhenItIsKilledTheWorkerClosesTheFile) {
    start({"export", server_.url("/long.flv"), file_.generic_string(), "--duration", "100", "--json"});
    const std::filesystem::path partial = file_.parent_path() / "film.partial.mp4";
    ASSERT_TRUE(eventually([&] {
        return std::filesystem::exists(partial) && readFile(partial).find("moof") != std::string::npos;
    })) << errors();
    program_->kill();
    // All fragments become the content of an ordinary file.
    EXPECT_TRUE(eventually([&] { return readFile(partial).substr(112 + 4, 4) == "mdat"; }));
    EXPECT_EQ(runCommand({"ffmpeg", "-v", "error", "-i", partial.string(), "-f", "null", "-"}), "");
}

TEST_F(CtlExport, AWorkerThatDiesLeavesNoFileThatNobodyCanPlay) {
    start({"export", "http://h/;connect;hello;write:half a film;wait:60000", file_.generic_string(),
           "--worker", FAKE_WORKER, "--json"});
    ASSERT_TRUE(waitForEvent("connected")) << errors();
    ASSERT_TRUE(eventually(
        [&] { return files().size() == 1 && readFile(file_.parent_path() / files()[0]) == "half a film"; }));
    ASSERT_TRUE(waitForEvent("connected"));
    ::kill(intOf(events("connected").at(0), "pid"), SIGKILL);
    EXPECT_EQ(finish(), kNotDone);
    EXPECT_THAT(files(), IsEmpty());
}

TEST_F(CtlExport, InterruptedIsKept) {
    writeFile(file_, "an older film");
    start({"export", server_.url("/long.flv"), file_.generic_string(), "--duration", "100", "--json"});
    ASSERT_TRUE(waitForEvent("progress", 2)) << errors();
    EXPECT_THAT(files(), ElementsAre("film.mp4", "film.partial.mp4"));
    program_->signal(SIGINT);
    EXPECT_EQ(finish(), kDone) << errors();
    EXPECT_THAT(files(), ElementsAre("film.mp4"));
    EXPECT_EQ(probe().size(), 2U);
    const QJsonObject end = events("ended").at(0);
    EXPECT_TRUE(end[QStringLiteral("ok")].toBool());
    EXPECT_FALSE(end[QStringLiteral("isCutShort")].toBool());
    EXPECT_GE(intOf(end, "recordedMs"), 1000);
}

TEST_F(CtlExport, GoesOnUntilItIsInterrupted) {
    start({"export", server_.url("/long.flv"), file_.generic_string()});
    ASSERT_TRUE(eventually([&] { return output().find("recording after ") != std::string::npos; }));
    program_->signal(SIGTERM);
    EXPECT_EQ(finish(), kDone) << errors();
    EXPECT_THAT(lines(output()).back(),
                ContainsPattern("^exported: .*/film\\.mp4 \\([0-9]+ bytes, [0-9.]+ s\\)$"));
    EXPECT_EQ(probe().size(), 2U);
}

// It passes a signal on to the program and then to its group, with the program and the worker.
TEST_F(CtlExport, IsKeptWhenTimeoutEndsIt) {
    for (const int signal : {SIGINT, SIGTERM}) {
        start({"export", server_.url("/long.flv"), file_.generic_string()},
              {"timeout", "--preserve-status", "600"});
        ASSERT_TRUE(eventually([&] { return output().find("recording after ") != std::string::npos; }));
        program_->signal(signal);
        EXPECT_EQ(finish(), kDone) << signal << '\n' << output() << errors();
        EXPECT_THAT(files(), ElementsAre("film.mp4")) << signal;
        EXPECT_EQ(probe().size(), 2U) << signal;
    }
}

TEST_F(CtlExport, InterruptedBeforeAnythingCameLeavesNothing) {
    start({"export", server_.url("/silent.flv"), file_.generic_string(), "--json"});
    ASSERT_TRUE(waitForEvent("connected"));
    program_->signal(SIGINT);
    EXPECT_EQ(finish(), kNotDone);
    EXPECT_EQ(errors(), "mediaworker-ctl: interrupted before anything was recorded\n");
    EXPECT_THAT(files(), IsEmpty());
}

TEST_F(CtlExport, InterruptedWhenTheWorkerIsKilledNamesWhatIsLeft) {
    start({"export", server_.url("/long.flv"), file_.generic_string(), "--json"});
    ASSERT_TRUE(waitForEvent("progress", 3)) << errors();
    ::kill(intOf(events("connected").at(0), "pid"), SIGSTOP); // so that it cannot finish
    program_->signal(SIGINT);
    ::kill(intOf(events("connected").at(0), "pid"), SIGKILL);
    EXPECT_EQ(finish(), kNotDone);
    EXPECT_THAT(errors(), StartsWith("mediaworker-ctl: the export failed: the worker was killed\n"));
    EXPECT_THAT(errors(), EndsWith("  what was recorded until then is " +
                                   (file_.parent_path() / "film.partial.mp4").string() + "\n"));
}

TEST_F(CtlExport, InterruptedTwiceGivesUpAndNamesWhatIsLeft) {
    // A worker that does not close its file.
    start({"export", "http://h/;connect;hello;write:half a film;wait:60000", file_.generic_string(),
           "--worker", FAKE_WORKER, "--json"});
    ASSERT_TRUE(waitForEvent("connected")) << errors();
    ASSERT_TRUE(eventually(
        [&] { return files().size() == 1 && readFile(file_.parent_path() / files()[0]) == "half a film"; }));
    program_->signal(SIGINT);
    program_->signal(SIGINT); // the same request
    constexpr std::chrono::milliseconds kBetween{500};
    std::this_thread::sleep_for(kBetween);
    EXPECT_TRUE(program_->isRunning()) << "the file could still be closed";
    for (int i = 0; i < 20 && program_->isRunning(); ++i) {
        program_->signal(SIGINT);
        std::this_thread::sleep_for(kBetween);
    }
    EXPECT_EQ(finish(), kNotDone);
    EXPECT_EQ(errors(),
              "mediaworker-ctl: given up; the file was not closed\n  what was recorded until then is " +
                  (file_.parent_path() / "film.partial.mp4").string() + "\n");
    EXPECT_THAT(files(), ElementsAre("film.partial.mp4"));
}

/// A server that others wrote, with nothing to serve.
class PythonServer {
public:
    PythonServer() {
        std::filesystem::create_directory(folder_ / "empty");
        program_ = std::make_unique<ChildProcess>(
            ChildProcess::Options{.command = {"python3", "-u", "-m", "http.server", "0", "--bind",
                                              "127.0.0.1", "--directory", (folder_ / "empty").string()},
                                  .output = folder_ / "output",
                                  .errors = folder_ / "errors"});
        const std::regex serving("http://127\\.0\\.0\\.1:[0-9]+/");
        std::smatch found;
        eventually([&] {
            const std::string said = readText(folder_ / "output");
            if (std::regex_search(said, found, serving)) {
                url_ = found.str();
            }
            return !url_.empty() || !program_->isRunning();
        });
    }

    /// With a slash at its end; empty when it does not run.
    [[nodiscard]] const std::string& url() const { return url_; }

private:
    TemporaryFolder folder_;
    std::unique_ptr<ChildProcess> program_;
    std::string url_;
};

TEST_F(CtlProgram, TellsWhatAnotherServerAnswers) {
    const PythonServer server;
    ASSERT_NE(server.url(), "");
    EXPECT_EQ(run({"play", server.url() + "live.flv", "--json"}), kNotDone);
    EXPECT_EQ(intOf(events("ended").at(0), "httpStatus"), 404);
    EXPECT_THAT(errors(), HasSubstr("no picture was shown: the server answered 404 File not found"));
    EXPECT_EQ(run({"export", server.url() + "live.flv", (folder_ / "film.mp4").string(), "--duration", "2",
                   "--json"}),
              kNotDone);
    EXPECT_EQ(intOf(events("ended").at(0), "httpStatus"), 404);
    std::string secure = server.url() + "live.flv";
    secure.insert(4, "s");
    EXPECT_EQ(run({"play", secure, "--json"}), kNotDone);
    EXPECT_EQ(textOf(events("ended").at(0), "cause"), "tlsFailure");
}

} // namespace
} // namespace mediaworker::test
