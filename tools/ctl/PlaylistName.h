#pragma once

#include <QString>

namespace mediaworker::ctl {

/// What a playlist has under a name.
struct NamedStream {
    QString address; ///< as it stands there: a URL, or a path
    QString folder;  ///< of the playlist: where such a path begins
    QString problem; ///< a sentence without its full stop; empty: there is none
};

/// `path` of the playlist may be relative to `folder`.
[[nodiscard]] NamedStream streamOfPlaylist(const QString& path, const QString& folder, const QString& name);

} // namespace mediaworker::ctl
