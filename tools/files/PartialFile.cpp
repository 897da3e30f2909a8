#include "tools/files/PartialFile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace mediaworker {

QString partialPath(const QString& target) {
    const QFileInfo file(target);
    return QDir(file.absolutePath()).filePath(file.completeBaseName() + QStringLiteral(".partial.mp4"));
}

bool replaceFile(const QString& from, const QString& target) {
    return (!QFile::exists(target) || QFile::remove(target)) && QFile::rename(from, target);
}

} // namespace mediaworker
