#include "support/OwnEnvironment.h"
#include "support/servers/XServer.h"

#include <QApplication>

#include <gmock/gmock.h>

/// The main function of the tests with windows: each process has a screen, a home and a temporary folder of
/// its own, so that they run side by side and what they leave behind can be seen.
int main(int argc, char** argv) {
    ::testing::InitGoogleMock(&argc, argv);
    if (GTEST_FLAG_GET(list_tests)) {
        return RUN_ALL_TESTS();
    }
    using namespace mediaworker::test;
    const QByteArray scale = qgetenv("MEDIAWORKER_TEST_SCALE");
    const OwnEnvironment environment;
    const XServer screen;
    qputenv("DISPLAY", screen.display().c_str());
    qputenv("QT_QPA_PLATFORM", "xcb");
    qputenv("TMPDIR", (environment.home() / "temp").c_str());
    if (!scale.isEmpty()) {
        qputenv("QT_SCALE_FACTOR", scale);
    }
    const QApplication application(argc, argv);
    return RUN_ALL_TESTS();
}
