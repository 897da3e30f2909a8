#include "Spectator.h"

#include "Workshop.h"
#include "support/ChildProcess.h"
#include "support/servers/Tone.h"

#include <future>
#include <optional>
#include <span>
#include <thread>

namespace mediaworker::test {
namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;

milliseconds toneIn(std::span<const std::int16_t> samples) {
    constexpr milliseconds kPiece = 50ms;
    constexpr double kAudible = 0.05;
    constexpr std::size_t kPieceSamples = PulseSink::kRate * kPiece.count() / 1000;
    milliseconds heard{0};
    for (std::size_t at = 0; at + kPieceSamples <= samples.size(); at += kPieceSamples) {
        if (toneLevel(samples.subspan(at, kPieceSamples), PulseSink::kRate, kFilmToneHz) > kAudible) {
            heard += kPiece;
        }
    }
    return heard;
}

} // namespace

const char* optionsOf(Reading reading) {
    return reading == Reading::Strict ? "" : "flv=standard,sync=on";
}

Spectator::Spectator(Reading reading, bool hasSound) {
    Session::Options options;
    options.environment = {{"MEDIAWORKER_OPTIONS", optionsOf(reading)}};
    if (hasSound) {
        sink_ = std::make_unique<PulseSink>();
        for (const auto& variable : sink_->environment()) {
            options.environment.push_back(variable);
        }
        recordAtOnce();
    }
    session_ = std::make_unique<Session>(options);
}

void Spectator::start(const std::string& url, bool hasVideo) {
    parent::WorkerProcess& worker = session_->worker();
    const auto wantSound = [this, &worker] {
        if (sink_ && !isSoundWanted_) {
            isSoundWanted_ = worker.setVolume(100);
        }
    };
    QObject::connect(&worker, &parent::WorkerProcess::frame, wantSound);
    if (!hasVideo) {
        QObject::connect(&worker, &parent::WorkerProcess::connected, wantSound);
    }
    session_->start(url);
}

std::vector<std::string> Spectator::wrongPictures() const {
    const auto number = [](const std::optional<int>& read) { return read ? std::to_string(*read) : "none"; };
    std::vector<std::string> wrong;
    const Shown* before = nullptr;
    const auto& all = session_->shown();
    for (auto next = all.begin(); next != all.end();) {
        const Shown& shown = *next++;
        const std::string what =
            "at " + std::to_string(shown.ptsMs) + " ms picture " + number(shown.numbers.top);
        if (!shown.isWhole()) {
            // Of a new size there is no picture yet when the last message of the old one is read.
            if (next == all.end() || before == nullptr || next->widthPx == before->widthPx) {
                wrong.push_back(what + ", at its bottom " + number(shown.numbers.bottom));
            }
            continue;
        }
        if (before != nullptr && before->widthPx == shown.widthPx) {
            // The film begins anew at its end.
            const int step = (*shown.numbers.top - *before->numbers.top + kFilmPictures) % kFilmPictures;
            if (step > kFilmPictures / 2) {
                wrong.push_back(what + " after " + number(before->numbers.top));
            }
        }
        before = &shown;
    }
    return wrong;
}

milliseconds Spectator::heard() {
    return sink_ ? toneIn(sink_->stopRecording()) : 0ms;
}

/// Without this, a device that nobody has used yet has begun two seconds of silence when it is asked for less
/// at a time, and ends them first.
void Spectator::recordAtOnce() {
    const auto wakeUp = std::async(std::launch::async, [&] {
        std::this_thread::sleep_for(50ms);
        for (const char* isSuspended : {"1", "0"}) {
            runCommand({"pactl", "suspend-sink", "test", isSuspended}, sink_->environment());
        }
    });
    sink_->startRecording();
    wakeUp.wait();
}

} // namespace mediaworker::test
