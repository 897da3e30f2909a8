#include "sound/PlayedBlocks.h"

#include <algorithm>
#include <numeric>

PlayedBlocks::PlayedBlocks(int blockBytes, int bufferBytes)
    : blockBytes_(std::max(blockBytes, 1)),
      blocks_(static_cast<std::size_t>(std::max(bufferBytes / std::max(blockBytes, 1), 1))) {}

void PlayedBlocks::wrote(std::int64_t bytes) {
    while (bytes > 0) {
        const auto size = static_cast<int>(std::min<std::int64_t>(bytes, blockBytes_));
        sizes_.push_back(size);
        bytes -= size;
        keepNewest(blocks_);
    }
}

std::int64_t PlayedBlocks::held(int freeBytes) {
    const auto free = static_cast<std::size_t>(std::max(freeBytes, 0) / blockBytes_);
    keepNewest(blocks_ - std::min(free, blocks_));
    return std::accumulate(sizes_.begin(), sizes_.end(), std::int64_t{0});
}

void PlayedBlocks::keepNewest(std::size_t count) {
    while (sizes_.size() > count) {
        sizes_.pop_front();
    }
}
