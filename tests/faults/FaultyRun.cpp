#include "FaultyRun.h"

#include "Mp4File.h"
#include "Session.h"
#include "support/Platform.h"
#include "support/servers/Pacing.h"

#include <exception>
#include <optional>

namespace mediaworker::test {
namespace {

using namespace std::chrono_literals;

/// Far beyond all time-outs of a worker.
constexpr auto kLongestRun = 60s;

/// The system's, not the worker's: its loader ends a process itself where it finds no memory for the symbols
/// of a library.
constexpr int kLoaderEnded = 127;
constexpr const char* kLoadersLastWords = "out of memory";

bool mayHave(Job job, int code) {
    switch (job) {
    case Job::Stream:
        return code >= 1 && code <= 4; // 0 would be the parent's wish
    case Job::LocalFile:
        return code == 1 || code == 2 || code == 4;
    case Job::Export:
    case Job::SafeExport:
        break;
    }
    return code == 0 || code == 1;
}

} // namespace

FaultyRuns::FaultyRuns() {
    ClipSpec spec;
    spec.widthPx = 160;
    spec.heightPx = 90;
    spec.frames = 10;
    spec.audio = AudioCodec::Aac;
    const Clip clip = encode(spec);
    pictures_ = clip.video.size();
    clipFile_ = encodedFile(spec);
    server_.route("/live.flv", pacedHandler(makeFlv(clip), {.speed = 0}));
}

Outcome FaultyRuns::run(Job job, const Fault& fault) {
    const std::filesystem::path report = folder_ / "struck";
    const std::filesystem::path file = folder_ / "export.mp4";
    std::filesystem::remove(report);
    std::filesystem::remove(file);
    Session session(
        {.environment = {{"LD_PRELOAD", FAULTS_LIBRARY},
                         {"MEDIAWORKER_FAULT", fault.kind},
                         {"MEDIAWORKER_FAULT_AT", std::to_string(fault.at)},
                         {"MEDIAWORKER_FAULT_ERROR", std::to_string(fault.error)},
                         {"MEDIAWORKER_FAULT_FILE", file.string()},
                         {"MEDIAWORKER_FAULT_REPORT", report.string()},
                         {"MEDIAWORKER_OPTIONS",
                          job == Job::SafeExport ? "flv=standard,mp4=safe" : "flv=standard,sync=on"}}});
    QObject::connect(&session.worker(), &parent::WorkerProcess::connected,
                     [&] { static_cast<void>(session.worker().setVolume(10)); });
    switch (job) {
    case Job::Stream:
        session.start(server_.url("/live.flv"));
        break;
    case Job::LocalFile:
        session.start(platform::fileUrl(clipFile_));
        break;
    case Job::Export:
    case Job::SafeExport:
        if (!session.worker().start(parent::ExportJob{QString::fromStdString(server_.url("/live.flv")), 400,
                                                      QString::fromStdString(file.string())})) {
            throw std::runtime_error(session.worker().errorString().toStdString());
        }
    }
    Outcome outcome;
    const std::optional<int> code = session.waitForExit(kLongestRun);
    outcome.struck = std::filesystem::exists(report);
    outcome.ended = code.has_value();
    outcome.code = code.value_or(-1);
    outcome.log = session.logText();
    outcome.problem = problemOf(job, outcome, file);
    return outcome;
}

std::string FaultyRuns::problemOf(Job job, const Outcome& outcome, const std::filesystem::path& file) const {
    if (!outcome.ended) {
        return "it does not end";
    }
    if (outcome.code == -1) {
        return "it ended by a signal";
    }
    const bool isLoaders =
        outcome.code == kLoaderEnded && outcome.log.find(kLoadersLastWords) != std::string::npos;
    if (!isLoaders && !mayHave(job, outcome.code)) {
        return "no worker of the kind has code " + std::to_string(outcome.code);
    }
    // The code says that the file is complete.
    if ((job == Job::Export || job == Job::SafeExport) && outcome.code == 0) {
        try {
            const auto streams = readMp4(file);
            if (streams.size() != 2 || streams[0].packets.size() != pictures_) {
                return "code 0, but the file is not complete";
            }
        } catch (const std::exception& error) {
            return std::string("code 0, but the file cannot be read: ") + error.what();
        }
    }
    return {};
}

} // namespace mediaworker::test
