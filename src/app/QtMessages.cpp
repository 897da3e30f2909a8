#include "app/QtMessages.h"

#include "base/ImmediateExit.h"

#include <QLatin1String>
#include <QString>
#include <QtGlobal>

#include <cstdlib>

namespace {

QtMessageHandler original = nullptr;

void handle(QtMsgType type, const QMessageLogContext& context, const QString& text) {
    original(type, context, text);
    if (text.startsWith(QLatin1String("QThread::start: "))) { // so begin all its failures
        base::exitNow(EXIT_FAILURE);
    }
}

} // namespace

void installQtMessages() {
    original = qInstallMessageHandler(handle);
}
