#include "tools/playlist/Playlist.h"

#include "tools/playlist/PlainText.h"

#include <QFile>
#include <QFileInfo>
#include <QTextCodec>

#include <algorithm>
#include <optional>

namespace mediaworker {

namespace {

constexpr int kLongestAddress = 4096;

Playlist refuse(const QString& problem) {
    return {.entries = {}, .problem = problem};
}

/// Nothing where it is no text.
std::optional<QString> decode(const QByteArray& bytes) {
    const bool isBinary = std::any_of(bytes.begin(), bytes.end(), [](char byte) {
        const auto value = static_cast<unsigned char>(byte);
        return (value < 0x20 && byte != '\n' && byte != '\r' && byte != '\t') || value == 0x7f;
    });
    if (isBinary) {
        return std::nullopt;
    }
    QTextCodec::ConverterState state; // skips a byte order mark
    const QString text = QTextCodec::codecForName("UTF-8")->toUnicode(bytes.data(), bytes.size(), &state);
    return state.invalidChars == 0 && state.remainingChars == 0 ? std::optional(text) : std::nullopt;
}

/// An entry of a line that is neither empty nor a comment nor a group.
std::optional<PlaylistEntry> parseEntry(const QString& line, const QString& group) {
    const int end = line.indexOf(QLatin1Char('='));
    const int scheme = line.indexOf(QLatin1String("://"));
    const bool isNamed = end >= 0 && (scheme < 0 || end < scheme);
    if (!isNamed && scheme < 0) {
        return std::nullopt;
    }
    PlaylistEntry entry{.group = group,
                        .name = isNamed ? plainText(line.left(end)) : QString(),
                        .address = isNamed ? line.mid(end + 1).trimmed() : line};
    const bool isFit = !entry.address.isEmpty() && entry.address.size() <= kLongestAddress;
    return isFit ? std::optional(entry) : std::nullopt;
}

} // namespace

Playlist parsePlaylist(const QByteArray& text) {
    if (text.size() > kLongestPlaylistBytes) {
        return refuse(QStringLiteral("it is larger than a megabyte"));
    }
    const auto decoded = decode(text);
    if (!decoded) {
        return refuse(QStringLiteral("it is no text in UTF-8"));
    }
    Playlist list;
    QString group;
    int number = 0;
    for (const QString& whole : decoded->split(QLatin1Char('\n'))) {
        ++number;
        const QString line = whole.trimmed();
        if (line.isEmpty() || line.startsWith(QLatin1Char('#'))) {
            continue;
        }
        if (line.startsWith(QLatin1Char('[')) && line.endsWith(QLatin1Char(']'))) {
            group = plainText(line.mid(1, line.size() - 2));
            continue;
        }
        const auto entry = parseEntry(line, group);
        if (!entry) {
            return refuse(
                QStringLiteral("line %1 is neither \"NAME = URL\" nor a URL, a [group] or a # comment")
                    .arg(number));
        }
        if (list.entries.size() == kMostPlaylistEntries) {
            return refuse(QStringLiteral("it has more than %1 streams").arg(kMostPlaylistEntries));
        }
        list.entries.push_back(*entry);
    }
    return list;
}

Playlist readPlaylist(const QString& path) {
    QFile file(path);
    if (QFileInfo(path).isDir()) {
        return refuse(QStringLiteral("it is a folder"));
    }
    if (!file.open(QIODevice::ReadOnly)) {
        return refuse(file.errorString());
    }
    Playlist list = parsePlaylist(file.read(kLongestPlaylistBytes + 1));
    if (list.problem.isEmpty() && list.entries.empty()) {
        list.problem = QStringLiteral("it has no streams");
    }
    return list;
}

} // namespace mediaworker
