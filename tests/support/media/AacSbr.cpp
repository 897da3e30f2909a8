#include "support/media/AacSbr.h"

#include <stdexcept>

namespace mediaworker::test {
namespace {

constexpr std::size_t kBitsPerByte = 8;

std::vector<bool> bitsOf(std::span<const std::uint8_t> bytes) {
    std::vector<bool> bits;
    for (const std::uint8_t byte : bytes) {
        for (std::size_t i = 0; i < kBitsPerByte; ++i) {
            bits.push_back((byte >> (kBitsPerByte - 1 - i) & 1U) != 0);
        }
    }
    return bits;
}

std::vector<std::uint8_t> bytesOf(const std::vector<bool>& bits) {
    std::vector<std::uint8_t> bytes((bits.size() + kBitsPerByte - 1) / kBitsPerByte);
    for (std::size_t i = 0; i < bits.size(); ++i) {
        if (bits[i]) {
            bytes[i / kBitsPerByte] |= static_cast<std::uint8_t>(0x80U >> i % kBitsPerByte);
        }
    }
    return bytes;
}

void append(std::vector<bool>& bits, unsigned value, int count) {
    for (int i = count - 1; i >= 0; --i) {
        bits.push_back((value >> static_cast<unsigned>(i) & 1U) != 0);
    }
}

} // namespace

std::vector<std::uint8_t> withImplicitSbr(std::span<const std::uint8_t> frame) {
    constexpr int kElementBits = 3; // id_syn_ele
    constexpr unsigned kFill = 6;   // ID_FIL
    constexpr unsigned kEnd = 7;    // ID_END, three ones: the last ones of a frame
    std::vector<bool> bits = bitsOf(frame);
    while (!bits.empty() && !bits.back()) { // byte_alignment
        bits.pop_back();
    }
    for (int i = 0; i < kElementBits; ++i) {
        if (bits.empty() || !bits.back()) {
            throw std::invalid_argument("this is no frame of AAC");
        }
        bits.pop_back();
    }
    append(bits, kFill, kElementBits);
    append(bits, 1, 4);    // count, bytes
    append(bits, 0xDU, 4); // extension_type EXT_SBR_DATA
    append(bits, 0, 1);    // bs_header_flag
    append(bits, 0, 3);    // to the end of the byte
    append(bits, kEnd, kElementBits);
    return bytesOf(bits);
}

} // namespace mediaworker::test
