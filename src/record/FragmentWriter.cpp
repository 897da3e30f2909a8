#include "record/FragmentWriter.h"

#include "ffmpeg/Avcodec.h"
#include "ffmpeg/Avformat.h"
#include "ffmpeg/FfmpegError.h"
#include "record/Fragment.h"

extern "C" {
#include <libavutil/opt.h>
}

#include <algorithm>
#include <utility>

namespace ko_player {

using ff_wrap::avformat;

namespace {

/// More than the writer gathers before it passes it on: no piece of a fragment's begin is as long.
constexpr std::size_t kLeastPayload = 64 << 10;

} // namespace

void FragmentWriter::FreeContext::operator()(AVFormatContext* context) const noexcept {
    context->pb = nullptr; // somebody else's; the writer must not find it when it cleans up
    avformat().avformat_free_context(context);
}

FragmentWriter::FragmentWriter(const AVFormatContext& likeIt, const std::string& fileName,
                               packet_file::WriterOptions options, Sink sink)
    : sink_(std::move(sink)), io_([this](std::int64_t position, const std::uint8_t* data, std::size_t size) {
          return take(position, {data, size});
      }) {
    AVFormatContext* context = nullptr;
    avformat().avformat_alloc_output_context2(&context, nullptr, "mp4", nullptr);
    if (context == nullptr) {
        throw FileError("Muxer.writeHeader: no memory");
    }
    context_.reset(context);
    context->strict_std_compliance = likeIt.strict_std_compliance;
    for (unsigned i = 0; i < likeIt.nb_streams; ++i) {
        const AVStream& source = *likeIt.streams[i];
        AVStream* stream = avformat().avformat_new_stream(context, nullptr);
        if (stream == nullptr ||
            ff_wrap::avcodec().avcodec_parameters_copy(stream->codecpar, source.codecpar) < 0) {
            throw FileError("Muxer.writeHeader: no memory");
        }
        stream->id = source.id;
        stream->time_base = source.time_base;
    }
    context->pb = io_.get();
    // Fragments are cut by flush() alone. Each counts from its own begin, so that it may lie anywhere. The
    // header comes with the first one, when the writer knows where the tracks begin. And no list of all
    // fragments: it would grow for as long as the recording lasts.
    options.emplace_back("movflags", "frag_custom+delay_moov+default_base_moof+skip_trailer");
    packet_file::writeHeader(*context, fileName, options);
}

FragmentWriter::~FragmentWriter() = default;

bool FragmentWriter::countsLike(const AVFormatContext& other) const {
    for (unsigned i = 0; i < other.nb_streams; ++i) {
        if (av_cmp_q(context_->streams[i]->time_base, other.streams[i]->time_base) != 0) {
            return false;
        }
    }
    return context_->nb_streams == other.nb_streams;
}

int FragmentWriter::take(std::int64_t position, std::span<const std::uint8_t> bytes) {
    // Payload comes in one piece, behind all that tells of it: from there on nothing is copied.
    if (!headIsGone_ && position == end_ && bytes.size() >= kLeastPayload) {
        if (const int passed = passHead(); passed < 0) {
            return passed;
        }
    }
    // It goes back to fill in the lengths of boxes, but not into what is gone.
    if (headIsGone_ ? position != end_ : !putAt(head_, position - begin_, bytes)) {
        return AVERROR_BUG;
    }
    end_ = std::max(end_, position + static_cast<std::int64_t>(bytes.size()));
    return headIsGone_ ? sink_(bytes) : 0;
}

int FragmentWriter::passHead() {
    headIsGone_ = true;
    return sink_(head_);
}

void FragmentWriter::clear() {
    begin_ = end_;
    isBegun_ = false;
    headIsGone_ = false;
    head_.clear();
}

int FragmentWriter::add(AVPacket& packet) {
    if (begin_ > 0 && !isBegun_) {
        // The time of a fragment is that of its packets: otherwise it is the sum of all durations before, of
        // which the last one in each fragment was a guess. Counts for one packet of each track.
        if (const int told = av_opt_set(context_->priv_data, "movflags", "+frag_discont", 0); told < 0) {
            return told;
        }
    }
    isBegun_ = true;
    return avformat().av_write_frame(context_.get(), &packet);
}

int FragmentWriter::flush() {
    // The first call may give the header alone.
    for (int i = 0; i < 2 && !findBox(head_, "moof"); ++i) {
        const int result = avformat().av_write_frame(context_.get(), nullptr);
        if (result < 0) {
            return result;
        }
        if (const int flushed = io_.flush(); flushed < 0) {
            return flushed;
        }
    }
    return headIsGone_ ? 0 : passHead();
}

} // namespace ko_player
