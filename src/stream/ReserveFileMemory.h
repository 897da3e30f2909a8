#pragma once

#include <cstdint>

/// Has the system reserve memory or room on the disk for the first `bytes` of a file, whose size and content
/// stay as they are. A hint: it may do less, or nothing.
void reserveFileMemory(int file, std::uint64_t bytes) noexcept;
