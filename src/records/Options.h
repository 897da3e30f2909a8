#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace ko_player {

/// How a stream's FLV is read.
enum class FlvReading {
    Strict,   ///< to the letter of the servers that this program was first made for
    Standard, ///< as common programs write it: FLV with its enhanced codecs and composition times
};

/// Which streams wait for some video ahead of the picture on screen.
enum class BufferingPolicy {
    ByUrl, ///< what the URL decides
    Never, ///< none: the delay stays as small as the network allows
};

/// What ties the sound to the pictures.
enum class SyncPolicy {
    StartTogether, ///< nothing but their common start: sound has a rhythm of its own
    ByTimeStamps,  ///< time stamps: early sound waits, late sound is skipped
};

/// When an export has recorded enough.
enum class LengthPolicy {
    Expected, ///< the duration is what a server that honours it sends: only far beyond it, the file is cut
    Exact,    ///< the file ends where the duration does; without a duration, when the parent says so
};

/// How the file of an export is written.
enum class Mp4Policy {
    AtOnce, ///< as it will be; without its end it cannot be played
    Safe,   ///< so that it can be played wherever the writing stops, and at the end as it would have been
};

/// Whether the worker gives up what it does not need, before it reads the first byte.
enum class SandboxPolicy {
    Off,      ///< it can do what its user can
    On,       ///< as far as the system has the means
    Required, ///< the same; where the system lacks any of it, the worker ends
};

/// What a parent asks for beside the command line. The default is what a worker does that nobody asked.
struct Options {
    FlvReading flv = FlvReading::Strict;
    BufferingPolicy buffering = BufferingPolicy::ByUrl;
    SyncPolicy sync = SyncPolicy::StartTogether;
    LengthPolicy length = LengthPolicy::Expected;
    SandboxPolicy sandbox = SandboxPolicy::Off;
    Mp4Policy mp4 = Mp4Policy::AtOnce;
    /// Whether the log has the lines that say more than a worker of old said: set for every parent that asks
    /// for anything, since it knows them.
    bool explains = false;

    friend bool operator==(const Options&, const Options&) = default;
};

/// The environment variable that carries them.
inline constexpr const char* kOptionsVariable = "MEDIAWORKER_OPTIONS";

struct ParsedOptions {
    Options options;
    /// A log line for each part that was ignored, in the order of the text.
    std::vector<std::string> complaints;
};

/// Reads "key=value,key=value". Parts that are not known are ignored, so that a newer parent can start an
/// older worker; of a key that comes twice the last value counts. Blanks around a part are skipped.
///
///     flv=strict|standard   buffering=on|off   sync=off|on   length=expected|exact
///     sandbox=off|on|required   mp4=plain|safe
[[nodiscard]] ParsedOptions parseOptions(std::string_view text);

} // namespace ko_player
