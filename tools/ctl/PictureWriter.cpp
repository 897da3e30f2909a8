#include "tools/ctl/PictureWriter.h"

namespace mediaworker::ctl {

PictureWriter::PictureWriter() {
    thread_.setMaxThreadCount(1);
}

PictureWriter::~PictureWriter() {
    flush();
}

void PictureWriter::write(const QImage& picture, const QString& file, qint64 ptsMs) {
    if (waiting_ >= kWaiting) {
        flush();
    }
    ++waiting_;
    thread_.start([this, picture, file, ptsMs] {
        const bool isGood = picture.save(file, "PNG");
        --waiting_;
        Q_EMIT written(file, ptsMs, isGood);
    });
}

} // namespace mediaworker::ctl
