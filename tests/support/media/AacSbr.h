#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace mediaworker::test {

/// An AAC LC frame with spectral band replication of which its configuration says nothing, as some encoders
/// send it. No encoder of Debian writes that, so this puts an element for it in front of the frame's end: the
/// extension without its header, with which a decoder doubles the rate and adds no high bands. Throws
/// std::invalid_argument for what does not end like a frame.
[[nodiscard]] std::vector<std::uint8_t> withImplicitSbr(std::span<const std::uint8_t> frame);

} // namespace mediaworker::test
