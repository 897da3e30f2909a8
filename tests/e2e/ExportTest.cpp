#include "Mp4File.h"
#include "Session.h"

#include "support/ChildProcess.h"
#include "support/MountNamespace.h"
#include "support/Platform.h"
#include "support/servers/HttpServer.h"
#include "support/servers/Pacing.h"

#include <gmock/gmock.h>

#include <QByteArray>

#include <algorithm>
#include <atomic>
#include <memory>
#include <random>

namespace mediaworker::test {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

Clip clipWithSound() {
    ClipSpec spec;
    spec.audio = AudioCodec::Aac;
    return encode(spec);
}

/// The clip's pictures one by one with given time stamps, without sound: the first piece is all that comes
/// before them.
std::vector<std::vector<std::uint8_t>> picturesAt(const Clip& clip,
                                                  const std::vector<std::uint32_t>& stampsMs) {
    FlvWriter writer;
    FlvOptions options;
    options.hasAudio = false;
    for (const TimedBytes& piece : makeFlv(clip, options)) {
        if (piece.kind != PieceKind::Video) {
            writer.raw(piece.bytes);
        }
    }
    std::vector<std::vector<std::uint8_t>> pieces = {writer.take()};
    for (std::size_t i = 0; i < stampsMs.size(); ++i) {
        const ClipPacket& picture = clip.video.at(i);
        writer.video(stampsMs[i], clip.spec.codec, picture.isKey, FlvWriter::kFrames, picture.bytes);
        pieces.push_back(writer.take());
    }
    return pieces;
}

/// A worker that records, under a parent that writes down the progress.
class Recording : public Session {
public:
    explicit Recording(const Options& options = {}) : Session(options) {
        QObject::connect(&worker(), &parent::WorkerProcess::progress,
                         [this](int percent) { progress_.push_back(percent); });
    }

    void start(const std::string& url, const std::filesystem::path& output, int durationMs = 2000) {
        parent::ExportJob job;
        job.url = QString::fromStdString(url);
        job.outputPath = QString::fromStdString(output.string());
        job.durationMs = durationMs;
        ASSERT_TRUE(worker().start(job)) << worker().errorString().toStdString();
    }

    [[nodiscard]] const std::vector<int>& progress() const { return progress_; }

private:
    std::vector<int> progress_;
};

/// The last line of the log, but the one that only a worker with options writes.
std::string lastLine(const Recording& recording) {
    for (auto line = recording.log().rbegin(); line != recording.log().rend(); ++line) {
        if (line->text.rfind("recorded: ", 0) != 0) {
            return line->text;
        }
    }
    return {};
}

class Export : public testing::Test {
protected:
    Export() {
        server_.route("/clip.flv", pacedHandler(pieces_, {.speed = 0}));
        server_.route("/endless.flv", [this](HttpResponse& response) {
            FlvOptions options;
            options.repeats = 100;
            servePaced(response, makeFlv(clip_, options), {.speed = 0});
            response.waitForClientToLeave();
        });
        server_.route("/live.flv", pacedHandler(lasting(20s), {.burstMs = 1000, .staysOpen = true}));
        // The end of a live stream that says no more.
        server_.route("/stalls.flv", pacedHandler(pieces_, {.speed = 0, .staysOpen = true}));
    }

    [[nodiscard]] std::vector<TimedBytes> lasting(std::chrono::milliseconds duration) const {
        return makeFlv(clip_, test::lasting(clip_, duration));
    }

    void expectWholeClip(const std::filesystem::path& file) const {
        const auto streams = readMp4(file);
        ASSERT_EQ(streams.size(), 2U);
        EXPECT_EQ(streams[0].packets.size(), clip_.video.size());
        EXPECT_EQ(complaints(file), "");
    }

    static bool isFinished(const std::filesystem::path& file) {
        return readFile(file).find("moov") != std::string::npos;
    }

