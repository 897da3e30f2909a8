#include "Onset.h"

#include "Ffprobe.h"
#include "Workshop.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

namespace mediaworker::test {
namespace {

using std::chrono::microseconds;

constexpr int kRate = 8000;

std::vector<std::int16_t> decodedSound(const std::filesystem::path& file) {
    const std::string bytes =
        Workshop::run({"ffmpeg", "-nostdin", "-v", "error", "-i", file.string(), "-map", "a:0", "-f", "s16le",
                       "-ac", "1", "-ar", std::to_string(kRate), "pipe:1"});
    std::vector<std::int16_t> samples(bytes.size() / sizeof(std::int16_t));
    std::memcpy(samples.data(), bytes.data(), samples.size() * sizeof(std::int16_t));
    return samples;
}

/// Of what a decoder gives first: what an encoder needed before its begin is not played.
microseconds firstSampleAt(const std::filesystem::path& file) {
    const std::string text =
        Workshop::run({"ffprobe", "-v", "error", "-select_streams", "a:0", "-show_entries", "frame=pts_time",
                       "-of", "default=nw=1:nk=1", file.string()});
    if (text.empty()) {
        throw std::runtime_error(file.string() + " has no sound");
    }
    return microseconds(std::llround(std::stod(text) * 1e6));
}

microseconds firstPictureAt(const std::filesystem::path& file) {
    const auto tracks = ffprobe(file);
    const ProbedTrack* video = trackOf(tracks, /*isVideo*/ true);
    if (video == nullptr || video->packets.empty()) {
        throw std::runtime_error(file.string() + " has no pictures");
    }
    return std::min_element(video->packets.begin(), video->packets.end(),
                            [](const ProbedPacket& a, const ProbedPacket& b) { return a.pts < b.pts; })
        ->pts;
}

} // namespace

microseconds toneBegin(const std::filesystem::path& file) {
    constexpr double kHalfOfTheTone = 0.25 * 32768;
    const auto samples = decodedSound(file);
    const auto first = std::find_if(samples.begin(), samples.end(), [](std::int16_t sample) {
        return std::abs(static_cast<double>(sample)) > kHalfOfTheTone;
    });
    if (first == samples.end()) {
        throw std::runtime_error(file.string() + " has no tone");
    }
    const microseconds intoSound((first - samples.begin()) * 1'000'000 / kRate);
    return firstSampleAt(file) + intoSound - firstPictureAt(file);
}

} // namespace mediaworker::test
