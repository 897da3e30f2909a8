#include "base/BigEndian.h"

#include <gmock/gmock.h>

#include <cmath>
#include <limits>
#include <vector>

namespace base {
namespace {

using Bytes = std::vector<std::uint8_t>;

TEST(BigEndian, ReadsTheHighestByteFirst) {
    const Bytes bytes{0x81, 0x02, 0x83, 0x04, 0x85, 0x06, 0x87, 0x08};
    EXPECT_EQ(readU16(bytes.data()), 0x8102U);
    EXPECT_EQ(readU24(bytes.data()), 0x810283U);
    EXPECT_EQ(readU32(bytes.data()), 0x81028304U);
    EXPECT_EQ(readU64(bytes.data()), 0x8102830485068708U);
    EXPECT_EQ(readU16(bytes.data() + 1), 0x0283U) << "unaligned";
}

TEST(BigEndian, ReadsTheLargestValues) {
    const Bytes bytes(8, 0xFF);
    EXPECT_EQ(readU16(bytes.data()), 0xFFFFU);
    EXPECT_EQ(readU24(bytes.data()), 0xFFFFFFU);
    EXPECT_EQ(readU32(bytes.data()), 0xFFFFFFFFU);
    EXPECT_EQ(readU64(bytes.data()), std::numeric_limits<std::uint64_t>::max());
}

TEST(BigEndian, ReadsNothingBehindAnIntegerOfOddSize) {
    // On the heap, for the address sanitizer.
    const Bytes bytes{1, 2, 3};
    EXPECT_EQ(readU24(bytes.data()), 0x010203U);
}

TEST(BigEndian, ReadsDoubles) {
    EXPECT_EQ(readDouble(Bytes{0x40, 0x04, 0, 0, 0, 0, 0, 0}.data()), 2.5);
    EXPECT_EQ(readDouble(Bytes{0xC0, 0x04, 0, 0, 0, 0, 0, 0}.data()), -2.5);
    EXPECT_EQ(readDouble(Bytes(8, 0).data()), 0.0);
    EXPECT_TRUE(std::isinf(readDouble(Bytes{0x7F, 0xF0, 0, 0, 0, 0, 0, 0}.data())));
    EXPECT_TRUE(std::isnan(readDouble(Bytes{0x7F, 0xF8, 0, 0, 0, 0, 0, 0}.data())));
}

} // namespace
} // namespace base