    const Clip clip_ = clipWithSound();
    const std::vector<TimedBytes> pieces_ = makeFlv(clip_);
    TemporaryFolder folder_;
    const std::filesystem::path output_ = folder_ / "out.mp4";
    HttpServer server_;
};

TEST_F(Export, RecordsTheWholeStreamAndEndsWithZero) {
    Recording recording;
    recording.start(server_.url("/clip.flv"), output_);
    ASSERT_EQ(recording.waitForExit(), 0) << recording.logText();
    EXPECT_EQ(recording.log().front().text, "url: " + server_.url("/clip.flv"));
    EXPECT_EQ(lastLine(recording), "http is finished, with dts: 1960");
    EXPECT_TRUE(recording.connectedPid().has_value());
    EXPECT_EQ(recording.malformedMessages(), 0);
    expectWholeClip(output_);
    const auto exchanges = server_.exchanges();
    ASSERT_EQ(exchanges.size(), 1U);
    EXPECT_EQ(exchanges[0].request.method, "GET");
    EXPECT_EQ(exchanges[0].request.header("Accept"), "*/*");
}

/// With what the library asks for by itself.
Recording::Options askingForAll() {
    return {.environment = {{"MEDIAWORKER_OPTIONS", "flv=standard,length=exact"}}};
}

TEST_F(Export, EndsWhereTheDurationDoesHoweverFastTheServerSends) {
    for (int i = 0; i < 5; ++i) {
        Recording recording(askingForAll());
        recording.start(server_.url("/endless.flv"), output_, 5000);
        ASSERT_EQ(recording.waitForExit(), 0) << recording.logText();
        const auto streams = readMp4(output_);
        ASSERT_EQ(streams.size(), 2U);
        EXPECT_EQ(streams[0].packets.size(), 125U);
        EXPECT_EQ(complaints(output_), "");
        EXPECT_EQ(recording.log().back().text, "recorded: 5000 ms, with sound");
        EXPECT_EQ(recording.progress().back(), 100);
        EXPECT_EQ(std::count(recording.progress().begin(), recording.progress().end(), 100), 1);
    }
}

TEST_F(Export, WithoutALengthGoesOnUntilItIsToldToFinish) {
    FlvOptions options;
    options.repeats = 20; // 40 seconds: a worker that was not asked stops after ten
    const auto pieces = makeFlv(clip_, options);
    server_.route("/minute.flv", pacedHandler(pieces, {.speed = 0, .staysOpen = true}));
    Recording recording(askingForAll());
    recording.start(server_.url("/minute.flv"), output_, 0);
    std::uintmax_t sentBytes = 0;
    for (const TimedBytes& piece : pieces) {
        sentBytes += piece.bytes.size();
    }
    // The file is written as the stream comes: half of it is twenty seconds.
    ASSERT_TRUE(recording.waitUntil([&] {
        std::error_code none;
        const auto size = std::filesystem::file_size(output_, none);
        return !none && size > sentBytes / 2;
    }));
    EXPECT_TRUE(recording.worker().isRunning());
    ASSERT_TRUE(recording.worker().finish());
    ASSERT_EQ(recording.waitForExit(), 0) << recording.logText();
    const std::size_t pictures = readMp4(output_).at(0).packets.size();
    EXPECT_GT(pictures, 400U);
    const std::string told = "recorded: " + std::to_string(pictures * 40); // each lasts 40 ms
    EXPECT_EQ(recording.log().back().text.substr(0, told.size()), told);
    EXPECT_EQ(complaints(output_), "");
    EXPECT_THAT(recording.progress(), IsEmpty());
}

TEST_F(Export, FinishesWhenItIsTold) {
    for (const bool isBare : {true, false}) {
        Recording recording(isBare ? Recording::Options{} : askingForAll());
        recording.start(server_.url("/live.flv"), output_, 60000);
        ASSERT_TRUE(recording.waitUntil([&] { return recording.progress().size() >= 2; }));
        ASSERT_TRUE(recording.worker().finish());
        ASSERT_EQ(recording.waitForExit(), 0) << recording.logText();
        EXPECT_TRUE(isFinished(output_));
        EXPECT_EQ(complaints(output_), "");
        EXPECT_FALSE(recording.worker().finish()) << "nobody is there";
    }
}

TEST_F(Export, HasNothingToFinishBeforeThePictures) {
    server_.route("/silent.flv", [](HttpResponse& response) {
        response.sendHeader();
        response.waitForClientToLeave();
    });
    Recording recording;
    recording.start(server_.url("/silent.flv"), output_);
    ASSERT_TRUE(recording.worker().finish()); // before it has connected
    EXPECT_EQ(recording.waitForExit(), 1) << recording.logText();
    EXPECT_FALSE(std::filesystem::exists(output_));
}

TEST_F(Export, OnlyTheKnownCommandFinishes) {
    Recording recording;
    recording.start(server_.url("/live.flv"), output_, 60000);
    ASSERT_TRUE(recording.waitUntil([&] { return recording.worker().isConnected(); }));
    for (const char* packet :
         {"000000", "040000", "050000", "060000", "070000", "080000", "090000", "0b0000", "ff0000"}) {
        ASSERT_TRUE(recording.worker().writeRaw(QByteArray::fromHex(packet)));
    }
    const std::size_t told = recording.progress().size();
    EXPECT_TRUE(recording.waitUntil([&] { return recording.progress().size() >= told + 2; }));
    EXPECT_TRUE(recording.worker().isRunning());
}

TEST_F(Export, RecordsALiveStreamAndTellsEachPercentageOnce) {
    Recording recording;
    server_.route("/live.flv", pacedHandler(lasting(2s), {.speed = 2}));
    recording.start(server_.url("/live.flv"), output_);
    ASSERT_EQ(recording.waitForExit(), 0) << recording.logText();
    const auto& progress = recording.progress();
    EXPECT_GT(progress.size(), 20U); // every other percentage, but for pictures that came together
    EXPECT_EQ(std::adjacent_find(progress.begin(), progress.end(), std::greater_equal<>()), progress.end());
    EXPECT_EQ(progress.back(), 98);
    expectWholeClip(output_);
}

TEST_F(Export, OverwritesWhatIsThere) {
    writeFile(output_, std::string(1 << 20, 'x'));
    Recording recording;
    recording.start(server_.url("/clip.flv"), output_);
    ASSERT_EQ(recording.waitForExit(), 0) << recording.logText();
    expectWholeClip(output_);
}

TEST_F(Export, TakesANameWithSpacesAndForeignLetters) {
    const std::filesystem::path output = folder_ / "Büro 3 %41 #1.mp4";
    Recording recording({.environment = {{"LC_ALL", "C.UTF-8"}}});
    recording.start(server_.url("/clip.flv"), output);
    ASSERT_EQ(recording.waitForExit(), 0) << recording.logText();
    expectWholeClip(output);
}

/// A server that sends one picture after the other when it is told to.
class ExportStepByStep : public Export {
protected:
    void serve(const std::vector<std::uint32_t>& stampsMs) {
        server_.route("/steps.flv", [this, pieces = picturesAt(clip_, stampsMs)](HttpResponse& response) {
            for (std::size_t i = 0; i < pieces.size(); ++i) {
                while (allowed_ < i) {
                    if (!response.sleepMs(2)) {
                        return;
                    }
                }
                response.send(pieces[i]);
            }
            response.waitForClientToLeave();
        });
    }
    ~ExportStepByStep() override { server_.stop(); }

