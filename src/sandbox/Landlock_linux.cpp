#include "sandbox/Landlock_linux.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace sandbox {
namespace {

// The kernel's interface as it has grown, since the headers of a build may be older than the kernel that the
// program meets. C libraries have no functions for it.

enum FileRight : std::uint64_t {
    kExecute = 1ULL << 0,
    kWriteFile = 1ULL << 1,
    kReadFile = 1ULL << 2,
    kReadFolder = 1ULL << 3,
    kRemoveFile = 1ULL << 5,
    kMakeRegular = 1ULL << 8,
    kAllOfVersion1 = (1ULL << 13) - 1,
    kRefer = 1ULL << 13,       // version 2: link and rename between folders
    kTruncate = 1ULL << 14,    // version 3
    kDeviceIoctl = 1ULL << 15, // version 5
};

enum NetworkRight : std::uint64_t { kBindTcp = 1ULL << 0, kConnectTcp = 1ULL << 1 }; // version 4

enum Scope : std::uint64_t { kAbstractSockets = 1ULL << 0, kSignals = 1ULL << 1 }; // version 6

struct RulesetAttributes {
    std::uint64_t fileRights = 0;
    std::uint64_t networkRights = 0;
    std::uint64_t scopes = 0;
};

struct [[gnu::packed]] PathAttributes {
    std::uint64_t rights = 0;
    std::int32_t folder = -1;
};

constexpr unsigned kAskForVersion = 1;
constexpr int kPathRule = 1;

class Descriptor {
public:
    explicit Descriptor(int number) : number_(number) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() {
        if (number_ >= 0) {
            ::close(number_);
        }
    }
    [[nodiscard]] int get() const { return number_; }

private:
    const int number_;
};

RulesetAttributes handled(long version, bool network) {
    RulesetAttributes attributes{.fileRights = kAllOfVersion1};
    if (version >= 2) {
        attributes.fileRights |= kRefer;
    }
    if (version >= 3) {
        attributes.fileRights |= kTruncate;
    }
    if (version >= 4) {
        attributes.networkRights = network ? kBindTcp : kBindTcp | kConnectTcp;
    }
    if (version >= 5) {
        attributes.fileRights |= kDeviceIoctl;
    }
    if (version >= 6) {
        attributes.scopes = kAbstractSockets | kSignals;
    }
    return attributes;
}

/// kExecute is nobody's: libraries are read and mapped, programs are not started.
std::uint64_t rightsOf(Access access) {
    constexpr std::uint64_t kRead = kReadFile | kReadFolder;
    switch (access) {
    case Access::Read:
        return kRead;
    case Access::ReadWrite:
        return kRead | kWriteFile;
    case Access::Device:
        return kRead | kWriteFile | kDeviceIoctl;
    case Access::Output:
        return kReadFile | kWriteFile | kTruncate;
    case Access::SharedFiles:
        return kRead | kWriteFile | kTruncate | kMakeRegular | kRemoveFile;
    }
    return 0;
}

constexpr std::uint64_t kRightsOfFiles = kWriteFile | kReadFile | kTruncate | kDeviceIoctl;

/// A rule needs its file. One that is there already stays as it is, whatever it is.
void makeOutput(const std::string& path) {
    constexpr mode_t kUsualMode = 0666; // less the process's mask
    const Descriptor made(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kUsualMode));
}

/// A path that is not there, or that the user may not see, needs no rule: it is refused anyway.
bool allow(int ruleset, const PathRule& rule, std::uint64_t known) {
    if (rule.access == Access::Output) {
        makeOutput(rule.path);
    }
    const Descriptor path(::open(rule.path.c_str(), O_PATH | O_CLOEXEC));
    struct stat status {};
    if (path.get() < 0 || ::fstat(path.get(), &status) != 0) {
        return true;
    }
    PathAttributes attributes{.rights = rightsOf(rule.access) & known, .folder = path.get()};
    if (!S_ISDIR(status.st_mode)) {
        attributes.rights &= kRightsOfFiles;
    }
    return ::syscall(SYS_landlock_add_rule, ruleset, kPathRule, &attributes, 0U) == 0;
}

std::string reason(const char* what) {
    return std::string("Landlock (").append(what).append(": ").append(std::strerror(errno)).append(")");
}

/// Threads that run already would stay as they are.
bool isOnlyThread() {
    std::error_code failure;
    const std::filesystem::directory_iterator threads("/proc/self/task", failure);
    return failure || std::distance(begin(threads), end(threads)) == 1;
}

} // namespace

std::optional<std::string> restrictPaths(const Needs& needs) {
    const long version = ::syscall(SYS_landlock_create_ruleset, nullptr, 0UL, kAskForVersion);
    if (version < 1) {
        return reason("the kernel");
    }
    const RulesetAttributes attributes = handled(version, needs.network);
    const Descriptor ruleset(
        static_cast<int>(::syscall(SYS_landlock_create_ruleset, &attributes, sizeof attributes, 0U)));
    if (ruleset.get() < 0) {
        return reason("a rule set");
    }
    for (const PathRule& rule : needs.paths) {
        if (!allow(ruleset.get(), rule, attributes.fileRights)) {
            return reason(rule.path.c_str());
        }
    }
    if (::syscall(SYS_landlock_restrict_self, ruleset.get(), 0U) != 0) {
        return reason("restricting");
    }
    if (!isOnlyThread()) {
        return "Landlock for the threads that ran already";
    }
    return std::nullopt;
}

} // namespace sandbox
