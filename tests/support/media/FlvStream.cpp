#include "support/media/FlvStream.h"

#include <algorithm>
#include <utility>

namespace mediaworker::test {
namespace {

unsigned soundFormat(AudioCodec codec) {
    switch (codec) {
    case AudioCodec::Mp3:
        return 2;
    case AudioCodec::ALaw:
        return 7;
    case AudioCodec::MuLaw:
        return 8;
    case AudioCodec::Aac:
    case AudioCodec::None:
        return 10;
    default:
        break;
    }
    return 9; // enhanced
}

std::string fourCcOf(AudioCodec codec) {
    switch (codec) {
    case AudioCodec::Aac:
        return "mp4a";
    case AudioCodec::Mp3:
        return ".mp3";
    case AudioCodec::Opus:
        return "Opus";
    case AudioCodec::Flac:
        return "fLaC";
    case AudioCodec::Ac3:
        return "ac-3";
    case AudioCodec::Eac3:
        return "ec-3";
    default:
        return {};
    }
}

int numberOf(const std::string& fourCc) {
    int number = 0;
    for (const char c : fourCc) {
        number = number << 8 | static_cast<unsigned char>(c);
    }
    return number;
}

bool isEnhanced(VideoCodec codec, const FlvOptions& options) {
    return options.isEnhanced || (codec != VideoCodec::Avc && codec != VideoCodec::Hevc);
}

bool isEnhanced(AudioCodec codec, const FlvOptions& options) {
    const bool isG711 = codec == AudioCodec::ALaw || codec == AudioCodec::MuLaw;
    return !isG711 && (options.isEnhanced || soundFormat(codec) == 9);
}

/// The configuration in the form of an enhanced tag.
std::vector<std::uint8_t> enhancedConfig(const Clip& clip) {
    if (clip.spec.audio != AudioCodec::Flac) {
        return clip.audioConfig;
    }
    std::vector<std::uint8_t> config{'f', 'L', 'a', 'C', 0x80, 0, 0, 34}; // last block: STREAMINFO
    config.insert(config.end(), clip.audioConfig.begin(), clip.audioConfig.end());
    return config;
}

unsigned soundRate(const ClipSpec& spec) {
    if (spec.audio == AudioCodec::Aac || spec.sampleRate >= 44100) {
        return 3;
    }
    return spec.sampleRate >= 22050 ? 2 : spec.sampleRate >= 11025 ? 1 : 0;
}

AmfValue::Properties describe(const Clip& clip, const FlvOptions& options) {
    const ClipSpec& spec = clip.spec;
    AmfValue::Properties result = {{"server", "camera server"},
                                   {"width", spec.widthPx},
                                   {"height", spec.heightPx},
                                   {"framerate", spec.fps},
                                   {"videocodecid", isEnhanced(spec.codec, options)
                                                        ? numberOf(fourCcOf(spec.codec))
                                                        : static_cast<int>(spec.codec)}};
    if (options.hasAudio && spec.audio != AudioCodec::None) {
        const std::uint8_t headerByte = options.audioHeaderByte.value_or(audioHeaderByteOf(spec));
        result.insert(result.end(),
                      {{"audiocodecid", isEnhanced(spec.audio, options) ? numberOf(fourCcOf(spec.audio))
                                                                        : static_cast<int>(headerByte)},
                       {"audiosamplerate", spec.sampleRate},
                       {"audiosamplesize", 16},
                       {"audiochannels", spec.channels},
                       {"stereo", spec.channels == 2}});
    }
    for (const auto& added : options.metadata) {
        std::erase_if(result, [&](const auto& property) { return property.first == added.first; });
        result.push_back(added);
    }
    std::erase_if(result, [&](const auto& property) {
        const auto& without = options.withoutMetadata;
        return std::find(without.begin(), without.end(), property.first) != without.end();
    });
    return result;
}

class StreamMaker {
public:
    explicit StreamMaker(const FlvOptions& options) : options_(options) {}

    void begin(const Clip& first) {
        const bool hasAudio = options_.hasAudio && first.spec.audio != AudioCodec::None;
        const std::uint8_t flags = hasAudio ? 0x05 : 0x01;
        writer_.header(options_.headerFlags.value_or(flags));
        take(0, PieceKind::Header);
        if (options_.hasMetadata) {
            writer_.metadata(stamp(0), describe(first, options_));
            take(0, PieceKind::Metadata);
        }
    }

    void addClip(const Clip& clip, const Clip* previous) {
        if (previous != nullptr && options_.hasMetadata && options_.metadataForEveryClip) {
            writer_.metadata(stamp(startMs_), describe(clip, options_));
            take(startMs_, PieceKind::Metadata);
        }
        const std::uint8_t audioHeader = options_.audioHeaderByte.value_or(audioHeaderByteOf(clip.spec));
        const bool hasAudio = options_.hasAudio && !clip.audio.empty();
        // The same clip again needs no new configuration: nothing has changed for the decoder.
        if (options_.hasSequenceHeaders && previous != &clip) {
            addConfig(clip, hasAudio, audioHeader);
        }
        auto audio = clip.audio.begin();
        for (const ClipPacket& picture : clip.video) {
            while (hasAudio && audio != clip.audio.end() && audio->dtsMs < picture.dtsMs) {
                addSound(clip, *audio++, audioHeader);
            }
            addPicture(clip, picture);
        }
        while (hasAudio && audio != clip.audio.end() && audio->dtsMs < clip.durationMs()) {
            addSound(clip, *audio++, audioHeader);
        }
        startMs_ += clip.durationMs();
        lastCodec_ = clip.spec.codec;
    }

