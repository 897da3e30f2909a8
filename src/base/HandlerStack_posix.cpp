#include "base/HandlerStack.h"

#include <cstddef>
#include <memory>
#include <new>

#include <signal.h> // NOLINT(modernize-deprecated-headers): sigaltstack() is not in <csignal>

namespace base {
namespace {

/// For a handler that does no more than end the process, below what the system puts there: all registers, up
/// to some 12 KiB. Memory that is not touched costs nothing.
constexpr std::size_t kBytes = 64 << 10;

class HandlerStack {
public:
    HandlerStack() noexcept : bytes_(new (std::nothrow) std::byte[kBytes]) {
        if (bytes_) {
            stack_t stack{};
            stack.ss_sp = bytes_.get();
            stack.ss_size = kBytes;
            ::sigaltstack(&stack, &before_);
        }
    }
    HandlerStack(const HandlerStack&) = delete;
    HandlerStack& operator=(const HandlerStack&) = delete;
    ~HandlerStack() {
        if (bytes_) {
            ::sigaltstack(&before_, nullptr); // that of a sanitizer, for one
        }
    }

private:
    std::unique_ptr<std::byte[]> bytes_;
    stack_t before_{};
};

} // namespace

void provideHandlerStack() noexcept {
    thread_local const HandlerStack stack;
}

} // namespace base
