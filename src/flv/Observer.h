#pragma once

#include "flv/FlvPackets.h"
#include "flv/ScriptData.h"

#include <string>

namespace ko_player::flv {

/// Receives what the tag reader finds, on the thread that feeds it. Packets point into the reader's memory:
/// copy what is kept.
class Observer {
public:
    Observer() = default;
    Observer(const Observer&) = delete;
    Observer& operator=(const Observer&) = delete;
    virtual ~Observer() = default;

    /// The file header. Both follow its video bit.
    virtual void onHeader(bool audio, bool video) = 0;
    virtual void onVideoTag(const VideoPacket& packet) = 0;
    virtual void onAudioTag(const AudioPacket& packet) = 0;
    /// The numbers of one onMetaData message, never empty.
    virtual void onScriptData(const NumberProperties& properties) = 0;
    /// A tag was skipped because its body is invalid; reading goes on.
    virtual void onError(const std::string& message) = 0;
};

} // namespace ko_player::flv
