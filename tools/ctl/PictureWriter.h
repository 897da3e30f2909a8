#pragma once

#include <QImage>
#include <QObject>
#include <QString>
#include <QThreadPool>

#include <atomic>

namespace mediaworker::ctl {

/// Writes pictures into files on a thread of its own, because a PNG file of a large picture takes longer than
/// the next picture. Belongs to the thread that makes it.
class PictureWriter : public QObject {
    Q_OBJECT

public:
    PictureWriter();
    /// Writes what is left.
    ~PictureWriter() override;
    PictureWriter(const PictureWriter&) = delete;
    PictureWriter& operator=(const PictureWriter&) = delete;

    /// Waits while kWaiting pictures have not been written: the disk is too slow for the rest then.
    void write(const QImage& picture, const QString& file, qint64 ptsMs);

    /// Until everything is written. The signals may still be on their way.
    void flush() { thread_.waitForDone(); }

Q_SIGNALS:
    /// From the writing thread.
    void written(const QString& file, qint64 ptsMs, bool isGood);

private:
    static constexpr int kWaiting = 4;

    QThreadPool thread_;
    std::atomic<int> waiting_{0};
};

} // namespace mediaworker::ctl
