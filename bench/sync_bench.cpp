// How far the sound of the whole worker is from its pictures: the sound that a sound server's device plays,
// against the times of the frame messages. Prints rows of a table, with the sound in its own rhythm and in
// step with the pictures.
//
//     sync_bench [row [off|on]]      rows by their first word; -v as the last argument shows every half
//     second

#include "SyncRun.h"
#include "support/media/Clip.h"
#include "support/media/FlvStream.h"
#include "support/servers/HttpServer.h"
#include "support/servers/Pacing.h"
#include "support/servers/Sweep.h"

#include <QCoreApplication>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace mediaworker;
using namespace std::chrono_literals;
using std::chrono::milliseconds;
using test::Clip;
using test::ClipSpec;
using test::Clock;
using test::HttpServer;
using test::SyncRun;
using test::TimedBytes;

constexpr std::int64_t kBurstMs = 1500; ///< what a live server holds for newcomers
/// The encoder's first frame holds nothing yet.
constexpr double kAacDelayMs = 1024 * 1000.0 / 44100;
constexpr auto kSettling = 1s;

ClipSpec spec(int seconds, test::AudioCodec codec = test::AudioCodec::Aac) {
    ClipSpec result;
    result.frames = 25 * seconds;
    result.zeroLatency = true;
    result.audio = codec;
    result.wave = test::sweepWave();
    if (codec == test::AudioCodec::ALaw) {
        result.sampleRate = 8000;
        result.channels = 1;
    }
    return result;
}

/// What to serve, what to do while it plays, and when the measuring begins and how long it takes.
struct Row {
    const char* name;
    const char* what;
    ClipSpec clip;
    std::string path = "/live.flv";
    test::PaceOptions pace = {.burstMs = kBurstMs, .staysOpen = true};
    std::int64_t soundLaterMs = 0; ///< in the stream; negative: the pictures are
    milliseconds heldBackAt{0};    ///< 0: never
    milliseconds heldBackFor{0};
    /// Returns at the event that the row is about.
    std::function<void(SyncRun&)> act = [](SyncRun& run) { turnOn(run); };
    milliseconds measured = 12s;

    static void turnOn(SyncRun& run) { static_cast<void>(run.session().worker().setVolume(100)); }
};

void turnOnAfter(SyncRun& run, milliseconds wait) {
    run.session().listen(wait);
    Row::turnOn(run);
}

void pauseTimes(SyncRun& run, int times) {
    Row::turnOn(run);
    for (int i = 0; i < times; ++i) {
        run.session().listen(3s);
        run.pauseFor(2s);
    }
}

std::vector<Row> rows() {
    using test::AudioCodec;
    ClipSpec bFrames = spec(30);
    bFrames.zeroLatency = false;
    bFrames.bFrames = 2;
    ClipSpec rich = spec(50, AudioCodec::ALaw);
    rich.sampleRate = 40'000; // 8 bits a sample
    rich.bitrateKbps = 2100;
    rich.noise = 40;
    rich.widthPx = 640;
    rich.heightPx = 360;
    rich.extraVideoArguments = {"-x264-params", "nal-hrd=cbr:filler=1"};
    const std::string archive = "/archive.flv";
    const test::PaceOptions asFastAsRead = {.speed = 0, .staysOpen = true};
    const test::PaceOptions asItComes = {.staysOpen = true};
    return {
        {.name = "live", .what = "live, sound on from the start, AAC", .clip = spec(30)},
        {.name = "alaw", .what = "the same, A-law", .clip = spec(30, AudioCodec::ALaw)},
        {.name = "bframes", .what = "the same, AAC, with B-frames", .clip = bFrames},
        {.name = "on5",
         .what = "sound turned on after 5 s",
         .clip = spec(30),
         .act = [](SyncRun& run) { turnOnAfter(run, 5s); }},
        {.name = "on15",
         .what = "sound turned on after 15 s",
         .clip = spec(40),
         .act = [](SyncRun& run) { turnOnAfter(run, 15s); }},
        {.name = "pause",
         .what = "live, after a pause of 2 s",
         .clip = spec(30),
         .act = [](SyncRun& run) { pauseTimes(run, 1); }},
        {.name = "pauses",
         .what = "archive, after three pauses",
         .clip = spec(40),
         .path = archive,
         .pace = asFastAsRead,
         .act = [](SyncRun& run) { pauseTimes(run, 3); }},
        {.name = "burst",
         .what = "after the server held back 3 s and burst",
         .clip = spec(40),
         .heldBackAt = 8s,
         .heldBackFor = 3s,
         .act =
             [](SyncRun& run) {
                 Row::turnOn(run);
                 run.session().listen(11s);
             }},
        {.name = "speed",
         .what = "stream without buffering (archive with speed)",
         .clip = spec(30),
         .path = archive + "?speed=2",
         .pace = asItComes},
        {.name = "later",
         .what = "sound begins 0.5 s later in the stream",
         .clip = spec(30),
         .soundLaterMs = 500},
        {.name = "sooner",
         .what = "pictures begin 0.5 s later in the stream",
         .clip = spec(30),
         .soundLaterMs = -500},
        {.name = "rich",
         .what = "320 kbit/s sound, 2.1 Mbit/s pictures, after 31 s",
         .clip = rich,
         .path = archive,
         .pace = asFastAsRead,
         .act =
             [](SyncRun& run) {
                 Row::turnOn(run);
                 run.session().listen(30s);
             }},
        {.name = "minute", .what = "a minute that nothing disturbs", .clip = spec(70), .measured = 60s},
        {.name = "minute-speed",
         .what = "the same without buffering",
         .clip = spec(70),
         .path = archive + "?speed=2",
         .pace = asItComes,
         .measured = 60s},
    };
}

