#include "stream/Prefault.h"

#include <sys/mman.h>

void prefault(std::uint8_t* begin, std::size_t bytes) noexcept {
#ifdef MADV_POPULATE_WRITE // Linux 5.14
    // Unlike a write of our own, it survives a file system that is full.
    static_cast<void>(madvise(begin, bytes, MADV_POPULATE_WRITE));
#else
    static_cast<void>(begin);
    static_cast<void>(bytes);
#endif
}
