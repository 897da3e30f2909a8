#include "record/CrashSafeFile.h"

#include "base/Log.h"
#include "ffmpeg/Avformat.h"
#include "ffmpeg/FfmpegError.h"

extern "C" {
#include <libavutil/mathematics.h>
}

#include <algorithm>
#include <climits>
#include <new>
#include <string_view>
#include <utility>

namespace ko_player {

using ff_wrap::avformat;

namespace {

constexpr AVRational kMilliseconds{1, 1000};
/// As many bytes in one piece are not copied into the file's buffer first.
constexpr std::size_t kLeastDirect = 64 << 10;
/// The box with the format is the first one; payload comes far behind it, or not at all.
constexpr std::int64_t kMostHeaderBytes = static_cast<std::int64_t>(kFileBeginBytes);

std::span<const std::uint8_t> boxIn(std::span<const std::uint8_t> bytes, std::string_view name) {
    const auto box = findBox(bytes, name);
    return box ? bytes.subspan(box->offset, box->size) : std::span<const std::uint8_t>();
}

} // namespace

CrashSafeFile::CrashSafeFile(std::string fileName, AVFormatContext& context,
                             const packet_file::WriterOptions& options)
    : fileName_(std::move(fileName)), context_(context), file_(packet_file::open(fileName_)),
      index_([this](std::int64_t position, const std::uint8_t* data, std::size_t size) {
          return indexWrites(position, data, size);
      }) {
    fragments_ = std::make_unique<FragmentWriter>(
        context_, fileName_, options, [this](std::span<const std::uint8_t> bytes) { return append(bytes); });
    context_.pb = index_.get();
    packet_file::writeHeader(context_, fileName_, options);
    const int flushed = index_.flush();
    if (flushed < 0 || !fragments_->countsLike(context_)) {
        throw FileError("Muxer.writeHeader: file: " + fileName_ +
                        ", err: " + (flushed < 0 ? ff_wrap::errorText(flushed) : "other time bases"));
    }
}

int CrashSafeFile::indexWrites(std::int64_t position, const std::uint8_t* data, std::size_t size) {
    const std::span bytes(data, size);
    if (indexBegin_) {
        // It goes back to fill in lengths; the one of the payload is not its own here.
        return position < *indexBegin_ ? 0 : writeAt(position, bytes);
    }
    if (position + static_cast<std::int64_t>(size) <= kMostHeaderBytes) {
        return putAt(ordinaryHeader_, position, bytes) ? 0 : AVERROR_BUG;
    }
    return 0;
}

int CrashSafeFile::write(std::shared_ptr<ff_wrap::Packet> packet) {
    AVPacket& content = *packet->get();
    const auto track = static_cast<std::size_t>(content.stream_index);
    const std::int64_t dtsMs =
        av_rescale_q(content.dts, context_.streams[content.stream_index]->time_base, kMilliseconds);
    if (rule_.isDueBefore(track, dtsMs)) {
        static_cast<void>(writeFragment());
    }
    if (failure_ == 0) {
        failure_ = collect(content, track);
    }
    if (failure_ < 0) {
        return failure_;
    }
    rule_.add(track, dtsMs, packet->heldBytes());
    collected_.push_back(std::move(packet));
    return 0;
}

int CrashSafeFile::collect(AVPacket& packet, std::size_t track) {
    // In a fragment no packet follows the last one, whose duration has to be told: as the one before it. The
    // index at the end has its own rule.
    const std::int64_t told = packet.duration;
    auto& last = lastDts_.at(track);
    if (told == 0 && last && packet.dts > *last) {
        packet.duration = packet.dts - *last;
    }
    last = packet.dts;
    const int added = fragments_->add(packet);
    packet.duration = told;
    return std::min(added, 0);
}

int CrashSafeFile::keepUp(base::TimePoint now) {
    return rule_.isOld(now) ? writeFragment() : failure_;
}

int CrashSafeFile::writeFragment() {
    if (failure_ < 0 || collected_.empty()) {
        return failure_;
    }
    try {
        failure_ = std::min(appendFragment(), 0);
    } catch (const std::bad_alloc&) {
        failure_ = AVERROR(ENOMEM);
    }
    fragments_->clear();
    collected_.clear();
    rule_.restart();
    return failure_;
}

int CrashSafeFile::appendFragment() {
    appended_ = 0;
    if (const int made = fragments_->flush(); made < 0) {
        return made;
    }
    avformat().avio_flush(file_.get());
    if (file_->error < 0) {
        return file_->error;
    }
    noteInIndex(fragments_->head(), end_ + appended_ - static_cast<std::int64_t>(fragments_->size()));
    end_ += appended_;
    return 0;
}

/// What the fragment's writer gives, piece by piece.
int CrashSafeFile::append(std::span<const std::uint8_t> bytes) {
    if (end_ == 0 && appended_ == 0) {
        const auto format = boxIn(bytes, "ftyp");
        const auto begin = fragmentedBegin(format);
        if (!begin) {
            return AVERROR_BUG;
        }
        if (const int written = writeAt(0, *begin); written < 0) {
            return written;
        }
        // The format is there with that.
        appended_ = static_cast<std::int64_t>(begin->size());
        bytes = bytes.subspan(format.size());
    }
    if (const int written = writeAt(end_ + appended_, bytes); written < 0) {
        return written;
    }
    appended_ += static_cast<std::int64_t>(bytes.size());
    return 0;
}

int CrashSafeFile::writeAt(std::int64_t position, std::span<const std::uint8_t> bytes) {
    const std::int64_t reached = avformat().avio_seek(file_.get(), position, SEEK_SET);
    if (reached < 0) {
        return static_cast<int>(reached);
    }
    file_->direct = bytes.size() >= kLeastDirect ? 1 : 0;
    const auto most = static_cast<std::size_t>(file_->max_packet_size > 0 ? file_->max_packet_size : INT_MAX);
    while (!bytes.empty() && file_->error >= 0) {
        const auto piece = bytes.first(std::min(most, bytes.size()));
        avformat().avio_write(file_.get(), piece.data(), static_cast<int>(piece.size()));
        bytes = bytes.subspan(piece.size());
    }
    return std::min(file_->error, 0);
}

/// `head` is the begin of the fragment, which begins at that place of the file.
void CrashSafeFile::noteInIndex(std::span<const std::uint8_t> head, std::int64_t begin) {
    auto places = samplesOf(head, fragments_->size(), context_.nb_streams);
    indexIsWhole_ = indexIsWhole_ && places;
    for (const auto& packet : collected_) {
        AVPacket& content = *packet->get();
        indexIsWhole_ =
            indexIsWhole_ &&
            noteInIndex(content, (*places)[static_cast<std::size_t>(content.stream_index)], begin);
    }
}

/// The ordinary writer believes that the packet goes where it stands already. False where that is not as long
/// as what it would have written.
bool CrashSafeFile::noteInIndex(AVPacket& packet, std::deque<SamplePlace>& places,
                                std::int64_t fragmentBegin) {
    const SamplePlace place = places.empty() ? SamplePlace{} : places.front();
    const std::int64_t at = fragmentBegin + place.offset;
    if (index_.seek(at) < 0 || avformat().av_write_frame(&context_, &packet) < 0) {
        return false;
    }
    const std::int64_t written = index_.position() - at;
    if (written == 0) {
        return true; // neither writer keeps a packet without content
    }
    if (places.empty() || written != place.size) {
        return false;
    }
    places.pop_front();
    return true;
}

void CrashSafeFile::close() {
    static_cast<void>(writeFragment());
    const std::string obstacle = failure_ == 0 ? makeOrdinary() : std::string();
    context_.pb = nullptr;
    if (end_ > 0 && (failure_ < 0 || !obstacle.empty())) {
        endWithFragments();
    }
    const int closed = avformat().avio_close(file_.release());
    if (failure_ < 0) {
        throw packet_file::closeError("fragment", fileName_, failure_);
    }
    if (!obstacle.empty()) {
        base::logLine("the file stays in fragments: ", obstacle);
    } else if (closed < 0) {
        throw packet_file::closeError("avio_closep", fileName_, closed);
    }
}

std::string CrashSafeFile::makeOrdinary() {
    const auto begin = ordinaryBegin(boxIn(ordinaryHeader_, "ftyp"), end_);
    if (!indexIsWhole_ || !begin) {
        return "no index";
    }
    indexBegin_ = end_;
    int result = index_.seek(end_);
    result = result < 0 ? result : avformat().av_write_trailer(&context_);
    result = result < 0 ? result : index_.flush();
    avformat().avio_flush(file_.get());
    result = result < 0 ? result : std::min(file_->error, 0);
    // The index is there: from this write on it counts.
    result = result < 0 ? result : writeAt(0, *begin);
    avformat().avio_flush(file_.get());
    result = result < 0 ? result : std::min(file_->error, 0);
    return result < 0 ? ff_wrap::errorText(result) : std::string();
}

void CrashSafeFile::endWithFragments() {
    file_->error = 0; // it would not write on
    if (writeAt(end_, kFreeToTheEnd) == 0) {
        avformat().avio_flush(file_.get());
    }
}

} // namespace ko_player
