#pragma once

#include "tools/ctl/Console.h"

#include <QFile>
#include <QString>

namespace mediaworker::ctl {

/// Where the worker's own log goes for who wants to read it: a file, standard error, both or neither.
struct LogTargets {
    QString file = {}; ///< absolute, lines are added to it; empty: none
    bool isVerbose = false;
    friend bool operator==(const LogTargets&, const LogTargets&) = default;
};

/// A line of text from elsewhere, without what would move a cursor.
[[nodiscard]] QString plainLine(QString text);

/// Carries that out, with the time before each line of the file.
class WorkerLog {
public:
    WorkerLog(LogTargets targets, Console& console);

    /// Empty when there is nothing to complain about, else why the file cannot be written.
    [[nodiscard]] QString open();
    void take(const QString& line);

private:
    const LogTargets targets_;
    Console& console_;
    QFile file_;
};

} // namespace mediaworker::ctl
