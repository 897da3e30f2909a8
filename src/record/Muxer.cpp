#include "record/Muxer.h"

#include "base/Saturating.h"
#include "ffmpeg/Avcodec.h"
#include "ffmpeg/Avformat.h"
#include "ffmpeg/FfmpegError.h"

extern "C" {
#include <libavcodec/packet.h>
#include <libavutil/dict.h>
#include <libavutil/mathematics.h>
}

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <utility>

namespace ko_player {

using ff_wrap::avformat;

namespace {

/// The writer keeps the packets of one stream until the other has caught up, or 10 s of time stamps have
/// passed: without a bound a stream whose stamps stand still, and whose sound never comes, would stay in
/// memory whole. Beyond this the packets are written as they are; only their order in the file suffers. Ten
/// seconds of a usual camera fit.
constexpr std::size_t kMaxHeldBytes = 12 << 20;

/// As fine as the stamps of pictures get where they come in milliseconds.
constexpr const char* kTicksPerSecond = "16000";

/// Sixteen pictures, as many as a decoder can hold back, at 16 a second.
constexpr AVRational kLongestLead{1, 1};

std::int64_t rescaled(std::int64_t stamp, AVRational from, AVRational to) {
    return av_rescale_q_rnd(stamp, from, to,
                            static_cast<AVRounding>(AV_ROUND_NEAR_INF | AV_ROUND_PASS_MINMAX));
}

/// The writer goes back to fill in lengths, and does not look whether it got there: then they are written
/// into the middle of the recording. Notes it, for the writer of this thread, while this lives.
class SeekWatch {
public:
    explicit SeekWatch(AVIOContext* io) : io_(io), before_(watch) {
        seek_ = std::exchange(io_->seek, &noteSeek);
        watch = this;
    }
    SeekWatch(const SeekWatch&) = delete;
    SeekWatch& operator=(const SeekWatch&) = delete;
    ~SeekWatch() {
        io_->seek = seek_;
        watch = before_;
    }

    /// An FFmpeg error, or 0.
    [[nodiscard]] int result() const { return result_; }

private:
    using Seek = decltype(AVIOContext::seek);

    static std::int64_t noteSeek(void* file, std::int64_t offset, int whence) {
        const std::int64_t position = watch->seek_(file, offset, whence);
        if (position < 0 && (whence & AVSEEK_SIZE) == 0) {
            watch->result_ = static_cast<int>(position);
        }
        return position;
    }

    static thread_local SeekWatch* watch;

