#include "record/Fragment.h"

#include "base/BigEndian.h"

#include <algorithm>

namespace ko_player {
namespace {

using Bytes = std::span<const std::uint8_t>;
using Begin = std::array<std::uint8_t, kFileBeginBytes>;

constexpr std::size_t kShortHeader = 8;
constexpr std::size_t kLongHeader = 16;

/// Of the boxes "tfhd" and "trun": what they have.
enum Flag : std::uint32_t {
    kHasBaseOffset = 0x1,
    kHasDescription = 0x2,
    kHasDefaultDuration = 0x8,
    kHasDefaultSize = 0x10,
    kBaseIsFragment = 0x20000,

    kHasOffset = 0x1,
    kHasFirstFlags = 0x4,
    kHasDuration = 0x100,
    kHasSize = 0x200,
    kHasFlags = 0x400,
    kHasShift = 0x800,
};

/// Numbers one after the other; what is not there is 0, and remembered.
class Fields {
public:
    explicit Fields(Bytes bytes) : bytes_(bytes) {}

    std::uint32_t next() {
        if (bytes_.size() < 4) {
            isWhole_ = false;
            bytes_ = {};
            return 0;
        }
        const std::uint32_t value = base::readU32(bytes_.data());
        bytes_ = bytes_.subspan(4);
        return value;
    }
    std::uint32_t nextIf(bool isThere) { return isThere ? next() : 0; }
    [[nodiscard]] bool isWhole() const { return isWhole_; }

private:
    Bytes bytes_;
    bool isWhole_ = true;
};

std::optional<Mp4Box> boxAt(Bytes bytes, std::size_t offset) {
    if (bytes.size() - offset < kShortHeader) {
        return std::nullopt;
    }
    Mp4Box box{offset, base::readU32(&bytes[offset]), kShortHeader};
    if (box.size == 1 && bytes.size() - offset >= kLongHeader) {
        const std::uint64_t size = base::readU64(&bytes[offset + kShortHeader]);
        box = {offset, static_cast<std::size_t>(std::min<std::uint64_t>(size, SIZE_MAX)), kLongHeader};
    }
    if (box.size < box.headerSize || box.size > bytes.size() - offset) {
        return std::nullopt;
    }
    return box;
}

bool hasName(Bytes bytes, const Mp4Box& box, std::string_view name) {
    return std::equal(name.begin(), name.end(), bytes.begin() + static_cast<std::ptrdiff_t>(box.offset) + 4,
                      [](char a, std::uint8_t b) { return static_cast<std::uint8_t>(a) == b; });
}

Bytes contentOf(Bytes bytes, const Mp4Box& box) {
    return bytes.subspan(box.offset + box.headerSize, box.size - box.headerSize);
}

struct TrackHeader {
    std::size_t track = 0; ///< from 0 on
    std::uint32_t defaultSize = 0;
};

std::optional<TrackHeader> trackHeader(Bytes content) {
    Fields fields(content);
    const std::uint32_t flags = fields.next();
    const std::uint32_t id = fields.next();
    if ((flags & kHasBaseOffset) != 0 || (flags & kBaseIsFragment) == 0 || id == 0) {
        return std::nullopt;
    }
    static_cast<void>(fields.nextIf((flags & kHasDescription) != 0));
    static_cast<void>(fields.nextIf((flags & kHasDefaultDuration) != 0));
    const TrackHeader header{id - 1, fields.nextIf((flags & kHasDefaultSize) != 0)};
    return fields.isWhole() ? std::optional(header) : std::nullopt;
}

/// Adds what a run has, from the begin of its fragment on. False where it has no offset, or leaves `end`.
bool addRun(Bytes content, std::uint32_t defaultSize, const Mp4Box& fragment, std::size_t end,
            std::deque<SamplePlace>& places) {
    Fields fields(content);
    const std::uint32_t flags = fields.next();
    const std::uint32_t count = fields.next();
    if ((flags & kHasOffset) == 0) {
        return false;
    }
    std::int64_t offset =
        static_cast<std::int64_t>(fragment.offset) + static_cast<std::int32_t>(fields.next());
    static_cast<void>(fields.nextIf((flags & kHasFirstFlags) != 0));
    for (std::uint32_t i = 0; i < count && fields.isWhole(); ++i) {
        static_cast<void>(fields.nextIf((flags & kHasDuration) != 0));
        const std::uint32_t size = (flags & kHasSize) != 0 ? fields.next() : defaultSize;
        static_cast<void>(fields.nextIf((flags & kHasFlags) != 0));
        static_cast<void>(fields.nextIf((flags & kHasShift) != 0));
        if (size == 0 || offset < 0 || offset + size > static_cast<std::int64_t>(end)) {
            return false; // also bounds a count that nothing backs
        }
        places.push_back({offset, size});
        offset += size;
    }
    return fields.isWhole();
}

bool addTrack(Bytes content, const Mp4Box& fragment, std::size_t end,
              std::vector<std::deque<SamplePlace>>& tracks) {
    const auto headerBox = findBox(content, "tfhd");
    const auto header = headerBox ? trackHeader(contentOf(content, *headerBox)) : std::nullopt;
    if (!header || header->track >= tracks.size()) {
        return false;
    }
    for (std::size_t at = 0; at < content.size();) {
        const auto box = boxAt(content, at);
        if (!box || (hasName(content, *box, "trun") && !addRun(contentOf(content, *box), header->defaultSize,
                                                               fragment, end, tracks[header->track]))) {
            return false;
        }
        at += box->size;
    }
    return true;
}

void putNumber(std::uint8_t* at, std::uint64_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) {
        at[i] = static_cast<std::uint8_t>(value >> (8 * (bytes - 1 - i)));
    }
}

void putHeader(std::uint8_t* at, std::size_t size, std::string_view name) {
    putNumber(at, size, 4);
    std::copy(name.begin(), name.end(), at + 4);
}

/// The format, and free space that leaves `reserved` bytes.
std::optional<Begin> beginWith(Bytes format, std::size_t reserved) {
    const std::size_t used = format.size() + reserved;
    if (format.empty() || used > kFileBeginBytes ||
        (used < kFileBeginBytes && kFileBeginBytes - used < kShortHeader)) {
        return std::nullopt;
    }
    Begin begin{};
    std::copy(format.begin(), format.end(), begin.begin());
    if (used < kFileBeginBytes) {
        putHeader(&begin[format.size()], kFileBeginBytes - used, "free");
    }
    return begin;
}

} // namespace

