#pragma once

#include <array>
#include <cstdio>
#include <string>

/// The table that bench/compare puts together, row by row on standard output.
namespace mediaworker::bench {

/// `kept` tells whether the measured value is within the bound.
void row(const char* what, const std::string& measured, const std::string& bound, bool kept);

/// As printf does it, up to 255 bytes.
template <class... Values>
[[nodiscard]] std::string text(const char* format, Values... values) {
    std::array<char, 256> buffer{};
    std::snprintf(buffer.data(), buffer.size(), format, values...);
    return buffer.data();
}

/// Ends the program: what cannot be measured must not look like a figure.
[[noreturn]] void fail(const std::string& what);

} // namespace mediaworker::bench
