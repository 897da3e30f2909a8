#pragma once

/// What becomes of a crash: the parent sees exit code 1 and nobody sees a dialog.
namespace fault_guard {

/// Switches off the system's dialogs about faults.
void silenceFaultDialogs();

/// Makes a crash, or an exception that nobody caught, end the process with code 1. Call early in main; on
/// POSIX a closed pipe or socket, and a file beyond the limit for its size, then show as write errors instead
/// of signals.
void installCrashFilter();

} // namespace fault_guard
