#include "support/Platform.h"

#include "support/ChildProcess.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include <fcntl.h>
#include <sched.h>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/sem.h>
#include <unistd.h>

namespace mediaworker::test::platform {
namespace {

std::string processFile(std::int64_t pid, const char* name) {
    return readFile("/proc/" + std::to_string(pid) + "/" + name);
}

/// A line of the process's status that tells kilobytes; 0 when there is no such process.
std::int64_t statusBytes(std::int64_t pid, std::string_view name) {
    std::istringstream status;
    try {
        status.str(processFile(pid, "status"));
    } catch (const std::runtime_error&) {
        return 0;
    }
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with(name)) {
            return std::stoll(line.substr(name.size())) * 1024;
        }
    }
    return 0;
}

} // namespace

bool isRunning(std::int64_t pid) {
    return ::kill(static_cast<pid_t>(pid), 0) == 0;
}

bool makeCrash(std::int64_t pid) {
    return ::kill(static_cast<pid_t>(pid), SIGSEGV) == 0;
}

std::int64_t residentBytes(std::int64_t pid) {
    return statusBytes(pid, "VmRSS:");
}

std::int64_t peakResidentBytes(std::int64_t pid) {
    return statusBytes(pid, "VmHWM:");
}

std::string loadedLibraries(std::int64_t pid) {
    return processFile(pid, "maps");
}

std::vector<std::int64_t> childProcesses() {
    std::vector<std::int64_t> all;
    for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream list(thread.path() / "children");
        all.insert(all.end(), std::istream_iterator<std::int64_t>(list), {});
    }
    return all;
}

int mappingsOf(const std::filesystem::path& folder) {
    std::istringstream maps(readFile("/proc/self/maps"));
    int found = 0;
    for (std::string line; std::getline(maps, line);) {
        found += line.find(folder.string() + "/") != std::string::npos ? 1 : 0;
    }
    return found;
}

int openHandles() {
    return static_cast<int>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                                          std::filesystem::directory_iterator()));
}

void setVariable(const char* name, const char* value) {
    if (value == nullptr) {
        ::unsetenv(name); // NOLINT(concurrency-mt-unsafe)
    } else {
        ::setenv(name, value, 1); // NOLINT(concurrency-mt-unsafe)
    }
}

std::vector<std::string> variableNames() {
    std::vector<std::string> names;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string_view text(*entry);
        names.emplace_back(text.substr(0, text.find('=')));
    }
    return names;
}

TemporaryDirectory::TemporaryDirectory(const std::filesystem::path& path) {
    const char* const before = std::getenv(kTemporaryVariable); // NOLINT(concurrency-mt-unsafe)
    before_ = before != nullptr ? before : "";
    ::setenv(kTemporaryVariable, path.c_str(), 1); // NOLINT(concurrency-mt-unsafe)
}

TemporaryDirectory::~TemporaryDirectory() {
    if (before_.empty()) {
        ::unsetenv(kTemporaryVariable); // NOLINT(concurrency-mt-unsafe)
    } else {
        ::setenv(kTemporaryVariable, before_.c_str(), 1); // NOLINT(concurrency-mt-unsafe)
    }
}

bool hideSemaphoresOfOthers() {
    return ::unshare(CLONE_NEWIPC) == 0;
}

std::string semaphores() {
    const std::string list = readFile("/proc/sysvipc/sem"); // a heading, and a line for each
    return list.substr(list.find('\n') + 1);
}

std::optional<int> semaphoreOf(const std::filesystem::path& file) {
    constexpr int kProject = 'Q';
    const key_t key = ::ftok(file.c_str(), kProject);
    return key == -1 ? -1 : ::semget(key, 1, 0);
}

bool isSemaphore(int number) {
    return ::semctl(number, 0, GETVAL) != -1;
}

// A file in memory can be sealed; its name is a link to where this process has it open.
FileThatOnlyGrows::FileThatOnlyGrows(const std::filesystem::path& path)
    : descriptor_(::memfd_create("only grows", MFD_CLOEXEC | MFD_ALLOW_SEALING)) {
    if (descriptor_ < 0 || ::fcntl(descriptor_, F_ADD_SEALS, F_SEAL_SHRINK) != 0) {
        throw std::system_error(errno, std::generic_category(), "memfd_create");
    }
    std::filesystem::create_symlink(
        "/proc/" + std::to_string(::getpid()) + "/fd/" + std::to_string(descriptor_), path);
}

FileThatOnlyGrows::~FileThatOnlyGrows() {
    ::close(descriptor_);
}

std::string fileUrl(const std::filesystem::path& file) {
    return "file://" + file.string();
}

} // namespace mediaworker::test::platform
