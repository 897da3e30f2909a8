#pragma once

#include <chrono>
#include <filesystem>

namespace mediaworker::test {

/// When the film's tone begins after the first picture, as somebody hears and sees it who plays the file: for
/// sound that was coded anew, whose packets tell little. Throws std::runtime_error when there is no tone.
[[nodiscard]] std::chrono::microseconds toneBegin(const std::filesystem::path& file);

} // namespace mediaworker::test
