#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace mediaworker::test {

/// A program that a test runs. It is killed when this object goes, and by the system when the thread that
/// started it ends, so that a test that is killed leaves nothing behind. Not thread-safe.
///
/// On Windows under Wine, a name without folder and ending ("ffmpeg") is a program of the Linux system around
/// it; it gets its whole input at closeInput(), and its path arguments as it knows them.
class ChildProcess {
public:
    struct Options {
        std::vector<std::string> command = {}; ///< the program, looked up in PATH, and its arguments
        /// Added to, or replacing, our own.
        std::vector<std::pair<std::string, std::string>> environment = {};
        std::filesystem::path output = {}; ///< standard output; empty: discarded
        std::filesystem::path errors = {}; ///< standard error; empty: our own
        bool hasInput = false;             ///< standard input is fed by write()
    };

    /// Throws std::system_error when the program cannot be started.
    explicit ChildProcess(const Options& options);
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ~ChildProcess();

    /// Blocks until the program has room for everything. False when it no longer reads.
    [[nodiscard]] bool write(std::span<const std::uint8_t> bytes);
    void closeInput();

    /// Waits for the end. The exit status, or 128 + the signal that ended it.
    int wait();
    /// The same, empty when the time is over first.
    std::optional<int> waitFor(std::chrono::milliseconds limit);
    [[nodiscard]] bool isRunning() { return !waitFor(std::chrono::milliseconds(0)); }

    /// On Windows, any signal ends the program at once.
    void signal(int number);
    /// Ends the program at once.
    void kill();

    [[nodiscard]] std::int64_t id() const noexcept;

private:
    struct State;
    std::unique_ptr<State> state_;
};

/// Runs a command to its end and gives its standard output. Throws std::runtime_error with what it wrote to
/// standard error when it fails.
std::string runCommand(const std::vector<std::string>& command,
                       const std::vector<std::pair<std::string, std::string>>& environment = {});

/// A folder in the temporary directory that is removed with all its contents.
class TemporaryFolder {
public:
    TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder();

    [[nodiscard]] const std::filesystem::path& path() const noexcept { return path_; }
    [[nodiscard]] std::filesystem::path operator/(const char* name) const { return path_ / name; }

private:
    std::filesystem::path path_;
};

/// The whole file. Throws std::runtime_error when it cannot be read.
[[nodiscard]] std::string readFile(const std::filesystem::path& path);
/// The same of a text that a program wrote, with "\n" at the end of each line whatever the system puts there.
[[nodiscard]] std::string readText(const std::filesystem::path& path);
void writeFile(const std::filesystem::path& path, std::string_view text);

} // namespace mediaworker::test
