#include "tools/files/FileUrl.h"

#include <QDir>

namespace mediaworker {

QString fileUrl(const QString& path, const QString& folder) {
    const QString whole = QDir::cleanPath(QDir(folder).absoluteFilePath(QDir::fromNativeSeparators(path)));
    // The third slash of the URL is the root of a path; one on Windows begins with the drive, or with the two
    // slashes of another machine.
    const bool hasRoot = whole.startsWith(u'/') && !whole.startsWith(QStringLiteral("//"));
    return (hasRoot ? QStringLiteral("file://") : QStringLiteral("file:///")) + whole;
}

bool isFileUrl(const QString& url) {
    return url.startsWith(QStringLiteral("file"));
}

} // namespace mediaworker
