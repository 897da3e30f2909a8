#pragma once

#include "support/OwnEnvironment.h"
#include "support/servers/XServer.h"

#include <QByteArray>

namespace mediaworker::test {

/// A screen that nobody sees, an environment and a temporary folder for the windows of one process, so that
/// such processes run side by side and what they leave behind can be seen. With MEDIAWORKER_TEST_SCALE=2 each
/// pixel of the screen is four. Make one before the application.
class OwnScreen {
public:
    OwnScreen() {
        qputenv("DISPLAY", screen_.display().c_str());
        qputenv("QT_QPA_PLATFORM", "xcb");
        qputenv("TMPDIR", (environment_.home() / "temp").c_str());
        if (!scale_.isEmpty()) {
            qputenv("QT_SCALE_FACTOR", scale_);
        }
    }

private:
    const QByteArray scale_ = qgetenv("MEDIAWORKER_TEST_SCALE"); ///< first: the environment takes it away
    const OwnEnvironment environment_;
    const XServer screen_;
};

} // namespace mediaworker::test
