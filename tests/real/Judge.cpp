#include "Judge.h"

#include "Mp4File.h"
#include "Onset.h"
#include "Recording.h"
#include "Spectator.h"

#include "support/ChildProcess.h"
#include "support/servers/HttpServer.h"

#include <algorithm>
#include <span>
#include <sstream>

namespace mediaworker::test {
namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;

/// Sends a file as fast as it is read, and then holds the connection for a while.
HttpServer::Handler fileHandler(const std::filesystem::path& file, milliseconds hold = 0ms) {
    return [bytes = readFile(file), hold](HttpResponse& response) {
        response.header("Content-Type", "video/x-flv");
        constexpr std::size_t kPieceBytes = 16384;
        const std::string_view all = bytes;
        for (std::size_t at = 0; at < all.size(); at += kPieceBytes) {
            if (!response.send(all.substr(at, kPieceBytes))) {
                return;
            }
        }
        static_cast<void>(response.sleepMs(hold.count()));
    };
}

milliseconds lengthOf(const Contents& contents) {
    return contents.picturesMs.empty()
               ? milliseconds(0)
               : milliseconds(contents.picturesMs.back() - contents.picturesMs.front());
}

Playing judge(Spectator& spectator, const Contents& contents, milliseconds limit) {
    Session& session = spectator.session();
    Playing playing;
    playing.exitCode = session.waitForExit(limit);
    playing.log = session.logText();
    playing.sent = contents.picturesMs.size();
    playing.shown = session.shown().size();
    const auto stamps = session.stamps();
    playing.hasPresentationTimes = stamps.size() <= contents.picturesMs.size() &&
                                   std::equal(stamps.begin(), stamps.end(), contents.picturesMs.begin());
    playing.wrongPictures = spectator.wrongPictures();
    playing.heard = spectator.heard();
    return playing;
}

/// The packets of a track that can be in a file: pictures from the first key frame on, sound from wherever.
std::vector<ProbedPacket> fromFirstKey(const ProbedTrack& track) {
    const auto key = std::find_if(track.packets.begin(), track.packets.end(),
                                  [](const ProbedPacket& packet) { return packet.isKey; });
    std::vector<ProbedPacket> packets(key, track.packets.end());
    if (track.isVideo && !packets.empty()) {
        // Those shown before it need pictures that nobody has.
        const auto firstPts = packets.front().pts;
        std::erase_if(packets, [&](const ProbedPacket& packet) { return packet.pts < firstPts; });
    }
    return packets;
}

bool isInStep(std::span<const ProbedPacket> sent, const ProbedTrack& written,
              std::chrono::microseconds difference) {
    // MP4 counts sound in samples, FLV in milliseconds.
    constexpr auto kRounding = 1000us;
    const auto agree = [&](std::chrono::microseconds a, std::chrono::microseconds b) {
        return std::chrono::abs(b - a - difference) <= kRounding;
    };
    // FFmpeg from 6.1 on writes AV1 into FLV with the temporal delimiter in front of each picture, an OBU of
    // a header and a size of 0. In MP4 it must not stand: FFmpeg's writer takes it away.
    constexpr std::size_t kDelimiterBytes = 2;
    const auto isWithoutDelimiter = [&](const ProbedPacket& a, const ProbedPacket& b) {
        return written.codec == "av1" && a.bytes == b.bytes + kDelimiterBytes;
    };
    // A key frame brings its parameter sets along where they are not those of the file's begin.
    const auto isSamePacket = [&](const ProbedPacket& a, const ProbedPacket& b) {
        return a.bytes == b.bytes || isWithoutDelimiter(a, b) ||
               (written.isVideo && b.isKey && b.bytes > a.bytes);
    };
    return std::equal(sent.begin(), sent.end(), written.packets.begin(), written.packets.end(),
                      [&](const ProbedPacket& a, const ProbedPacket& b) {
                          return agree(a.pts, b.pts) && agree(a.dts, b.dts) && isSamePacket(a, b);
                      });
}

/// Sound that was coded anew begins and ends where the stream's does, within a frame of AAC at 8 kHz.
bool spansTheSame(std::span<const ProbedPacket> sent, std::span<const ProbedPacket> written,
                  std::chrono::microseconds difference) {
    constexpr auto kFrame = 130ms;
    return !sent.empty() && !written.empty() &&
           std::chrono::abs(written.front().pts - sent.front().pts - difference) <= kFrame &&
           std::chrono::abs(written.back().pts - sent.back().pts - difference) <= kFrame;
}

} // namespace

