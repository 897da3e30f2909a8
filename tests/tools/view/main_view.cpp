#include "support/ChildProcess.h"
#include "support/servers/XServer.h"

#include <QApplication>

#include <gmock/gmock.h>

#include <filesystem>

/// The main function of the tests with windows: each process has a screen, a home and a temporary folder of
/// its own, so that they run side by side and what they leave behind can be seen.
int main(int argc, char** argv) {
    ::testing::InitGoogleMock(&argc, argv);
    if (GTEST_FLAG_GET(list_tests)) {
        return RUN_ALL_TESTS();
    }
    using namespace mediaworker::test;
    const XServer screen;
    const TemporaryFolder home;
    for (const char* folder : {"temp", "runtime"}) {
        std::filesystem::create_directory(home / folder);
        std::filesystem::permissions(home / folder, std::filesystem::perms::owner_all);
    }
    qputenv("DISPLAY", screen.display().c_str());
    qputenv("QT_QPA_PLATFORM", "xcb");
    qputenv("QT_STYLE_OVERRIDE", "fusion");
    qunsetenv("QT_QPA_PLATFORMTHEME");
    qputenv("HOME", home.path().c_str());
    qputenv("TMPDIR", (home / "temp").c_str());
    qputenv("XDG_RUNTIME_DIR", (home / "runtime").c_str());
    qputenv("PULSE_SERVER", "unix:/nonexistent");
    qputenv("DBUS_SESSION_BUS_ADDRESS", "disabled:");
    const QApplication application(argc, argv);
    return RUN_ALL_TESTS();
}
