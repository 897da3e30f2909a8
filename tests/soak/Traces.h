#pragma once

#include <cstddef>
#include <filesystem>
#include <string>

namespace mediaworker::soak {

/// What workers could leave behind in this process's places: files of the temporary folder, semaphores, child
/// processes.
class Traces {
public:
    /// To be made before any thread: from now on this process sees only semaphores of its own, where the
    /// system allows that.
    explicit Traces(const std::filesystem::path& temporary);

    [[nodiscard]] std::size_t files() const;
    [[nodiscard]] std::size_t semaphores() const;
    [[nodiscard]] std::size_t processes() const;
    [[nodiscard]] bool seesSemaphores() const { return seesSemaphores_; }
    /// Of all kinds.
    [[nodiscard]] std::size_t count() const { return files() + semaphores() + processes(); }
    /// "0 files, 0 semaphores, 0 processes"
    [[nodiscard]] std::string text() const;

private:
    const std::filesystem::path temporary_;
    const bool seesSemaphores_;
};

} // namespace mediaworker::soak
