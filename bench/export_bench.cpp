// The whole worker, exporting a long stream and playing a local file, against ffmpeg on the same media in the
// same run. Prints rows of the table that bench/compare puts together.

#include "Clips.h"
#include "Measures.h"
#include "Player.h"
#include "Table.h"

#include "parent/WorkerProcess.h"
#include "support/ChildProcess.h"
#include "support/media/Clip.h"
#include "support/media/FlvStream.h"
#include "support/servers/HttpServer.h"

#include <QCoreApplication>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace {

using namespace mediaworker;
using bench::Clock;
using bench::fail;
using bench::median;
using bench::row;
using bench::text;
using test::Clip;
using test::ClipSpec;

/// What it took one process to do its work.
struct Cost {
    double wallSeconds = 0;
    double cpuSeconds = 0;
    double peakMb = 0;
};

struct Costs {
    std::vector<double> wallSeconds;
    std::vector<double> cpuSeconds;
    std::vector<double> peakMb;

    void add(const Cost& cost) {
        wallSeconds.push_back(cost.wallSeconds);
        cpuSeconds.push_back(cost.cpuSeconds);
        peakMb.push_back(cost.peakMb);
    }
};

double secondsSince(Clock::time_point begin) {
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

Cost exportWithWorker(const std::string& url, std::int64_t durationMs, const std::filesystem::path& file,
                      bool crashSafe) {
    parent::WorkerProcess worker;
    worker.setProgram(QStringLiteral(MEDIAWORKER_PROGRAM));
    std::optional<int> code;
    QObject::connect(&worker, &parent::WorkerProcess::finished,
                     [&](int exitCode, bool crashed) { code = crashed ? -1 : exitCode; });
    const double cpuBefore = bench::childCpuSeconds();
    const auto begin = Clock::now();
    parent::ExportJob job;
    job.url = QString::fromStdString(url);
    job.durationMs = static_cast<int>(durationMs);
    job.outputPath = QString::fromStdString(file.string());
    job.crashSafe = crashSafe;
    if (!worker.start(job)) {
        fail("the worker does not start: " + worker.errorString().toStdString());
    }
    Cost cost;
    {
        const bench::PeakMemory memory(worker.processId());
        bench::waitFor([&] { return code.has_value(); });
        cost.wallSeconds = secondsSince(begin);
        cost.peakMb = memory.mb();
    }
    if (code != 0) {
        fail("the worker does not export:\n" + worker.recentLog().join(QLatin1Char('\n')).toStdString());
    }
    cost.cpuSeconds = bench::childCpuSeconds() - cpuBefore;
    return cost;
}

Cost runFfmpeg(const std::vector<std::string>& arguments) {
    std::vector<std::string> command = {"ffmpeg", "-v", "error", "-nostdin"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    const double cpuBefore = bench::childCpuSeconds();
    const auto begin = Clock::now();
    test::ChildProcess ffmpeg({.command = command});
    Cost cost;
    {
        const bench::PeakMemory memory(ffmpeg.id());
        if (ffmpeg.wait() != 0) {
            fail("ffmpeg fails");
        }
        cost.wallSeconds = secondsSince(begin);
        cost.peakMb = memory.mb();
    }
    cost.cpuSeconds = bench::childCpuSeconds() - cpuBefore;
    return cost;
}

enum class Unit { Seconds, Megabytes };

void compareCosts(const char* what, const std::vector<double>& ours, const std::vector<double>& theirs,
                  Unit unit, double most) {
    const double ratio = median(ours) / median(theirs);
    const char* const format =
        unit == Unit::Seconds ? "%.2f × (%.2f s, %.2f s)" : "%.2f × (%.0f MB, %.0f MB)";
    row(what, text(format, ratio, median(ours), median(theirs)), text("≤ %.2f ×", most).c_str(),
        ratio <= most);
}

void measureExport() {
    constexpr std::size_t kStreamBytes = 300'000'000;
    constexpr int kRounds = 7;
    const Clip clip = test::encode([] {
        ClipSpec spec = bench::fullHd(600);
        spec.audio = test::AudioCodec::Aac;
        return spec;
    }());
    test::FlvOptions options;
    options.repeats = static_cast<int>(kStreamBytes / test::toBytes(test::makeFlv(clip)).size()) + 1;
    const std::vector<std::uint8_t> bytes = test::toBytes(test::makeFlv(clip, options));
    test::HttpServer server;
    server.route("/archive.flv", [&bytes](test::HttpResponse& response) {
        response.contentLength(bytes.size());
        response.send(bytes);
    });
    const std::string url = server.url("/archive.flv");
    const test::TemporaryFolder folder;
    const auto file = folder / "out.mp4";
    Costs ours;
    Costs safe;
    Costs theirs;
    for (int round = 0; round < kRounds; ++round) {
        ours.add(exportWithWorker(url, clip.durationMs() * options.repeats, file, false));
        safe.add(exportWithWorker(url, clip.durationMs() * options.repeats, file, true));
        const auto size = std::filesystem::file_size(file);
        theirs.add(runFfmpeg({"-i", url, "-c", "copy", "-y", file.string()}));
        // The same packets, so much the same size.
        if (size < std::filesystem::file_size(file) / 100 * 99) {
            fail("the worker exported only " + std::to_string(size) + " bytes");
        }
    }
    compareCosts(
        "export of a 300 MB FLV over loopback HTTP: wall time, against `ffmpeg -i URL -c copy OUT.mp4`",
        ours.wallSeconds, theirs.wallSeconds, Unit::Seconds, 1.0);
    compareCosts("the same: CPU seconds, user + system", ours.cpuSeconds, theirs.cpuSeconds, Unit::Seconds,
                 1.1);
    compareCosts("the same: peak resident memory", ours.peakMb, theirs.peakMb, Unit::Megabytes, 1.0);
    compareCosts("the same export with `mp4=safe`, whose file a crash does not cost: wall time",
                 safe.wallSeconds, theirs.wallSeconds, Unit::Seconds, 1.1);
    compareCosts("with `mp4=safe`: CPU seconds, user + system", safe.cpuSeconds, theirs.cpuSeconds,
                 Unit::Seconds, 1.1);
    compareCosts("with `mp4=safe`: peak resident memory", safe.peakMb, theirs.peakMb, Unit::Megabytes, 1.0);
}

/// A file plays at its own pace; the peer decodes and converts as fast as it can.
void measureFile() {
    constexpr int kPictures = 600;
    const auto file = test::encodedFile([] {
                          ClipSpec spec = bench::fullHd(kPictures);
                          spec.bFrames = 2;
                          return spec;
                      }())
                          .string();
    std::vector<double> ours;
    std::vector<double> theirs;
    for (int round = 0; round < 2; ++round) {
        const double before = bench::childCpuSeconds();
        std::size_t pictures = 0;
        {
            bench::Player player("file://" + file);
            player.waitForEnd();
            pictures = player.shown().size();
        }
        ours.push_back((bench::childCpuSeconds() - before) * 1000 / static_cast<double>(pictures));
        if (pictures < kPictures - 8) { // the last ones stay in the decoder
            fail("the worker showed only " + std::to_string(pictures) + " pictures");
        }
        const Cost cost = runFfmpeg(
            {"-threads", "1", "-i", file, "-an", "-pix_fmt", "bgra", "-f", "rawvideo", "-y", "/dev/null"});
        theirs.push_back(cost.cpuSeconds * 1000 / kPictures);
    }
    compareCosts(
        "playing a local 1080p file: CPU seconds per 1,000 pictures, against `ffmpeg -threads 1 -i FILE`",
        ours, theirs, Unit::Seconds, 1.1);
}

} // namespace

/// With an argument, only the measurement of that name.
int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    bench::run({{"export", measureExport}, {"file", measureFile}}, argc, argv);
    return 0;
}
