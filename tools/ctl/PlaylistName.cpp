#include "tools/ctl/PlaylistName.h"

#include "tools/playlist/PlainText.h"
#include "tools/playlist/Playlist.h"

#include <QDir>
#include <QFileInfo>

namespace mediaworker::ctl {

NamedStream streamOfPlaylist(const QString& path, const QString& folder, const QString& name) {
    const QFileInfo file(QDir(folder).absoluteFilePath(path));
    const QString shown = QDir::toNativeSeparators(file.filePath());
    NamedStream stream{{}, file.absolutePath(), {}};
    const Playlist list = readPlaylist(file.filePath());
    if (!list.problem.isEmpty()) {
        stream.problem = QStringLiteral("the playlist %1 cannot be used: %2").arg(shown, list.problem);
        return stream;
    }
    int found = 0;
    for (const PlaylistEntry& entry : list.entries) {
        if (!entry.name.isEmpty() && entry.name == plainText(name)) {
            stream.address = entry.address;
            ++found;
        }
    }
    if (found != 1) {
        stream.problem =
            QStringLiteral("the playlist %1 has %2 named \"%3\"")
                .arg(shown,
                     found == 0 ? QStringLiteral("no stream") : QStringLiteral("%1 streams").arg(found),
                     plainText(name));
    }
    return stream;
}

} // namespace mediaworker::ctl
