#include "tools/view/Snapshot.h"

#include <QFileInfo>
#include <QImageWriter>
#include <QSaveFile>

namespace mediaworker::view {

namespace {

constexpr int kMaxNameLength = 60; // of the stream's part

} // namespace

QString snapshotName(const QString& streamName, const QDateTime& when,
                     const std::function<bool(const QString& name)>& isTaken) {
    QString base;
    for (const QChar c : streamName.left(kMaxNameLength)) {
        const bool isPlain = c.isLetterOrNumber() || c == QLatin1Char('.') || c == QLatin1Char('_');
        base += isPlain ? c : QLatin1Char('-');
    }
    // A name that begins with a dot would be hidden.
    if (base.isEmpty() || base.startsWith(QLatin1Char('.'))) {
        base.prepend(QStringLiteral("stream"));
    }
    base += when.toString(QStringLiteral("_yyyyMMdd-HHmmss"));
    QString name = base + QStringLiteral(".png");
    for (int number = 2; isTaken(name); ++number) {
        name = QStringLiteral("%1-%2.png").arg(base).arg(number);
    }
    return name;
}

QString savePng(const QImage& picture, const QString& path) {
    if (QFileInfo::exists(path)) {
        return QStringLiteral("the file exists");
    }
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly)) {
        return file.errorString();
    }
    QImageWriter writer(&file, "png");
    if (!writer.write(picture)) {
        return writer.errorString();
    }
    return file.commit() ? QString() : file.errorString();
}

} // namespace mediaworker::view
