#pragma once

#include <cstdint>
#include <filesystem>

namespace mediaworker::test {

/// Held by one process at a time, on a file that is made for it; the system lets go of it when the process
/// dies. The constructor waits for it, and throws std::system_error when there can be no such file.
class FileLock {
public:
    explicit FileLock(const std::filesystem::path& path);
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;
    ~FileLock();

private:
    std::intptr_t file_;
};

} // namespace mediaworker::test
