#include "stream/LocalPath.h"

namespace local_path {

QString toPlatformPath(const QString& rest, bool /*schemeRemoved*/) {
    return rest;
}

std::string encode(const QString& path) {
    return path.toStdString(); // FFmpeg takes UTF-8 on Windows, whatever the code page
}

} // namespace local_path
