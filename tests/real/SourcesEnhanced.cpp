#include "Source.h"

#include "EnhancedFlv.h"

#include <stdexcept>
#include <utility>

namespace mediaworker::test {
namespace {

/// The film in another container, and from there into Enhanced FLV.
Workshop::Recipe enhanced(Film film, EnhancedOptions options = {}, const char* container = "film.mp4") {
    return [film = std::move(film), options, container](Workshop& workshop) {
        const auto before = workshop / container;
        const auto after = workshop / "stream.flv";
        encodeFilm(film, before);
        const auto shift = writeEnhancedFlv(before, after, options);
        return Made{after, before, shift};
    };
}

/// By FFmpeg itself, which writes these codecs into FLV from 6.1 on.
Workshop::Recipe byFfmpeg(Film film) {
    return [film = std::move(film)](Workshop& workshop) {
        const auto file = workshop / "stream.flv";
        try {
            encodeFilm(film, file);
        } catch (const MissingTool&) {
            throw;
        } catch (const std::runtime_error& error) {
            if (std::string(error.what()).find("not compatible with flv") != std::string::npos ||
                std::string(error.what()).find("not currently supported in container") != std::string::npos) {
                throw MissingTool("this FFmpeg writes no such codec into FLV");
            }
            throw;
        }
        return Made{file, file};
    };
}

Words hevc(const char* tag = "hvc1") {
    Words words = {
        "-c:v",
        "libx265",
        "-preset",
        "ultrafast",
        "-pix_fmt",
        "yuv420p",
        "-x265-params",
        "log-level=error:pools=2:keyint=25:min-keyint=25:scenecut=0:open-gop=0:bframes=3:b-adapt=0"};
    return tag == nullptr ? words : joined({words, {"-tag:v", tag}});
}

/// Not in its mode for real time: there the encoder leaves squares of a number as they were in the picture
/// before, and which ones differs by its version and speed.
Words av1() {
    return {"-c:v", "libaom-av1", "-cpu-used", "8",    "-usage", "good", "-row-mt", "1",        "-threads",
            "2",    "-g",         "25",        "-crf", "20",     "-b:v", "0",       "-pix_fmt", "yuv420p"};
}

Words vp9() {
    return {"-c:v", "libvpx-vp9", "-deadline", "realtime", "-cpu-used", "8",        "-threads",
            "2",    "-g",         "25",        "-b:v",     "400k",      "-pix_fmt", "yuv420p"};
}

/// Without the pictures that nobody sees, which would be packets of their own.
Words vp8() {
    return {"-c:v",     "libvpx", "-deadline", "realtime", "-cpu-used", "8",    "-auto-alt-ref", "0",
            "-threads", "2",      "-g",        "25",       "-b:v",      "400k", "-pix_fmt",      "yuv420p"};
}

Words opus() {
    return {"-c:a", "libopus", "-b:a", "64k"};
}

constexpr int kOpusRate = 48000;
constexpr EnhancedOptions kOldSound{.oldSound = true};

Source ours(const char* name, const char* title, Film film, EnhancedOptions options = {}) {
    return strictFails({name, title, enhanced(std::move(film), options)});
}

} // namespace

std::vector<Source> enhancedSources() {
    const Film hevcFilm{.pictures = hevc(), .sound = aac()};
    return {
        strictFails({"FfmpegHevc", "FFmpeg from 6.1 on, HEVC",
                     byFfmpeg({.pictures = hevc(nullptr), .sound = aac()})}),
        strictFails({"FfmpegAv1", "FFmpeg from 6.1 on, AV1", byFfmpeg({.pictures = av1(), .sound = aac()})}),
        strictFails({"FfmpegVp9", "FFmpeg from 6.1 on, VP9", byFfmpeg({.pictures = vp9(), .sound = aac()})}),
        {"HevcAsTwelve", "HEVC as codec 12", enhanced(hevcFilm, {.oldSound = true, .oldVideo = true})},
        ours("EnhancedHevc", "enhanced: `hvc1`", hevcFilm, kOldSound),
        ours("EnhancedAv1", "enhanced: `av01`", {.pictures = av1(), .sound = aac()}, kOldSound),
        ours("EnhancedVp9", "enhanced: `vp09`", {.pictures = vp9(), .sound = aac()}, kOldSound),
        strictFails({"EnhancedVp8", "enhanced: `vp08`",
                     enhanced({.pictures = vp8(), .sound = aac()}, kOldSound, "film.mkv"), Sound::Copied,
                     /*hasVideo*/ true, /*fitsMp4*/ false}),
        ours("EnhancedAvc", "enhanced: `avc1`, `mp4a`", {.pictures = h264(), .sound = aac()}),
        ours("EnhancedOpus", "enhanced: `hvc1`, `Opus`",
             {.pictures = hevc(), .sound = opus(), .sampleRate = kOpusRate}),
        ours("EnhancedMp3", "enhanced: `avc1`, `.mp3`",
             {.pictures = h264(), .sound = {"-c:a", "libmp3lame"}}),
        strictFails({"EnhancedFlac", "enhanced: `avc1`, `fLaC`",
                     enhanced({.pictures = h264(), .sound = {"-c:a", "flac", "-strict", "-2"}}),
                     Sound::HeardOnly}),
        ours("EnhancedAc3", "enhanced: `avc1`, `ac-3`", {.pictures = h264(), .sound = {"-c:a", "ac3"}}),
        ours("EnhancedEac3", "enhanced: `avc1`, `ec-3`", {.pictures = h264(), .sound = {"-c:a", "eac3"}}),
        ours("EnhancedModEx", "enhanced: nanoseconds in ModEx", hevcFilm, {.modEx = true}),
        ours("EnhancedMultitrack", "enhanced: two tracks of each kind", hevcFilm, {.multitrack = true}),
        ours("EnhancedExtras", "enhanced: colour information, ends of sequence", hevcFilm, {.extras = true}),
    };
}

} // namespace mediaworker::test