    /// Sends the next picture and gives the worker time to react.
    void step(Recording& recording) {
        ++allowed_;
        recording.listen(150ms * kSlowness);
    }

    std::atomic<std::size_t> allowed_{0};
};

TEST_F(ExportStepByStep, TellsAPercentageOnlyWhenItChanges) {
    serve({0, 30000, 30040, 30599, 30600, 70000, 75000});
    Recording recording;
    recording.start(server_.url("/steps.flv"), output_, 60000);
    ASSERT_TRUE(recording.waitUntil([&] { return recording.connectedPid().has_value(); }));
    step(recording);
    EXPECT_THAT(recording.progress(), IsEmpty());
    step(recording);
    EXPECT_THAT(recording.progress(), ElementsAre(50));
    step(recording);
    step(recording);
    EXPECT_THAT(recording.progress(), ElementsAre(50));
    step(recording);
    EXPECT_THAT(recording.progress(), ElementsAre(50, 51));
    step(recording);
    EXPECT_THAT(recording.progress(), ElementsAre(50, 51, 100));
    EXPECT_TRUE(recording.worker().isRunning());
    step(recording);
    ASSERT_EQ(recording.waitForExit(), 0) << recording.logText();
    EXPECT_EQ(lastLine(recording), "forced finishing when: 75000 > 60000");
    EXPECT_THAT(recording.progress(), ElementsAre(50, 51, 100));
    EXPECT_EQ(readMp4(output_).at(0).packets.size(), 7U);
}

TEST_F(ExportStepByStep, WithoutADurationTellsNothingAndStopsAfterTenSeconds) {
    serve({0, 5000, 10000, 10001});
    Recording recording;
    recording.start(server_.url("/steps.flv"), output_, 0);
    ASSERT_TRUE(recording.waitUntil([&] { return recording.connectedPid().has_value(); }));
    step(recording);
    step(recording);
    step(recording);
    EXPECT_TRUE(recording.worker().isRunning());
    step(recording);
    ASSERT_EQ(recording.waitForExit(), 0) << recording.logText();
    EXPECT_EQ(lastLine(recording), "forced finishing when: 10001 > 0");
    EXPECT_THAT(recording.progress(), IsEmpty());
}

TEST_F(Export, TellsItsLastPercentageEachTime) {
    // The last picture completes it, the response ends right behind, and the worker with it.
    server_.route("/clip.flv", pacedHandler(pieces_, {.speed = 0}));
    for (int i = 0; i < 100; ++i) {
        Recording recording;
        recording.start(server_.url("/clip.flv"), output_, 1960);
        ASSERT_EQ(recording.waitForExit(), 0) << i << recording.logText();
        ASSERT_THAT(recording.progress(), testing::Not(IsEmpty())) << i;
        ASSERT_EQ(recording.progress().back(), 100) << i;
    }
}

TEST_F(Export, OfALiveStreamWhoseTimeStandsStillEndsInTheStandardReading) {
    server_.route("/still.flv",
                  [pieces = picturesAt(clip_, std::vector<std::uint32_t>(25, 5000))](HttpResponse& response) {
                      response.send(pieces.front());
                      for (std::size_t i = 0; response.sleepMs(40); ++i) {
                          response.send(pieces[1 + i % 25]);
                      }
                  });
    Recording recording({.environment = {{"MEDIAWORKER_OPTIONS", "flv=standard"}}});
    recording.start(server_.url("/still.flv"), output_, 1);
    ASSERT_EQ(recording.waitForExit(30s), 0) << recording.logText();
    constexpr auto kLine = "\nforced finishing when: 0, where time stands still; asked for: 1\n";
    EXPECT_NE(recording.logText().find(kLine), std::string::npos) << recording.logText();
    EXPECT_GT(readMp4(output_).at(0).packets.size(), 100U);
}

TEST_F(Export, TakesADurationThatIsNoNumberForNone) {
    ChildProcess worker({.command = {MEDIAWORKER_PROGRAM, "export", server_.url("/endless.flv"), "abc",
                                     output_.string(), "no-such-server"},
                         .errors = folder_ / "err"});
    EXPECT_EQ(worker.wait(), 0);
    EXPECT_THAT(readText(folder_ / "err"), testing::HasSubstr(" > 0\n"));
    EXPECT_EQ(complaints(output_), "");
}

TEST_F(Export, WithMissingArgumentsEndsWithOne) {
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{server_.url("/clip.flv"), "1000"},
          {server_.url("/clip.flv"), "1000", ""}}) {
        std::vector<std::string> command = {MEDIAWORKER_PROGRAM, "export"};
        command.insert(command.end(), arguments.begin(), arguments.end());
        ChildProcess worker({.command = command, .errors = folder_ / "err"});
        EXPECT_EQ(worker.wait(), 1);
        EXPECT_EQ(readText(folder_ / "err"),
                  "url: " + arguments[0] +
                      "\ncreating of muxer is failed with exc: Muxer.ctor empty filename\n");
    }
}

