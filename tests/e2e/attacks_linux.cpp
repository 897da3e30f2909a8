// Loaded into a worker ahead of its libraries: tries, in the thread of a given name, everything that a
// program whose decoder was taken over would try, and logs how each attempt ended ("attack NAME: ERRNO", 0
// for a success). The arguments are such that a worker that is not confined is not harmed by what succeeds.

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <dlfcn.h>
#include <fcntl.h>
#include <linux/capability.h>
#include <netinet/in.h>
#include <pthread.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/ptrace.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

std::string inFolder(const char* name) {
    return std::string(std::getenv("MW_ATTACKED_FOLDER")).append(name);
}

int opened(const std::string& path, int flags) {
    const int descriptor = ::open(path.c_str(), flags | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (descriptor >= 0) {
        ::close(descriptor);
    }
    return descriptor < 0 ? -1 : 0;
}

int closed(int descriptor) {
    if (descriptor >= 0) {
        ::close(descriptor);
    }
    return descriptor < 0 ? -1 : 0;
}

template <class... Arguments>
int call(long number, Arguments... arguments) {
    return ::syscall(number, arguments...) < 0 ? -1 : 0;
}

/// Of a child that comes into being after all: it ends at once.
int child(long id) {
    if (id == 0) {
        ::_exit(0);
    }
    if (id > 0) {
        ::waitpid(static_cast<pid_t>(id), nullptr, 0);
    }
    return id < 0 ? -1 : 0;
}

int execute() {
    // Only where that was refused is there somebody to tell.
    char* const arguments[] = {nullptr};
    return ::execve("/bin/true", arguments, arguments);
}

int cloneWithNewCall() {
    std::array<std::uint64_t, 11> arguments{}; // flags 0: a process
    arguments[4] = SIGCHLD;
    return child(::syscall(SYS_clone3, arguments.data(), sizeof arguments));
}

int readParent() {
    char byte = 0;
    const iovec here{&byte, 1};
    const iovec there{&byte,
                      1}; // anywhere: an address of its own is not mapped there, which is another error
    return ::process_vm_readv(::getppid(), &here, 1, &there, 1, 0) < 0 ? -1 : 0;
}

int makeThread() {
    pthread_t thread{};
    const int result = ::pthread_create(
        &thread, nullptr, [](void*) -> void* { return nullptr; }, nullptr);
    if (result == 0) {
        ::pthread_join(thread, nullptr);
    }
    errno = result;
    return result == 0 ? 0 : -1;
}

struct Attack {
    const char* name;
    int (*run)();
};

constexpr int kNobody = -1;
constexpr void* kNothing = nullptr;

const std::array kAttacks{
    Attack{"read-secret", [] { return opened(inFolder("/home/.ssh/id_test"), O_RDONLY); }},
    Attack{"list-home", [] { return opened(inFolder("/home"), O_RDONLY | O_DIRECTORY); }},
    Attack{"write-home", [] { return opened(inFolder("/home/new"), O_WRONLY | O_CREAT); }},
    Attack{"write-beside", [] { return opened(inFolder("/out/other.mp4"), O_WRONLY | O_CREAT); }},
    Attack{"overwrite-beside", [] { return opened(inFolder("/out/film.mp4"), O_WRONLY | O_TRUNC); }},
    Attack{"write-temporary", [] { return opened("/tmp/mw-attack", O_WRONLY | O_CREAT); }},
    Attack{"truncate", [] { return ::truncate(inFolder("/out/film.mp4").c_str(), 0); }},
    Attack{"remove", [] { return ::unlink(inFolder("/out/film.mp4").c_str()); }},
    Attack{"rename", [] { return ::rename(inFolder("/out/film.mp4").c_str(), inFolder("/out/x").c_str()); }},
    Attack{"make-folder", [] { return ::mkdir(inFolder("/out/folder").c_str(), S_IRWXU); }},
    Attack{"change-mode", [] { return ::chmod(inFolder("/home/.ssh/id_test").c_str(), S_IRUSR); }},
    Attack{"read-parent-environment",
           [] { return opened("/proc/" + std::to_string(::getppid()) + "/environ", O_RDONLY); }},
    Attack{"fork", [] { return child(::syscall(SYS_clone, SIGCHLD, 0, 0, 0, 0)); }},
    Attack{"clone3", cloneWithNewCall},
    Attack{"ptrace", [] { return call(SYS_ptrace, PTRACE_PEEKDATA, ::getppid(), kNothing, kNothing); }},
    Attack{"read-parent-memory", readParent}, Attack{"signal-parent", [] { return ::kill(::getppid(), 0); }},
    Attack{"signal-all", [] { return ::kill(kNobody, 0); }},
    Attack{"raw-socket", [] { return closed(::socket(AF_INET, SOCK_RAW, IPPROTO_ICMP)); }},
    Attack{"packet-socket", [] { return closed(::socket(AF_PACKET, SOCK_RAW, 0)); }},
    Attack{"ping-socket", [] { return closed(::socket(AF_INET, SOCK_DGRAM, IPPROTO_ICMP)); }},
    Attack{"vsock", [] { return closed(::socket(AF_VSOCK, SOCK_STREAM, 0)); }},
    Attack{"netlink-audit", [] { return closed(::socket(AF_NETLINK, SOCK_RAW, 9)); }},
    Attack{"listen", [] { return ::listen(kNobody, 1); }},
    Attack{"mount", [] { return call(SYS_mount, kNothing, kNothing, kNothing, 0, kNothing); }},
    Attack{"keyctl", [] { return call(SYS_keyctl, kNobody); }},
    Attack{"bpf", [] { return call(SYS_bpf, kNobody, kNothing, 0); }},
    Attack{"io_uring", [] { return call(SYS_io_uring_setup, 0, kNothing); }},
    Attack{"unshare", [] { return ::unshare(CLONE_FILES | CLONE_NEWUTS); }},
    Attack{"set-namespace", [] { return ::setns(kNobody, 0); }},
    Attack{"userfaultfd", [] { return call(SYS_userfaultfd, kNobody); }},
    Attack{"performance-counters", [] { return call(SYS_perf_event_open, kNothing, 0, 0, 0, 0); }},
    Attack{"load-module", [] { return call(SYS_finit_module, kNobody, "", 0); }},
    Attack{"new-kernel", [] { return call(SYS_kexec_load, 0, kNobody, kNothing, kNobody); }},
    Attack{"shared-memory", [] { return ::syscall(SYS_shmget, 0x6d776174, 0, 0) < 0 ? -1 : 0; }},
    Attack{"type-into-terminal", [] { return ::ioctl(STDERR_FILENO, TIOCSTI, ""); }},
    Attack{"type-with-high-bits", [] { return call(SYS_ioctl, STDERR_FILENO, 0xf00000000UL | TIOCSTI, ""); }},
    Attack{"family-with-high-bits", [] { return call(SYS_socket, 0xf00000000UL | AF_PACKET, SOCK_RAW, 0); }},
#ifdef __x86_64__
    Attack{"calls-of-x32", [] { return call(0x40000000L | SYS_getpid); }},
#endif
    // What a worker does needs these.
    Attack{"allowed-tcp", [] { return closed(::socket(AF_INET, SOCK_STREAM, 0)); }},
    Attack{"allowed-names", [] { return closed(::socket(AF_NETLINK, SOCK_RAW, 0)); }},
    Attack{"allowed-link", [] { return closed(::socket(AF_UNIX, SOCK_STREAM, 0)); }},
    Attack{"allowed-library", [] { return opened("/usr/share/zoneinfo/UTC", O_RDONLY); }},
    Attack{"allowed-output", [] { return opened(inFolder("/out/out.mp4"), O_WRONLY); }},
    Attack{"allowed-thread", makeThread},
    Attack{"allowed-signal-to-self", [] { return ::kill(::getpid(), 0); }},
    Attack{"execute", execute}, // the last one
};

void attack() {
    for (const Attack& attempt : kAttacks) {
        if (attempt.run == execute && std::getenv("MW_ATTACK_SPARES_PROGRAM") != nullptr) {
            continue;
        }
        errno = 0;
        const int result = attempt.run();
        ::dprintf(STDERR_FILENO, "attack %s: %d\n", attempt.name, result < 0 ? errno : 0);
    }
    ::dprintf(STDERR_FILENO, "attack is over\n");
}

bool isWanted(const char* thread) {
    const char* wanted = std::getenv("MW_ATTACKING_THREAD");
    return wanted != nullptr && std::strcmp(wanted, thread) == 0;
}

template <class Function>
Function* next(const char* name) {
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

} // namespace

// Each of the worker's threads gives itself a name.
extern "C" int pthread_setname_np(pthread_t thread, const char* name) {
    const int result = next<int(pthread_t, const char*)>("pthread_setname_np")(thread, name);
    if (isWanted(name)) {
        attack();
    }
    return result;
}

// The main thread starts the first of them when it is confined.
extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*function)(void*),
                              void* argument) noexcept {
    static std::atomic<bool> isFirst{true};
    if (isFirst.exchange(false) && isWanted("main")) {
        attack();
    }
    return next<int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)>("pthread_create")(
        thread, attributes, function, argument);
}
