// Preloaded into a worker (LD_PRELOAD): makes one of its calls fail, counted from the begin of main().
//
//   MEDIAWORKER_FAULT        what: "memory", "thread", or "file", for the file that MEDIAWORKER_FAULT_FILE
//   names MEDIAWORKER_FAULT_AT     which call, from 1 on MEDIAWORKER_FAULT_ERROR  errno of a file's call that
//   fails, a number MEDIAWORKER_FAULT_REPORT a file that is made when that call came
//
// Nothing in here allocates.

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

extern "C" {
// The C library's own, which its malloc() and the like stand for.
void* __libc_malloc(std::size_t);                // NOLINT(bugprone-reserved-identifier)
void* __libc_calloc(std::size_t, std::size_t);   // NOLINT(bugprone-reserved-identifier)
void* __libc_realloc(void*, std::size_t);        // NOLINT(bugprone-reserved-identifier)
void* __libc_memalign(std::size_t, std::size_t); // NOLINT(bugprone-reserved-identifier)
}

namespace {

enum class Kind { None, Memory, Thread, File };

Kind kind = Kind::None;
long at = 0;
int error = EIO;
const char* watched = nullptr;
std::atomic<long> calls{0};
std::atomic<bool> isArmed{false};
std::atomic<int> descriptor{-1}; ///< of the watched file

void report() {
    const char* const file = std::getenv("MEDIAWORKER_FAULT_REPORT");
    if (file != nullptr) {
        const long made = ::syscall(SYS_openat, AT_FDCWD, file, O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
        if (made >= 0) {
            ::syscall(SYS_close, made);
        }
    }
}

/// Whether this call is the one.
bool strikes(Kind what) {
    if (kind != what || !isArmed.load(std::memory_order_relaxed) || ++calls != at) {
        return false;
    }
    report();
    return true;
}

long number(const char* name) {
    const char* const value = std::getenv(name);
    return value != nullptr ? std::strtol(value, nullptr, 10) : 0;
}

void arm() {
    const char* const what = std::getenv("MEDIAWORKER_FAULT");
    if (what == nullptr) {
        return;
    }
    kind = std::strcmp(what, "memory") == 0   ? Kind::Memory
           : std::strcmp(what, "thread") == 0 ? Kind::Thread
                                              : Kind::File;
    at = number("MEDIAWORKER_FAULT_AT");
    error = static_cast<int>(number("MEDIAWORKER_FAULT_ERROR"));
    watched = std::getenv("MEDIAWORKER_FAULT_FILE");
    isArmed = true;
}

template <class Function>
Function* next(const char* name) {
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

using Main = int(int, char**, char**);
Main* programMain = nullptr;

int armedMain(int argc, char** argv, char** environment) {
    arm();
    return programMain(argc, argv, environment);
}

bool isWatched(const char* path) {
    return kind == Kind::File && watched != nullptr && path != nullptr && std::strcmp(path, watched) == 0;
}

/// A call for the watched file: whether it is to fail. Sets errno.
bool strikesFile(int file) {
    if (kind != Kind::File || file < 0 || file != descriptor || !strikes(Kind::File)) {
        return false;
    }
    errno = error;
    return true;
}

int opened(const char* path, int flags, mode_t mode) {
    const bool isIt = isWatched(path);
    if (isIt && strikes(Kind::File)) {
        errno = error;
        return -1;
    }
    const auto file = static_cast<int>(::syscall(SYS_openat, AT_FDCWD, path, flags, mode));
    if (isIt && file >= 0) {
        descriptor = file;
    }
    return file;
}

} // namespace

// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name, cert-dcl50-cpp)
extern "C" {

int __libc_start_main(Main* program, int argc, char** argv, void (*init)(), void (*fini)(),
                      void (*loaderFini)(), void* stackEnd) {
    programMain = program;
    using Start = int(Main*, int, char**, void (*)(), void (*)(), void (*)(), void*);
    return next<Start>("__libc_start_main")(armedMain, argc, argv, init, fini, loaderFini, stackEnd);
}

void* malloc(std::size_t size) {
    if (strikes(Kind::Memory)) {
        errno = ENOMEM;
        return nullptr;
    }
    return __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) {
    if (strikes(Kind::Memory)) {
        errno = ENOMEM;
        return nullptr;
    }
    return __libc_calloc(count, size);
}

void* realloc(void* memory, std::size_t size) {
    if (size > 0 && strikes(Kind::Memory)) {
        errno = ENOMEM;
        return nullptr;
    }
    return __libc_realloc(memory, size);
}

void* memalign(std::size_t alignment, std::size_t size) {
    if (strikes(Kind::Memory)) {
        errno = ENOMEM;
        return nullptr;
    }
    return __libc_memalign(alignment, size);
}

void* aligned_alloc(std::size_t alignment, std::size_t size) {
    return memalign(alignment, size);
}

int posix_memalign(void** result, std::size_t alignment, std::size_t size) {
    void* const memory = memalign(alignment, size);
    if (memory == nullptr) {
        return ENOMEM;
    }
    *result = memory;
    return 0;
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*routine)(void*),
                   void* argument) {
    if (strikes(Kind::Thread)) {
        return EAGAIN;
    }
    using Create = int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    static Create* const create = next<Create>("pthread_create");
    return create(thread, attributes, routine, argument);
}

int open(const char* path, int flags, ...) {
    mode_t mode = 0;
    if ((flags & (O_CREAT | __O_TMPFILE)) != 0) {
        __builtin_va_list arguments;
        __builtin_va_start(arguments, flags);
        mode = __builtin_va_arg(arguments, mode_t);
        __builtin_va_end(arguments);
    }
    return opened(path, flags, mode);
}

int open64(const char* path, int flags, ...) {
    mode_t mode = 0;
    if ((flags & (O_CREAT | __O_TMPFILE)) != 0) {
        __builtin_va_list arguments;
        __builtin_va_start(arguments, flags);
        mode = __builtin_va_arg(arguments, mode_t);
        __builtin_va_end(arguments);
    }
    return opened(path, flags, mode);
}

ssize_t write(int file, const void* data, std::size_t size) {
    return strikesFile(file) ? -1 : ::syscall(SYS_write, file, data, size);
}

ssize_t pwrite64(int file, const void* data, std::size_t size, off64_t offset) {
    return strikesFile(file) ? -1 : ::syscall(SYS_pwrite64, file, data, size, offset);
}

off64_t lseek64(int file, off64_t offset, int whence) {
    return strikesFile(file) ? -1 : ::syscall(SYS_lseek, file, offset, whence);
}

int ftruncate64(int file, off64_t size) {
    return strikesFile(file) ? -1 : static_cast<int>(::syscall(SYS_ftruncate, file, size));
}

int fallocate64(int file, int mode, off64_t offset, off64_t size) {
    return strikesFile(file) ? -1 : static_cast<int>(::syscall(SYS_fallocate, file, mode, offset, size));
}

int close(int file) {
    const bool fails = strikesFile(file);
    const int failure = errno;
    // The descriptor is gone either way, as the system has it.
    const auto result = static_cast<int>(::syscall(SYS_close, file));
    int expected = file;
    descriptor.compare_exchange_strong(expected, -1);
    if (fails) {
        errno = failure;
    }
    return fails ? -1 : result;
}

int rename(const char* from, const char* to) {
    if ((isWatched(from) || isWatched(to)) && strikes(Kind::File)) {
        errno = error;
        return -1;
    }
    return static_cast<int>(::syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0));
}

} // extern "C"
// NOLINTEND(readability-inconsistent-declaration-parameter-name, cert-dcl50-cpp)
