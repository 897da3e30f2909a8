#pragma once

#include "ffmpeg/CallbackIo.h"
#include "record/PacketFile.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

struct AVPacket;

namespace ko_player {

/// Makes the fragments of an MP4 file, with FFmpeg's writer. One thread at a time.
class FragmentWriter {
public:
    /// Takes what follows in the file; gives an FFmpeg error, or 0.
    using Sink = std::function<int(std::span<const std::uint8_t> bytes)>;

    /// `likeIt` has the streams; its header is not written yet. Throws what packet_file::writeHeader() does.
    FragmentWriter(const AVFormatContext& likeIt, const std::string& fileName,
                   packet_file::WriterOptions options, Sink sink);
    FragmentWriter(const FragmentWriter&) = delete;
    FragmentWriter& operator=(const FragmentWriter&) = delete;
    ~FragmentWriter();

    /// Whether the stamps of both writers mean the same: to be asked when `likeIt` has its header.
    [[nodiscard]] bool countsLike(const AVFormatContext& other) const;

    /// Collects a packet, which stays as it is. An FFmpeg error, or 0.
    [[nodiscard]] int add(AVPacket& packet);

    /// Makes a fragment of what is collected, and before the first one the header of the file, and gives it
    /// to the sink, beginning with all of head(). An FFmpeg error, or 0.
    [[nodiscard]] int flush();
    /// The begin of the last fragment, with all that it says of its samples.
    [[nodiscard]] const std::vector<std::uint8_t>& head() const noexcept { return head_; }
    /// Of the last fragment, with its head.
    [[nodiscard]] std::size_t size() const noexcept { return static_cast<std::size_t>(end_ - begin_); }
    /// The next fragment begins.
    void clear();

private:
    struct FreeContext {
        void operator()(AVFormatContext* context) const noexcept;
    };

    int take(std::int64_t position, std::span<const std::uint8_t> bytes);
    int passHead();

    const Sink sink_;
    std::vector<std::uint8_t> head_;
    bool headIsGone_ = false;
    bool isBegun_ = false;   ///< a packet is collected
    std::int64_t begin_ = 0; ///< of the fragment, among all that was ever made
    std::int64_t end_ = 0;
    ff_wrap::CallbackIo io_;
    std::unique_ptr<AVFormatContext, FreeContext> context_;
};

} // namespace ko_player
