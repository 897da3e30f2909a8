#include "stream/Prefault.h"

// There is no call that makes the pages of a file writable ahead; they come in as they are written.
void prefault(std::uint8_t* /*begin*/, std::size_t /*bytes*/) noexcept {}

void prefaultZeros(int /*file*/, std::uint64_t /*begin*/, std::uint64_t /*end*/) noexcept {}
