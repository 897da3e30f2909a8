#include "Source.h"

#include "FlvTags.h"
#include "support/FlvWriter.h"
#include "support/media/AacSbr.h"

#include <algorithm>
#include <functional>
#include <stdexcept>
#include <utility>

namespace mediaworker::test {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Change = std::function<void(std::vector<FlvTag>&)>;

/// FFmpeg's file with other tags. ffprobe is asked for `askOriginal` where it would believe what is wrong.
Workshop::Recipe altered(Change change, bool askOriginal = true) {
    return [change = std::move(change), askOriginal](Workshop& workshop) {
        const auto before = workshop / "plain.flv";
        const auto after = workshop / "stream.flv";
        encodeFilm({.pictures = h264(), .sound = aac()}, before);
        auto tags = readTags(before);
        change(tags);
        writeTags(after, tags);
        return Made{after, askOriginal ? before : after};
    };
}

FlvTag& metadataOf(std::vector<FlvTag>& tags) {
    return *std::find_if(tags.begin(), tags.end(), std::mem_fn(&FlvTag::isScript));
}

Bytes amf(std::string_view text) {
    return AmfValue(std::string(text)).bytes();
}

Bytes operator+(Bytes left, std::span<const std::uint8_t> right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

/// The metadata as an AMF0 Object: the same properties without their number.
void asObject(std::vector<FlvTag>& tags) {
    FlvTag& tag = metadataOf(tags);
    const auto array = metadataValue(tag);
    tag.body = amf("onMetaData") + Bytes{3} + array.subspan(1 + 4);
}

void behindSetDataFrame(std::vector<FlvTag>& tags) {
    FlvTag& tag = metadataOf(tags);
    tag.body = amf("@setDataFrame") + tag.body;
}

Change replaced(AmfValue::Properties properties) {
    return [properties = std::move(properties)](std::vector<FlvTag>& tags) {
        metadataOf(tags).body = scriptBody("onMetaData", properties);
    };
}

AmfValue::Properties described(int widthPx, int heightPx, const AmfValue& video, const AmfValue& audio,
                               int sampleRate) {
    return {{"duration", 3},
            {"width", widthPx},
            {"height", heightPx},
            {"framerate", 25},
            {"videocodecid", video},
            {"audiocodecid", audio},
            {"audiosamplerate", sampleRate},
            {"audiosamplesize", 16},
            {"stereo", true}};
}

double fourCc(const char (&text)[5]) {
    double value = 0;
    for (int i = 0; i < 4; ++i) {
        value = value * 256 + static_cast<unsigned char>(text[i]);
    }
    return value;
}

bool atKeyFrame(const FlvTag& tag) {
    return tag.isKeyFrame();
}
bool betweenKeyFrames(const FlvTag& tag) {
    return tag.isVideo() && !tag.isKeyFrame();
}

/// What somebody gets who joins after 0.8 s: metadata and configurations, then the tags from that one on.
/// Their time goes on; the configurations' is that of `configurationsAtZero` or the joined tag's.
Change joinedAt(bool (*isJoint)(const FlvTag&), bool configurationsAtZero) {
    return [=](std::vector<FlvTag>& tags) {
        constexpr std::uint32_t kJoinMs = 800;
        const auto first = std::find_if(tags.begin(), tags.end(), [&](const FlvTag& tag) {
            return tag.timestampMs >= kJoinMs && !tag.isConfiguration() && isJoint(tag);
        });
        if (first == tags.end()) {
            throw std::runtime_error("the film has no place to join at");
        }
        std::vector<FlvTag> result;
        for (auto tag = tags.begin(); tag != first; ++tag) {
            if (tag->isScript() || tag->isConfiguration()) {
                result.push_back(*tag);
                result.back().timestampMs = configurationsAtZero ? 0 : first->timestampMs;
            }
        }
        result.insert(result.end(), first, tags.end());
        tags = std::move(result);
    };
}

/// What the strict reading is for.
Made shiftedSound(Workshop& workshop) {
    const auto before = workshop / "plain.flv";
    const auto after = workshop / "stream.flv";
    encodeFilm({.pictures = h264(/*bFrames*/ 0), .sound = aac()}, before);
    auto tags = readTags(before);
    auto properties = described(kFilmWidthPx, kFilmHeightPx, 7, 175, 44100);
    properties.emplace_back("audiochannels", 2);
    replaced(properties)(tags);
    writeTags(after, tags);
    return {after, before};
}

/// AAC whose frames, and nothing else, tell that its rate doubles.
Made implicitSbr(Workshop& workshop) {
    const auto before = workshop / "plain.flv";
    const auto after = workshop / "stream.flv";
    encodeFilm({.pictures = h264(), .sound = aac(), .sampleRate = 22050}, before);
    auto tags = readTags(before);
    constexpr std::size_t kHeadBytes = 2;
    constexpr std::size_t kPlainConfigBytes = 2; // FFmpeg's encoder adds that there is no SBR
    for (FlvTag& tag : tags) {
        if (tag.isAudio() && tag.isConfiguration()) {
            tag.body.resize(kHeadBytes + kPlainConfigBytes);
        } else if (tag.isAudio()) {
            const auto frame = withImplicitSbr(std::span(tag.body).subspan(kHeadBytes));
            tag.body.resize(kHeadBytes);
            tag.body.insert(tag.body.end(), frame.begin(), frame.end());
        }
    }
    writeTags(after, tags);
    return {after, after};
}

/// Two films one after the other, with configurations of their own: the second has other picture sizes.
Made newConfiguration(Workshop& workshop) {
    const auto first = workshop / "first.flv";
    const auto second = workshop / "second.flv";
    const auto both = workshop / "stream.flv";
    const Words begin = {"-t", "1.6"};
    encodeFilm({.pictures = joined({h264(), begin}), .sound = joined({aac(), begin})}, first);
    encodeFilm({.pictures = joined({h264(), begin}),
                .sound = joined({aac(), begin}),
                .widthPx = 256,
                .heightPx = 144},
               second);
    auto tags = readTags(first);
    constexpr std::uint32_t kSecondBeginsMs = 1720; // behind all of the first
    for (FlvTag tag : readTags(second)) {
        tag.timestampMs += kSecondBeginsMs;
        if (!tag.isScript()) {
            tags.push_back(std::move(tag));
        }
    }
    writeTags(both, tags);
    return {both, both};
}

void moveBy(std::int64_t ms, std::vector<FlvTag>::iterator begin, std::vector<FlvTag>::iterator end) {
    for (auto tag = begin; tag != end; ++tag) {
        tag->timestampMs = static_cast<std::uint32_t>(tag->timestampMs + ms);
    }
}

/// A server that is started anew in mid-stream, after half an hour: it counts from 0 again. The reference has
/// one clock, by which the second part begins behind all sound and pictures of the first.
Made serverRestarted(Workshop& workshop) {
    const auto film = workshop / "film.flv";
    const Made made{workshop / "stream.flv", workshop / "one-clock.flv"};
    encodeFilm({.pictures = h264(), .sound = aac()}, film);
    auto tags = readTags(film);
    // The last key frame: the strict reading hurries from there on, and must not wait for long afterwards.
    const auto lastKey = std::find_if(tags.rbegin(), tags.rend(), std::mem_fn(&FlvTag::isKeyFrame));
    if (lastKey == tags.rend()) {
        throw std::runtime_error("the film has no key frame");
    }
    const auto restart = lastKey.base() - 1;
    constexpr std::int64_t kHalfAnHourMs = 1'800'000;
    constexpr std::int64_t kSpacingMs = 1000 / kFilmFps;
    moveBy(kHalfAnHourMs, tags.begin(), restart);
    const std::int64_t goesOnMs = std::int64_t{(restart - 1)->timestampMs} + kSpacingMs;
    moveBy(goesOnMs - restart->timestampMs, restart, tags.end());
    writeTags(made.reference, tags);
    moveBy(-goesOnMs, restart, tags.end());
    writeTags(made.flv, tags);
    return made;
}

} // namespace

std::vector<Source> alteredSources() {
    const auto codecs = [](const AmfValue& video, const AmfValue& audio) {
        return altered(replaced(described(kFilmWidthPx, kFilmHeightPx, video, audio, 44100)));
    };
    return {
        strictFails({"MetadataAsObject", "metadata as AMF0 Object", altered(asObject)}),
        strictFails({"MetadataSetDataFrame", "metadata behind `@setDataFrame`", altered(behindSetDataFrame)}),
        {"MetadataWrongSize", "metadata with a wrong picture size",
         altered(replaced(described(640, 480, 7, 10, 44100)))},
        {"MetadataWrongCodecs", "metadata with wrong codecs: HEVC and MP3", codecs(12, 2)},
        strictFails(
            {"MetadataFourCc", "metadata with FourCC numbers", codecs(fourCc("avc1"), fourCc("mp4a"))}),
        strictFails({"MetadataNames", "metadata with codec names", codecs("avc1", "mp4a")}),
        {.name = "MetadataShifted",
         .title = "metadata with `audiocodecid` 175, no B-frames",
         .recipe = shiftedSound,
         .strictToo = true},
        strictFails({"MetadataWithoutCodecs", "metadata without codecs and sizes",
                     altered(replaced({{"duration", 0}, {"server", "a live server"}}))}),
        {"JoinedAtKeyFrame", "joined in the middle, at a key frame",
         altered(joinedAt(atKeyFrame, false), /*askOriginal*/ false)},
        {"JoinedMidway", "joined between two key frames",
         altered(joinedAt(betweenKeyFrames, true), /*askOriginal*/ false)},
        {"ServerRestarted", "a server's clock starts anew in mid-stream", serverRestarted},
        {"ImplicitSbr", "AAC with SBR that only its frames tell", implicitSbr},
        {"NewConfiguration", "another picture size in mid-stream", newConfiguration},
    };
}

} // namespace mediaworker::test
