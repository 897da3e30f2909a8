#include "flv/FlvParser.h"

#include "base/BigEndian.h"
#include "flv/FlvPackets.h"
#include "flv/Observer.h"
#include "flv/ScriptData.h"

namespace ko_player::flv {
namespace {

constexpr std::size_t kHeaderSize = 9;
constexpr std::uint32_t kLargestDataOffset = 64;
constexpr std::size_t kBackPointerSize = 4;
constexpr std::size_t kTagHeaderSize = 11;

constexpr std::uint8_t kAudioTag = 8;
constexpr std::uint8_t kVideoTag = 9;
constexpr std::uint8_t kScriptTag = 18;

ParseError invalid(std::string message) {
    return {std::make_error_code(std::errc::invalid_argument), std::move(message)};
}

} // namespace

std::string ParseError::text() const {
    return "ec: " + code.message() + ", what: " + message;
}

FlvParser::Outcome FlvParser::parse(std::span<const std::uint8_t>& unread) {
    Outcome outcome;
    Step step = Step::Done;
    while (step == Step::Done) {
        switch (state_) {
        case State::Header:
            step = readHeader(unread, outcome);
            break;
        case State::BackPointer:
            step = readBackPointer(unread, outcome);
            break;
        case State::Tag:
            step = readTag(unread, outcome);
            break;
        }
    }
    return outcome;
}

FlvParser::Step FlvParser::readHeader(Bytes& unread, Outcome& outcome) {
    if (unread.size() < kHeaderSize) {
        outcome.bytesNeeded = kHeaderSize;
        return Step::NeedsMore;
    }
    const std::uint8_t flags = unread[4]; // reserved UB5, audio UB1, reserved UB1, video UB1
    const std::uint32_t dataOffset = base::readU32(unread.data() + 5); // DataOffset UI32
    if (unread[0] != 'F' || unread[1] != 'L' || unread[2] != 'V' || unread[3] != 1 ||
        (flags & dialect_.refusedHeaderFlags) != 0 || dataOffset < kHeaderSize ||
        dataOffset > kLargestDataOffset) {
        outcome.error = invalid("invalid header");
        return Step::Failed;
    }
    if (unread.size() < dataOffset) {
        outcome.bytesNeeded = dataOffset;
        return Step::NeedsMore;
    }
    const bool video = (flags & 0x01U) != 0;
    const bool audio = (flags & dialect_.audioHeaderFlags) != 0;
    unread = unread.subspan(dataOffset);
    state_ = State::BackPointer;
    if (observer_ != nullptr) {
        observer_->onHeader(audio, video);
    }
    return Step::Done;
}

FlvParser::Step FlvParser::readBackPointer(Bytes& unread, Outcome& outcome) {
    if (unread.size() < kBackPointerSize) {
        outcome.bytesNeeded = kBackPointerSize;
        return Step::NeedsMore;
    }
    const std::uint32_t prevTagSize = base::readU32(unread.data()); // PreviousTagSize UI32
    if (dialect_.checksBackPointers && prevTagSize != expectedPrevTagSize_) {
        outcome.error = invalid("prevTagSize: read: " + std::to_string(prevTagSize) +
                                " must be: " + std::to_string(expectedPrevTagSize_));
        return Step::Failed;
    }
    unread = unread.subspan(kBackPointerSize);
    state_ = State::Tag;
    return Step::Done;
}

FlvParser::Step FlvParser::readTag(Bytes& unread, Outcome& outcome) {
    if (unread.size() < kTagHeaderSize) {
        outcome.bytesNeeded = kTagHeaderSize;
        return Step::NeedsMore;
    }
    const std::uint8_t* header = unread.data();
    const std::uint32_t streamId = base::readU24(header + 8); // StreamID UI24
    if (dialect_.checksStreamIds && streamId != 0) {
        outcome.error = invalid("streamId: " + std::to_string(streamId));
        return Step::Failed;
    }
    const std::uint32_t dataSize = base::readU24(header + 1); // DataSize UI24
    expectedPrevTagSize_ = dataSize + static_cast<std::uint32_t>(kTagHeaderSize);
    if (unread.size() < expectedPrevTagSize_) {
        outcome.bytesNeeded = expectedPrevTagSize_;
        return Step::NeedsMore;
    }
    // Timestamp UI24, TimestampExtended UI8
    const std::uint32_t timestampMs =
        static_cast<std::uint32_t>(header[7]) << 24U | base::readU24(header + 4);
    const Bytes body = unread.subspan(kTagHeaderSize, dataSize);
    const auto type = static_cast<std::uint8_t>(header[0] & dialect_.tagTypeMask); // TagType UI8
    if (!deliver(type, timestampMs, body) && !dialect_.skipsUnknownTags) {
        outcome.error = invalid("undef tag type:" + std::to_string(type));
        return Step::Failed;
    }
    unread = unread.subspan(expectedPrevTagSize_);
    state_ = State::BackPointer;
    return Step::Done;
}

bool FlvParser::deliver(std::uint8_t type, std::uint32_t timestampMs, Bytes body) {
    const bool isKnown = type == kAudioTag || type == kVideoTag || type == kScriptTag;
    if (observer_ == nullptr || !isKnown) {
        return isKnown;
    }
    if (type == kAudioTag) {
        deliverTag(dialect_.parseAudioTag(timestampMs, body, audioTrack_), &Observer::onAudioTag,
                   "flv_tag_audio:", audioTrack_);
    } else if (type == kVideoTag) {
        deliverTag(dialect_.parseVideoTag(timestampMs, body, videoTrack_), &Observer::onVideoTag,
                   "flv_tag_video:", videoTrack_);
    } else {
        deliverScriptData(body);
    }
    return true;
}

template <class PacketType>
void FlvParser::deliverTag(const ParsedTag<PacketType>& tag, void (Observer::*receive)(const PacketType&),
                           std::string_view name, TrackChoice& track) {
    if (tag.packet.valid) {
        (observer_->*receive)(tag.packet);
    } else if (!tag.isForNobody) {
        observer_->onError(std::string(name) + tag.error);
    }
    if (track.hasOthers && !track.isReported) {
        track.isReported = true;
        observer_->onError(std::string(name) + " further tracks are skipped");
    }
}

void FlvParser::deliverScriptData(Bytes body) {
    for (const NumberProperties& properties : readScriptData(body, dialect_.script).messages) {
        observer_->onScriptData(properties);
    }
}

} // namespace ko_player::flv
