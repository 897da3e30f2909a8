#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace ko_player::flv {

/// Names and values in stream order. Each value is rounded to the nearest whole number, halves away from
/// zero; it may still be infinite or no number at all.
using NumberProperties = std::vector<std::pair<std::string, double>>;

/// What of a script-data tag is read.
struct ScriptRules {
    /// Only onMetaData with an ECMA array of plain values counts, and a broken or nested value costs the
    /// whole message. Otherwise objects count as well, other messages and nested values are skipped by their
    /// structure, what was read before a broken value counts, and booleans and the names of codecs become
    /// numbers.
    bool onlyPlainArrays = true;
};

struct ScriptData {
    /// One list for each onMetaData message that holds numbers.
    std::vector<NumberProperties> messages;
    bool complete = false; ///< false where reading stopped at something malformed or foreign
};

/// Reads the onMetaData messages of a script-data tag's body, which is AMF0.
[[nodiscard]] ScriptData readScriptData(std::span<const std::uint8_t> body, const ScriptRules& rules = {});

} // namespace ko_player::flv
