#pragma once

#include <cstdint>

struct AVChannelLayout;

/// The engine keeps channel layouts as FFmpeg's 64-bit channel masks; these translate to and from
/// AVChannelLayout.
namespace ko_player::ff_wrap {

/// The mask of the usual layout for that many channels, 0 if there is none.
[[nodiscard]] std::uint64_t defaultLayoutMask(int channels) noexcept;

/// How many channels the mask names.
[[nodiscard]] int channelsOfMask(std::uint64_t mask) noexcept;

/// The mask of a layout in native order, 0 for any other order.
[[nodiscard]] std::uint64_t maskOf(const AVChannelLayout& layout) noexcept;

/// A layout for the mask; where the mask is 0 or names another number of channels, the default for
/// `channels`. Native and unspecified orders own no memory, so the result needs no release.
[[nodiscard]] AVChannelLayout layoutFromMask(std::uint64_t mask, int channels) noexcept;

} // namespace ko_player::ff_wrap
