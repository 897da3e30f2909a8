#include "record/FileRecorder.h"

#include "base/Log.h"
#include "ffmpeg/Avcodec.h"
#include "ffmpeg/FfmpegError.h"

extern "C" {
#include <libavcodec/codec_par.h>
#include <libavcodec/packet.h>
}

#include <algorithm>
#include <exception>
#include <stdexcept>
#include <utility>

namespace ko_player {
namespace {

constexpr int kVideoStream = 0;
constexpr int kAudioStream = 1;
constexpr AVRational kMilliseconds{1, 1000};
/// The writer refines it by doubling until it is fine enough for milliseconds.
constexpr AVRational kVideoTimeBase{1, 25};

} // namespace

FileRecorder::FileRecorder(const std::string& path)
    : muxer_(path), handler_(std::make_shared<FlvHandler>()), reader_(handler_.get()) {
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

bool FileRecorder::pushEofAndClose() {
    try {
        if (buffering_) {
            if (!videoStarted_ || bufferedVideo_.empty()) {
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
    if (headerWritten_ && muxer_.isOpen()) {
        muxer_.close();
    }
}

void FileRecorder::startVideo() {
    if (videoStarted_) {
        base::logAt("ko_player::FileRecorder::startVideo", "error, video params second call");
        return;
    }
    videoStarted_ = true;
    if (isReadyForHeader()) {
        beginRecordStreams(true);
    }
}

void FileRecorder::startAudio() {
    if (buffering_) {
        audioStarted_ = true;
        if (videoStarted_) {
            beginRecordStreams(true);
        }
        return;
    }
    base::logAt("ko_player::FileRecorder::startAudio", "audio started after header");
    const AVCodecParameters& parameters = handler_->audioParams();
    if (parameters.codec_id == AV_CODEC_ID_AAC && parameters.extradata_size > 0) {
        handler_->pendingAudioSideData().assign(parameters.extradata,
                                                parameters.extradata + parameters.extradata_size);
    }
}

bool FileRecorder::isReadyForHeader() const {
    return audioStarted_ || maxVideoDts_ > kMaxWaitMs || bufferedBytes_ >= kMaxBufferedBytes ||
           bufferedVideo_.size() >= kMaxBufferedPackets;
}

void FileRecorder::pushVideo(PacketPtr packet) {
    if (!videoStarted_) {
        throw std::logic_error("video packet before started");
    }
    hasVideo_ = true;
    maxVideoDts_ = std::max(maxVideoDts_, (*packet)->dts);
    if (buffering_) {
        bufferedBytes_ += static_cast<std::uint64_t>(packet->size());
        bufferedVideo_.push_back(std::move(packet));
        if (isReadyForHeader()) {
            beginRecordStreams(true);
        }
        return;
    }
    std::string error;
    if (!muxer_.writePacket(std::move(packet), kVideoStream, &error)) {
        throw std::runtime_error("video packet mux error: " + error);
    }
}

void FileRecorder::pushAudio(PacketPtr packet) {
    if (buffering_) {
        base::logAt("ko_player::FileRecorder::pushAudio", "ignore audio packet before started");
        return;
    }
    if (!audioStarted_) {
        base::logAt("ko_player::FileRecorder::pushAudio", "ignore audio packet, audio not started");
        return;
    }
    if (!muxer_.writePacket(std::move(packet), kAudioStream, nullptr)) {
        throw std::runtime_error("audio packet mux error");
    }
}

void FileRecorder::beginRecordStreams(bool forced) {
    constexpr std::string_view kFunction = "ko_player::FileRecorder::beginRecordStreams";
    if (!buffering_) {
        throw std::logic_error("beginRecordStreams second call");
    }
    buffering_ = false;
    base::logAt(kFunction, "try add video stream");
    muxer_.addStream({videoParameters().get(), kVideoTimeBase, kMilliseconds}, kVideoStream);
    if (!audioStarted_) {
        base::logAt(kFunction, "no audio when ", maxVideoDts_, " ms of video already buffered");
    }
    // The metadata may have named a codec although no sound has come yet; it may still come.
    if (audioStarted_ || forced) {
        audioStarted_ = addAudioStream(handler_->audioParams());
    }
    base::logAt(kFunction, "try write header with audio: started: ", audioStarted_, ", forced: ", forced);
    muxer_.openFile();
    headerWritten_ = true;
    bufferedBytes_ = 0;
    for (PacketPtr& packet : std::exchange(bufferedVideo_, {})) {
        std::string error;
        if (!muxer_.writePacket(std::move(packet), kVideoStream, &error)) {
            throw std::runtime_error("video packet mux error: " + error);
        }
    }
}

// A stream that was joined in its middle may bring its decoder configuration behind the first pictures. The
// file must have one: without it FFmpeg's writer takes the first picture for the configuration.
ff_wrap::CodecParametersPtr FileRecorder::videoParameters() const {
    auto parameters = ff_wrap::makeCodecParameters();
    const int copied = ff_wrap::avcodec().avcodec_parameters_copy(parameters.get(), &handler_->videoParams());
    if (copied < 0) {
        throw std::runtime_error("Muxer: failed copy codec: " + ff_wrap::errorText(copied));
    }
    for (auto packet = bufferedVideo_.begin();
         packet != bufferedVideo_.end() && parameters->extradata_size == 0; ++packet) {
        std::size_t size = 0;
        const std::uint8_t* config =
            ff_wrap::avcodec().av_packet_get_side_data((*packet)->get(), AV_PKT_DATA_NEW_EXTRADATA, &size);
        if (config != nullptr) {
            ff_wrap::allocExtradata(*parameters, size);
            std::copy_n(config, size, parameters->extradata);
        }
    }
    return parameters;
}

bool FileRecorder::addAudioStream(const AVCodecParameters& parameters) {
    constexpr std::string_view kFunction = "ko_player::FileRecorder::addAudioStream";
    if (parameters.codec_id == AV_CODEC_ID_NONE) {
        base::logAt(kFunction, "no audio codecId");
        return false;
    }
    try {
        muxer_.addStream({&parameters, {1, parameters.sample_rate}, kMilliseconds}, kAudioStream);
        return true;
    } catch (const std::exception& error) {
        base::logAt(kFunction, "failed with exception: ", error.what());
        return false;
    }
}

} // namespace ko_player
