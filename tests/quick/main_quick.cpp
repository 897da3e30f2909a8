#include "quick/MediaStream.h"
#include "support/servers/OwnScreen.h"

#include <QGuiApplication>

#include <gmock/gmock.h>

int main(int argc, char** argv) {
    ::testing::InitGoogleMock(&argc, argv);
    if (GTEST_FLAG_GET(list_tests)) {
        return RUN_ALL_TESTS();
    }
    // Windows that are to be grabbed need a screen, but no graphics card.
    const mediaworker::test::OwnScreen screen;
    qputenv("QT_QUICK_BACKEND", "software");
    const QGuiApplication application(argc, argv);
    mediaworker::quick::registerTypes();
    return RUN_ALL_TESTS();
}
