#include "quick/MediaStream.h"
#include "support/OwnEnvironment.h"
#include "support/servers/XServer.h"

#include <QGuiApplication>

#include <gmock/gmock.h>

int main(int argc, char** argv) {
    ::testing::InitGoogleMock(&argc, argv);
    if (GTEST_FLAG_GET(list_tests)) {
        return RUN_ALL_TESTS();
    }
    // Windows that are to be grabbed need a screen, but no graphics card.
    using namespace mediaworker::test;
    const QByteArray scale = qgetenv("MEDIAWORKER_TEST_SCALE");
    const OwnEnvironment environment;
    const XServer screen;
    qputenv("TMPDIR", (environment.home() / "temp").c_str());
    if (!scale.isEmpty()) {
        qputenv("QT_SCALE_FACTOR", scale);
    }
    qputenv("DISPLAY", screen.display().c_str());
    qputenv("QT_QPA_PLATFORM", "xcb");
    qputenv("QT_QUICK_BACKEND", "software");
    const QGuiApplication application(argc, argv);
    mediaworker::quick::registerTypes();
    return RUN_ALL_TESTS();
}
