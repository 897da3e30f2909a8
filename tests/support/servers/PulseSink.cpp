#include "support/servers/PulseSink.h"

#include <algorithm>
#include <csignal>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <thread>

namespace mediaworker::test {
namespace {

using namespace std::chrono_literals;

void waitUntil(const std::function<bool()>& isDone, const std::string& what) {
    const auto deadline = std::chrono::steady_clock::now() + 20s;
    while (!isDone()) {
        if (std::chrono::steady_clock::now() > deadline) {
            throw std::runtime_error("PulseSink: " + what);
        }
        std::this_thread::sleep_for(5ms);
    }
}

} // namespace

PulseSink::PulseSink() : server_(folder_.path()) {
    waitUntil(
        [&] {
            server_.expectToRun();
            ChildProcess probe({.command = {"pactl", "info"},
                                .environment = environment(),
                                .errors = folder_ / "probe.log"});
            return probe.wait() == 0;
        },
        "the server does not answer");
}

PulseSink::~PulseSink() = default;

std::vector<std::pair<std::string, std::string>> PulseSink::environment() const {
    return server_.environment();
}

void PulseSink::startRecording() {
    const auto file = folder_ / "recording";
    std::filesystem::remove(file);
    recorder_ = std::make_unique<ChildProcess>(ChildProcess::Options{
        .command = {"parec", "-d", "test.monitor", "--raw", "--format=s16le",
                    "--rate=" + std::to_string(kRate), "--channels=1", "--latency-msec=20"},
        .environment = environment(),
        .output = file,
        .errors = folder_ / "recorder.log"});
    waitUntil([&] { return std::filesystem::exists(file) && std::filesystem::file_size(file) > 0; },
              "no samples arrive");
    beginsMs_.clear();
    watcher_ = std::jthread([this](const std::stop_token& stop) { watch(stop); });
}

void PulseSink::watch(const std::stop_token& stop) {
    while (!stop.stop_requested()) {
        std::error_code failure;
        const auto bytes = std::filesystem::file_size(folder_ / "recording", failure);
        const std::chrono::duration<double, std::milli> now =
            std::chrono::steady_clock::now().time_since_epoch();
        if (!failure) {
            const auto samples = static_cast<double>(bytes / sizeof(std::int16_t));
            beginsMs_.push_back(now.count() - samples * 1000 / kRate);
        }
        std::this_thread::sleep_for(3ms);
    }
}

std::chrono::steady_clock::time_point PulseSink::recordingBegan() const {
    // A sound server hands samples over in blocks of 20 ms, when their first one is due: half of the looks
    // see no more than 10 ms ahead of what is heard.
    constexpr double kHalfABlockMs = 10;
    std::vector<double> begins = beginsMs_;
    const auto middle = begins.begin() + static_cast<std::ptrdiff_t>(begins.size() / 2);
    std::nth_element(begins.begin(), middle, begins.end());
    const std::chrono::duration<double, std::milli> began(begins.empty() ? 0 : *middle + kHalfABlockMs);
    return std::chrono::steady_clock::time_point(
        std::chrono::duration_cast<std::chrono::steady_clock::duration>(began));
}

std::vector<std::int16_t> PulseSink::stopRecording() {
    watcher_ = {};
    recorder_->signal(SIGTERM);
    recorder_->wait();
    recorder_.reset();
    const std::string bytes = readFile(folder_ / "recording");
    std::vector<std::int16_t> samples(bytes.size() / sizeof(std::int16_t));
    std::memcpy(samples.data(), bytes.data(), samples.size() * sizeof(std::int16_t));
    return samples;
}

std::vector<std::int16_t> PulseSink::record(std::chrono::milliseconds duration) {
    startRecording();
    std::this_thread::sleep_for(duration);
    return stopRecording();
}

int PulseSink::playingStreams() const {
    const std::string list = runCommand({"pactl", "list", "short", "sink-inputs"}, environment());
    return static_cast<int>(std::count(list.begin(), list.end(), '\n'));
}

void PulseSink::kill() {
    server_.kill();
}

} // namespace mediaworker::test
