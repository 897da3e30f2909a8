#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

/// What tests ask of the system, about processes above all.
namespace mediaworker::test::platform {

/// For expectations that differ, and for tests of what only one system has (GTEST_SKIP() with the reason).
inline constexpr bool kIsWindows = MEDIAWORKER_TEST_ON_WINDOWS != 0;

/// The variable that says where the system's temporary directory is.
inline constexpr const char* kTemporaryVariable =
    kIsWindows ? "TMP" : "TMPDIR"; // "TMP": asked before the others

[[nodiscard]] bool isRunning(std::int64_t pid);
/// Makes a process touch memory that it does not have. False when that cannot be done.
[[nodiscard]] bool makeCrash(std::int64_t pid);
/// In bytes; 0 when there is no such process.
[[nodiscard]] std::int64_t residentBytes(std::int64_t pid);
/// The most that it ever had, in bytes; 0 when there is no such process.
[[nodiscard]] std::int64_t peakResidentBytes(std::int64_t pid);
/// The files of the libraries that a process has loaded, a line for each, among others perhaps.
[[nodiscard]] std::string loadedLibraries(std::int64_t pid);
/// Processes that this one has started and that are still there, on POSIX also those nobody has waited for.
[[nodiscard]] std::vector<std::int64_t> childProcesses();
/// How many places of this process's memory are files in that folder.
[[nodiscard]] int mappingsOf(const std::filesystem::path& folder);
/// Files, sockets and the like that this process has open.
[[nodiscard]] int openHandles();
/// A variable of the environment of this process and those that it starts; null removes it.
void setVariable(const char* name, const char* value);
/// The names of all variables of this process's environment.
[[nodiscard]] std::vector<std::string> variableNames();

/// The system's temporary directory for this process and those that it starts, while this lives.
class TemporaryDirectory {
public:
    explicit TemporaryDirectory(const std::filesystem::path& path);
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
    ~TemporaryDirectory();

private:
    std::string before_; ///< empty: there was none
};

/// The current folder of this process and those that it starts, while this lives.
class CurrentFolder {
public:
    explicit CurrentFolder(const std::filesystem::path& path) : before_(std::filesystem::current_path()) {
        std::filesystem::current_path(path);
    }
    CurrentFolder(const CurrentFolder&) = delete;
    CurrentFolder& operator=(const CurrentFolder&) = delete;
    ~CurrentFolder() { std::filesystem::current_path(before_); }

private:
    const std::filesystem::path before_;
};

/// Lets this process and those that it starts see only the named semaphores that they make from now on. False
/// where that cannot be.
[[nodiscard]] bool hideSemaphoresOfOthers();
/// A line for each semaphore that can be seen; empty where the system keeps none without a user.
[[nodiscard]] std::string semaphores();

/// The number of the semaphore that a file stands for (System V, Qt's way); -1 when there is none. Nothing
/// where semaphores have no files: they go with their last user there.
[[nodiscard]] std::optional<int> semaphoreOf(const std::filesystem::path& file);
[[nodiscard]] bool isSemaphore(int number);

/// A file that cannot be made smaller while this lives, as one that somebody maps cannot on Windows; there,
/// who makes one has to map it as well.
class FileThatOnlyGrows {
public:
    /// Makes it, empty. Throws std::system_error.
    explicit FileThatOnlyGrows(const std::filesystem::path& path);
    FileThatOnlyGrows(const FileThatOnlyGrows&) = delete;
    FileThatOnlyGrows& operator=(const FileThatOnlyGrows&) = delete;
    ~FileThatOnlyGrows();

private:
    int descriptor_ = -1;
};

/// "file:///..." for a file.
[[nodiscard]] std::string fileUrl(const std::filesystem::path& file);

} // namespace mediaworker::test::platform
