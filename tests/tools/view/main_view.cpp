#include "support/servers/OwnScreen.h"

#include <QApplication>

#include <gmock/gmock.h>

int main(int argc, char** argv) {
    ::testing::InitGoogleMock(&argc, argv);
    if (GTEST_FLAG_GET(list_tests)) {
        return RUN_ALL_TESTS();
    }
    const mediaworker::test::OwnScreen screen;
    const QApplication application(argc, argv);
    return RUN_ALL_TESTS();
}
