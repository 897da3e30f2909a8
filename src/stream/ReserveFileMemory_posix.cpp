#include "stream/ReserveFileMemory.h"

#include <fcntl.h>

void reserveFileMemory(int file, std::uint64_t bytes) noexcept {
#ifdef FALLOC_FL_KEEP_SIZE // Linux; a temporary directory in memory gets its pages by this
    static_cast<void>(fallocate(file, FALLOC_FL_KEEP_SIZE, 0, static_cast<off_t>(bytes)));
#else
    static_cast<void>(file);
    static_cast<void>(bytes);
#endif
}
