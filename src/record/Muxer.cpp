#include "record/Muxer.h"

#include "base/Saturating.h"
#include "ffmpeg/Avcodec.h"
#include "ffmpeg/Avformat.h"
#include "ffmpeg/FfmpegError.h"
#include "record/CrashSafeFile.h"
#include "record/OrdinaryFile.h"

extern "C" {
#include <libavcodec/packet.h>
#include <libavutil/mathematics.h>
}

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace ko_player {

using ff_wrap::avformat;

namespace {

/// As fine as the stamps of pictures get where they come in milliseconds.
constexpr const char* kTicksPerSecond = "16000";

/// Sixteen pictures, as many as a decoder can hold back, at 16 a second.
constexpr AVRational kLongestLead{1, 1};

std::int64_t rescaled(std::int64_t stamp, AVRational from, AVRational to) {
    return av_rescale_q_rnd(stamp, from, to,
                            static_cast<AVRounding>(AV_ROUND_NEAR_INF | AV_ROUND_PASS_MINMAX));
}

} // namespace

void Muxer::FreeContext::operator()(AVFormatContext* context) const noexcept {
    avformat().avformat_free_context(context);
}

Muxer::Muxer(const std::string& fileName, Form form, Mp4Policy policy)
    : fileName_(fileName), form_(form), policy_(policy) {
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
    if (isOpen() || isOpened_) {
        throw std::logic_error("Muxer.openFile: second call");
    }
    packet_file::WriterOptions options;
    if (form_ == Form::Faithful) {
        options.emplace_back("movie_timescale", kTicksPerSecond); // otherwise milliseconds, rounded down
    }
    isOpened_ = true;
    if (policy_ == Mp4Policy::Safe) {
        file_ = std::make_unique<CrashSafeFile>(fileName_, *context_, options);
    } else {
        file_ = std::make_unique<OrdinaryFile>(fileName_, *context_, options);
    }
}

// By value: the packet is given up. NOLINTNEXTLINE(performance-unnecessary-value-param)
bool Muxer::writePacket(std::shared_ptr<ff_wrap::Packet> packet, int index, std::string* error) {
    if (!isOpen()) {
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
    const std::int64_t dts = out.dts;
    const int result = file_->write(std::move(packet));
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

bool Muxer::keepUp(base::TimePoint now) {
    return !isOpen() || file_->keepUp(now) >= 0;
}

void Muxer::close() {
    if (isOpen()) {
        const std::unique_ptr<PacketFile> file = std::move(file_);
        file->close();
    }
}

} // namespace ko_player
