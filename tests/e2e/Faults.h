#pragma once

// Each ends the process that calls it, in a way of its own.
extern "C" {
void accessViolation();
void illegalInstruction();
void stackOverflow();
/// Nobody catches it: it does not get any further than this.
void uncaughtException() noexcept;
void callAbort();
}
