#pragma once

#include "ffmpeg/CallbackIo.h"
#include "record/PacketFile.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

struct AVPacket;

namespace ko_player {

/// Makes the fragments of an MP4 file in memory, with FFmpeg's writer. One thread at a time.
class FragmentWriter {
public:
    /// `likeIt` has the streams; its header is not written yet. Throws what packet_file::writeHeader() does.
    FragmentWriter(const AVFormatContext& likeIt, const std::string& fileName,
                   packet_file::WriterOptions options);
    FragmentWriter(const FragmentWriter&) = delete;
    FragmentWriter& operator=(const FragmentWriter&) = delete;
    ~FragmentWriter();

    /// Whether the stamps of both writers mean the same: to be asked when `likeIt` has its header.
    [[nodiscard]] bool countsLike(const AVFormatContext& other) const;

    /// Collects a packet, which stays as it is. An FFmpeg error, or 0.
    [[nodiscard]] int add(AVPacket& packet);

    /// Makes a fragment of what is collected: bytes() has it, and before the first one the header of the
    /// file. An FFmpeg error, or 0.
    [[nodiscard]] int flush();
    [[nodiscard]] const std::vector<std::uint8_t>& bytes() const noexcept { return bytes_; }
    void clear();

private:
    struct FreeContext {
        void operator()(AVFormatContext* context) const noexcept;
    };

    std::vector<std::uint8_t> bytes_;
    std::int64_t cleared_ = 0; ///< bytes that were here before
    ff_wrap::CallbackIo io_;
    std::unique_ptr<AVFormatContext, FreeContext> context_;
};

} // namespace ko_player