    std::vector<TimedBytes> end() {
        if (options_.endOfSequence) {
            writer_.video(stamp(startMs_), lastCodec_, true, FlvWriter::kEndOfSequence, {});
            take(startMs_, PieceKind::Config);
        }
        return std::move(pieces_);
    }

private:
    [[nodiscard]] std::uint32_t stamp(std::int64_t ms) const noexcept {
        return options_.startMs + static_cast<std::uint32_t>(ms);
    }

    void take(std::int64_t ms, PieceKind kind, bool isKey = false) {
        pieces_.push_back({ms, writer_.take(), kind, isKey});
    }

    void addMetadataUpTo(std::int64_t ms) {
        for (; nextMetadata_ < options_.timedMetadata.size(); ++nextMetadata_) {
            const TimedMetadata& metadata = options_.timedMetadata[nextMetadata_];
            if (metadata.ms > ms) {
                return;
            }
            writer_.metadata(stamp(ms), metadata.properties);
            take(ms, PieceKind::Metadata);
        }
    }

    void addConfig(const Clip& clip, bool hasAudio, std::uint8_t audioHeader) {
        const ClipSpec& spec = clip.spec;
        if (isEnhanced(spec.codec, options_)) {
            writer_.enhancedVideo(stamp(startMs_), fourCcOf(spec.codec), true, FlvWriter::kSequenceHeader,
                                  clip.videoConfig);
        } else {
            writer_.video(stamp(startMs_), spec.codec, true, FlvWriter::kSequenceHeader, clip.videoConfig);
        }
        take(startMs_, PieceKind::Config);
        if (!hasAudio || clip.audioConfig.empty()) {
            return;
        }
        if (isEnhanced(spec.audio, options_)) {
            writer_.enhancedAudio(stamp(startMs_), fourCcOf(spec.audio), FlvWriter::kSequenceHeader,
                                  enhancedConfig(clip));
        } else {
            writer_.aac(stamp(startMs_), FlvWriter::kSequenceHeader, clip.audioConfig, audioHeader);
        }
        take(startMs_, PieceKind::Config);
    }

    void addPicture(const Clip& clip, const ClipPacket& packet) {
        const std::int64_t ms = startMs_ + packet.dtsMs;
        addMetadataUpTo(ms);
        const auto composition = static_cast<std::int32_t>(packet.ptsMs - packet.dtsMs);
        const std::int32_t written = options_.hasCompositionTimes ? composition : 0;
        if (isEnhanced(clip.spec.codec, options_)) {
            // As writers do it: the shorter form where a composition time would say nothing.
            const bool isShort = written == 0 && clip.spec.codec <= VideoCodec::Hevc;
            writer_.enhancedVideo(stamp(ms), fourCcOf(clip.spec.codec), packet.isKey,
                                  isShort ? FlvWriter::kFramesX : FlvWriter::kFrames, packet.bytes, written);
        } else {
            writer_.video(stamp(ms), clip.spec.codec, packet.isKey, FlvWriter::kFrames, packet.bytes,
                          written);
        }
        take(ms, PieceKind::Video, packet.isKey);
    }

    void addSound(const Clip& clip, const ClipPacket& packet, std::uint8_t headerByte) {
        const std::int64_t ms = startMs_ + packet.dtsMs;
        if (isEnhanced(clip.spec.audio, options_)) {
            writer_.enhancedAudio(stamp(ms), fourCcOf(clip.spec.audio), FlvWriter::kFrames, packet.bytes);
        } else if (clip.spec.audio == AudioCodec::Aac) {
            writer_.aac(stamp(ms), FlvWriter::kFrames, packet.bytes, headerByte);
        } else {
            writer_.audio(stamp(ms), headerByte, packet.bytes);
        }
        take(ms, PieceKind::Audio);
    }

    const FlvOptions& options_;
    FlvWriter writer_;
    std::vector<TimedBytes> pieces_;
    std::int64_t startMs_ = 0;
    std::size_t nextMetadata_ = 0;
    VideoCodec lastCodec_ = VideoCodec::Avc;
};

} // namespace

std::uint8_t audioHeaderByteOf(const ClipSpec& spec) {
    const unsigned stereo = spec.channels == 2 ? 1 : 0;
    return static_cast<std::uint8_t>(soundFormat(spec.audio) << 4U | soundRate(spec) << 2U | 2U | stereo);
}

std::vector<TimedBytes> makeFlv(const std::vector<const Clip*>& clips, const FlvOptions& options) {
    StreamMaker maker(options);
    maker.begin(*clips.at(0));
    const Clip* previous = nullptr;
    for (int repeat = 0; repeat < options.repeats; ++repeat) {
        for (const Clip* clip : clips) {
            maker.addClip(*clip, previous);
            previous = clip;
        }
    }
    return maker.end();
}

std::vector<TimedBytes> makeFlv(const Clip& clip, const FlvOptions& options) {
    return makeFlv(std::vector<const Clip*>{&clip}, options);
}

std::vector<std::uint8_t> toBytes(const std::vector<TimedBytes>& pieces) {
    std::vector<std::uint8_t> result;
    for (const TimedBytes& piece : pieces) {
        result.insert(result.end(), piece.bytes.begin(), piece.bytes.end());
    }
    return result;
}

} // namespace mediaworker::test
