#include "support/ChildProcess.h"
#include "support/media/Clip.h"
#include "support/media/FlvStream.h"
#include "support/media/TestPicture.h"
#include "support/qt/HttpServer.h"
#include "support/qt/Pacing.h"
#include "support/qt/ProxyServer.h"
#include "support/qt/PulseSink.h"

#include <QImage>
#include <QJsonDocument>
#include <QJsonObject>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace mediaworker::test {
namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::ContainsRegex;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

constexpr int kDone = 0;
constexpr int kNotDone = 1;
constexpr int kWrongUsage = 2;

Clip clip(AudioCodec audio) {
    ClipSpec spec;
    spec.audio = audio;
    return encode(spec);
}

bool eventually(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + 30s;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(5ms);
    }
    return true;
}

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> result;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        result.push_back(line);
    }
    return result;
}

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

/// The program in a temporary directory of its own, with a camera that it can play.
class CtlProgram : public testing::Test {
protected:
    CtlProgram() {
        std::filesystem::create_directory(folder_ / "tmp");
        environment_ = {{"TMPDIR", (folder_ / "tmp").string()}};
        server_.route("/clip.flv", pacedHandler(pieces_, {.burstMs = 1000}));
        server_.route("/fast.flv", pacedHandler(pieces_, {.speed = 0}));
        FlvOptions minutes;
        minutes.repeats = 60;
        server_.route("/long.flv", pacedHandler(makeFlv(clip_, minutes), {.burstMs = 1000}));
        server_.route("/silent.flv", [](HttpResponse& response) {
            response.sendHeader();
            response.waitForClientToLeave();
        });
    }

    void TearDown() override {
        program_.reset();
        EXPECT_THAT(filesIn(folder_ / "tmp"), IsEmpty()) << "left in the temporary directory";
    }

