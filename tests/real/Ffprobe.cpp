#include "Ffprobe.h"

#include "support/ChildProcess.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <sstream>

namespace mediaworker::test {
namespace {

using Fields = std::map<std::string, std::string>;

/// "packet|stream_index=0|pts_time=0.08|flags=K_"
Fields fieldsOf(const std::string& line) {
    Fields fields;
    std::istringstream words(line);
    for (std::string word; std::getline(words, word, '|');) {
        const std::size_t equals = word.find('=');
        if (equals != std::string::npos) {
            fields[word.substr(0, equals)] = word.substr(equals + 1);
        }
    }
    return fields;
}

/// "N/A" counts as 0.
int number(Fields& fields, const std::string& name) {
    const std::string text = fields[name];
    return text.empty() || text == "N/A" ? 0 : std::stoi(text);
}

/// Seconds with a fraction; "N/A" counts as 0.
std::chrono::microseconds time(Fields& fields, const std::string& name) {
    const std::string text = fields[name];
    const double seconds = text.empty() || text == "N/A" ? 0 : std::stod(text);
    return std::chrono::microseconds(std::llround(seconds * 1e6));
}

std::vector<Fields> show(const std::filesystem::path& file, const std::string& entries,
                         const std::string& section) {
    // Packets as they were written, not as a parser cuts them.
    std::istringstream text(runCommand({"ffprobe", "-v", "error", "-fflags", "+noparse", "-show_entries",
                                        entries, "-of", "compact", file.string()}));
    std::vector<Fields> result;
    for (std::string line; std::getline(text, line);) {
        if (line.starts_with(section + "|")) {
            result.push_back(fieldsOf(line));
        }
    }
    return result;
}

} // namespace

std::vector<ProbedTrack> ffprobe(const std::filesystem::path& file) {
    std::map<int, ProbedTrack> byIndex;
    for (Fields& fields : show(file,
                               "stream=index,codec_type,codec_name,codec_tag_string,width,height,"
                               "sample_rate,channels",
                               "stream")) {
        ProbedTrack track;
        track.isVideo = fields["codec_type"] == "video";
        track.codec = fields["codec_name"];
        track.tag = fields["codec_tag_string"];
        track.widthPx = number(fields, "width");
        track.heightPx = number(fields, "height");
        track.sampleRate = number(fields, "sample_rate");
        track.channels = number(fields, "channels");
        if (track.isVideo || fields["codec_type"] == "audio") {
            byIndex.emplace(number(fields, "index"), track);
        }
    }
    for (Fields& fields : show(file, "packet=stream_index,pts_time,dts_time,size,flags", "packet")) {
        const auto track = byIndex.find(number(fields, "stream_index"));
        if (track != byIndex.end()) {
            track->second.packets.push_back({time(fields, "pts_time"), time(fields, "dts_time"),
                                             static_cast<std::size_t>(number(fields, "size")),
                                             fields["flags"].starts_with("K")});
        }
    }
    std::vector<ProbedTrack> tracks;
    for (auto& [index, track] : byIndex) {
        tracks.push_back(std::move(track));
    }
    return tracks;
}

const ProbedTrack* trackOf(const std::vector<ProbedTrack>& tracks, bool isVideo) {
    const auto found = std::find_if(tracks.begin(), tracks.end(),
                                    [&](const ProbedTrack& track) { return track.isVideo == isVideo; });
    return found == tracks.end() ? nullptr : &*found;
}

} // namespace mediaworker::test
