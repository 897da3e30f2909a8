#pragma once

#include <cstddef>
#include <cstdint>

/// Has the system bring in all pages of a writable mapping at once, which is cheaper than one by one when
/// they are written. Changes nothing in them. A hint: it may do less, or nothing.
void prefault(std::uint8_t* begin, std::size_t bytes) noexcept;

/// Has the system make the pages of an open file from `begin` to `end`, where it has only zeros, before they
/// are mapped, if that is cheaper than through the mapping. Changes nothing in the file. A hint as well.
void prefaultZeros(int file, std::uint64_t begin, std::uint64_t end) noexcept;
