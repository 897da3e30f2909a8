// A playlist, as a user may have got it from anywhere: what is taken can be shown, and is bounded.

#include "tools/playlist/PlainText.h"
#include "tools/playlist/Playlist.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>

namespace {

using namespace mediaworker;

void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    const Playlist list =
        parsePlaylist(QByteArray(reinterpret_cast<const char*>(bytes), static_cast<int>(size)));
    require(list.entries.size() <= kMostPlaylistEntries);
    require(list.problem.isEmpty() || list.entries.empty());
    for (const PlaylistEntry& entry : list.entries) {
        require(!entry.address.isEmpty());
        for (const QString& shown : {entry.name, entry.group}) {
            require(shown.size() <= kLongestPlainText && plainText(shown) == shown);
            require(std::none_of(shown.begin(), shown.end(), [](QChar c) {
                return c.category() == QChar::Other_Control || c.category() == QChar::Other_Format;
            }));
        }
    }
    return 0;
}
