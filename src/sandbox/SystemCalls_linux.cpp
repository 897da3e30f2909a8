#include "sandbox/SystemCalls_linux.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <initializer_list>
#include <memory>

#include <netinet/in.h>
#include <sched.h>
#include <seccomp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace sandbox {
namespace {

constexpr std::uint32_t kRefused = SCMP_ACT_ERRNO(EPERM);

/// Arguments are compared with 64 bits, of which the kernel takes the lower 32 of a number, a flag or a
/// request.
constexpr scmp_datum_t kLow = 0xffffffff;

/// A call by its name; where the library may be too old to know that, with its number, which is the same on
/// all machines for calls of recent years.
struct Call {
    const char* name;
    int number = -1;
};

// Not a list of what is let in: what FFmpeg, Qt, the sound's libraries and the C library call differs from
// version to version, and a list of some 300 calls takes longer to load than the whole of a start may take.
constexpr std::array kRefusedCalls{
    // programs and processes
    Call{"execve"}, Call{"execveat"}, Call{"fork"}, Call{"vfork"}, Call{"setsid"},
    // other processes: their memory, their files, their end
    Call{"ptrace"}, Call{"process_vm_readv"}, Call{"process_vm_writev"}, Call{"process_madvise", 440},
    Call{"process_mrelease", 448}, Call{"kcmp"}, Call{"pidfd_open"}, Call{"pidfd_getfd", 438},
    Call{"pidfd_send_signal"}, Call{"tkill"}, Call{"perf_event_open"}, Call{"userfaultfd"},
    Call{"migrate_pages"}, Call{"move_pages"},
    // mounts and namespaces
    Call{"mount"}, Call{"umount"}, Call{"umount2"}, Call{"pivot_root"}, Call{"chroot"}, Call{"open_tree"},
    Call{"open_tree_attr", 467}, Call{"move_mount"}, Call{"fsopen"}, Call{"fsconfig"}, Call{"fsmount"},
    Call{"fspick"}, Call{"mount_setattr", 442}, Call{"statmount", 457}, Call{"listmount", 458},
    Call{"listns", 470}, Call{"unshare"}, Call{"setns"},
    // keys
    Call{"add_key"}, Call{"request_key"}, Call{"keyctl"},
    // programs in the kernel, and rings past this filter
    Call{"bpf"}, Call{"io_uring_setup"}, Call{"io_uring_enter"}, Call{"io_uring_register"},
    // the machine
    Call{"init_module"}, Call{"finit_module"}, Call{"delete_module"}, Call{"kexec_load"},
    Call{"kexec_file_load"}, Call{"reboot"}, Call{"swapon"}, Call{"swapoff"}, Call{"quotactl"},
    Call{"quotactl_fd", 443}, Call{"acct"}, Call{"syslog"}, Call{"iopl"}, Call{"ioperm"}, Call{"vhangup"},
    Call{"sethostname"}, Call{"setdomainname"}, Call{"settimeofday"}, Call{"clock_settime"}, Call{"adjtimex"},
    Call{"clock_adjtime"}, Call{"personality"}, Call{"modify_ldt"}, Call{"memfd_secret", 447},
    // who this is
    Call{"setuid"}, Call{"setgid"}, Call{"setreuid"}, Call{"setregid"}, Call{"setresuid"}, Call{"setresgid"},
    Call{"setfsuid"}, Call{"setfsgid"}, Call{"setgroups"}, Call{"capset"},
    // files by other ways than opening them, which Landlock does not see
    Call{"open_by_handle_at"}, Call{"name_to_handle_at"}, Call{"fanotify_init"}, Call{"fanotify_mark"},
    Call{"chmod"}, Call{"fchmodat"}, Call{"fchmodat2", 452}, Call{"chown"}, Call{"lchown"}, Call{"fchownat"},
    Call{"utime"}, Call{"utimes"}, Call{"futimesat"}, Call{"utimensat"}, Call{"setxattr"}, Call{"lsetxattr"},
    Call{"fsetxattr"}, Call{"setxattrat", 463}, Call{"removexattr"}, Call{"lremovexattr"},
    Call{"fremovexattr"}, Call{"removexattrat", 466}, Call{"file_setattr", 469}, Call{"truncate"},
    // memory that other programs of the user share by number
    Call{"shmget"}, Call{"shmat"}, Call{"shmctl"},
    // a worker connects, and is never connected to
    Call{"listen"}, Call{"accept"}, Call{"accept4"}};

struct Release {
    void operator()(void* filter) const noexcept { seccomp_release(filter); }
};

/// Collects rules. The first failure stays.
class Filter {
public:
    Filter() : filter_(seccomp_init(SCMP_ACT_ALLOW)) {
        if (!filter_) {
            result_ = -ENOMEM;
            return;
        }
        // Another machine's calls, 32-bit ones among them, have other numbers.
        keep(seccomp_attr_set(filter_.get(), SCMP_FLTATR_ACT_BADARCH, kRefused));
        keep(seccomp_attr_set(filter_.get(), SCMP_FLTATR_CTL_TSYNC, 1));
    }