TEST_F(Export, FinishesInTheMiddleOfAFastStream) {
    // The network is busy at the moment the process ends.
    for (int i = 0; i < 20; ++i) {
        Recording recording;
        recording.start(server_.url("/endless.flv"), output_, 1000);
        ASSERT_EQ(recording.waitForExit(), 0) << i << recording.logText();
        ASSERT_TRUE(recording.hasLineBeginning("forced finishing when: ")) << recording.logText();
        ASSERT_TRUE(isFinished(output_));
    }
    EXPECT_EQ(complaints(output_), "");
}

TEST_F(Export, OfAnErrorPageEndsWithOneAndMakesNoFile) {
    server_.route("/missing.flv", [](HttpResponse& response) { response.errorPage(404, 3 << 20); });
    Recording recording;
    recording.start(server_.url("/missing.flv"), output_);
    ASSERT_EQ(recording.waitForExit(), 1) << recording.logText();
    EXPECT_EQ(recording.countLines("http is finished, with dts: 0"), 1) << recording.logText();
    EXPECT_FALSE(std::filesystem::exists(output_));
}

TEST_F(Export, OfNobodyEndsWithOne) {
    const RefusingPort port;
    Recording recording;
    recording.start("http://127.0.0.1:" + std::to_string(port.port()) + "/", output_);
    ASSERT_EQ(recording.waitForExit(), 1) << recording.logText();
    EXPECT_EQ(lastLine(recording), "http is finished, with dts: 0");
}

