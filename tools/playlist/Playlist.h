#pragma once

#include <QByteArray>
#include <QString>

#include <vector>

namespace mediaworker {

struct PlaylistEntry {
    QString group;   ///< empty: none
    QString name;    ///< as it can be shown; empty: it has none
    QString address; ///< as it was written: a URL, or the path of a file
    friend bool operator==(const PlaylistEntry&, const PlaylistEntry&) = default;
};

/// A list of streams as people write it, in UTF-8:
///
///     # a comment
///     [Ground floor]
///     Entrance = http://camera1.example/live.flv
///     http://camera2.example/live.flv
///
/// A name ends at the first "="; a line with "://" before that has none.
struct Playlist {
    std::vector<PlaylistEntry> entries;
    /// Why it is no playlist, as the end of a sentence: "line 3 is neither …". Nothing is taken then.
    QString problem;
};

inline constexpr qint64 kLongestPlaylistBytes = 1 << 20;
inline constexpr std::size_t kMostPlaylistEntries = 64;

[[nodiscard]] Playlist parsePlaylist(const QByteArray& text);

/// Reads no more than it may have.
[[nodiscard]] Playlist readPlaylist(const QString& path);

} // namespace mediaworker
