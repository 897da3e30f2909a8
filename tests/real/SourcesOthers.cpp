#include "Source.h"

#include <utility>

namespace mediaworker::test {
namespace {

/// One of GStreamer's encoders, and the samples that it is given.
struct GstSound {
    const char* encoder;
    int sampleRate = 44100;
    int channels = 2;
    Words parser = {}; ///< what the muxer wants to have between them
};

/// The film by GStreamer: its encoders, and its muxer with these properties.
Workshop::Recipe gstreamer(GstSound sound, Words muxer = {"streamable=true"}, int bFrames = 0) {
    return [=](Workshop& workshop) {
        const auto file = workshop / "stream.flv";
        constexpr int kBufferMs = 20;
        const int samplesPerBuffer = sound.sampleRate * kBufferMs / 1000;
        Workshop::run(joined(
            {{"gst-launch-1.0", "-q", "filesrc", "location=" + Workshop::pictures().string(), "!",
              "rawvideoparse", "format=i420", "width=" + std::to_string(kFilmWidthPx),
              "height=" + std::to_string(kFilmHeightPx), "framerate=" + std::to_string(kFilmFps) + "/1", "!",
              "x264enc", "speed-preset=veryfast", "key-int-max=25", "threads=2",
              "bframes=" + std::to_string(bFrames), "!", "flvmux", "name=mux"},
             muxer,
             {"!", "filesink", "location=" + file.string(), "audiotestsrc", "volume=0.5", "freq=1000",
              "samplesperbuffer=" + std::to_string(samplesPerBuffer),
              "num-buffers=" + std::to_string(kFilmSeconds * 1000 / kBufferMs), "!",
              "audio/x-raw,rate=" + std::to_string(sound.sampleRate) +
                  ",channels=" + std::to_string(sound.channels),
              "!", "audioconvert", "!", sound.encoder, "!"},
             sound.parser,
             {"mux."}}));
        return Made{file, file};
    };
}

const GstSound kAac{"avenc_aac"};

/// What a tool makes of FFmpeg's file; "IN" and "OUT" in its command stand for the files.
Workshop::Recipe treated(Words command) {
    return [command = std::move(command)](Workshop& workshop) {
        const auto before = workshop / "plain.flv";
        const auto after = workshop / "stream.flv";
        encodeFilm({.pictures = h264(), .sound = aac()}, before);
        Words words = command;
        for (std::string& word : words) {
            word = word == "IN" ? before.string() : word == "OUT" ? after.string() : word;
        }
        Workshop::run(words);
        return Made{after, after};
    };
}

} // namespace

std::vector<Source> otherSources() {
    return {
        {"GstreamerStreamable", "GStreamer, `flvmux streamable=true`", gstreamer(kAac)},
        strictFails(
            {"GstreamerFile", "GStreamer, `flvmux` into a file", gstreamer(kAac, {"streamable=false"})}),
        {"GstreamerBFrames", "GStreamer, B-frames", gstreamer(kAac, {"streamable=true"}, 2)},
        {"GstreamerMp3", "GStreamer, MP3", gstreamer({"lamemp3enc", 44100, 2, {"mpegaudioparse", "!"}})},
        {"GstreamerALaw", "GStreamer, G.711 A-law", gstreamer({"alawenc", 8000, 1}), Sound::Converted},
        {"GstreamerMuLaw", "GStreamer, G.711 µ-law", gstreamer({"mulawenc", 8000, 1}), Sound::Converted},
        {"GstreamerSpeex", "GStreamer, Speex", gstreamer({"speexenc", 16000, 1}), Sound::Unplayable},
        strictFails({"Yamdi", "yamdi: a table of key frames", treated({"yamdi", "-i", "IN", "-o", "OUT"})}),
        strictFails({"Flvmeta", "flvmeta --update: a table of key frames",
                     treated({"flvmeta", "--update", "IN", "OUT"})}),
    };
}

} // namespace mediaworker::test
