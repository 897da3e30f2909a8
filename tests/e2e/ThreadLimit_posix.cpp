// A library that a test has loaded into a worker: the system gives it so many threads, and then so many times
// none. Limits of the system itself do not hold for everybody who runs tests.
#include <atomic>
#include <cerrno>
#include <cstdlib>

#include <dlfcn.h>
#include <pthread.h>

namespace {

long number(const char* variable, long otherwise) {
    const char* text = std::getenv(variable);             // NOLINT(concurrency-mt-unsafe)
    return text != nullptr ? std::atol(text) : otherwise; // NOLINT(cert-err34-c)
}

using Create = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);

} // namespace

extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                              void* argument) noexcept {
    static const auto create = reinterpret_cast<Create>(dlsym(RTLD_NEXT, "pthread_create"));
    static const long given = number("THREADS_GIVEN", 0);
    static const long refused = number("THREADS_REFUSED", 1'000'000);
    static std::atomic<long> calls{0};
    const long call = calls++;
    if (call >= given && call < given + refused) {
        return EAGAIN;
    }
    return create(thread, attributes, start, argument);
}
