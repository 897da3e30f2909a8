#pragma once

#include "support/ChildProcess.h"

#include <QByteArray>
#include <QDir>

#include <string>

namespace mediaworker::test {

/// For the main function of tests with windows that nobody sees, and without a display if they want no other:
/// a home and a temporary folder of its own, so that what they leave behind can be seen. Make it before the
/// application.
class OffscreenHome {
public:
    OffscreenHome() {
        qputenv("QT_QPA_PLATFORM", "offscreen");
        qunsetenv("QT_QPA_PLATFORMTHEME");
        qputenv("HOME", folder_.path().c_str());
        qputenv("TMPDIR", folder_.path().c_str());
        qputenv("XDG_CACHE_HOME", cache_.path().c_str());
        qputenv("XDG_RUNTIME_DIR", cache_.path().c_str());
        qputenv("PULSE_SERVER", "unix:/nonexistent");
        qputenv("DBUS_SESSION_BUS_ADDRESS", "disabled:");
    }

    /// Names of what lies in the temporary folder.
    [[nodiscard]] static std::string leftovers() {
        return QDir(QDir::tempPath())
            .entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot)
            .join(QLatin1Char(' '))
            .toStdString();
    }

private:
    TemporaryFolder folder_;
    TemporaryFolder cache_;
};

} // namespace mediaworker::test
