#pragma once

#include "flv/Dialect.h"
#include "flv/ScriptData.h"
#include "records/Metadata.h"

#include <cstdint>

extern "C" {
#include <libavcodec/codec_id.h>
}

namespace ko_player {

/// What one onMetaData message says.
struct MetaInfo {
    Metadata position;
    AVCodecID videoCodec = AV_CODEC_ID_NONE;
    int width = 0;     ///< pixels, 0 for none that makes sense
    int height = 0;    ///< pixels, 0 for none that makes sense
    int frameRate = 0; ///< pictures in a second, 0 for none that makes sense
    AVCodecID audioCodec = AV_CODEC_ID_NONE;
    int sampleRate = 0; ///< Hz, as the message has it
    std::int64_t sampleSize = 0;
    int channels = 0; ///< as the message has it

    /// Takes what a later message says about pictures or sound, and keeps the rest.
    void update(const MetaInfo& later);
};

/// Of a name that comes twice the last value counts. What makes no sense is logged.
[[nodiscard]] MetaInfo interpretMetadata(const flv::NumberProperties& properties,
                                         const flv::Dialect& dialect);

/// The codec of a SoundFormat in the strict reading; an unknown one is logged.
[[nodiscard]] AVCodecID acodecFromMeta(std::int64_t soundFormat);

} // namespace ko_player
