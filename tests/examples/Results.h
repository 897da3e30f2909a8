#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

/// What an example has made.
namespace mediaworker::test {

/// The number that a picture in a file shows; empty when it is none of our pictures, or torn.
[[nodiscard]] std::optional<int> numberOf(const std::filesystem::path& png);

/// Sorted.
[[nodiscard]] std::vector<std::string> filesIn(const std::filesystem::path& folder);

} // namespace mediaworker::test
