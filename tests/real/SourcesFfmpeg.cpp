#include "Source.h"

#include "support/ChildProcess.h"

#include <sstream>

namespace mediaworker::test {
namespace {

std::string text(double value) {
    std::ostringstream out;
    out << value;
    return out.str();
}

/// A steady tone of the film's length at half of full scale, the same on all channels.
std::string toneSource(const Film& film) {
    const std::string tone =
        "0.5*sin(2*PI*" + text(kFilmToneHz) + "*t)*gte(t\\," + text(film.toneBeginsAt) + ")";
    std::string source = "aevalsrc=" + tone;
    for (int channel = 1; channel < film.channels; ++channel) {
        source += "|" + tone;
    }
    return source + ":s=" + std::to_string(film.sampleRate) + ":d=" + std::to_string(film.seconds) +
           (film.channels == 6 ? ":c=5.1" : "");
}

/// The stream goes into a pipe: nothing can be written again at its begin.
Made piped(Workshop& workshop) {
    const auto file = workshop / "stream.flv";
    const Words output = {"-f", "flv", "-flvflags", "no_duration_filesize", "pipe:1"};
    writeFile(file, Workshop::run(joined({{"ffmpeg", "-hide_banner", "-nostdin", "-loglevel", "error"},
                                          filmArguments({.pictures = h264(), .sound = aac()}),
                                          output})));
    return {file, file};
}

Film g711(const char* encoder) {
    return {.pictures = h264(),
            .sound = {"-c:a", encoder},
            .sampleRate = 8000,
            .channels = 1,
            .toneBeginsAt = 0.5};
}

Film withFlags(const char* flags) {
    return {.pictures = h264(), .sound = aac(), .output = {"-flvflags", flags}};
}

Words allIntra() {
    return {"-c:v", "libx264", "-preset", "veryfast", "-pix_fmt", "yuv420p", "-g", "1"};
}

/// Each third picture comes 20 ms late, and the second half at 10 pictures a second.
Words varyingRate() {
    return joined({h264(),
                   {"-vf", "setpts='(if(lt(N,38),N*40,1520+(N-38)*100)+20*eq(mod(N,3),2))/1000/TB'",
                    "-fps_mode", "passthrough", "-enc_time_base", "1:1000"}});
}

} // namespace

Words h264(int bFrames) {
    return {"-c:v",        "libx264", "-preset",       "veryfast",
            "-pix_fmt",    "yuv420p", "-threads",      "2",
            "-g",          "25",      "-bf",           std::to_string(bFrames),
            "-keyint_min", "25",      "-sc_threshold", "0"};
}

Words aac() {
    return {"-c:a", "aac", "-b:a", "96k"};
}

Words filmArguments(const Film& film) {
    // ffmpeg does not begin an input anew that it moves.
    const auto later = [](double seconds) {
        return seconds > 0 ? Words{"-itsoffset", text(seconds)} : Words{};
    };
    Words words;
    if (!film.pictures.empty()) {
        words = joined(
            {later(film.picturesBeginAt),
             {"-stream_loop", "-1", "-t", std::to_string(film.seconds), "-f", "rawvideo", "-pix_fmt",
              "yuv420p", "-s", std::to_string(film.widthPx) + "x" + std::to_string(film.heightPx), "-r",
              std::to_string(kFilmFps), "-i", Workshop::pictures(film.widthPx, film.heightPx).string()}});
    }
    if (!film.sound.empty()) {
        words = joined({words, later(film.soundBeginsAt), {"-f", "lavfi", "-i", toneSource(film)}});
    }
    return joined({words, film.pictures, film.sound, film.output});
}

void encodeFilm(const Film& film, const std::filesystem::path& file) {
    Workshop::ffmpeg(joined({filmArguments(film), {file.string()}}));
}

Workshop::Recipe flvOf(Film film) {
    return [film = std::move(film)](Workshop& workshop) {
        const auto file = workshop / "stream.flv";
        encodeFilm(film, file);
        return Made{file, file};
    };
}

std::vector<Source> ffmpegSources() {
    return {
        {"Ffmpeg", "FFmpeg, H.264 without B-frames, AAC", flvOf({.pictures = h264(0), .sound = aac()})},
        {"FfmpegBFrames", "FFmpeg, B-frames", flvOf({.pictures = h264(), .sound = aac()})},
        {"FfmpegPiped", "FFmpeg, into a pipe", piped},
        strictFails({"FfmpegKeyFrameIndex", "FFmpeg, `-flvflags add_keyframe_index`",
                     flvOf(withFlags("add_keyframe_index"))}),
        strictFails({"FfmpegNoMetadata", "FFmpeg, `-flvflags no_metadata`", flvOf(withFlags("no_metadata"))}),
        {"FfmpegMp3", "FFmpeg, MP3", flvOf({.pictures = h264(), .sound = {"-c:a", "libmp3lame"}})},
        {"FfmpegALaw", "FFmpeg, G.711 A-law", flvOf(g711("pcm_alaw")), Sound::Converted},
        {"FfmpegMuLaw", "FFmpeg, G.711 µ-law", flvOf(g711("pcm_mulaw")), Sound::Converted},
        {"FfmpegMono", "FFmpeg, AAC in mono at 22,050 Hz",
         flvOf({.pictures = h264(), .sound = aac(), .sampleRate = 22050, .channels = 1})},
        {"FfmpegSurround", "FFmpeg, AAC with six channels",
         flvOf({.pictures = h264(), .sound = aac(), .sampleRate = 48000, .channels = 6})},
        {"FfmpegInterlaced", "FFmpeg, interlaced",
         flvOf({.pictures = joined({h264(), {"-flags", "+ilme+ildct", "-x264-params", "tff=1"}}),
                .sound = aac()})},
        {"FfmpegTenBit", "FFmpeg, H.264 with 10 bits",
         flvOf({.pictures = joined({h264(), {"-pix_fmt", "yuv420p10le"}}), .sound = aac()})},
        {"FfmpegAllIntra", "FFmpeg, every picture a key frame",
         flvOf({.pictures = allIntra(), .sound = aac()})},
        {"FfmpegVaryingRate", "FFmpeg, varying frame rate",
         flvOf({.pictures = varyingRate(), .sound = aac()})},
        {"FfmpegLateSound", "FFmpeg, sound begins 1 s later",
         flvOf({.pictures = h264(), .sound = aac(), .soundBeginsAt = 1})},
        {"FfmpegLatePictures", "FFmpeg, pictures begin 1 s later",
         flvOf({.pictures = h264(), .sound = aac(), .picturesBeginAt = 1})},
        {"FfmpegFrom30Minutes", "FFmpeg, time stamps from 30 minutes on",
         flvOf({.pictures = h264(), .sound = aac(), .output = {"-output_ts_offset", "1800"}})},
        {"FfmpegVideoOnly", "FFmpeg, without sound", flvOf({.pictures = h264()}), Sound::None},
        strictFails({"FfmpegSoundOnly", "FFmpeg, without pictures", flvOf({.sound = aac()}), Sound::Copied,
                     /*hasVideo*/ false}),
        {"FfmpegSpeex", "FFmpeg, Speex",
         flvOf({.pictures = h264(), .sound = {"-c:a", "libspeex"}, .sampleRate = 16000, .channels = 1}),
         Sound::Unplayable},
    };
}

Source strictFails(Source source) {
    source.strictExportExit = 1;
    return source;
}

std::vector<Source> allSources() {
    std::vector<Source> all;
    for (auto& part : {ffmpegSources(), otherSources(), alteredSources(), enhancedSources()}) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

} // namespace mediaworker::test
