#pragma once

#include "tools/view/StreamView.h"

#include <QString>
#include <QStringList>

#include <vector>

namespace mediaworker::view {

struct StreamSource {
    QString url = {};  ///< of a stream or a file
    QString name = {}; ///< for people; empty: as its URL says
    friend bool operator==(const StreamSource&, const StreamSource&) = default;
};

/// What the command line says.
struct ViewerOptions {
    StreamSettings streams;
    std::vector<StreamSource> playlist; ///< of a file
    QStringList urls;                   ///< of streams and files, beside that
    QString snapshotFolder;
    int seconds = 0;       ///< after which the viewer ends by itself; 0: never
    bool remembers = true; ///< window, volumes and addresses, from one start to the next
    bool printsStatistics = false;

    enum class Action { Show, PrintHelp, PrintVersion, Refuse };
    Action action = Action::Show;
    QString text; ///< the help, or what is wrong
};

/// `arguments` with the program's name in front; `folder` is what relative paths start from. Needs an
/// application object (any kind).
[[nodiscard]] ViewerOptions parseArguments(const QStringList& arguments, const QString& folder);

} // namespace mediaworker::view
