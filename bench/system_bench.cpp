// What the whole worker takes on this system, to be compared with the same on another one: a line for each
// figure, its name and value. See bench/compare-windows.

#include "Clips.h"
#include "Measures.h"
#include "Player.h"
#include "Table.h"

#include "parent/WorkerProcess.h"
#include "support/ChildProcess.h"
#include "support/Platform.h"
#include "support/media/FlvStream.h"
#include "support/servers/HttpServer.h"

#include <QCoreApplication>

#include <cstdio>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace {

using namespace mediaworker;
using bench::Clock;
using bench::fail;
using bench::median;
using bench::Milliseconds;
using bench::Player;
using test::Clip;
using test::ClipSpec;

void print(const char* name, const std::vector<double>& values) {
    std::printf("%s %.3f\n", name, median(values));
    std::fflush(stdout);
}

/// A live stream whose server holds two seconds back for newcomers.
void measureStart() {
    constexpr int kRounds = 9;
    ClipSpec spec = bench::fullHd(2 * bench::kFps);
    spec.zeroLatency = true;
    spec.audio = test::AudioCodec::Aac;
    const auto bytes = test::toBytes(test::makeFlv(test::encode(spec)));
    test::HttpServer server;
    server.route("/live.flv", [&](test::HttpResponse& response) {
        response.send(bytes);
        response.waitForClientToLeave();
    });
    std::vector<double> messages;
    std::vector<double> pictures;
    for (int round = 0; round < kRounds; ++round) {
        Player player(server.url("/live.flv"));
        player.waitForFrames(1);
        messages.push_back(Milliseconds(player.connected() - player.started()).count());
        pictures.push_back(Milliseconds(player.shown()[0].when - player.started()).count());
        player.end();
    }
    print("first_message_ms", messages);
    print("first_picture_ms", pictures);
}

void measureExport() {
    constexpr std::size_t kStreamBytes = 300'000'000;
    constexpr int kRounds = 5;
    ClipSpec spec = bench::fullHd(600);
    spec.audio = test::AudioCodec::Aac;
    const Clip clip = test::encode(spec);
    test::FlvOptions options;
    options.repeats = static_cast<int>(kStreamBytes / test::toBytes(test::makeFlv(clip)).size()) + 1;
    const auto bytes = test::toBytes(test::makeFlv(clip, options));
    test::HttpServer server;
    server.route("/archive.flv", [&bytes](test::HttpResponse& response) {
        response.contentLength(bytes.size());
        response.send(bytes);
    });
    const test::TemporaryFolder folder;
    const auto file = folder / "out.mp4";
    std::vector<double> wall;
    for (int round = 0; round < kRounds; ++round) {
        parent::WorkerProcess worker;
        worker.setProgram(QStringLiteral(MEDIAWORKER_PROGRAM));
        std::optional<int> code;
        QObject::connect(&worker, &parent::WorkerProcess::finished,
                         [&](int exitCode, bool crashed) { code = crashed ? -1 : exitCode; });
        parent::ExportJob job;
        job.url = QString::fromStdString(server.url("/archive.flv"));
        job.durationMs = static_cast<int>(clip.durationMs() * options.repeats);
        job.outputPath = QString::fromStdString(file.string());
        const auto begin = Clock::now();
        if (!worker.start(job)) {
            fail("the worker does not start: " + worker.errorString().toStdString());
        }
        bench::waitFor([&] { return code.has_value(); });
        wall.push_back(std::chrono::duration<double>(Clock::now() - begin).count());
        if (code != 0 || std::filesystem::file_size(file) < kStreamBytes / 100 * 99) {
            fail("the worker does not export:\n" + worker.recentLog().join(QLatin1Char('\n')).toStdString());
        }
    }
    print("export_s", wall);
}

/// A local file, at its own pace.
void measurePlaying() {
    constexpr int kPictures = 600;
    ClipSpec spec = bench::fullHd(kPictures);
    spec.bFrames = 2;
    Player player(test::platform::fileUrl(test::encodedFile(spec)));
    player.waitForEnd();
    const std::size_t pictures = player.shown().size();
    if (pictures < kPictures - 8) { // the last ones stay in the decoder
        fail("the worker showed only " + std::to_string(pictures) + " pictures");
    }
    print("pictures", {static_cast<double>(pictures)});
}

} // namespace

/// With an argument, only the measurement of that name.
int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    bench::run({{"export", measureExport}, {"playing", measurePlaying}, {"start", measureStart}}, argc, argv);
    return 0;
}
