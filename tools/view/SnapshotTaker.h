#pragma once

#include <QImage>
#include <QObject>
#include <QString>
#include <QThreadPool>

namespace mediaworker::view {

/// Saves pictures as files of a folder, in a thread of its own: compressing takes longer than a picture
/// lasts.
class SnapshotTaker : public QObject {
    Q_OBJECT

public:
    /// The folder is made when the first picture is saved.
    explicit SnapshotTaker(QString folder, QObject* parent = nullptr);
    /// Waits for what is being saved.
    ~SnapshotTaker() override;
    SnapshotTaker(const SnapshotTaker&) = delete;
    SnapshotTaker& operator=(const SnapshotTaker&) = delete;

    /// saved() or failed() tells how it went.
    void take(const QImage& picture, const QString& streamName);

Q_SIGNALS:
    void saved(const QString& path);
    /// `path` is empty when there was no picture.
    void failed(const QString& path, const QString& why);

private:
    QString folder_;
    QThreadPool writers_;
};

} // namespace mediaworker::view