    void start(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), MEDIAWORKER_CTL);
        program_ = std::make_unique<ChildProcess>(ChildProcess::Options{
            .command = std::move(arguments),
            .environment = environment_,
            .output = output_,
            .errors = folder_ / "errors",
        });
    }
    std::optional<int> finish() { return program_->waitFor(60s); }
    std::optional<int> run(std::vector<std::string> arguments) {
        start(std::move(arguments));
        return finish();
    }

    [[nodiscard]] std::string output() const { return readFile(output_); }
    [[nodiscard]] std::string errors() const { return readFile(folder_ / "errors"); }

    /// The objects that were printed completely.
    [[nodiscard]] std::vector<QJsonObject> events(const char* kind = nullptr) const {
        const std::string text = output();
        std::vector<QJsonObject> result;
        for (const std::string& line : lines(text.substr(0, text.rfind('\n') + 1))) {
            QJsonParseError error;
            const auto document = QJsonDocument::fromJson(QByteArray::fromStdString(line), &error);
            EXPECT_TRUE(document.isObject()) << line << ": " << error.errorString().toStdString();
            if (kind == nullptr || document[QStringLiteral("event")].toString() == QLatin1String(kind)) {
                result.push_back(document.object());
            }
        }
        return result;
    }
    bool waitForEvent(const char* kind, std::size_t count = 1) {
        return eventually([&] { return events(kind).size() >= count || !program_->isRunning(); }) &&
               events(kind).size() >= count;
    }

    static std::vector<std::string> filesIn(const std::filesystem::path& folder) {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(folder)) {
            names.push_back(entry.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    [[nodiscard]] static int intOf(const QJsonObject& object, const char* name) {
        EXPECT_TRUE(object.contains(QLatin1String(name))) << name;
        return object[QLatin1String(name)].toInt();
    }
    [[nodiscard]] static std::string textOf(const QJsonObject& object, const char* name) {
        return object[QLatin1String(name)].toString().toStdString();
    }

    const Clip clip_ = clip(AudioCodec::Aac);
    const std::vector<TimedBytes> pieces_ = makeFlv(clip_);
    TemporaryFolder folder_;
    std::filesystem::path output_ = folder_ / "output";
    std::vector<std::pair<std::string, std::string>> environment_;
    HttpServer server_;
    std::unique_ptr<ChildProcess> program_;
};

class CtlPlay : public CtlProgram {
protected:
    const std::filesystem::path pictures_ = folder_ / "some/pictures";

    /// Whole, and the one that was announced or, read a little late, one of the next.
    static void expectPicture(const std::filesystem::path& file, std::int64_t stampMs) {
        const QImage picture =
            QImage(QString::fromStdString(file.string())).convertToFormat(QImage::Format_RGB32);
        ASSERT_EQ(picture.size(), QSize(320, 180)) << file;
        const auto number =
            readFrameNumber({picture.constBits(), picture.width(), picture.height(), picture.bytesPerLine()});
        ASSERT_TRUE(number.has_value()) << file << " is torn";
        EXPECT_GE(*number, stampMs / 40) << file;
        EXPECT_LE(*number, stampMs / 40 + 3) << file;
    }
};

TEST_F(CtlPlay, TellsHowAStreamGoes) {
    ASSERT_EQ(run({"play", server_.url("/long.flv"), "--seconds", "2.5"}), kDone) << errors();
    const auto told = lines(output());
    ASSERT_GE(told.size(), 5U) << output();
    EXPECT_THAT(told[0], ContainsRegex("^worker [0-9]+ is connected$"));
    EXPECT_THAT(told[1], ContainsRegex("^first picture after [0-9.]+ s$"));
    EXPECT_THAT(told[2],
                ContainsRegex("^  frames +[0-9]+   fps +[0-9]+   position +[0-9.]+ s   delay +-?[0-9.]+ s"));
    EXPECT_THAT(told.back(), ContainsRegex("^pictures: [0-9]+ of 320x180 in [0-9.]+ s \\([0-9.]+ fps\\), "
                                           "interval median [0-9.]+ ms, longest [0-9.]+ ms$"));
    EXPECT_EQ(errors(), "");
}

TEST_F(CtlPlay, SpeaksJson) {
    ASSERT_EQ(run({"play", server_.url("/long.flv"), "--seconds", "2.5", "--json"}), kDone) << errors();
    const auto all = events();
    std::vector<std::string> kinds;
    kinds.reserve(all.size());
    for (const QJsonObject& event : all) {
        kinds.push_back(textOf(event, "event"));
    }
    ASSERT_GE(kinds.size(), 5U) << output();
    EXPECT_EQ(kinds[0], "connected");
    EXPECT_EQ(kinds[1], "firstPicture");
    EXPECT_THAT(std::vector(kinds.begin() + 2, kinds.end() - 1), Each("progress"));
    EXPECT_EQ(kinds.back(), "ended");
    EXPECT_GT(intOf(all[0], "pid"), 0);
    EXPECT_EQ(intOf(all[1], "width"), 320);
    EXPECT_EQ(intOf(all[1], "height"), 180);
    EXPECT_GE(intOf(all[1], "afterMs"), 0);
    EXPECT_EQ(textOf(all[3], "state"), "playing");
    EXPECT_GT(intOf(all[3], "frames"), intOf(all[2], "frames"));
    EXPECT_GT(intOf(all[3], "positionMs"), intOf(all[2], "positionMs"));
    EXPECT_TRUE(all[3][QStringLiteral("fps")].isDouble());
    EXPECT_TRUE(all[3][QStringLiteral("delayMs")].isDouble());
    const QJsonObject& end = all.back();
    EXPECT_TRUE(end[QStringLiteral("ok")].toBool());
    EXPECT_EQ(intOf(end, "exitCode"), 0);
    EXPECT_GE(intOf(end, "frames"), intOf(all[3], "frames"));
    EXPECT_GT(end[QStringLiteral("seconds")].toDouble(), 2.0);
    EXPECT_LT(end[QStringLiteral("seconds")].toDouble(), 3.5);
    EXPECT_GT(end[QStringLiteral("intervalMedianMs")].toDouble(), 10);
}

TEST_F(CtlPlay, SavesPictures) {
    ASSERT_EQ(run({"play", server_.url("/clip.flv"), "--snapshots", pictures_.string(), "--every", "0.48",
                   "--json"}),
              kDone)
        << errors();
    EXPECT_THAT(filesIn(pictures_), ElementsAre("picture-0001-at-0-ms.png", "picture-0002-at-480-ms.png",
                                                "picture-0003-at-960-ms.png", "picture-0004-at-1440-ms.png",
                                                "picture-0005-at-1920-ms.png"));
    const auto saved = events("snapshot");
    ASSERT_EQ(saved.size(), 5U);
    for (const QJsonObject& event : saved) {
        expectPicture(textOf(event, "file"), intOf(event, "positionMs"));
    }
    EXPECT_EQ(intOf(events("ended").at(0), "snapshots"), 5);
}

TEST_F(CtlPlay, SavesAPictureEachSecondUnlessToldOtherwise) {
    ASSERT_EQ(run({"play", server_.url("/clip.flv"), "--snapshots", pictures_.string()}), kDone) << errors();
    EXPECT_THAT(filesIn(pictures_), ElementsAre("picture-0001-at-0-ms.png", "picture-0002-at-1000-ms.png"));
    EXPECT_THAT(output(), HasSubstr("saved " + (pictures_ / "picture-0002-at-1000-ms.png").string() + "\n"));
}

TEST_F(CtlPlay, FailsWhenPicturesCannotBeSaved) {
    writeFile(folder_ / "file", "");
    EXPECT_EQ(run({"play", server_.url("/long.flv"), "--snapshots", folder_ / "file/pictures"}), kNotDone);
    EXPECT_THAT(errors(), HasSubstr("cannot make the folder"));
    std::filesystem::create_directories(pictures_ / "picture-0001-at-0-ms.png");
    EXPECT_EQ(run({"play", server_.url("/long.flv"), "--snapshots", pictures_}), kNotDone);
    EXPECT_THAT(errors(), HasSubstr("cannot save "));
}

TEST_F(CtlPlay, PlaysAFileByItsPath) {
    const std::string file = encodedFile(clip_.spec).string();
    ASSERT_EQ(run({"play", file, "--snapshots", pictures_, "--json"}), kDone) << errors();
    EXPECT_EQ(intOf(events("ended").at(0), "exitCode"), 2);
    EXPECT_GE(intOf(events("ended").at(0), "frames"), 49);
    expectPicture(pictures_ / "picture-0001-at-0-ms.png", 0);
    ASSERT_EQ(run({"play", "file://" + file, "--seconds", "1"}), kDone) << errors();
}

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

TEST_F(CtlPlay, GoesThroughAProxy) {
    const ProxyServer proxy(ProxyServer::Kind::Http, {{"camera.invalid", server_.port()}});
    const ProxyServer socks(ProxyServer::Kind::Socks5, {{"camera.invalid", server_.port()}});
    EXPECT_EQ(run({"play", "http://camera.invalid/long.flv", "--seconds", "0.2", "--proxy", proxy.url()}),
              kDone)
        << errors();
    EXPECT_EQ(run({"play", "http://camera.invalid/long.flv", "--seconds", "0.2", "--proxy", socks.url(),
                   "--proxy-type", "socks5"}),
              kDone)
        << errors();
    EXPECT_EQ(proxy.requests().size(), 1U);
    EXPECT_EQ(socks.requests().size(), 1U);
}

TEST_F(CtlPlay, AStreamThatEndsTooSoonIsAFailure) {
    EXPECT_EQ(run({"play", server_.url("/clip.flv"), "--seconds", "30", "--json"}), kNotDone);
    EXPECT_THAT(errors(), AllOf(ContainsRegex("^mediaworker-ctl: the pictures ended after [12]\\.[0-9] of 30 "
                                              "seconds: the server ended the stream"),
                                HasSubstr("(exit code 3)"), HasSubstr("its last words:\n")));
    const QJsonObject end = events("ended").at(0);
    EXPECT_FALSE(end[QStringLiteral("ok")].toBool());
    EXPECT_EQ(intOf(end, "exitCode"), 3);
    EXPECT_THAT(textOf(end, "problem"), HasSubstr("the pictures ended after"));
}

TEST_F(CtlPlay, AnErrorOfTheServerIsAFailure) {
    EXPECT_EQ(run({"play", server_.url("/nothing.flv")}), kNotDone);
    EXPECT_THAT(errors(),
                AllOf(StartsWith("mediaworker-ctl: no picture was shown: the server ended the stream "
                                 "or could not deliver it (exit code 3)\n"),
                      HasSubstr("http reader finished")));
}

TEST_F(CtlPlay, AFileThatIsNotThereIsAFailure) {
    EXPECT_EQ(run({"play", folder_ / "none.mp4"}), kNotDone);
    EXPECT_THAT(errors(), AllOf(HasSubstr("(exit code 2)"), HasSubstr("couldn't open file")));
}

TEST_F(CtlPlay, AMissingWorkerIsAFailure) {
    EXPECT_EQ(run({"play", server_.url("/clip.flv"), "--worker", "/nowhere/worker", "--json"}), kNotDone);
    EXPECT_THAT(errors(), HasSubstr("the worker cannot be started: "));
    EXPECT_FALSE(events("ended").at(0).contains(QStringLiteral("exitCode")));
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

// What looks like a URL is a script for the worker's stand-in.
TEST_F(CtlPlay, TellsTheLastWordsOfAWorker) {
    EXPECT_EQ(run({"play", "http://h/;connect;hello;log:one;log:two;log:three;log:four;exit:4", "--worker",
                   FAKE_WORKER}),
              kNotDone);
    EXPECT_THAT(errors(), HasSubstr("could not be decoded (exit code 4)\n"
                                    "  its last words:\n    two\n    three\n    four\n"));
}

TEST_F(CtlPlay, AWorkerThatDoesNotEndIsAFailure) {
    EXPECT_EQ(run({"play", "http://h/;connect;hello;picture:16x8;send:0108000000000000000000;wait:60000",
                   "--seconds", "0.1", "--worker", FAKE_WORKER}),
              kNotDone);
    EXPECT_THAT(errors(), HasSubstr("the worker does not end"));
    EXPECT_THAT(output(), HasSubstr("pictures: 1 of 16x8\n"));
}

TEST_F(CtlPlay, AWorkerThatNeverConnectsIsAFailure) {
    EXPECT_EQ(run({"play", "http://h/;log:asleep;wait:60000", "--worker", FAKE_WORKER, "--json"}), kNotDone);
    EXPECT_EQ(errors(),
              "mediaworker-ctl: the worker does not connect; the worker's last words:\n    asleep\n");
    EXPECT_FALSE(events("ended").at(0).contains(QStringLiteral("exitCode")));
}

TEST_F(CtlPlay, GarbageOfAWorkerIsSurvived) {
    for (const std::string seed : {"1", "2", "3"}) {
        // An unknown type, a frame without data, a command, and then no packets at all.
        EXPECT_EQ(run({"play",
                       "http://h/;connect;hello;send:c80200ffff;send:010000060000;garbage:" + seed +
                           ";log:all said;exit:4",
                       "--worker", FAKE_WORKER}),
                  kNotDone);
        EXPECT_THAT(errors(), HasSubstr("(exit code 4)\n  its last words:\n    all said\n")) << seed;
    }
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

TEST_F(CtlProgram, RefusesWrongUsage) {
    for (const auto& arguments : std::vector<std::vector<std::string>>{
             {},
             {"watch"},
             {"play"},
             {"play", "rtmp://camera/live"},
             {"play", "http://h/", "--every", "2"},
             {"play", "http://h/", "--volume", "200"},
             {"play", "http://h/", "--seconds", "0"},
             {"play", "http://h/", "--nonsense"},
             {"export", "http://h/", "out.mp4"},
             {"export", "http://h/", "--duration", "1"},
             {"export", "file:///a.flv", "out.mp4", "--duration", "1"},
         }) {
        EXPECT_EQ(run(arguments), kWrongUsage) << testing::PrintToString(arguments);
        EXPECT_THAT(errors(), ContainsRegex("^mediaworker-ctl: .+\nTry: mediaworker-ctl .*--help\n$"));
        EXPECT_EQ(output(), "");
    }
}

TEST_F(CtlProgram, HelpsAndTellsItsVersion) {
    for (const auto& arguments : std::vector<std::vector<std::string>>{{"help"},
                                                                       {"--help"},
                                                                       {"play", "--help"},
                                                                       {"help", "play"},
                                                                       {"export", "--help"},
                                                                       {"help", "export"}}) {
        EXPECT_EQ(run(arguments), kDone) << testing::PrintToString(arguments);
        EXPECT_THAT(output(), StartsWith("Usage: mediaworker-ctl "));
        EXPECT_EQ(errors(), "");
    }
    EXPECT_EQ(run({"--version"}), kDone);
    EXPECT_THAT(output(), ContainsRegex("^mediaworker-ctl [0-9.]+\n$"));
}

class CtlExport : public CtlProgram {
protected:
    CtlExport() { std::filesystem::create_directory(file_.parent_path()); }

    [[nodiscard]] std::vector<std::string> files() const { return filesIn(file_.parent_path()); }
    /// Codecs and numbers of packets.
    [[nodiscard]] std::vector<std::string> probe() const {
        return lines(runCommand({"ffprobe", "-v", "error", "-count_packets", "-show_entries",
                                 "stream=codec_name,nb_read_packets", "-of", "compact=p=0", file_}));
    }

    const std::filesystem::path file_ = folder_ / "films/film.mp4";
};

TEST_F(CtlExport, RecordsAFile) {
    ASSERT_EQ(run({"export", server_.url("/fast.flv"), file_, "--duration", "2"}), kDone) << errors();
    EXPECT_THAT(files(), ElementsAre("film.mp4"));
    EXPECT_THAT(probe(), ElementsAre("codec_name=h264|nb_read_packets=50",
                                     StartsWith("codec_name=aac|nb_read_packets=")));
    EXPECT_EQ(lines(output()).back(), "exported: " + file_.string() + " (" +
                                          std::to_string(std::filesystem::file_size(file_)) + " bytes)");
    EXPECT_EQ(errors(), "");
}

TEST_F(CtlExport, TellsItsProgressInLines) {
    ASSERT_EQ(run({"export", server_.url("/clip.flv"), file_, "--duration", "2"}), kDone) << errors();
    int progressLines = 0;
    for (const std::string& line : lines(output())) {
        progressLines +=
            testing::Matches(ContainsRegex("^  exported +[0-9]+ %   after [0-9.]+ s$"))(line) ? 1 : 0;
    }
    EXPECT_GE(progressLines, 1) << output();
    EXPECT_THAT(output(), HasSubstr("  exported  98 %   after"));
    EXPECT_THAT(output(), Not(HasSubstr("\r")));
}

TEST_F(CtlExport, SpeaksJson) {
    ASSERT_EQ(run({"export", server_.url("/clip.flv"), file_, "--duration", "2", "--json"}), kDone)
        << errors();
    ASSERT_GE(events("progress").size(), 1U);
    EXPECT_EQ(intOf(events("progress").back(), "percent"), 98);
    const QJsonObject end = events("ended").at(0);
    EXPECT_TRUE(end[QStringLiteral("ok")].toBool());
    EXPECT_EQ(textOf(end, "file"), file_.string());
    EXPECT_EQ(intOf(end, "bytes"), static_cast<int>(std::filesystem::file_size(file_)));
    EXPECT_EQ(intOf(end, "exitCode"), 0);
}

TEST_F(CtlPlay, WritesOneLineOverAndOverOnATerminal) {
    Terminal terminal;
    if (!terminal.isThere()) {
        GTEST_SKIP() << "no terminals here: is /dev/pts mounted?";
    }
    output_ = terminal.path();
    EXPECT_EQ(run({"play", server_.url("/long.flv"), "--seconds", "2"}), kDone) << errors();
    const std::string shown = terminal.readUntil("\npictures: ");
    EXPECT_THAT(shown, ContainsRegex("\r  frames +[0-9]+   fps +[0-9]+ [^\r\n]*\r  frames +[0-9]+ "));
    EXPECT_THAT(shown, Not(ContainsRegex("\n  frames")));
}

TEST_F(CtlExport, DrawsABarOnATerminal) {
    Terminal terminal;
    if (!terminal.isThere()) {
        GTEST_SKIP() << "no terminals here: is /dev/pts mounted?";
    }
    output_ = terminal.path();
    EXPECT_EQ(run({"export", server_.url("/clip.flv"), file_, "--duration", "2"}), kDone) << errors();
    const std::string shown = terminal.readUntil("\nexported: ");
    EXPECT_THAT(shown, ContainsRegex("\r  \\[=* +\\] +[0-9]+ %   after 0\\.[0-9] s *\r  \\["));
    EXPECT_THAT(shown, HasSubstr("\r  [======================================= ]  98 %   after "));
}

TEST_F(CtlExport, ReplacesAnOlderFile) {
    writeFile(file_, "an older film");
    writeFile(file_.parent_path() / "film.partial.mp4", "left by an accident");
    ASSERT_EQ(run({"export", server_.url("/fast.flv"), file_, "--duration", "2"}), kDone) << errors();
    EXPECT_THAT(files(), ElementsAre("film.mp4"));
    EXPECT_EQ(probe().size(), 2U);
}

TEST_F(CtlExport, SoundThatAnMp4FileCannotHoldIsAFailure) {
    server_.route("/g711.flv", pacedHandler(makeFlv(clip(AudioCodec::ALaw)), {.speed = 0}));
    writeFile(file_, "an older film");
    EXPECT_EQ(run({"export", server_.url("/g711.flv"), file_, "--duration", "2", "--json"}), kNotDone);
    EXPECT_THAT(errors(), AllOf(StartsWith("mediaworker-ctl: the export failed: "),
                                HasSubstr("(exit code 1)"), HasSubstr("Muxer.writeHeader")));
    EXPECT_THAT(files(), ElementsAre("film.mp4"));
    EXPECT_EQ(readFile(file_), "an older film");
    EXPECT_FALSE(events("ended").at(0)[QStringLiteral("ok")].toBool());
    EXPECT_EQ(intOf(events("ended").at(0), "exitCode"), 1);
}

TEST_F(CtlExport, AnErrorOfTheServerIsAFailure) {
    EXPECT_EQ(run({"export", server_.url("/nothing.flv"), file_, "--duration", "2"}), kNotDone);
    EXPECT_THAT(errors(),
                AllOf(StartsWith("mediaworker-ctl: the export failed: "), HasSubstr("(exit code 1)")));
    EXPECT_THAT(files(), IsEmpty());
}

TEST_F(CtlExport, AFolderIsNoFile) {
    EXPECT_EQ(run({"export", server_.url("/fast.flv"), file_.parent_path(), "--duration", "2"}), kNotDone);
    EXPECT_THAT(errors(), HasSubstr("is a folder"));
}

TEST_F(CtlExport, AStreamThatStandsStillIsAFailure) {
    server_.route("/stalls.flv", pacedHandler(pieces_, {.speed = 0, .staysOpen = true}));
    EXPECT_EQ(run({"export", server_.url("/stalls.flv"), file_, "--duration", "4", "--timeout", "1"}),
              kNotDone);
    EXPECT_THAT(errors(), HasSubstr("the export stands still at 49 %"));
    EXPECT_THAT(files(), IsEmpty());
}

TEST_F(CtlExport, AWorkerThatNeverConnectsIsAFailure) {
    EXPECT_EQ(run({"export", "http://h/;wait:60000", file_, "--duration", "4", "--worker", FAKE_WORKER}),
              kNotDone);
    EXPECT_EQ(errors(), "mediaworker-ctl: the worker does not connect\n");
    EXPECT_THAT(files(), IsEmpty());
}

TEST_F(CtlExport, AWorkerThatDiesLeavesNoFile) {
    start({"export", server_.url("/long.flv"), file_, "--duration", "100", "--json"});
    ASSERT_TRUE(waitForEvent("progress")) << errors();
    ::kill(intOf(events("connected").at(0), "pid"), SIGKILL);
    EXPECT_EQ(finish(), kNotDone);
    EXPECT_THAT(errors(), HasSubstr("the export failed: the worker was killed"));
    EXPECT_THAT(files(), IsEmpty());
}

TEST_F(CtlExport, InterruptedIsCancelled) {
    writeFile(file_, "an older film");
    start({"export", server_.url("/long.flv"), file_, "--duration", "100", "--json"});
    ASSERT_TRUE(waitForEvent("progress", 2)) << errors();
    EXPECT_THAT(files(), ElementsAre("film.mp4", "film.partial.mp4"));
    program_->signal(SIGINT);
    EXPECT_EQ(finish(), kNotDone);
    EXPECT_EQ(errors(), "mediaworker-ctl: cancelled; the recording was removed\n");
    EXPECT_THAT(files(), ElementsAre("film.mp4"));
    EXPECT_EQ(readFile(file_), "an older film");
    EXPECT_FALSE(events("ended").at(0)[QStringLiteral("ok")].toBool());
}

} // namespace
} // namespace mediaworker::test
