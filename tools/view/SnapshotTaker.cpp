#include "tools/view/SnapshotTaker.h"

#include "tools/view/Snapshot.h"

#include <QDir>

#include <utility>

namespace mediaworker::view {

SnapshotTaker::SnapshotTaker(QString folder, QObject* parent) : QObject(parent), folder_(std::move(folder)) {}

SnapshotTaker::~SnapshotTaker() {
    writers_.waitForDone();
}

void SnapshotTaker::take(const QImage& picture, const QString& streamName) {
    if (picture.isNull()) {
        Q_EMIT failed({}, tr("no picture"));
        return;
    }
    QDir().mkpath(folder_);
    const QDir folder(folder_);
    const QString path = folder.filePath(snapshotName(
        streamName, QDateTime::currentDateTime(), [&](const QString& name) { return folder.exists(name); }));
    writers_.start([this, picture, path] {
        const QString problem = savePng(picture, path);
        QMetaObject::invokeMethod(
            this,
            [this, path, problem] {
                if (problem.isEmpty()) {
                    Q_EMIT saved(path);
                } else {
                    Q_EMIT failed(path, problem);
                }
            },
            Qt::QueuedConnection);
    });
}

} // namespace mediaworker::view
