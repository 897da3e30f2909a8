#include "parent/ExitReason.h"
#include "parent/RandomName.h"

#include <gtest/gtest.h>

#include <set>

using namespace mediaworker::parent;

TEST(ExitReason, GivesEveryCodeOfAStreamItsOwnWords) {
    std::set<QString> reasons;
    for (int code = 0; code <= 5; ++code) {
        reasons.insert(exitReason(WorkerMode::Stream, code, false));
    }
    EXPECT_EQ(reasons.size(), 6U);
    EXPECT_EQ(reasons.count(QString()), 0U);
}

TEST(ExitReason, KnowsThatALocalFileEndsWithoutAnotherPicture) {
    EXPECT_EQ(exitReason(WorkerMode::LocalFile, 2, false),
              QStringLiteral("the file is at its end, or cannot be opened or read"));
    EXPECT_NE(exitReason(WorkerMode::LocalFile, 2, false), exitReason(WorkerMode::Stream, 2, false));
    EXPECT_EQ(exitReason(WorkerMode::LocalFile, 0, false), exitReason(WorkerMode::Stream, 0, false));
    EXPECT_FALSE(exitReason(WorkerMode::LocalFile, 1, false).contains(QStringLiteral("FLV")));
}

TEST(ExitReason, NamesTheUnknown) {
    EXPECT_TRUE(exitReason(WorkerMode::Stream, 77, false).contains(QStringLiteral("77")));
    EXPECT_TRUE(exitReason(WorkerMode::Export, 2, false).contains(QStringLiteral("2")));
}

TEST(ExitReason, TellsACompleteExportFromAFailedOne) {
    EXPECT_EQ(exitReason(WorkerMode::Export, 0, false), QStringLiteral("the file is complete"));
    EXPECT_NE(exitReason(WorkerMode::Export, 1, false), exitReason(WorkerMode::Export, 0, false));
}

TEST(ExitReason, DoesNotReadTheCodeOfAKilledWorker) {
    EXPECT_EQ(exitReason(WorkerMode::Export, 0, true), exitReason(WorkerMode::Stream, 9, true));
}

TEST(RandomName, IsAnotherOneEachTime) {
    std::set<QString> names;
    for (int i = 0; i < 1000; ++i) {
        names.insert(randomName());
    }
    EXPECT_EQ(names.size(), 1000U);
    EXPECT_EQ(names.begin()->size(), QStringLiteral("mediaworker-").size() + 32);
}
