#pragma once

#include "player/DecodeRules.h"
#include "player/Player.h"

#include <cstdint>
#include <memory>

struct AVFormatContext;
struct AVPacket;
struct AVRational;

namespace ko_player {

/// A packet time stamp in milliseconds, truncated toward zero; out of range it stops at the ends.
[[nodiscard]] std::int64_t toMilliseconds(std::int64_t timestamp, AVRational timeBase);

/// Gives a packet's decode time stamp in milliseconds or, where it has none, its presentation time stamp;
/// only one of the two is converted unless the rules want presentation times.
void rescaleToMilliseconds(AVPacket& packet, AVRational timeBase, const DecodeRules& rules = {});

/// The input context of a local file. It lives as long as the player, because the decoders may still work on
/// what it delivered after the last packet was read.
class Player::LocalFile {
public:
    struct CloseInput {
        void operator()(AVFormatContext* context) const noexcept;
    };

    std::unique_ptr<AVFormatContext, CloseInput> context;
};

} // namespace ko_player
