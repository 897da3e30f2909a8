#include "PictureCheck.h"

#include "Camera.h"

#include "support/media/TestPicture.h"

#include <QDir>
#include <QImage>
#include <QRegularExpression>

namespace mediaworker::demo {

namespace {

// A parent that is late itself, on a machine that is busy, reads what came since the message.
constexpr qint64 kMostLateMs = 1000;

} // namespace

QStringList wrongPictures(const QString& folder, int& checked) {
    static const QRegularExpression name(QStringLiteral("-at-(\\d+)-ms\\.png$"));
    QStringList wrong;
    checked = 0;
    for (const QFileInfo& file : QDir(folder).entryInfoList({QStringLiteral("*.png")}, QDir::Files)) {
        const auto match = name.match(file.fileName());
        if (!match.hasMatch()) {
            continue;
        }
        ++checked;
        const QImage picture = QImage(file.filePath()).convertToFormat(QImage::Format_RGB32);
        const auto number = test::readFrameNumber(
            {picture.constBits(), picture.width(), picture.height(), picture.bytesPerLine()});
        const qint64 announcedMs = match.captured(1).toLongLong();
        const int announced = Camera::frameNumberAt(announcedMs);
        if (!number) {
            wrong << QStringLiteral("%1 is torn").arg(file.fileName());
        } else if (*number < announced || *number > Camera::frameNumberAt(announcedMs + kMostLateMs)) {
            wrong << QStringLiteral("%1 shows picture %2 instead of %3")
                         .arg(file.fileName())
                         .arg(*number)
                         .arg(announced);
        }
    }
    return wrong;
}

} // namespace mediaworker::demo
