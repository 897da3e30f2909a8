#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>

/// How much is in a device that plays blocks, which tells only how many of them are free: a write takes as
/// many as it fills, and the last of these whole even where it fills it in part. A pure rule; bytes
/// throughout.
class PlayedBlocks {
public:
    PlayedBlocks(int blockBytes, int bufferBytes);

    void wrote(std::int64_t bytes);
    /// What the blocks hold that are not free.
    [[nodiscard]] std::int64_t held(int freeBytes);

private:
    void keepNewest(std::size_t count);

    const int blockBytes_;
    const std::size_t blocks_;
    std::deque<int> sizes_; ///< of the newest blocks, the oldest first
};
