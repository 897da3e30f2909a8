#include "PictureCheck.h"

#include "Camera.h"

#include "support/media/TestPicture.h"

#include <QDir>
#include <QImage>
#include <QRegularExpression>

namespace mediaworker::demo {

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
        const int announced = Camera::frameNumberAt(match.captured(1).toLongLong());
        if (!number) {
            wrong << QStringLiteral("%1 is torn").arg(file.fileName());
        } else if (*number != announced && *number != announced + 1) {
            wrong << QStringLiteral("%1 shows picture %2 instead of %3")
                         .arg(file.fileName())
                         .arg(*number)
                         .arg(announced);
        }
    }
    return wrong;
}

} // namespace mediaworker::demo
