#pragma once

#include <bit>
#include <cstdint>

/// Reads of big-endian integers from bytes; the caller has checked that the bytes are there.
namespace base {

[[nodiscard]] constexpr std::uint32_t readU16(const std::uint8_t* p) noexcept {
    return static_cast<std::uint32_t>(p[0]) << 8U | p[1];
}

[[nodiscard]] constexpr std::uint32_t readU24(const std::uint8_t* p) noexcept {
    return static_cast<std::uint32_t>(p[0]) << 16U | static_cast<std::uint32_t>(p[1]) << 8U | p[2];
}

[[nodiscard]] constexpr std::uint32_t readU32(const std::uint8_t* p) noexcept {
    return static_cast<std::uint32_t>(p[0]) << 24U | readU24(p + 1);
}

[[nodiscard]] constexpr std::uint64_t readU64(const std::uint8_t* p) noexcept {
    return static_cast<std::uint64_t>(readU32(p)) << 32U | readU32(p + 4);
}

/// An IEEE 754 binary64 in network byte order.
[[nodiscard]] constexpr double readDouble(const std::uint8_t* p) noexcept {
    return std::bit_cast<double>(readU64(p));
}

} // namespace base
