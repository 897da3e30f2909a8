// A library that a test loads into a worker, to have its faults happen there: in code that the system can
// unwind, as it is with real ones.
#include "Faults.h"

#include <array>
#include <cstddef>
#include <cstdlib>
#include <stdexcept>

namespace {

// What the compiler cannot see through: it knows these faults, and leaves their code out.
int* volatile nowhere = nullptr;
int overflow(std::size_t depth);
int (*volatile deeper)(std::size_t) = overflow;

/// Uses up the stack.
int overflow(std::size_t depth) { // NOLINT(misc-no-recursion)
    std::array<volatile char, 4096> room{};
    room[depth % room.size()] = 1;
    return deeper(depth + 1) + room[0];
}

void fail() {
    throw std::runtime_error("nobody catches this");
}
void (*volatile failing)() = fail;

} // namespace

extern "C" {

void accessViolation() {
    *nowhere = 1;
}

void illegalInstruction() {
    __builtin_trap();
}

void stackOverflow() {
    *nowhere = overflow(0);
}

void uncaughtException() noexcept {
    failing();
}

void callAbort() {
    std::abort();
}
}
