#include "record/FileRecorder.h"

#include "base/Log.h"
#include "base/Saturating.h"
#include "ffmpeg/Avcodec.h"
#include "ffmpeg/FfmpegError.h"
#include "ffmpeg/StreamProbe.h"
#include "flv/CodecMapping.h"

extern "C" {
#include <libavcodec/codec_par.h>
#include <libavcodec/packet.h>
#include <libavutil/macros.h>
#include <libavutil/mathematics.h>
}

#include <algorithm>
#include <exception>
#include <new>
#include <stdexcept>
#include <utility>

namespace ko_player {
namespace {

constexpr int kVideoStream = 0;
constexpr int kAudioStream = 1;
constexpr AVRational kMilliseconds{1, 1000};
/// The writer refines it by doubling until it is fine enough for milliseconds.
constexpr AVRational kVideoTimeBase{1, 25};
/// The one that says that the header has the parameter sets; some players take no other.
constexpr std::uint32_t kHevcTag = MKTAG('h', 'v', 'c', '1');

} // namespace

FileRecorder::FileRecorder(const std::string& path, FlvReading reading, std::optional<std::int64_t> endMs,
                           Mp4Policy policy)
    : path_(path), rules_(recordingRules(reading)), policy_(policy), endMs_(endMs),
      handler_(std::make_shared<FlvHandler>(reading)), reader_(handler_.get(), reading) {
    emplaceMuxer();
    handler_->onVideoParams = [this](const AVCodecParameters*) {
        startVideo();
        return true;
    };
    handler_->onVideoPacket = [this](PacketPtr packet) { pushVideo(std::move(packet)); };
    handler_->onAudioParams = [this](const AVCodecParameters*) {
        startAudio();
        return true;
    };
    handler_->onAudioPacket = [this](PacketPtr packet) { pushAudio(std::move(packet)); };
}

void FileRecorder::emplaceMuxer() {
    muxer_.emplace(path_, rules_.form, policy_);
}

bool FileRecorder::consume(const std::uint8_t* data, std::size_t size) {
    try {
        if (const auto error = reader_.consume(data, size)) {
            base::logAt("ko_player::FileRecorder::consumeImpl", error->text());
            return false;
        }
        return true;
    } catch (const std::exception& error) {
        base::logAt("ko_player::FileRecorder::consume", "consume failed with exception: ", error.what());
        return false;
    }
}

bool FileRecorder::keepUp(base::TimePoint now) {
    const bool isWritten = muxer_->keepUp(now);
    if (!isWritten) {
        base::logAt("ko_player::FileRecorder::keepUp", "the file cannot be written");
    }
    return isWritten;
}

bool FileRecorder::pushEofAndClose() {
    try {
        if (buffering_) {
            if (!videoStarted_ || !held_.has(Medium::Video)) {
                return false;
            }
            beginRecordStreams(false);
        }
        finishFile();
        return hasVideo_;
    } catch (const std::exception& error) {
        base::logAt("ko_player::FileRecorder::pushEofAndClose",
                    "pushEofAndClose failed with exception: ", error.what());
        return false;
    }
}

void FileRecorder::finishFile() {
    if (headerWritten_ && muxer_->isOpen()) {
        finishAudio();
        muxer_->close();
    }
}

void FileRecorder::finishAudio() {
    if (!sound_ || !audioStarted_) {
        return;
    }
    try {
        sound_->finish([this](PacketPtr packet) { mux(kAudioStream, std::move(packet)); });
    } catch (const std::exception& error) {
        leaveAudioOut(error.what());
    }
}

std::int64_t FileRecorder::maxVideoDts() const noexcept {
    return base::subtractSaturated(maxVideoDts_, timeZero_);
}

void FileRecorder::startVideo() {
    if (videoStarted_) {
        base::logAt("ko_player::FileRecorder::startVideo", "error, video params second call");
        return;
    }
    videoStarted_ = true;
    if (!rules_.looksAtFirstPicture && isReadyForHeader()) {
        beginRecordStreams(true);
    }
}

void FileRecorder::startAudio() {
    if (!buffering_) {
        startLateAudio();
        return;
    }
    audioStarted_ = true;
    if (videoStarted_ && (!rules_.looksAtFirstPicture || held_.has(Medium::Video))) {
        beginRecordStreams(true);
    }
}

void FileRecorder::startLateAudio() {
    base::logAt("ko_player::FileRecorder::startAudio", "audio started after header");
    const AVCodecParameters& parameters = handler_->audioParams();
    if (rules_.makesSoundFit) {
        soundCodec_ = parameters.codec_id;
        if (audioStarted_ && !sound_->fits(parameters)) {
            leaveAudioOut("it is not what was announced");
        } else if (!audioStarted_) {
            leaveAudioOut("it begins too late to be in the file");
        }
    } else if (parameters.codec_id == AV_CODEC_ID_AAC && parameters.extradata_size > 0) {
        handler_->pendingAudioSideData().assign(parameters.extradata,
                                                parameters.extradata + parameters.extradata_size);
    }
}

void FileRecorder::leaveAudioOut(const std::string& why) {
    audioStarted_ = false;
    base::logLine("sound unavailable: ", codecName(soundCodec_), ": ", why);
}

bool FileRecorder::isReadyForHeader() const {
    return audioStarted_ || maxVideoDts() > kMaxWaitMs || held_.bytes() >= kMaxBufferedBytes ||
           held_.count() >= kMaxBufferedPackets;
}

void FileRecorder::pushVideo(PacketPtr packet) {
    if (!videoStarted_) {
        throw std::logic_error("video packet before started");
    }
    if (rules_.followsConfiguration) {
        configuration_.notice(*packet, handler_->videoParams().codec_id);
    }
    const std::int64_t dts = (*packet)->dts;
    if (!hasVideo_) {
        if (rules_.beginsWithKeyFrame && ((*packet)->flags & AV_PKT_FLAG_KEY) == 0) {
            return;
        }
        if (rules_.countsFromFirstPicture) {
            timeZero_ = maxVideoDts_ = dts;
        }
    }
    measure(dts);
    if (isAtEnd_) {
        return;
    }
    if (rules_.followsConfiguration) {
        packet = configuration_.withParameterSets(std::move(packet));
    }
    hasVideo_ = true;
    maxVideoDts_ = std::max(maxVideoDts_, dts);
    if (!buffering_) {
        write(Medium::Video, std::move(packet));
        return;
    }
    held_.push(Medium::Video, std::move(packet));
    if (isReadyForHeader()) {
        beginRecordStreams(true);
    }
}

/// A picture lasts to the next one; the last one as long as the one before it, but for a gap.
void FileRecorder::measure(std::int64_t dts) {
    const bool isFirst = !firstVideoDts_.has_value();
    if (isFirst) {
        firstVideoDts_ = dts;
    }
    const std::int64_t begin = base::subtractSaturated(dts, *firstVideoDts_);
    if (endMs_ && begin >= *endMs_) {
        recordedMs_ = isAtEnd_ ? recordedMs_ : begin;
        isAtEnd_ = true;
        return;
    }
    constexpr std::int64_t kLongestPictureMs = 1000;
    const std::int64_t spacing = isFirst ? 0 : base::subtractSaturated(dts, newestVideoDts_);
    newestVideoDts_ = dts;
    const std::int64_t lasts = std::clamp<std::int64_t>(spacing, 0, kLongestPictureMs);
    recordedMs_ = std::max(recordedMs_, base::addSaturated(begin, lasts));
}

void FileRecorder::pushAudio(PacketPtr packet) {
    if (isAtEnd_) {
        return;
    }
    if (buffering_) {
        holdAudio(std::move(packet));
        return;
    }
    if (!audioStarted_) {
        if (!rules_.makesSoundFit) {
            base::logAt("ko_player::FileRecorder::pushAudio", "ignore audio packet, audio not started");
        }
        return;
    }
    write(Medium::Audio, std::move(packet));
}

void FileRecorder::holdAudio(PacketPtr packet) {
    if (!rules_.holdsSound) {
        base::logAt("ko_player::FileRecorder::pushAudio", "ignore audio packet before started");
        return;
    }
    held_.push(Medium::Audio, std::move(packet));
    // While no picture comes, the newest sound is what will be wanted.
    while (held_.spanMs() > kMaxWaitMs || held_.bytes() > kMaxBufferedBytes ||
           held_.count() > kMaxBufferedPackets) {
        static_cast<void>(held_.pop());
    }
}

void FileRecorder::beginRecordStreams(bool forced) {
    constexpr std::string_view kFunction = "ko_player::FileRecorder::beginRecordStreams";
    if (!buffering_) {
        throw std::logic_error("beginRecordStreams second call");
    }
    buffering_ = false;
    if (rules_.countsFromFirstPicture) {
        origin_ = held_.earliestMs().value_or(0);
    }
    base::logAt(kFunction, "try add video stream");
    addVideoStream();
    if (!audioStarted_) {
        base::logAt(kFunction, "no audio when ", maxVideoDts(), " ms of video already buffered");
    }
    // Sound may have been announced although none has come yet; it may still come.
    if (audioStarted_ || forced) {
        const bool isGuess = !audioStarted_ && rules_.makesSoundFit;
        audioStarted_ = addAudioStream(isGuess ? handler_->expectedAudio().get() : &handler_->audioParams());
    }
    base::logAt(kFunction, "try write header with audio: started: ", audioStarted_, ", forced: ", forced);
    openFile();
    headerWritten_ = true;
    while (!held_.empty()) {
        HeldPackets::Held held = held_.pop();
        if (held.medium == Medium::Video || audioStarted_) {
            write(held.medium, std::move(held.packet));
        }
    }
}

void FileRecorder::addVideoStream() {
    const auto parameters = videoParameters();
    Muxer::StreamSource source{parameters.get(), kVideoTimeBase, kMilliseconds};
    if (rules_.keepsPresentation) {
        source.streamTimeBase = kMilliseconds;
        source.stamps = {.keepsPresentation = true, .origin = origin_};
        source.codecTag = parameters->codec_id == AV_CODEC_ID_HEVC ? kHevcTag : 0;
    }
    if (rules_.looksAtFirstPicture && !muxer_->holds(parameters->codec_id)) {
        base::logLine("pictures unavailable: ", codecName(parameters->codec_id),
                      ": an MP4 file cannot hold them");
        throw std::runtime_error("no file without pictures");
    }
    muxer_->addStream(source, kVideoStream);
}

// A stream that was joined in its middle may bring its decoder configuration behind the first pictures. The
// file must have one: without it FFmpeg's writer takes the first picture for the configuration.
ff_wrap::CodecParametersPtr FileRecorder::videoParameters() const {
    auto parameters = ff_wrap::makeCodecParameters();
    const int copied = ff_wrap::avcodec().avcodec_parameters_copy(parameters.get(), &handler_->videoParams());
    if (copied < 0) {
        throw std::runtime_error("Muxer: failed copy codec: " + ff_wrap::errorText(copied));
    }
    const AVPacket* first = nullptr;
    for (const HeldPackets::Held& held : held_) {
        if (held.medium != Medium::Video) {
            continue;
        }
        const AVPacket* packet = held.packet->get();
        first = first == nullptr ? packet : first;
        std::size_t size = 0;
        const std::uint8_t* config =
            ff_wrap::avcodec().av_packet_get_side_data(packet, AV_PKT_DATA_NEW_EXTRADATA, &size);
        if (parameters->extradata_size == 0 && config != nullptr) {
            ff_wrap::allocExtradata(*parameters, size);
            std::copy_n(config, size, parameters->extradata);
        }
    }
    if (rules_.looksAtFirstPicture && first != nullptr) {
        if (const auto found = ff_wrap::completeParameters(*parameters, *first); !found) {
            base::logAt("ko_player::FileRecorder::videoParameters", "the first picture: ", found.failure);
        }
    }
    return parameters;
}

bool FileRecorder::addAudioStream(const AVCodecParameters* parameters) {
    constexpr std::string_view kFunction = "ko_player::FileRecorder::addAudioStream";
    if (parameters == nullptr || parameters->codec_id == AV_CODEC_ID_NONE) {
        base::logAt(kFunction, "no audio codecId");
        return false;
    }
    soundCodec_ = parameters->codec_id;
    try {
        if (rules_.makesSoundFit) {
            sound_.emplace(*parameters, *muxer_);
            muxer_->addStream(sound_->source(origin_), kAudioStream);
        } else {
            muxer_->addStream({parameters, {1, parameters->sample_rate}, kMilliseconds}, kAudioStream);
        }
        return true;
    } catch (const std::exception& error) {
        const bool isSoundsFault = dynamic_cast<const Muxer::FileError*>(&error) == nullptr &&
                                   dynamic_cast<const std::bad_alloc*>(&error) == nullptr;
        if (rules_.makesSoundFit && !isSoundsFault) {
            throw; // an export that says that it is complete has its sound
        }
        if (rules_.makesSoundFit) {
            leaveAudioOut(error.what());
        } else {
            base::logAt(kFunction, "failed with exception: ", error.what());
        }
        return false;
    }
}

void FileRecorder::openFile() {
    try {
        muxer_->openFile();
    } catch (const Muxer::FileError&) {
        throw; // without the sound it would be no better
    } catch (const std::exception& error) {
        if (!rules_.makesSoundFit || !audioStarted_) {
            throw;
        }
        openWithoutAudio(error.what());
    }
}

/// For sound that the writer refuses. Throws where that was not what was wrong.
void FileRecorder::openWithoutAudio(const std::string& why) {
    emplaceMuxer();
    addVideoStream();
    muxer_->openFile();
    leaveAudioOut(why);
}

void FileRecorder::write(Medium medium, PacketPtr packet) {
    if (!index_.add(packet->get()->dts)) {
        throw std::runtime_error("more packets than the index of a file may have");
    }
    if (medium == Medium::Video) {
        mux(kVideoStream, std::move(packet));
    } else {
        writeAudio(std::move(packet));
    }
}

void FileRecorder::writeAudio(PacketPtr packet) {
    if (!rules_.makesSoundFit) {
        mux(kAudioStream, std::move(packet));
        return;
    }
    try {
        sound_->take(std::move(packet), [this](PacketPtr fit) { mux(kAudioStream, std::move(fit)); });
    } catch (const std::exception& error) {
        leaveAudioOut(error.what());
    }
}

void FileRecorder::mux(int stream, PacketPtr packet) {
    std::string error;
    if (stream == kVideoStream) {
        if (!muxer_->writePacket(std::move(packet), stream, &error)) {
            throw std::runtime_error("video packet mux error: " + error);
        }
    } else if (!muxer_->writePacket(std::move(packet), stream, nullptr)) {
        throw std::runtime_error("audio packet mux error");
    }
}

} // namespace ko_player
