#include "records/Options.h"

#include <algorithm>
#include <array>

namespace ko_player {
namespace {

/// One value that an option may have, and what it sets.
struct Choice {
    std::string_view key;
    std::string_view value;
    void (*apply)(Options&);
};

constexpr std::array kChoices{
    Choice{"flv", "strict", [](Options& options) { options.flv = FlvReading::Strict; }},
    Choice{"flv", "standard", [](Options& options) { options.flv = FlvReading::Standard; }},
    Choice{"buffering", "on", [](Options& options) { options.buffering = BufferingPolicy::ByUrl; }},
    Choice{"buffering", "off", [](Options& options) { options.buffering = BufferingPolicy::Never; }},
    Choice{"sync", "off", [](Options& options) { options.sync = SyncPolicy::StartTogether; }},
    Choice{"sync", "on", [](Options& options) { options.sync = SyncPolicy::ByTimeStamps; }},
    Choice{"length", "expected", [](Options& options) { options.length = LengthPolicy::Expected; }},
    Choice{"length", "exact", [](Options& options) { options.length = LengthPolicy::Exact; }},
    Choice{"sandbox", "off", [](Options& options) { options.sandbox = SandboxPolicy::Off; }},
    Choice{"sandbox", "on", [](Options& options) { options.sandbox = SandboxPolicy::On; }},
    Choice{"sandbox", "required", [](Options& options) { options.sandbox = SandboxPolicy::Required; }},
    Choice{"mp4", "plain", [](Options& options) { options.mp4 = Mp4Policy::AtOnce; }},
    Choice{"mp4", "safe", [](Options& options) { options.mp4 = Mp4Policy::Safe; }},
};

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view kBlanks = " \t";
    const std::size_t first = text.find_first_not_of(kBlanks);
    return first == std::string_view::npos ? std::string_view{}
                                           : text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

/// What of a part goes into the log: not more than a line that somebody reads, and no control characters.
std::string shown(std::string_view part) {
    constexpr std::size_t kMostCharacters = 80;
    std::string text(part.substr(0, kMostCharacters));
    std::replace_if(
        text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20; }, '?');
    return text;
}

void apply(std::string_view part, ParsedOptions& parsed) {
    const std::size_t equals = part.find('=');
    const std::string_view key = trimmed(part.substr(0, equals));
    const std::string_view value =
        equals == std::string_view::npos ? std::string_view{} : trimmed(part.substr(equals + 1));
    bool keyIsKnown = false;
    for (const Choice& choice : kChoices) {
        if (choice.key != key) {
            continue;
        }
        keyIsKnown = true;
        if (choice.value == value) {
            choice.apply(parsed.options);
            parsed.options.explains = true;
            return;
        }
    }
    parsed.complaints.push_back(std::string(kOptionsVariable) +
                                (keyIsKnown ? ": unknown value is ignored: " : ": unknown key is ignored: ") +
                                shown(part));
}

} // namespace

ParsedOptions parseOptions(std::string_view text) {
    ParsedOptions parsed;
    while (!text.empty()) {
        const std::size_t comma = std::min(text.find(','), text.size());
        const std::string_view part = trimmed(text.substr(0, comma));
        if (!part.empty()) {
            apply(part, parsed);
        }
        text.remove_prefix(std::min(comma + 1, text.size()));
    }
    return parsed;
}

} // namespace ko_player
