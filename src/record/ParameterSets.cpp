#include "record/ParameterSets.h"

#include "base/BigEndian.h"

extern "C" {
#include <libavcodec/codec_id.h>
}

#include <algorithm>

namespace ko_player {
namespace {

using Bytes = std::span<const std::uint8_t>;

constexpr std::size_t kLengthSize = 4;

/// Reads a record from its front. Once something is missing, all that follows is.
class RecordReader {
public:
    explicit RecordReader(Bytes record) : rest_(record) {}

    [[nodiscard]] Bytes take(std::size_t count) {
        if (count > rest_.size()) {
            isBroken_ = true;
            rest_ = {};
            return {};
        }
        const Bytes taken = rest_.first(count);
        rest_ = rest_.subspan(count);
        return taken;
    }
    [[nodiscard]] unsigned byte() {
        const Bytes taken = take(1);
        return taken.empty() ? 0U : taken[0];
    }
    [[nodiscard]] std::size_t u16() {
        const Bytes taken = take(2);
        return taken.empty() ? 0U : base::readU16(taken.data());
    }
    [[nodiscard]] bool isBroken() const { return isBroken_; }

private:
    Bytes rest_;
    bool isBroken_ = false;
};

void appendSets(RecordReader& reader, std::size_t count, std::vector<std::uint8_t>& out) {
    for (std::size_t i = 0; i < count && !reader.isBroken(); ++i) {
        const Bytes unit = reader.take(reader.u16());
        for (unsigned shift = 8 * kLengthSize; shift > 0; shift -= 8) {
            out.push_back(static_cast<std::uint8_t>(unit.size() >> (shift - 8) & 0xFFU));
        }
        out.insert(out.end(), unit.begin(), unit.end());
    }
}

/// The low two bits: lengthSizeMinusOne.
bool hasOurLengths(unsigned field) {
    return (field & 3U) + 1 == kLengthSize;
}

bool appendH264(RecordReader& reader, std::vector<std::uint8_t>& out) {
    static_cast<void>(reader.take(4)); // version, profile, compatibility, level
    if (!hasOurLengths(reader.byte())) {
        return false;
    }
    appendSets(reader, reader.byte() & 0x1FU, out); // sequence parameter sets
    appendSets(reader, reader.byte(), out);         // picture parameter sets
    return !reader.isBroken();
}

bool appendHevc(RecordReader& reader, std::vector<std::uint8_t>& out) {
    static_cast<void>(reader.take(21)); // version to avgFrameRate
    if (!hasOurLengths(reader.byte())) {
        return false;
    }
    for (unsigned arrays = reader.byte(); arrays > 0 && !reader.isBroken(); --arrays) {
        static_cast<void>(reader.byte()); // array_completeness, NAL_unit_type
        appendSets(reader, reader.u16(), out);
    }
    return !reader.isBroken();
}

} // namespace

std::vector<std::uint8_t> parameterSetsOf(int codecId, Bytes record) {
    RecordReader reader(record);
    std::vector<std::uint8_t> sets;
    const bool isWhole = codecId == AV_CODEC_ID_H264   ? appendH264(reader, sets)
                         : codecId == AV_CODEC_ID_HEVC ? appendHevc(reader, sets)
                                                       : false;
    if (!isWhole) {
        sets.clear();
    }
    return sets;
}

} // namespace ko_player
