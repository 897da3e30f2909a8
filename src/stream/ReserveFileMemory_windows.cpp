#include "stream/ReserveFileMemory.h"

// What is reserved here shows in the file's size.
void reserveFileMemory(int /*file*/, std::uint64_t /*bytes*/) noexcept {}
