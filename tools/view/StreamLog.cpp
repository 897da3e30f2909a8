#include "tools/view/StreamLog.h"

#include <algorithm>

namespace mediaworker::view {

StreamLog::StreamLog(parent::StreamSupervisor& stream, QObject* view) : QObject(view) {
    connect(&stream.worker(), &parent::WorkerProcess::logLine, this, &StreamLog::add);
    connect(&stream, &parent::StreamSupervisor::started, this,
            [this](int attempt) { add(tr("――― worker %1").arg(attempt)); });
    connect(&stream, &parent::StreamSupervisor::waiting, this,
            [this](const QString& why) { add(tr("――― ended: %1").arg(why)); });
    connect(&stream, &parent::StreamSupervisor::ended, this,
            [this](const QString& why) { add(tr("――― ended: %1").arg(why)); });
}

StreamLog* StreamLog::of(const QObject& view) {
    return view.findChild<StreamLog*>(QString(), Qt::FindDirectChildrenOnly);
}

void StreamLog::add(const QString& line) {
    QString shown = line.left(kMostCharacters);
    // A server's own words may be among them.
    std::replace_if(
        shown.begin(), shown.end(), [](QChar c) { return !c.isPrint() && !c.isSurrogate(); },
        QLatin1Char('?'));
    lines_ << shown;
    if (lines_.size() > kMostLines) {
        lines_.removeFirst();
    }
    Q_EMIT added(shown);
}

} // namespace mediaworker::view
