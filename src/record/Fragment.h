#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace ko_player {

/// One box of an MP4 file, with its header.
struct Mp4Box {
    std::size_t offset = 0;
    std::size_t size = 0;       ///< all of it
    std::size_t headerSize = 0; ///< 8, or 16 for a long one
};

/// The first box of that name among those that follow each other in `bytes`. Empty where there is none, or
/// where a length before it is wrong.
[[nodiscard]] std::optional<Mp4Box> findBox(std::span<const std::uint8_t> bytes, std::string_view name);

/// Puts bytes at an offset, over what is there and on behind it. False where that would leave a gap.
[[nodiscard]] bool putAt(std::vector<std::uint8_t>& bytes, std::int64_t offset,
                         std::span<const std::uint8_t> added);

/// Where a packet's bytes lie.
struct SamplePlace {
    std::int64_t offset = 0; ///< from the begin of the fragment's bytes
    std::uint32_t size = 0;

    friend bool operator==(const SamplePlace&, const SamplePlace&) = default;
};

/// The places of a fragment's samples, in the order of the stream, for each track from the first on. `head`
/// has all of it that comes before the samples; `size` is that of head and samples, in bytes. Empty for what
/// FFmpeg's writer does not write with offsets that count from the fragment ("moof"), and for anything that
/// points out of it.
[[nodiscard]] std::optional<std::vector<std::deque<SamplePlace>>>
samplesOf(std::span<const std::uint8_t> head, std::size_t size, std::size_t tracks);

/// What a crash-safe file begins with: the box that names the format, and another one that fills up. While
/// it is recorded, that is free space in front of fragments; at the end it becomes the header of one box
/// ("mdat") that holds all of them. Either is one write.
inline constexpr std::size_t kFileBeginBytes = 128;

/// `format` is a whole "ftyp" box. Empty where that has no place.
[[nodiscard]] std::optional<std::array<std::uint8_t, kFileBeginBytes>>
fragmentedBegin(std::span<const std::uint8_t> format);
/// The same for the finished file; `end` is where what is recorded ends.
[[nodiscard]] std::optional<std::array<std::uint8_t, kFileBeginBytes>>
ordinaryBegin(std::span<const std::uint8_t> format, std::int64_t end);

/// A box without content up to the end of the file, whatever is there.
inline constexpr std::array<std::uint8_t, 8> kFreeToTheEnd{0, 0, 0, 0, 'f', 'r', 'e', 'e'};

} // namespace ko_player