Contents contentsOf(const Made& made) {
    Contents contents{ffprobe(made.reference), {}};
    for (ProbedTrack& track : contents.tracks) {
        for (ProbedPacket& packet : track.packets) {
            packet.pts += made.shift;
            packet.dts += made.shift;
        }
        track.packets = fromFirstKey(track);
    }
    if (const ProbedTrack* video = trackOf(contents.tracks, /*isVideo*/ true)) {
        for (const ProbedPacket& packet : video->packets) {
            contents.picturesMs.push_back(std::chrono::round<milliseconds>(packet.pts).count());
        }
        std::sort(contents.picturesMs.begin(), contents.picturesMs.end());
    }
    return contents;
}

PlayedBoth play(const Source& source, const Made& made, StrictSound strictSound) {
    const Contents contents = contentsOf(made);
    // What a worker needs beyond the stream's length to start and to show all of it.
    constexpr milliseconds kReserve = 1s;
    const milliseconds hold = lengthOf(contents) + kReserve;
    HttpServer server;
    server.route("/standard.flv", fileHandler(made.flv));
    server.route("/strict.flv", fileHandler(made.flv, hold));

    const bool hasSound = source.sound != Sound::None;
    Spectator strict(Reading::Strict, hasSound && strictSound == StrictSound::On);
    Spectator standard(Reading::Standard, hasSound);
    strict.start(server.url("/strict.flv"), source.hasVideo);
    standard.start(server.url("/standard.flv"), source.hasVideo);
    PlayedBoth both;
    both.standard = judge(standard, contents, hold + 10s * kSlowness);
    both.strict = judge(strict, contents, hold + 10s * kSlowness);
    return both;
}

const WrittenTrack* Exporting::track(bool isVideo) const {
    const auto found = std::find_if(tracks.begin(), tracks.end(),
                                    [&](const WrittenTrack& track) { return track.isVideo == isVideo; });
    return found == tracks.end() ? nullptr : &*found;
}

std::vector<WrittenTrack> compare(const Contents& sent, const std::vector<ProbedTrack>& written) {
    const auto firstPts = [](const ProbedTrack* track) {
        return track == nullptr || track->packets.empty() ? 0us : track->packets.front().pts;
    };
    const bool byVideo = trackOf(written, true) != nullptr && trackOf(sent.tracks, true) != nullptr;
    const auto difference = firstPts(trackOf(written, byVideo)) - firstPts(trackOf(sent.tracks, byVideo));
    std::vector<WrittenTrack> result;
    for (const ProbedTrack& track : written) {
        WrittenTrack verdict{track.codec, track.tag, track.isVideo, 0, track.packets.size()};
        if (const ProbedTrack* original = trackOf(sent.tracks, track.isVideo)) {
            std::span<const ProbedPacket> packets = original->packets;
            // Sound before the first picture that can be shown may be there or not.
            while (!track.isVideo && packets.size() > track.packets.size() && byVideo &&
                   packets.front().pts < firstPts(trackOf(sent.tracks, true))) {
                packets = packets.subspan(1);
            }
            verdict.sent = packets.size();
            verdict.isSameCodec = track.codec == original->codec;
            verdict.isInStep = verdict.isSameCodec ? isInStep(packets, track, difference)
                                                   : spansTheSame(packets, track.packets, difference);
        }
        result.push_back(verdict);
    }
    return result;
}

