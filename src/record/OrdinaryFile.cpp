#include "record/OrdinaryFile.h"

#include "ffmpeg/Avformat.h"

#include <utility>

namespace ko_player {

using ff_wrap::avformat;

namespace {

/// The writer keeps the packets of one stream until the other has caught up, or 10 s of time stamps have
/// passed: without a bound a stream whose stamps stand still, and whose sound never comes, would stay in
/// memory whole. Beyond this the packets are written as they are; only their order in the file suffers. Ten
/// seconds of a usual camera fit.
constexpr std::size_t kMaxHeldBytes = 12 << 20;

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

OrdinaryFile::OrdinaryFile(std::string fileName, AVFormatContext& context,
                           const packet_file::WriterOptions& options)
    : fileName_(std::move(fileName)), context_(context), io_(packet_file::open(fileName_)) {
    context_.pb = io_.get();
    packet_file::writeHeader(context_, fileName_, options);
}

// By value: the packet is given up. NOLINTNEXTLINE(performance-unnecessary-value-param)
int OrdinaryFile::write(std::shared_ptr<ff_wrap::Packet> packet) {
    const std::size_t bytes = packet->heldBytes();
    const int result = avformat().av_interleaved_write_frame(&context_, packet->get());
    return result < 0 ? result : boundHeldPackets(bytes);
}

int OrdinaryFile::boundHeldPackets(std::size_t packetBytes) {
    if (context_.nb_streams < 2) {
        return 0; // nothing to interleave with, so nothing is kept
    }
    heldBytes_ += packetBytes;
    if (heldBytes_ < kMaxHeldBytes) {
        return 0;
    }
    heldBytes_ = 0;
    return avformat().av_interleaved_write_frame(&context_, nullptr);
}

int OrdinaryFile::keepUp(base::TimePoint /*now*/) {
    return 0; // without its index the file is of no use anyway
}

int OrdinaryFile::writeTrailer() {
    const SeekWatch watch(io_.get());
    const int written = avformat().av_write_trailer(&context_);
    return written < 0 ? written : watch.result();
}

void OrdinaryFile::close() {
    const int trailer = writeTrailer();
    context_.pb = nullptr;
    const int closed = avformat().avio_close(io_.release());
    if (trailer < 0) {
        throw packet_file::closeError("av_write_trailer", fileName_, trailer);
    }
    if (closed < 0) {
        throw packet_file::closeError("avio_closep", fileName_, closed);
    }
}

} // namespace ko_player
