#include "stream/Prefault.h"

#include <gtest/gtest.h>

#include <QTemporaryFile>

namespace {

/// In the temporary directory, where the frame file is.
TEST(Prefault, LeavesAFileAsItIs) {
    constexpr qint64 kOldBytes = 100'001;
    constexpr qint64 kBytes = 3'000'003;
    QTemporaryFile file;
    ASSERT_TRUE(file.open());
    const QByteArray before(kOldBytes, 'x');
    ASSERT_EQ(file.write(before), before.size());
    ASSERT_TRUE(file.resize(kBytes));
    prefaultZeros(file.handle(), kOldBytes, kBytes);
    EXPECT_EQ(file.size(), kBytes);
    uchar* const mapping = file.map(0, kBytes);
    ASSERT_NE(mapping, nullptr);
    prefault(mapping, kBytes);
    ASSERT_TRUE(file.seek(0));
    EXPECT_EQ(file.readAll(), before + QByteArray(kBytes - kOldBytes, '\0'));
}

TEST(Prefault, DoesNothingToAFileThatBecomesSmaller) {
    QTemporaryFile file;
    ASSERT_TRUE(file.open());
    ASSERT_TRUE(file.resize(5000));
    prefaultZeros(file.handle(), 9000, 5000);
    EXPECT_EQ(file.size(), 5000);
}

} // namespace
