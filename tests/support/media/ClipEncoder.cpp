#include "support/ChildProcess.h"
#include "support/FileLock.h"
#include "support/media/Clip.h"
#include "support/media/TestPicture.h"

#include <cstdlib>
#include <iomanip>
#include <sstream>
#include <stdexcept>

namespace mediaworker::test {
namespace {

/// Part of every cache key: raise it when the pictures or the encoder's arguments change.
constexpr int kCacheVersion = 1;

std::string describe(const ClipSpec& spec) {
    std::ostringstream text;
    text << kCacheVersion << ' ' << static_cast<int>(spec.codec) << ' ' << spec.widthPx << 'x'
         << spec.heightPx << ' ' << spec.fps << ' ' << spec.frames << ' ' << spec.firstFrameNumber << ' '
         << spec.gop << ' ' << spec.bFrames << ' ' << spec.bitrateKbps << ' ' << spec.crf << ' '
         << spec.preset << ' ' << spec.zeroLatency << ' ' << spec.tenBit << ' ' << spec.sarNumerator << '/'
         << spec.sarDenominator << ' ' << spec.noise << ' ' << static_cast<int>(spec.audio) << ' '
         << spec.sampleRate << ' ' << spec.channels << ' ' << spec.toneHz << ' ' << spec.toneLevel;
    for (const std::string& argument : spec.extraVideoArguments) {
        text << '|' << argument;
    }
    if (!spec.wave.empty()) {
        text << "|wave " << spec.wave;
    }
    return text.str();
}

std::string hashOf(const std::string& text) {
    std::uint64_t hash = 0xCBF29CE484222325U; // FNV-1a
    for (const char c : text) {
        hash = (hash ^ static_cast<std::uint8_t>(c)) * 0x100000001B3U;
    }
    std::ostringstream out;
    out << std::hex << std::setfill('0') << std::setw(16) << hash;
    return out.str();
}

std::filesystem::path cacheFolder() {
    const char* named = std::getenv("MEDIAWORKER_TEST_CACHE"); // NOLINT(concurrency-mt-unsafe)
    std::filesystem::path folder = named != nullptr ? named : MEDIAWORKER_TEST_CACHE_FOLDER;
    std::filesystem::create_directories(folder);
    return folder;
}

/// The encoders of the newer codecs, as fast as they go.
std::vector<std::string> newerVideoArguments(const ClipSpec& spec) {
    const std::string gop = std::to_string(spec.gop);
    if (spec.codec == VideoCodec::Av1) {
        return {"-c:v",     "libsvtav1", "-preset",        "12",  "-g", gop, "-crf", "40",
                "-pix_fmt", "yuv420p",   "-svtav1-params", "lp=2"};
    }
    return {"-c:v",
            spec.codec == VideoCodec::Vp9 ? "libvpx-vp9" : "libvpx",
            "-deadline",
            "realtime",
            "-cpu-used",
            "8",
            "-lag-in-frames",
            "0",
            "-g",
            gop,
            "-b:v",
            "500k",
            "-pix_fmt",
            "yuv420p"};
}

bool isNewer(VideoCodec codec) {
    return codec != VideoCodec::Avc && codec != VideoCodec::Hevc;
}

/// QuickTime where it can hold the streams, since it writes nothing of its own into them.
std::string containerOf(const ClipSpec& spec) {
    if (spec.codec == VideoCodec::Vp8) {
        return "matroska";
    }
    const bool isPlain = !isNewer(spec.codec) && spec.audio <= AudioCodec::MuLaw;
    return isPlain ? "mov" : "mp4";
}

std::vector<std::string> videoArguments(const ClipSpec& spec) {
    if (isNewer(spec.codec)) {
        return newerVideoArguments(spec);
    }
    const bool isHevc = spec.codec == VideoCodec::Hevc;
    std::vector<std::string> result = {
        "-c:v", isHevc ? "libx265" : "libx264", "-preset", spec.preset,
        "-g",   std::to_string(spec.gop),       "-bf",     std::to_string(spec.bFrames)};
    const auto add = [&](std::initializer_list<std::string> words) { result.insert(result.end(), words); };
    if (isHevc) {
        // Two threads: several tests encode at once on small machines.
        add({"-tag:v", "hvc1", "-x265-params",
             "log-level=error:pools=2:scenecut=0:open-gop=0:keyint=" + std::to_string(spec.gop) +
                 ":min-keyint=" + std::to_string(spec.gop) + ":bframes=" + std::to_string(spec.bFrames) +
                 ":b-adapt=0"});
    } else {
        add({"-threads", "2", "-keyint_min", std::to_string(spec.gop), "-sc_threshold", "0", "-b_strategy",
             "0"});
    }
    if (spec.zeroLatency) {
        add({"-tune", "zerolatency"});
    }
    if (spec.bitrateKbps > 0) {
        const std::string rate = std::to_string(spec.bitrateKbps) + "k";
        add({"-b:v", rate, "-maxrate", rate, "-bufsize", rate});
    } else {
        add({"-crf", std::to_string(spec.crf)});
    }
    add({"-pix_fmt", spec.tenBit ? "yuv420p10le" : "yuv420p"});
    if (spec.sarNumerator > 0) {
        add({"-vf",
             "setsar=" + std::to_string(spec.sarNumerator) + "/" + std::to_string(spec.sarDenominator)});
    }
    result.insert(result.end(), spec.extraVideoArguments.begin(), spec.extraVideoArguments.end());
    return result;
}

std::vector<std::string> audioInput(const ClipSpec& spec) {
    // The sine source has an amplitude of 1/8; aevalsrc has any.
    std::ostringstream wave;
    if (spec.wave.empty()) {
        wave << "sin(2*PI*" << spec.toneHz << "*t)";
    } else {
        wave << spec.wave;
    }
    std::ostringstream source;
    source << "aevalsrc=" << spec.toneLevel << "*" << wave.str();
    for (int channel = 1; channel < spec.channels; ++channel) {
        source << '|' << spec.toneLevel << "*" << wave.str();
    }
    source << ":s=" << spec.sampleRate << ":d=" << static_cast<double>(spec.frames) / spec.fps;
    return {"-f", "lavfi", "-i", source.str()};
}

std::vector<std::string> audioArguments(const ClipSpec& spec) {
    switch (spec.audio) {
    case AudioCodec::Aac:
        return {"-c:a", "aac", "-b:a", "96k"};
    case AudioCodec::Mp3:
        return {"-c:a", "libmp3lame", "-b:a", "96k"};
    case AudioCodec::ALaw:
        return {"-c:a", "pcm_alaw"};
    case AudioCodec::MuLaw:
        return {"-c:a", "pcm_mulaw"};
    case AudioCodec::Opus:
        return {"-c:a", "libopus", "-b:a", "96k"};
    case AudioCodec::Flac:
        return {"-c:a", "flac", "-strict", "experimental"};
    case AudioCodec::Ac3:
        return {"-c:a", "ac3", "-b:a", "192k"};
    case AudioCodec::Eac3:
        return {"-c:a", "eac3", "-b:a", "192k"};
    case AudioCodec::None:
        break;
    }
    return {"-an"};
}

void runEncoder(const ClipSpec& spec, const std::filesystem::path& target) {
    std::vector<std::string> command = {
        "ffmpeg",   "-hide_banner",
        "-nostdin", "-loglevel",
        "error",    "-y",
        "-f",       "rawvideo",
        "-pix_fmt", "yuv420p",
        "-s",       std::to_string(spec.widthPx) + "x" + std::to_string(spec.heightPx),
        "-r",       std::to_string(spec.fps),
        "-i",       "pipe:0"};
    const auto add = [&](const std::vector<std::string>& words) {
        command.insert(command.end(), words.begin(), words.end());
    };
    if (spec.audio != AudioCodec::None) {
        add(audioInput(spec));
    }
    add(videoArguments(spec));
    add(audioArguments(spec));
    add({"-f", containerOf(spec), target.string()});

    const TemporaryFolder folder;
    ChildProcess ffmpeg({.command = command, .errors = folder / "err", .hasInput = true});
    TestPicture picture(spec.widthPx, spec.heightPx, spec.noise);
    bool accepted = true;
    for (int i = 0; i < spec.frames && accepted; ++i) {
        picture.draw(spec.firstFrameNumber + i);
        accepted = ffmpeg.write(picture.bytes());
    }
    ffmpeg.closeInput();
    if (ffmpeg.wait() != 0 || !accepted) {
        throw std::runtime_error("ffmpeg could not encode a test clip: " + readFile(folder / "err"));
    }
}

} // namespace

std::filesystem::path encodedFile(const ClipSpec& spec) {
    const std::filesystem::path folder = cacheFolder();
    const std::string name = "clip-" + hashOf(describe(spec));
    const std::filesystem::path target = folder / (name + ".mov");
    if (std::filesystem::exists(target)) {
        return target;
    }
    const FileLock lock(folder / (name + ".lock"));
    if (!std::filesystem::exists(target)) {
        const std::filesystem::path unfinished = folder / (name + ".part");
        runEncoder(spec, unfinished);
        std::filesystem::rename(unfinished, target);
    }
    return target;
}

Clip encode(const ClipSpec& spec) {
    return readClip(encodedFile(spec), spec);
}

} // namespace mediaworker::test
