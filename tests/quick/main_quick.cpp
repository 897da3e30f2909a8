#include "quick/MediaStream.h"
#include "support/OffscreenHome.h"
#include "support/servers/XServer.h"

#include <QGuiApplication>

#include <gmock/gmock.h>

int main(int argc, char** argv) {
    ::testing::InitGoogleMock(&argc, argv);
    if (GTEST_FLAG_GET(list_tests)) {
        return RUN_ALL_TESTS();
    }
    // Windows that are to be grabbed need a screen, but no graphics card.
    const mediaworker::test::XServer screen;
    const mediaworker::test::OffscreenHome home;
    qputenv("DISPLAY", screen.display().c_str());
    qputenv("QT_QPA_PLATFORM", "xcb");
    qputenv("QT_QUICK_BACKEND", "software");
    const QGuiApplication application(argc, argv);
    mediaworker::quick::registerTypes();
    return RUN_ALL_TESTS();
}
