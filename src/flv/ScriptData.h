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

struct ScriptData {
    /// One list for each onMetaData message that holds numbers.
    std::vector<NumberProperties> messages;
    bool complete = false; ///< false where reading stopped at something malformed or foreign
};

/// Reads the body of a script-data tag: onMetaData messages in AMF0, each with an ECMA array of plain values.
/// An array that holds a nested object or array, or that is cut off inside a value, yields nothing.
[[nodiscard]] ScriptData readScriptData(std::span<const std::uint8_t> body);

} // namespace ko_player::flv
