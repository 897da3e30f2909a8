#include "ffmpeg/FfmpegError.h"

extern "C" {
#include <libavutil/error.h>
}

#include <array>

namespace ko_player::ff_wrap {

std::string errorText(int code) {
    std::array<char, 128> buffer{};
    if (av_strerror(code, buffer.data(), buffer.size()) < 0) {
        return "Undef error: " + std::to_string(code);
    }
    return buffer.data();
}

} // namespace ko_player::ff_wrap
