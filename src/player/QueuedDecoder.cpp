#include "player/QueuedDecoder.h"

#include "base/Log.h"
#include "base/Saturating.h"
#include "base/ThreadEntry.h"
#include "ffmpeg/Avcodec.h"
#include "ffmpeg/FfmpegError.h"

extern "C" {
#include <libavutil/avutil.h>
#include <libavutil/error.h>
#include <libavutil/frame.h>
}

#include <algorithm>
#include <exception>
#include <utility>

namespace ko_player {
namespace {

constexpr auto kDecode = "ko_player::QueuedDecoder::decode";
/// A longer one was a gap in the stream, not its rhythm.
constexpr std::int64_t kLongestSpacingMs = 1000;

constexpr auto kDecodeTask = "ko_player::QueuedDecoder::decodeTask";

} // namespace

QueuedDecoder::QueuedDecoder(std::unique_ptr<ff_wrap::Decoder> decoder,
                             std::shared_ptr<PacketChannel> packets, std::shared_ptr<FrameQueue> frames,
                             const char* threadName, DecodeRules rules)
    : rules_(rules), decoder_(std::move(decoder)), packets_(std::move(packets)), frames_(std::move(frames)),
      threadName_(threadName), thread_([this] { decodeTask(); }) {}

QueuedDecoder::~QueuedDecoder() {
    if (thread_.joinable()) {
        stop();
        thread_.join();
    }
}

void QueuedDecoder::stop() {
    packets_->stop();
    frames_->abort();
}

void QueuedDecoder::join() {
    if (thread_.joinable()) {
        thread_.join();
    }
}

void QueuedDecoder::decodeTask() {
    base::enterThread(threadName_);
    try {
        decodeFrames();
    } catch (const std::exception& error) {
        base::logAt(kDecodeTask, "exception: ", error.what());
    }
    stop();
    base::logAt(kDecodeTask, "is finished");
}

void QueuedDecoder::decodeFrames() {
    for (;;) {
        auto frame = std::make_shared<ff_wrap::Frame>();
        const DecodeResult result = decode(*frame);
        if (result == DecodeResult::EndOfStream && rules_.drains && !inputEnded_) {
            continue;
        }
        if (result != DecodeResult::Frame) {
            return;
        }
        (*frame)->pts = timeOf(*frame->get());
        frame->dropSideData();
        if (!frames_->push(std::move(frame))) {
            return;
        }
    }
}

QueuedDecoder::DecodeResult QueuedDecoder::decode(ff_wrap::Frame& frame) {
    AVCodecContext* const context = decoder_->context();
    for (;;) {
        const int received = ff_wrap::avcodec().avcodec_receive_frame(context, frame.get());
        if (received >= 0) {
            return DecodeResult::Frame;
        }
        if (received == AVERROR_EOF) {
            base::logAt(kDecode, "readFrame eof");
            ff_wrap::avcodec().avcodec_flush_buffers(context);
            return DecodeResult::EndOfStream;
        }
        if (received == AVERROR(EAGAIN)) {
            if (!sendPacket()) {
                return DecodeResult::NoMoreInput;
            }
            continue;
        }
        base::logAt(kDecode, "readFrame err: ", ff_wrap::errorText(received));
        if (packets_->isStopped()) { // a codec that fails without end must not outlive a stop
            return DecodeResult::NoMoreInput;
        }
    }
}

bool QueuedDecoder::sendPacket() {
    std::shared_ptr<ff_wrap::Packet> packet = std::exchange(pendingPacket_, nullptr);
    if (!packet) {
        packet = packets_->pop();
    }
    if (!packet) {
        return beginDrain();
    }
    const int sent = ff_wrap::avcodec().avcodec_send_packet(decoder_->context(), packet->get());
    if (sent == AVERROR(EAGAIN)) {
        base::logAt(kDecode, "sendPacket EAGAIN!!!");
        pendingPacket_ = std::move(packet);
    }
    if (sent < 0) {
        base::logAt(kDecode, "sendPacket error: ", ff_wrap::errorText(sent));
    }
    return true;
}

bool QueuedDecoder::beginDrain() {
    if (!rules_.drains || inputEnded_ || packets_->isStopped()) {
        return false;
    }
    inputEnded_ = true;
    return ff_wrap::avcodec().avcodec_send_packet(decoder_->context(), nullptr) >= 0;
}

std::int64_t QueuedDecoder::timeOf(const AVFrame& frame) {
    if (!rules_.presentationTimes) {
        return frame.pkt_dts; // which the pipeline has made monotonic
    }
    // FFmpeg's estimate is the presentation time, or the decode time where the former are in no order. Where
    // it knows neither, or goes back, the frames go on as they went so far.
    std::int64_t time = frame.best_effort_timestamp;
    if (lastTimeMs_ && (time == AV_NOPTS_VALUE || time < *lastTimeMs_)) {
        time = base::addSaturated(*lastTimeMs_, spacingMs_);
    } else if (time == AV_NOPTS_VALUE) {
        time = 0;
    }
    if (lastTimeMs_ && time > *lastTimeMs_) {
        spacingMs_ = std::min(base::subtractSaturated(time, *lastTimeMs_), kLongestSpacingMs);
    }
    lastTimeMs_ = time;
    return time;
}

} // namespace ko_player