TEST_F(Export, OfAStreamWithoutPicturesEndsWithOne) {
    auto pieces = pieces_;
    std::erase_if(pieces, [](const TimedBytes& piece) { return piece.kind == PieceKind::Video; });
    server_.route("/configured.flv", pacedHandler(pieces, {.speed = 0}));
    std::erase_if(pieces, [](const TimedBytes& piece) {
        return piece.kind == PieceKind::Config && piece.bytes[0] == FlvWriter::kVideoTag;
    });
    server_.route("/sound.flv", pacedHandler(pieces, {.speed = 0}));
    for (const char* path : {"/sound.flv", "/configured.flv"}) {
        Recording recording;
        recording.start(server_.url(path), output_);
        ASSERT_EQ(recording.waitForExit(), 1) << path << recording.logText();
        EXPECT_EQ(lastLine(recording), "http is finished, with dts: 0");
    }
}

TEST_F(Export, OfG711SoundEndsWithOne) {
    ClipSpec spec;
    spec.audio = AudioCodec::ALaw;
    spec.sampleRate = 8000;
    spec.channels = 1;
    server_.route("/g711.flv", pacedHandler(makeFlv(encode(spec)), {.speed = 0, .staysOpen = true}));
    Recording recording;
    recording.start(server_.url("/g711.flv"), output_);
    ASSERT_EQ(recording.waitForExit(), 1) << recording.logText();
    EXPECT_TRUE(recording.hasLine("ko_player::FileRecorder::consume: consume failed with exception: "
                                  "Muxer.writeHeader avformat_write_header: file: " +
                                  output_.string() + ", err: Invalid argument"))
        << recording.logText();
}

TEST_F(Export, OfAConnectionThatBreaksKeepsWhatCame) {
    server_.route("/reset.flv", [this](HttpResponse& response) {
        servePaced(response, pieces_, {.speed = 0});
        response.sleepMs(300);
        response.reset();
    });
    Recording recording;
    recording.start(server_.url("/reset.flv"), output_);
    ASSERT_EQ(recording.waitForExit(), 0) << recording.logText();
    expectWholeClip(output_);
}

TEST_F(Export, OfABrokenStreamEndsWithOneAndKeepsWhatWasGood) {
    server_.route("/broken.flv", [this](HttpResponse& response) {
        servePaced(response, pieces_, {.speed = 0});
        response.send(std::string(5000, '\xA5'));
        response.waitForClientToLeave();
    });
    Recording recording;
    recording.start(server_.url("/broken.flv"), output_);
    ASSERT_EQ(recording.waitForExit(), 1) << recording.logText();
    EXPECT_TRUE(recording.hasLineBeginning(
        "ko_player::FileRecorder::consumeImpl: ec: Invalid argument, what: streamId: 10855845"))
        << recording.logText();
    expectWholeClip(output_);
}

struct OutputCase {
    const char* name;
    const char* path;
    const char* error;
};

void PrintTo(const OutputCase& row, std::ostream* out) {
    *out << row.name;
}

