#pragma once

#include <cstddef>
#include <cstdint>

/// Has the system bring in all pages of a writable mapping at once, which is cheaper than one by one when
/// they are written. Changes nothing in them. A hint: it may do less, or nothing.
void prefault(std::uint8_t* begin, std::size_t bytes) noexcept;