Clip shifted(Clip clip, std::int64_t soundLaterMs) {
    for (auto& packet : clip.audio) {
        packet.dtsMs += std::max<std::int64_t>(soundLaterMs, 0);
    }
    for (auto& packet : clip.video) {
        packet.dtsMs += std::max<std::int64_t>(-soundLaterMs, 0);
        packet.ptsMs += std::max<std::int64_t>(-soundLaterMs, 0);
    }
    return clip;
}

/// Nothing leaves the server while it holds back; what is due then comes at once.
std::vector<TimedBytes> heldBack(std::vector<TimedBytes> pieces, const Row& row) {
    const std::int64_t from = row.heldBackAt.count() + row.pace.burstMs;
    const std::int64_t to = from + row.heldBackFor.count();
    for (TimedBytes& piece : pieces) {
        piece.ms = piece.ms >= from && piece.ms < to ? to : piece.ms;
    }
    return pieces;
}

void measure(const Row& row, const std::string& sync, bool verbose) {
    const Clip clip = shifted(test::encode(row.clip), row.soundLaterMs);
    auto pieces = test::makeFlv(clip);
    if (row.heldBackFor > 0ms) {
        pieces = heldBack(std::move(pieces), row);
    }
    HttpServer server;
    server.route(row.path.substr(0, row.path.find('?')), test::pacedHandler(std::move(pieces), row.pace));
    SyncRun run("sync=" + sync);
    run.start(server.url("/") + row.path.substr(1));
    const Clock::time_point began = Clock::now();
    row.act(run);
    const Clock::time_point event = Clock::now();
    run.session().listen(kSettling + row.measured);
    const double codecDelayMs = row.clip.audio == test::AudioCodec::Aac ? kAacDelayMs : 0;
    run.finish(codecDelayMs + static_cast<double>(std::max<std::int64_t>(row.soundLaterMs, 0)));
    const auto result = run.measure(event + kSettling, event + kSettling + row.measured);
    const bool isInside = result.low >= test::kEarliestMs && result.high <= test::kLatestMs;
    std::printf("| %s | %s | %+.0f ms | %+.0f .. %+.0f | %.0f %% | %.0f ms | %.0f ms | %s |\n", row.what,
                sync.c_str(), result.median, result.low, result.high, result.insideShare * 100,
                result.longestGap, result.largestJump, result.readings > 0 && isInside ? "yes" : "NO");
    if (verbose) {
        std::printf("  %s\n", run.course(began, event + kSettling + row.measured).c_str());
        for (const auto& line : run.session().log()) {
            std::printf("  %8.3f %s\n", std::chrono::duration<double>(line.when - began).count(),
                        line.text.c_str());
        }
    }
    std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    std::vector<std::string> arguments(argv + 1, argv + argc);
    const bool verbose = !arguments.empty() && arguments.back() == "-v";
    if (verbose) {
        arguments.pop_back();
    }
    std::printf(
        "| what | sync | median, positive: sound late | 90 %% of the time | within -45 .. +125 ms | longest "
        "gap | largest jump | kept |\n|---|---|---|---|---|---|---|---|\n");
    for (const Row& row : rows()) {
        if (!arguments.empty() && arguments[0] != row.name) {
            continue;
        }
        for (const std::string sync : {"off", "on"}) {
            if (arguments.size() < 2 || arguments[1] == sync) {
                measure(row, sync, verbose);
            }
        }
    }
    return 0;
}