    AVIOContext* const io_;
    SeekWatch* const before_;
    Seek seek_ = nullptr;
    int result_ = 0;
};

thread_local SeekWatch* SeekWatch::watch = nullptr;

} // namespace

void Muxer::FreeContext::operator()(AVFormatContext* context) const noexcept {
    avformat().avformat_free_context(context);
}

void Muxer::CloseIo::operator()(AVIOContext* io) const noexcept {
    static_cast<void>(avformat().avio_close(io));
}

Muxer::Muxer(const std::string& fileName, Form form) : fileName_(fileName), form_(form) {
    if (fileName_.empty()) {
        throw std::invalid_argument("Muxer.ctor empty filename");
    }
    AVFormatContext* context = nullptr;
    const int result = avformat().avformat_alloc_output_context2(&context, nullptr, "mp4", fileName_.c_str());
    context_.reset(context);
    if (result < 0 || !context_) {
        throw std::runtime_error("Muxer.ctor: " + ff_wrap::errorText(result));
    }
    if (form_ == Form::Faithful) {
        context_->strict_std_compliance = FF_COMPLIANCE_EXPERIMENTAL;
    }
}

Muxer::~Muxer() {
    if (context_) {
        context_->pb = nullptr; // which goes first; the writer must not find it when it cleans up
    }
}

bool Muxer::holds(int codecId) const {
    return avformat().avformat_query_codec(context_->oformat, static_cast<AVCodecID>(codecId),
                                           context_->strict_std_compliance) == 1;
}

void Muxer::addStream(const StreamSource& source, int index) {
    if (index < 0 || index >= kStreams || static_cast<unsigned>(index) != context_->nb_streams || isOpen()) {
        throw std::logic_error("Muxer.addStream: streams must be added in order, before the file is opened");
    }
    AVStream* stream = avformat().avformat_new_stream(context_.get(), nullptr);
    if (stream == nullptr) {
        throw FileError("Muxer: failed allocating stream");
    }
    const int result = ff_wrap::avcodec().avcodec_parameters_copy(stream->codecpar, source.parameters);
    if (result == AVERROR(ENOMEM)) {
        throw FileError("Muxer: failed copy codec: " + ff_wrap::errorText(result));
    }
    if (result < 0) {
        throw std::runtime_error("Muxer: failed copy codec: " + ff_wrap::errorText(result));
    }
    stream->codecpar->codec_tag = source.codecTag;
    Slot& slot = slots_[static_cast<std::size_t>(index)];
    slot.inputTimeBase = source.inputTimeBase;
    slot.stamps = source.stamps;
    stream->id = index;
    stream->time_base = source.streamTimeBase;
}

void Muxer::openFile() {
    if (isOpen() || headerWritten_) {
        throw std::logic_error("Muxer.openFile: second call");
    }
    const int opened = avformat().avio_open(&context_->pb, fileName_.c_str(), AVIO_FLAG_WRITE);
    if (opened < 0) {
        throw FileError("Muxer.writeHeader avio_open: file: " + fileName_ +
                        ", err: " + ff_wrap::errorText(opened));
    }
    io_.reset(context_->pb);
    AVDictionary* options = nullptr;
    if (form_ == Form::Faithful) {
        av_dict_set(&options, "movie_timescale", kTicksPerSecond, 0); // otherwise milliseconds, rounded down
    }
    const int written = avformat().avformat_write_header(context_.get(), &options);
    av_dict_free(&options);
    if (written < 0) {
        const std::string what = "Muxer.writeHeader avformat_write_header: file: " + fileName_ +
                                 ", err: " + ff_wrap::errorText(written);
        if (written == AVERROR(ENOMEM) || io_->error < 0 || (io_->seekable & AVIO_SEEKABLE_NORMAL) == 0) {
            throw FileError(what);
        }
        throw std::runtime_error(what);
    }
    headerWritten_ = true;
}

// By value: the packet is given up. NOLINTNEXTLINE(performance-unnecessary-value-param)
bool Muxer::writePacket(std::shared_ptr<ff_wrap::Packet> packet, int index, std::string* error) {
    if (!isOpen() || !headerWritten_) {
        throw std::logic_error("Muxer.writePacket: no open file");
    }
    if (index < 0 || static_cast<unsigned>(index) >= context_->nb_streams) {
        throw std::logic_error("Muxer.writePacket: no such stream");
    }
    Slot& slot = slots_[static_cast<std::size_t>(index)];
    AVPacket& out = *packet->get();
    if (slot.stamps.keepsPresentation) {
        keepStamps(out, slot, *context_->streams[index]);
    } else {
        stamp(out, slot, *context_->streams[index]);
    }
    slot.isFirstPacket = false;
    out.stream_index = index;
    out.pos = -1;
    const std::size_t bytes = packet->heldBytes();
    const std::int64_t dts = out.dts;
    int result = avformat().av_interleaved_write_frame(context_.get(), &out);
    if (result >= 0) {
        result = boundHeldPackets(bytes);
    }
    if (result < 0) {
        if (error != nullptr) {
            *error = ff_wrap::errorText(result);
        }
        return false;
    }
    slot.last = dts;
    return true;
}

void Muxer::stamp(AVPacket& packet, Slot& slot, const AVStream& stream) {
    const std::int64_t scaled = rescaled(packet.dts, slot.inputTimeBase, stream.time_base);
    packet.dts = std::max(scaled, slot.isFirstPacket ? slot.last : base::addSaturated(slot.last, 1));
    packet.pts = packet.dts;
}

void Muxer::keepStamps(AVPacket& packet, Slot& slot, const AVStream& stream) {
    const std::int64_t inDts = base::subtractSaturated(packet.dts, slot.stamps.origin);
    const std::int64_t inPts = base::subtractSaturated(packet.pts, slot.stamps.origin);
    std::int64_t dts = rescaled(inDts, slot.inputTimeBase, stream.time_base);
    std::int64_t pts = rescaled(inPts, slot.inputTimeBase, stream.time_base);
    if (slot.stamps.samplesPerPacket > 0) {
        const AVRational samples{1, stream.codecpar->sample_rate};
        dts = av_rescale_delta(slot.inputTimeBase, inDts, samples, slot.stamps.samplesPerPacket, &slot.exact,
                               stream.time_base);
        pts = dts;
        packet.duration = av_rescale_q(slot.stamps.samplesPerPacket, samples, stream.time_base);
    }
    // A writer takes no picture that is shown before it is decoded. Where a stream has such pictures, all are
    // decoded earlier from the first of those on, so that there is room for their presentation times.
    const std::int64_t longestLead = rescaled(1, kLongestLead, stream.time_base);
    slot.lead = std::max(slot.lead, std::min(base::subtractSaturated(dts, pts), longestLead));
    dts = std::min(base::subtractSaturated(dts, slot.lead), pts);
    if (!slot.isFirstPacket) {
        dts = std::max(dts, base::addSaturated(slot.last, 1));
        if (slot.stamps.samplesPerPacket == 0) {
            packet.duration = base::subtractSaturated(dts, slot.last); // matters for the last one only
        }
    }
    packet.dts = dts;
    packet.pts = std::max(pts, dts);
}

int Muxer::boundHeldPackets(std::size_t packetBytes) {
    if (context_->nb_streams < 2) {
        return 0; // nothing to interleave with, so nothing is kept
    }
    heldBytes_ += packetBytes;
    if (heldBytes_ < kMaxHeldBytes) {
        return 0;
    }
    heldBytes_ = 0;
    return avformat().av_interleaved_write_frame(context_.get(), nullptr);
}

int Muxer::writeTrailer() {
    const SeekWatch watch(io_.get());
    const int written = avformat().av_write_trailer(context_.get());
    return written < 0 ? written : watch.result();
}

void Muxer::close() {
    if (!isOpen()) {
        return;
    }
    const int trailer = headerWritten_ ? writeTrailer() : 0;
    context_->pb = nullptr;
    const int closed = avformat().avio_close(io_.release());
    if (trailer < 0) {
        throw std::runtime_error("Muxer.close av_write_trailer: file: " + fileName_ +
                                 ", err: " + ff_wrap::errorText(trailer));
    }
    if (closed < 0) {
        throw std::runtime_error("Muxer.close avio_closep: file: " + fileName_ +
                                 ", err: " + ff_wrap::errorText(closed));
    }
}

} // namespace ko_player
