#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace mediaworker::test {

/// While it lives, files that this process writes can grow no further: a full disk.
class FileSizeLimit {
public:
    explicit FileSizeLimit(std::uint64_t bytes);
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;
    ~FileSizeLimit();

    /// Why there can be no such limit here; empty when there can.
    [[nodiscard]] static std::optional<std::string> obstacle();

private:
    struct Before;
    std::unique_ptr<Before> before_;
};

} // namespace mediaworker::test
