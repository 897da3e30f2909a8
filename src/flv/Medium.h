#pragma once

namespace ko_player {

/// The two kinds of packets that a stream has.
enum class Medium { Video, Audio };

} // namespace ko_player
