#include "support/OwnEnvironment.h"

#include <QApplication>

#include <gmock/gmock.h>

int main(int argc, char** argv) {
    ::testing::InitGoogleMock(&argc, argv);
    const mediaworker::test::OwnEnvironment environment;
    qputenv("TMPDIR", (environment.home() / "temp").c_str());
    qputenv("QT_QPA_PLATFORM", "offscreen");
    const QApplication application(argc, argv);
    return RUN_ALL_TESTS();
}
