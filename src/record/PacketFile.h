#pragma once

#include "base/Clock.h"
#include "ffmpeg/Packet.h"

#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

struct AVFormatContext;
struct AVIOContext;

namespace ko_player {

/// The file cannot be made or written, whatever it should hold.
class FileError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// One file that packets are written into, through a context of FFmpeg's writer that somebody else owns and
/// that has its streams. The context has no `pb` when this is destroyed. One thread at a time.
class PacketFile {
public:
    PacketFile() = default;
    PacketFile(const PacketFile&) = delete;
    PacketFile& operator=(const PacketFile&) = delete;
    /// A file that was not closed stays as it is.
    virtual ~PacketFile() = default;

    /// Writes a packet with the stamps and the stream that it has; its content may be taken. An FFmpeg error,
    /// or 0.
    [[nodiscard]] virtual int write(std::shared_ptr<ff_wrap::Packet> packet) = 0;
    /// To be called a few times a second: what may not wait for further packets is written.
    virtual int keepUp(base::TimePoint now) = 0;
    /// Writes the index and closes the file. Throws std::runtime_error "Muxer.close ...".
    virtual void close() = 0;
};

/// The parts that every file needs.
namespace packet_file {

struct CloseIo {
    void operator()(AVIOContext* io) const noexcept;
};
using IoPtr = std::unique_ptr<AVIOContext, CloseIo>;

/// Creates a file, or empties one that is there. Throws FileError.
[[nodiscard]] IoPtr open(const std::string& fileName);

/// Options of FFmpeg's writer, by name.
using WriterOptions = std::vector<std::pair<const char*, const char*>>;

/// Writes the header to the context's `pb`. Throws std::runtime_error where the streams are at fault, and
/// FileError where the file is.
void writeHeader(AVFormatContext& context, const std::string& fileName, const WriterOptions& options);

/// What close() throws where a step failed.
[[nodiscard]] std::runtime_error closeError(const char* step, const std::string& fileName, int error);

} // namespace packet_file

} // namespace ko_player
