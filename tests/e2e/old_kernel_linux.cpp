// Loaded into a worker ahead of its libraries: the kernel seems to have version MW_LANDLOCK_VERSION of
// Landlock (0: none), and with MW_NO_SECCOMP no filters of system calls. What the kernel itself has must be
// as new at least.

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include <dlfcn.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

namespace {

constexpr long kAskForVersion = 1;

/// The rights that each version of Landlock added: bits of files, of the network, of scopes.
struct Known {
    std::uint64_t files;
    std::uint64_t network;
    std::uint64_t scopes;
    std::size_t bytes; ///< of the structure
};

// linux/landlock.h, from 5.13 (1) to 6.12 (6)
constexpr std::array<Known, 7> kKnown{{{0, 0, 0, 0},
                                       {0x1fff, 0, 0, 8},
                                       {0x3fff, 0, 0, 8},
                                       {0x7fff, 0, 0, 8},
                                       {0x7fff, 3, 0, 16},
                                       {0xffff, 3, 0, 16},
                                       {0xffff, 3, 3, 24}}};

long version() {
    const char* value = std::getenv("MW_LANDLOCK_VERSION");
    return value == nullptr ? static_cast<long>(kKnown.size()) - 1 : std::strtol(value, nullptr, 10);
}

long refused(int error) {
    errno = error;
    return -1;
}

/// 0 where a kernel of that version would take these attributes, otherwise the error's number.
int objection(const void* attributes, std::size_t size) {
    const Known& known = kKnown.at(static_cast<std::size_t>(version()));
    std::array<std::uint64_t, 3> fields{};
    if (size > sizeof fields) {
        return E2BIG;
    }
    std::memcpy(fields.data(), attributes, size);
    for (std::size_t field = known.bytes / sizeof(std::uint64_t); field < fields.size(); ++field) {
        if (fields.at(field) != 0) {
            return E2BIG;
        }
    }
    const bool isKnown = (fields[0] & ~known.files) == 0 && (fields[1] & ~known.network) == 0 &&
                         (fields[2] & ~known.scopes) == 0;
    return isKnown ? 0 : EINVAL;
}

} // namespace

extern "C" __attribute__((visibility("default"))) long syscall(long number, ...) {
    std::array<long, 6> a{};
    va_list arguments;
    va_start(arguments, number);
    for (long& argument : a) {
        argument = va_arg(arguments, long);
    }
    va_end(arguments);

    const bool isLandlock = number == SYS_landlock_create_ruleset || number == SYS_landlock_add_rule ||
                            number == SYS_landlock_restrict_self;
    if (isLandlock && version() == 0) {
        return refused(ENOSYS);
    }
    if (number == SYS_landlock_create_ruleset && a[2] == kAskForVersion) {
        return version();
    }
    if (number == SYS_landlock_create_ruleset) {
        const int error =
            objection(reinterpret_cast<const void*>(a[0]), static_cast<std::size_t>(a[1])); // NOLINT
        if (error != 0) {
            return refused(error);
        }
    }
    if (number == SYS_seccomp && std::getenv("MW_NO_SECCOMP") != nullptr) {
        return refused(ENOSYS);
    }
    using Call = long (*)(long, ...);
    static const auto real = reinterpret_cast<Call>(::dlsym(RTLD_NEXT, "syscall"));
    return real(number, a[0], a[1], a[2], a[3], a[4], a[5]);
}

extern "C" __attribute__((visibility("default"))) int prctl(int option, ...) {
    std::array<unsigned long, 4> a{};
    va_list arguments;
    va_start(arguments, option);
    for (unsigned long& argument : a) {
        argument = va_arg(arguments, unsigned long);
    }
    va_end(arguments);
    if ((option == PR_SET_SECCOMP || option == PR_GET_SECCOMP) && std::getenv("MW_NO_SECCOMP") != nullptr) {
        return static_cast<int>(refused(EINVAL));
    }
    using Call = int (*)(int, ...);
    static const auto real = reinterpret_cast<Call>(::dlsym(RTLD_NEXT, "prctl"));
    return real(option, a[0], a[1], a[2], a[3]);
}