    void refuse(const Call& call) {
        const int known = seccomp_syscall_resolve_name(call.name);
        const int number = known == __NR_SCMP_ERROR ? call.number : known;
        // A call that this machine never had has no number.
        if (number >= 0) {
            keep(seccomp_rule_add(filter_.get(), kRefused, number, 0));
        }
    }

    template <class... Comparisons>
    void refuse(int call, Comparisons... comparisons) {
        refuseBy(kRefused, call, comparisons...);
    }

    template <class... Comparisons>
    void refuseBy(std::uint32_t action, int call, Comparisons... comparisons) {
        const std::array<scmp_arg_cmp, sizeof...(comparisons)> all{comparisons...};
        keep(seccomp_rule_add_array(filter_.get(), action, call, static_cast<unsigned>(all.size()),
                                    all.data()));
    }

    /// Zero, or the negative number of the first error.
    [[nodiscard]] int load() {
        keep(result_ < 0 ? result_ : seccomp_load(filter_.get()));
        return result_;
    }

private:
    void keep(int result) {
        if (result_ == 0 && result < 0) {
            result_ = result;
        }
    }

    std::unique_ptr<void, Release> filter_;
    int result_ = 0;
};

scmp_arg_cmp isBits(unsigned argument, scmp_datum_t mask, scmp_datum_t value) {
    return {argument, SCMP_CMP_MASKED_EQ, mask, value};
}

scmp_arg_cmp isNot(unsigned argument, scmp_datum_t value) {
    return {argument, SCMP_CMP_NE, value, 0};
}

scmp_arg_cmp isAbove(unsigned argument, scmp_datum_t value) {
    return {argument, SCMP_CMP_GT, value, 0};
}

/// Threads only. One in a namespace of its own would need rights that nothing here gives.
void refuseProcesses(Filter& filter) {
    filter.refuse(SCMP_SYS(clone), isBits(0, CLONE_THREAD, 0));
    // Its flags lie in memory, where a filter cannot look. Without it libraries take clone().
    constexpr int kClone3 = 435;
    filter.refuseBy(SCMP_ACT_ERRNO(ENOSYS), kClone3);
}

/// Signals and limits reach this process and nobody else.
void refuseOthers(Filter& filter) {
    const auto self = static_cast<scmp_datum_t>(::getpid());
    for (const int call :
         {SCMP_SYS(kill), SCMP_SYS(tgkill), SCMP_SYS(rt_sigqueueinfo), SCMP_SYS(rt_tgsigqueueinfo)}) {
        filter.refuse(call, isNot(0, self));
    }
    filter.refuse(SCMP_SYS(prlimit64), isNot(0, 0)); // 0: this one
}

/// Typing into a terminal for its user.
void refuseTerminals(Filter& filter) {
    for (const scmp_datum_t request :
         std::initializer_list<scmp_datum_t>{TIOCSTI, TIOCLINUX, TIOCCONS, TIOCSETD}) {
        filter.refuse(SCMP_SYS(ioctl), isBits(1, kLow, request));
    }
}

/// Sockets within the machine, TCP and UDP, and the kernel's answers about addresses, which a look-up of
/// names asks for. A rule takes time to load, so numbers go together where they share bits.
void refuseSockets(Filter& filter, bool network) {
    const int socket = SCMP_SYS(socket);
    filter.refuse(SCMP_SYS(socketpair), isNot(0, AF_UNIX));
    if (!network) {
        filter.refuse(socket, isNot(0, AF_UNIX));
        return;
    }
    static_assert(AF_UNIX == 1 && AF_INET == 2 && AF_INET6 == 10 && AF_NETLINK == 16);
    filter.refuse(socket, isAbove(0, AF_NETLINK));
    filter.refuse(socket, isBits(0, kLow, 0));
    filter.refuse(socket, isBits(0, kLow & ~8U, 3)); // 3, 11
    filter.refuse(socket, isBits(0, 4, 4));          // 4 to 7, 12 to 15
    filter.refuse(socket, isBits(0, kLow & ~1U, 8)); // 8, 9

    const scmp_arg_cmp isInternet = isBits(0, kLow & ~8U, 2);
    static_assert(SOCK_STREAM == 1 && SOCK_DGRAM == 2);
    filter.refuse(socket, isInternet, isBits(1, 0xf, SOCK_RAW));
    filter.refuse(socket, isInternet, isBits(1, 4, 4)); // other types; flags lie above
    filter.refuse(socket, isInternet, isBits(1, 8, 8));
    filter.refuse(socket, isInternet, isBits(2, kLow, IPPROTO_ICMP));
    filter.refuse(socket, isInternet, isAbove(2, IPPROTO_UDP));
    constexpr scmp_datum_t kRoutes = 0; // NETLINK_ROUTE
    filter.refuse(socket, isBits(0, kLow, AF_NETLINK), isNot(2, kRoutes));
}

} // namespace

std::optional<std::string> restrictSystemCalls(const Needs& needs) {
    Filter filter;
    for (const Call& call : kRefusedCalls) {
        filter.refuse(call);
    }
    refuseProcesses(filter);
    refuseOthers(filter);
    refuseTerminals(filter);
    refuseSockets(filter, needs.network);
    const int result = filter.load();
    if (result < 0) {
        return std::string("the filter of system calls (").append(std::strerror(-result)).append(")");
    }
    return std::nullopt;
}

} // namespace sandbox
