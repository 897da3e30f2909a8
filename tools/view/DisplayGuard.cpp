#include "tools/view/DisplayGuard.h"

#include <QtGlobal>

#include <cstdio>
#include <cstdlib>

namespace mediaworker::view {

namespace {

void endWithoutDisplay(QtMsgType type, const QMessageLogContext& /*context*/, const QString& /*text*/) {
    if (type == QtFatalMsg) {
        std::fputs(
            "mediaworker-view: there is no display that can be used: is DISPLAY or WAYLAND_DISPLAY set? "
            "mediaworker-ctl plays and records without one.\n",
            stderr);
        std::_Exit(DisplayGuard::kExitStatus);
    }
}

} // namespace

DisplayGuard::DisplayGuard() {
    qInstallMessageHandler(endWithoutDisplay);
}

DisplayGuard::~DisplayGuard() {
    qInstallMessageHandler(nullptr);
}

} // namespace mediaworker::view