class ExportTo : public Export, public testing::WithParamInterface<OutputCase> {};

TEST_P(ExportTo, APlaceThatCannotBeWrittenEndsWithOne) {
    Recording recording;
    recording.start(server_.url("/stalls.flv"), GetParam().path);
    ASSERT_EQ(recording.waitForExit(), 1) << recording.logText();
    EXPECT_TRUE(recording.hasLine("ko_player::FileRecorder::consume: consume failed with exception: "
                                  "Muxer.writeHeader " +
                                  std::string(GetParam().error)))
        << recording.logText();
}

INSTANTIATE_TEST_SUITE_P(
    Places, ExportTo,
    testing::Values(OutputCase{"AFullDisk", "/dev/full",
                               "avformat_write_header: file: /dev/full, err: No space left on device"},
                    OutputCase{"AMissingFolder", "/nowhere/out.mp4",
                               "avio_open: file: /nowhere/out.mp4, err: No such file or directory"},
                    OutputCase{"AFolder", "/proc",
                               platform::kIsWindows ? "avio_open: file: /proc, err: Permission denied"
                                                    : "avio_open: file: /proc, err: Is a directory"},
                    OutputCase{"AFileOfTheSystem", "/proc/sys/kernel/ostype",
                               "avio_open: file: /proc/sys/kernel/ostype, err: Permission denied"}),
    [](const auto& instance) { return instance.param.name; });

TEST_F(Export, ToADiskThatBecomesFullEndsWithOne) {
    if (platform::kIsWindows) {
        GTEST_SKIP() << "Windows has no limit for the size of a process's files";
    }
    server_.route("/clip.flv", pacedHandler(lasting(60s), {.speed = 0}));
    // A limit for the size of files does to the worker what a full disk does.
    for (const char* kilobytes : {"1", "100", "600"}) {
        Recording recording(
            {.prefix = {QStringLiteral("bash"), QStringLiteral("-c"),
                        QStringLiteral("ulimit -f \"$0\"; exec \"$@\""), QString::fromLatin1(kilobytes)}});
        recording.start(server_.url("/clip.flv"), output_, 60000);
        ASSERT_EQ(recording.waitForExit(), 1) << kilobytes << recording.logText();
        EXPECT_NE(recording.logText().find("File too large"), std::string::npos) << recording.logText();
    }
}

TEST_F(Export, ToAFullFileSystemEndsWithOne) {
    if (platform::kIsWindows) {
        GTEST_SKIP() << "Windows mounts no file systems for one process";
    }
    const std::filesystem::path small = folder_ / "small";
    std::filesystem::create_directory(small);
    // A file system of a given size that nobody else sees, and that goes with the worker.
    const TemporaryFolder scratch;
    const auto withFileSystem = [&](const char* size) {
        std::vector<std::string> command = inMountNamespace(scratch.path());
        command.insert(command.end(),
                       {"sh", "-c", R"(mount -t tmpfs -o size="$0" none "$1" && shift && exec "$@")", size,
                        small.string()});
        return command;
    };
    std::vector<std::string> attempt = withFileSystem("16k");
    attempt.emplace_back("true");
    try {
        runCommand(attempt);
    } catch (const std::exception& error) {
        GTEST_SKIP() << "no file system of our own here: " << error.what();
    }
    server_.route("/clip.flv", pacedHandler(lasting(60s), {.speed = 0}));
    for (const char* size : {"4k", "100k", "600k"}) {
        QStringList prefix;
        for (const std::string& word : withFileSystem(size)) {
            prefix << QString::fromStdString(word);
        }
        Recording recording({.prefix = prefix});
        recording.start(server_.url("/clip.flv"), small / "out.mp4", 60000);
        ASSERT_EQ(recording.waitForExit(), 1) << size << recording.logText();
        EXPECT_NE(recording.logText().find("No space left on device"), std::string::npos)
            << size << recording.logText();
    }
}

