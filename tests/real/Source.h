#pragma once

#include "Workshop.h"

#include <ostream>
#include <string>
#include <vector>

namespace mediaworker::test {

/// What becomes of a stream's sound where it is read as common programs write it.
enum class Sound {
    None,       ///< the stream has none
    Copied,     ///< heard, and exported as it is
    Converted,  ///< heard, and exported in another form: MP4 has no place for it
    HeardOnly,  ///< heard, and left out of an export
    Unplayable, ///< said to be so, and left out
};

/// A stream that a program wrote, and what the worker is expected to make of it.
struct Source {
    const char* name;  ///< of the test and of the folder
    const char* title; ///< for people: the program, and what is special about the stream
    Workshop::Recipe recipe;
    Sound sound = Sound::Copied;
    bool hasVideo = true;
    bool fitsMp4 = true;      ///< the video does
    bool strictToo = false;   ///< the strict reading makes the same of it
    int strictExportExit = 0; ///< of an export with the strict reading

    /// For GoogleTest.
    friend void PrintTo(const Source& source, std::ostream* out) { *out << source.name; }
};

/// That row, for a stream whose export with the strict reading has ever ended with code 1.
[[nodiscard]] Source strictFails(Source source);

/// Written by FFmpeg's muxer.
[[nodiscard]] std::vector<Source> ffmpegSources();
/// Written by GStreamer's muxer, and by tools that index files.
[[nodiscard]] std::vector<Source> otherSources();
/// FFmpeg's, with other metadata, or as somebody gets them who joins late.
[[nodiscard]] std::vector<Source> alteredSources();
/// Enhanced FLV, by FFmpeg where it can and by our own writer.
[[nodiscard]] std::vector<Source> enhancedSources();

[[nodiscard]] std::vector<Source> allSources();

/// What FFmpeg makes a stream of: the film, with numbered pictures and a steady tone.
struct Film {
    Words pictures = {}; ///< the encoder's arguments; empty: none
    Words sound = {};    ///< the encoder's arguments; empty: none
    int widthPx = kFilmWidthPx;
    int heightPx = kFilmHeightPx;
    int sampleRate = 44100;
    int channels = 2;
    int seconds = kFilmSeconds; ///< beyond the film's length it begins anew
    double picturesBeginAt = 0; ///< seconds
    double soundBeginsAt = 0;   ///< seconds
    double toneBeginsAt = 0;    ///< seconds after the sound
    Words output = {};          ///< arguments of the muxer
};

/// H.264 as most programs encode it: a key frame each second, and the B-frames of the encoder's choice.
[[nodiscard]] Words h264(int bFrames = 3);
[[nodiscard]] Words aac();

/// Encodes the film into that file, in the format that its name or the film's muxer arguments say.
void encodeFilm(const Film& film, const std::filesystem::path& file);
/// ffmpeg's arguments for that, without the output file.
[[nodiscard]] Words filmArguments(const Film& film);
/// A recipe: FFmpeg's own FLV of the film.
[[nodiscard]] Workshop::Recipe flvOf(Film film);

} // namespace mediaworker::test
