#include "support/OwnEnvironment.h"

#include <QCoreApplication>

#include <gmock/gmock.h>

/// The main function of the tests that need Qt's event machinery. A core application only: the tests need no
/// display, and neither does the worker.
int main(int argc, char** argv) {
    const mediaworker::test::OwnEnvironment environment;
    const QCoreApplication application(argc, argv);
    ::testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