TEST_F(Export, EndsWithOneAtOnceWhenTheParentIsGone) {
    for (const char* path : {"/live.flv", "/endless.flv", "/stalls.flv"}) {
        Recording recording;
        recording.start(server_.url(path), output_, 2'000'000'000);
        ASSERT_TRUE(recording.waitUntil([&] { return recording.connectedPid().has_value(); }));
        recording.listen(200ms);
        const auto left = Clock::now();
        recording.worker().disconnectLink();
        ASSERT_EQ(recording.waitForExit(), 1) << path << recording.logText();
        EXPECT_LT(*recording.endedAt() - left, 1s * kSlowness) << path;
        EXPECT_FALSE(recording.hasLineBeginning("http is finished"));
        if (std::filesystem::exists(output_)) {
            EXPECT_FALSE(isFinished(output_)) << path;
        }
    }
}

TEST_F(Export, GoesOnWithoutAParentThatWasNeverThere) {
    ChildProcess worker({.command = {MEDIAWORKER_PROGRAM, "export", server_.url("/clip.flv"), "2000",
                                     output_.string(), "no-such-server"},
                         .errors = folder_ / "err"});
    EXPECT_EQ(worker.wait(), 0);
    expectWholeClip(output_);
}

TEST_F(Export, IgnoresCommands) {
    Recording recording;
    recording.start(server_.url("/stalls.flv"), output_);
    ASSERT_TRUE(recording.waitUntil([&] { return recording.connectedPid().has_value(); }));
    for (const int type : {5, 6, 7, 9, 8, 77}) {
        recording.worker().writeRaw(QByteArray(1, static_cast<char>(type)) + QByteArray(2, '\0'));
        recording.listen(20ms);
    }
    EXPECT_TRUE(recording.worker().isRunning());
}

TEST_F(Export, KilledAtAnyMomentIsReported) {
    std::mt19937 random(7);
    std::uniform_int_distribution<int> delay(0, 120);
    for (int i = 0; i < 25; ++i) {
        Recording recording;
        recording.start(server_.url(i % 2 == 0 ? "/endless.flv" : "/live.flv"), output_, 2'000'000'000);
        recording.listen(std::chrono::milliseconds(delay(random)));
        const qint64 pid = recording.worker().processId();
        ASSERT_NE(pid, 0);
        recording.worker().kill();
        ASSERT_EQ(recording.waitForExit(), -1) << i;
        EXPECT_FALSE(platform::isRunning(pid));
    }
}

/// The temporary directory of workers and parents is one that nobody else uses: sockets, and the files that
/// stand for semaphores, would stay there. So are the semaphores, where that takes no more rights than we
/// have.
class ManyExports : public Export {
protected:
    [[nodiscard]] std::vector<std::string> leftBehind() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(temporary_.path())) {
            names.push_back(entry.path().filename().string());
        }
        if (const std::string list = platform::semaphores(); seesOwnSemaphoresOnly_ && !list.empty()) {
            names.push_back(list);
        }
        return names;
    }
    [[nodiscard]] std::filesystem::path output(int number) const {
        return folder_.path() / (std::to_string(number) + ".mp4");
    }

    const bool seesOwnSemaphoresOnly_ = platform::hideSemaphoresOfOthers();
    const TemporaryFolder temporary_;
    const platform::TemporaryDirectory useTemporary_{temporary_.path()};
};

TEST_F(ManyExports, InARowLeaveNothingBehind) {
    for (int i = 0; i < 200 / kSlowness; ++i) {
        Recording recording;
        recording.start(server_.url("/clip.flv"), output_);
        ASSERT_EQ(recording.waitForExit(), 0) << i << recording.logText();
    }
    EXPECT_THAT(leftBehind(), IsEmpty());
    expectWholeClip(output_);
}

TEST_F(ManyExports, AtOnceDoNotDisturbEachOther) {
    constexpr int kWorkers = 8;
    std::vector<std::unique_ptr<Recording>> recordings;
    for (int i = 0; i < kWorkers; ++i) {
        recordings.push_back(std::make_unique<Recording>());
        recordings.back()->start(server_.url("/clip.flv"), output(i));
    }
    for (int i = 0; i < kWorkers; ++i) {
        ASSERT_EQ(recordings[static_cast<std::size_t>(i)]->waitForExit(), 0) << i;
        expectWholeClip(output(i));
    }
    recordings.clear();
    EXPECT_THAT(leftBehind(), IsEmpty());
}

} // namespace
} // namespace mediaworker::test
