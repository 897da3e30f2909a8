#pragma once

namespace base {

/// Names the calling thread for debuggers and system tools; at most 15 characters, the limit of Linux.
void setThreadName(const char* name) noexcept;

} // namespace base
