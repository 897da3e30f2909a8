#include "tools/ctl/WorkerLog.h"

#include <QDateTime>
#include <QDir>

#include <algorithm>
#include <utility>

namespace mediaworker::ctl {

QString plainLine(QString text) {
    std::replace_if(
        text.begin(), text.end(), [](QChar c) { return !c.isPrint() && !c.isSurrogate(); }, QLatin1Char('?'));
    return text;
}

WorkerLog::WorkerLog(LogTargets targets, Console& console)
    : targets_(std::move(targets)), console_(console) {}

QString WorkerLog::open() {
    if (targets_.file.isEmpty()) {
        return {};
    }
    file_.setFileName(targets_.file);
    if (file_.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Unbuffered)) {
        return {};
    }
    return QStringLiteral("the log cannot be written into %1: %2")
        .arg(QDir::toNativeSeparators(targets_.file), file_.errorString());
}

void WorkerLog::take(const QString& line) {
    const QString plain = plainLine(line);
    if (targets_.isVerbose) {
        console_.log(plain);
    }
    if (!file_.isOpen()) {
        return;
    }
    const QString stamp = QDateTime::currentDateTime().toString(Qt::ISODateWithMs);
    const QByteArray bytes = QStringLiteral("%1 %2\n").arg(stamp, plain).toUtf8();
    if (file_.write(bytes) != bytes.size()) {
        console_.complain(QStringLiteral("the log cannot be written any further: ") + file_.errorString());
        file_.close();
    }
}

} // namespace mediaworker::ctl
