#include "parent/LocalFile.h"

#include <QDir>
#include <QFileInfo>

namespace mediaworker::parent {

namespace {

LocalFileState stateOf(const QFileInfo& file) {
    if (!file.exists()) {
        return LocalFileState::Missing;
    }
    if (file.isDir()) {
        return LocalFileState::Folder;
    }
    return file.isReadable() ? LocalFileState::Readable : LocalFileState::Unreadable;
}

} // namespace

// The worker's own rule: the third slash is the root where no relative path is meant.
LocalFile lookAtLocalFile(const QString& url) {
    static const QString scheme = QStringLiteral("file:///");
    QString path = url;
    const int position = path.indexOf(scheme);
    if (position >= 0) {
        path.remove(position, scheme.size());
        if (!QFileInfo(path).isAbsolute() && !QFileInfo::exists(path)) {
            path.prepend(u'/');
        }
    }
    const QFileInfo file(path);
    return {QDir::toNativeSeparators(file.absoluteFilePath()), stateOf(file)};
}

} // namespace mediaworker::parent
