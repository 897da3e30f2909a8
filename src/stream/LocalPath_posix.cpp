#include "stream/LocalPath.h"

#include <QFile>
#include <QFileInfo>

namespace local_path {

QString toPlatformPath(const QString& rest, bool schemeRemoved) {
    // The third slash of a file URL is the root here; on Windows it only stands before the drive.
    QString absolute = QLatin1Char('/') + rest;
    if (schemeRemoved && !QFileInfo::exists(rest) && QFileInfo::exists(absolute)) {
        return absolute;
    }
    return rest;
}

std::string encode(const QString& path) {
    return QFile::encodeName(path).toStdString();
}

} // namespace local_path
