// The viewer on a screen that nobody sees: what showing a stream costs its process (the workers and the X
// server are others), and whether a grid keeps its rate. Prints rows of the table that bench/compare puts
// together.

#include "Clips.h"
#include "Measures.h"
#include "Table.h"
#include "support/ChildProcess.h"
#include "support/media/Clip.h"
#include "support/media/FlvStream.h"
#include "support/servers/HttpServer.h"
#include "support/servers/Pacing.h"
#include "support/servers/XServer.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

namespace {

using namespace mediaworker;
using bench::fail;
using bench::row;
using bench::text;

constexpr int kSettleSeconds = 4; // start, buffering, the window's first pictures
constexpr int kMeasuredSeconds = 10;

/// Seconds of processor time of one process with all its threads, without its children.
double cpuSeconds(std::int64_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    std::string line;
    std::getline(file, line);
    const auto name = line.rfind(')'); // it may hold spaces
    if (name == std::string::npos) {
        fail("the viewer is gone");
    }
    std::istringstream fields(line.substr(name + 2));
    std::vector<std::string> values{std::istream_iterator<std::string>(fields), {}};
    constexpr std::size_t kUserTime = 11; // utime and stime, counted from the state
    return static_cast<double>(std::stol(values.at(kUserTime)) + std::stol(values.at(kUserTime + 1))) /
           static_cast<double>(sysconf(_SC_CLK_TCK));
}

struct StreamResult {
    unsigned announced = 0;
    unsigned shown = 0;
    unsigned copied = 0;
    double fps = 0;
};

struct Result {
    double cpuShare = 0; ///< of one core
    std::vector<StreamResult> streams;
};

Result measure(const std::vector<std::string>& urls, int screenWidthPx, int screenHeightPx) {
    const test::XServer screen(screenWidthPx, screenHeightPx);
    const test::TemporaryFolder folder;
    test::ChildProcess::Options options;
    options.command = {VIEWER_PROGRAM, "--mute", "--statistics", "--seconds",
                       std::to_string(kSettleSeconds + kMeasuredSeconds + 2)};
    options.command.insert(options.command.end(), urls.begin(), urls.end());
    options.environment = {{"DISPLAY", screen.display()}, {"QT_QPA_PLATFORM", "xcb"}};
    options.output = folder / "statistics";
    options.errors = folder / "errors";
    test::ChildProcess viewer(options);

    Result result;
    std::this_thread::sleep_for(std::chrono::seconds(kSettleSeconds));
    const double before = cpuSeconds(viewer.id());
    const auto begin = bench::Clock::now();
    std::this_thread::sleep_for(std::chrono::seconds(kMeasuredSeconds));
    const std::chrono::duration<double> passed = bench::Clock::now() - begin;
    result.cpuShare = (cpuSeconds(viewer.id()) - before) / passed.count();
    if (viewer.wait() != 0) {
        fail("the viewer failed: " + test::readFile(folder / "errors"));
    }
    std::istringstream lines(test::readFile(folder / "statistics"));
    for (std::string line; std::getline(lines, line);) {
        StreamResult stream;
        if (std::sscanf(line.c_str(), "stream %*u: %u announced, %u shown, %u copied, %lf fps",
                        &stream.announced, &stream.shown, &stream.copied, &stream.fps) != 4) {
            fail("not understood: " + line);
        }
        result.streams.push_back(stream);
    }
    if (result.streams.size() != urls.size()) {
        fail("streams are missing");
    }
    return result;
}

std::vector<test::TimedBytes> liveStream(const test::ClipSpec& spec) {
    const test::Clip clip = test::encode(spec);
    test::FlvOptions options;
    options.repeats = 3;
    return test::makeFlv(clip, options);
}

std::string percent(const Result& result) {
    return text("%.1f %%", 100 * result.cpuShare);
}

void measureFullHd() {
    constexpr double kMostCpu = 0.15;
    test::HttpServer server;
    server.route("/live.flv", test::pacedHandler(liveStream(bench::fullHd(250)), {.burstMs = 1500}));
    // The window takes the picture's size where the screen has room for it.
    const Result plain = measure({server.url("/live.flv")}, 1920, 1200);
    const Result scaled = measure({server.url("/live.flv")}, 1366, 768);
    row("viewer showing 1080p25, pixel by pixel: CPU of its process, share of one core", percent(plain),
        "< 15 %", plain.cpuShare < kMostCpu);
    row("the same, scaled to a screen of 1366 × 768", percent(scaled), "< 15 %", scaled.cpuShare < kMostCpu);
    const StreamResult& stream = plain.streams.front();
    row("the same: copies of the picture per shown picture",
        text("%.2f (%u copies, %u shown, %u announced)", static_cast<double>(stream.copied) / stream.shown,
             stream.copied, stream.shown, stream.announced),
        "≤ 1", stream.copied <= stream.shown && stream.shown > 0);
}

struct Wall {
    const char* what; ///< the row's
    int streams;
    test::ClipSpec spec;
    double mostCpu; ///< of one core
};

test::ClipSpec small() {
    test::ClipSpec spec;
    spec.widthPx = 640;
    spec.heightPx = 360;
    spec.frames = 250;
    spec.gop = 50;
    spec.bitrateKbps = 1000;
    spec.noise = 8;
    spec.preset = "veryfast";
    return spec;
}

void measureWall(const Wall& wall) {
    constexpr double kLeastFps = 24.9;
    test::HttpServer server;
    server.route("/live.flv", test::pacedHandler(liveStream(wall.spec), {.burstMs = 1500}));
    const std::vector<std::string> urls(static_cast<std::size_t>(wall.streams), server.url("/live.flv"));
    const Result grid = measure(urls, 1920, 1200);
    const auto slower = [](const StreamResult& a, const StreamResult& b) { return a.fps < b.fps; };
    const auto [slowest, fastest] = std::minmax_element(grid.streams.begin(), grid.streams.end(), slower);
    unsigned announced = 0;
    unsigned shown = 0;
    for (const StreamResult& stream : grid.streams) {
        announced += stream.announced;
        shown += stream.shown;
    }
    row(wall.what,
        text("%.1f (fastest %.1f; %u of %u pictures)", slowest->fps, fastest->fps, shown, announced),
        text("≥ %.1f", kLeastFps), slowest->fps >= kLeastFps);
    row("the same: CPU of its process, share of one core", percent(grid),
        text("< %.0f %%", 100 * wall.mostCpu), grid.cpuShare < wall.mostCpu);
}

void measureWalls() {
    for (const Wall& wall :
         {Wall{"viewer with a grid of nine 640 × 360 streams: pictures shown per second, slowest stream", 9,
               small(), 0.2},
          Wall{"viewer with a grid of sixteen 640 × 360 streams: the same", 16, small(), 0.25},
          Wall{"viewer with a grid of four 1920 × 1080 streams: the same", 4, bench::fullHd(250), 0.3}}) {
        measureWall(wall);
    }
}

} // namespace

int main() {
    measureFullHd();
    measureWalls();
    return 0;
}
