#pragma once

#include "tools/view/StreamView.h"

#include <QString>
#include <QStringList>

namespace mediaworker::view {

/// What the command line says.
struct ViewerOptions {
    StreamSettings streams;
    QStringList urls; ///< of streams and files
    QString snapshotFolder;
    int seconds = 0; ///< after which the viewer ends by itself; 0: never
    bool printsStatistics = false;

    enum class Action { Show, PrintHelp, PrintVersion, Refuse };
    Action action = Action::Show;
    QString text; ///< the help, or what is wrong
};

/// `arguments` with the program's name in front; `folder` is what relative paths start from. Needs an
/// application object (any kind).
[[nodiscard]] ViewerOptions parseArguments(const QStringList& arguments, const QString& folder);

} // namespace mediaworker::view