std::optional<Mp4Box> findBox(Bytes bytes, std::string_view name) {
    for (std::size_t at = 0; at < bytes.size();) {
        const auto box = boxAt(bytes, at);
        if (!box || hasName(bytes, *box, name)) {
            return box;
        }
        at += box->size;
    }
    return std::nullopt;
}

bool putAt(std::vector<std::uint8_t>& bytes, std::int64_t offset, Bytes added) {
    if (offset < 0 || static_cast<std::uint64_t>(offset) > bytes.size()) {
        return false;
    }
    const std::size_t replaced = std::min(added.size(), bytes.size() - static_cast<std::size_t>(offset));
    std::copy_n(added.begin(), replaced, bytes.begin() + offset);
    const Bytes rest = added.subspan(replaced);
    bytes.insert(bytes.end(), rest.begin(), rest.end());
    return true;
}

std::optional<std::vector<std::deque<SamplePlace>>> samplesOf(Bytes head, std::size_t size,
                                                              std::size_t tracks) {
    const auto fragment = findBox(head, "moof");
    if (!fragment) {
        return std::nullopt;
    }
    std::vector<std::deque<SamplePlace>> places(tracks);
    const Bytes content = contentOf(head, *fragment);
    for (std::size_t at = 0; at < content.size();) {
        const auto box = boxAt(content, at);
        if (!box || (hasName(content, *box, "traf") &&
                     !addTrack(contentOf(content, *box), *fragment, size, places))) {
            return std::nullopt;
        }
        at += box->size;
    }
    return places;
}

std::optional<Begin> fragmentedBegin(Bytes format) {
    return beginWith(format, 0);
}

std::optional<Begin> ordinaryBegin(Bytes format, std::int64_t end) {
    auto begin = beginWith(format, kLongHeader);
    if (begin && end >= static_cast<std::int64_t>(kFileBeginBytes)) {
        constexpr std::size_t kAt = kFileBeginBytes - kLongHeader;
        putHeader(&(*begin)[kAt], 1, "mdat"); // 1: the size follows
        putNumber(&(*begin)[kAt + kShortHeader], static_cast<std::uint64_t>(end) - kAt, 8);
        return begin;
    }
    return std::nullopt;
}

} // namespace ko_player