Exporting exportStream(const Source& source, const Made& made, Reading reading,
                       const std::filesystem::path& output) {
    HttpServer server;
    server.route("/stream.flv", fileHandler(made.flv));
    Session::Options options;
    options.environment = {{"MEDIAWORKER_OPTIONS", optionsOf(reading)}};
    Recording recording(options);
    recording.start(server.url("/stream.flv"), output, kFilmSeconds * 1000);
    Exporting exporting;
    exporting.exitCode = recording.waitForExit();
    exporting.log = recording.logText();
    if (std::filesystem::exists(output)) {
        try {
            exporting.tracks = compare(contentsOf(made), ffprobe(output));
            exporting.complaints = complaintsAtAnyRate(output);
            if (source.sound == Sound::Converted && exporting.track(/*isVideo*/ false) != nullptr) {
                exporting.soundIsLate = toneBegin(output) - toneBegin(made.flv);
            }
        } catch (const std::runtime_error& error) {
            exporting.complaints = error.what(); // no file that anybody can read
        }
    }
    return exporting;
}

bool isHeard(const Playing& playing) {
    return playing.heard >= 1s;
}

std::string seenComplaint(const Playing& playing) {
    std::ostringstream text;
    if (playing.shown != playing.sent) {
        text << playing.shown << " of " << playing.sent << " pictures; ";
    }
    if (!playing.hasPresentationTimes) {
        text << "other times than the presentation's; ";
    }
    for (const std::string& picture : playing.wrongPictures) {
        text << picture << "; ";
    }
    return text.str();
}

std::string heardComplaint(const Source& source, const Playing& playing) {
    const bool expectsSound = source.sound != Sound::None && source.sound != Sound::Unplayable;
    if (expectsSound == isHeard(playing)) {
        return {};
    }
    return "the tone was heard for " + std::to_string(playing.heard.count()) + " ms";
}

std::string trackComplaint(const Source& source, const WrittenTrack& track) {
    std::ostringstream text;
    const bool isConverted = !track.isVideo && source.sound == Sound::Converted;
    if (track.isSameCodec == isConverted || (isConverted && track.codec != "aac")) {
        text << "a track with the wrong codec, " << track.codec << "; ";
    }
    if (track.codec == "hevc" && track.tag != "hvc1") {
        text << "HEVC with the tag " << track.tag << ", which not every player takes; ";
    }
    if (!track.isInStep) {
        text << track.codec << " is not in step (" << track.written << " of " << track.sent << " packets); ";
    }
    return text.str();
}

std::string exportComplaint(const Source& source, const Exporting& exporting) {
    const bool canBeExported = source.fitsMp4 && source.hasVideo;
    std::string text;
    if (exporting.exitCode != (canBeExported ? 0 : 1)) {
        text += "exit code " + std::to_string(exporting.exitCode.value_or(-1)) + "; ";
    }
    if (!canBeExported) {
        return text;
    }
    if (exporting.track(true) == nullptr) {
        text += "no video; ";
    }
    const bool hasAudio = exporting.track(false) != nullptr;
    const bool mustHaveAudio = source.sound == Sound::Copied || source.sound == Sound::Converted;
    if (mustHaveAudio && !hasAudio) {
        text += "no sound; ";
    } else if (hasAudio && source.sound == Sound::Unplayable) {
        text += "sound that nobody can play; ";
    }
    for (const WrittenTrack& track : exporting.tracks) {
        text += trackComplaint(source, track);
    }
    // A tenth of a frame of AAC at 8 kHz, and far less than people notice.
    constexpr auto kAudibleStep = 15ms;
    if (exporting.soundIsLate && std::chrono::abs(*exporting.soundIsLate) > kAudibleStep) {
        text += "the sound is late by " + std::to_string(exporting.soundIsLate->count()) + " us; ";
    }
    if (!exporting.complaints.empty()) {
        constexpr std::size_t kEnough = 300;
        text += "ffmpeg says: " + exporting.complaints.substr(0, kEnough);
    }
    return text;
}

} // namespace mediaworker::test
