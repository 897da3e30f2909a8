#pragma once

#include "record/PacketFile.h"

#include <cstddef>
#include <string>

namespace ko_player {

/// Written as it will be. The index comes last: until then nobody can play it.
class OrdinaryFile final : public PacketFile {
public:
    /// Writes the header. Throws what packet_file::open() and writeHeader() throw.
    OrdinaryFile(std::string fileName, AVFormatContext& context, const packet_file::WriterOptions& options);

    [[nodiscard]] int write(std::shared_ptr<ff_wrap::Packet> packet) override;
    int keepUp(base::TimePoint now) override;
    void close() override;

private:
    /// An FFmpeg error where the index, or any length before it, could not be written.
    int writeTrailer();
    /// Lets the writer pass on what it keeps in order to interleave the streams, before that grows too large.
    int boundHeldPackets(std::size_t packetBytes);

    const std::string fileName_;
    AVFormatContext& context_;
    packet_file::IoPtr io_;
    std::size_t heldBytes_ = 0; ///< at most this many are kept by the writer
};

} // namespace ko_player
