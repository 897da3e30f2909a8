#include "record/HeldPackets.h"

#include "base/Saturating.h"

extern "C" {
#include <libavcodec/packet.h>
}

#include <algorithm>
#include <utility>

namespace ko_player {
namespace {

std::uint64_t bytesOf(const ff_wrap::Packet& packet) {
    auto bytes = static_cast<std::uint64_t>(packet.size());
    for (int i = 0; i < packet->side_data_elems; ++i) {
        bytes += packet->side_data[i].size;
    }
    return bytes;
}

} // namespace

void HeldPackets::push(Medium medium, PacketPtr packet) {
    const std::uint64_t bytes = bytesOf(*packet);
    held_.push_back({medium, std::move(packet), bytes});
    bytes_ += bytes;
}

HeldPackets::Held HeldPackets::pop() {
    Held first = std::move(held_.front());
    held_.pop_front();
    bytes_ -= first.bytes;
    return first;
}

bool HeldPackets::has(Medium medium) const {
    return std::any_of(held_.begin(), held_.end(), [&](const Held& held) { return held.medium == medium; });
}

std::int64_t HeldPackets::spanMs() const {
    return held_.empty() ? 0
                         : base::subtractSaturated((*held_.back().packet)->dts, (*held_.front().packet)->dts);
}

std::optional<std::int64_t> HeldPackets::earliestMs() const {
    std::optional<std::int64_t> earliest;
    for (const Held& held : held_) {
        earliest = std::min(earliest.value_or((*held.packet)->dts), (*held.packet)->dts);
    }
    return earliest;
}

} // namespace ko_player
