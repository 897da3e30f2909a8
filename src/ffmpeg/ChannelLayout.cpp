#include "ffmpeg/ChannelLayout.h"

extern "C" {
#include <libavutil/channel_layout.h>
}

#include <bit>

namespace ko_player::ff_wrap {

std::uint64_t defaultLayoutMask(int channels) noexcept {
    if (channels < 1) {
        return 0;
    }
    AVChannelLayout layout{};
    av_channel_layout_default(&layout, channels);
    return maskOf(layout);
}

int channelsOfMask(std::uint64_t mask) noexcept {
    return std::popcount(mask);
}

std::uint64_t maskOf(const AVChannelLayout& layout) noexcept {
    return layout.order == AV_CHANNEL_ORDER_NATIVE ? layout.u.mask : 0;
}

AVChannelLayout layoutFromMask(std::uint64_t mask, int channels) noexcept {
    AVChannelLayout layout{};
    if (mask != 0 && channelsOfMask(mask) == channels) {
        av_channel_layout_from_mask(&layout, mask);
    } else if (channels > 0) {
        av_channel_layout_default(&layout, channels);
    }
    return layout;
}

} // namespace ko_player::ff_wrap
