#pragma once

#include "ffmpeg/CallbackIo.h"
#include "record/Fragment.h"
#include "record/FragmentRule.h"
#include "record/FragmentWriter.h"
#include "record/PacketFile.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace ko_player {

/// A file that can be played wherever the writing stops, up to about a second before, and that is an ordinary
/// one when it is closed.
///
/// While packets come they are written in fragments, each whole with its index: what stands in the file needs
/// nothing that comes later. Beside that the writer of an ordinary file is given the same packets and notes,
/// for its index, where the fragments have them; what else it writes goes nowhere. At the end that index is
/// appended, and one write to the first bytes of the file makes all that lies before it, fragments and their
/// headers, the payload of an ordinary file. Nothing is copied, and until that write has happened the file is
/// the fragmented one; where it cannot happen, for a full disk above all, it stays that.
///
///     recording:  ftyp free                moov moof mdat moof mdat ...
///     finished:   ftyp free mdat header  [ moov moof mdat moof mdat ... ]  moov
class CrashSafeFile final : public PacketFile {
public:
    /// Creates the file; nothing is written before the first fragment. Throws what packet_file::open() and
    /// writeHeader() throw.
    CrashSafeFile(std::string fileName, AVFormatContext& context, const packet_file::WriterOptions& options);

    [[nodiscard]] int write(std::shared_ptr<ff_wrap::Packet> packet) override;
    int keepUp(base::TimePoint now) override;
    /// Throws only where something of the recording is missing.
    void close() override;

private:
    int indexWrites(std::int64_t position, const std::uint8_t* data, std::size_t size);

    int collect(AVPacket& packet, std::size_t track);
    /// What is collected becomes a fragment in the file.
    int writeFragment();
    int appendFragment();
    void noteInIndex(std::span<const std::uint8_t> head, std::int64_t begin);
    bool noteInIndex(AVPacket& packet, std::deque<SamplePlace>& places, std::int64_t fragmentBegin);
    int append(std::span<const std::uint8_t> bytes);
    int writeAt(std::int64_t position, std::span<const std::uint8_t> bytes);

    /// Empty where the file is an ordinary one now; otherwise why it is not.
    [[nodiscard]] std::string makeOrdinary();
    /// Hides what was written behind the last whole fragment.
    void endWithFragments();

    const std::string fileName_;
    AVFormatContext& context_; ///< of the ordinary file
    packet_file::IoPtr file_;
    std::int64_t end_ = 0;      ///< of the last whole fragment
    std::int64_t appended_ = 0; ///< bytes of the next one that are behind it
    int failure_ = 0;           ///< of the fragments: an FFmpeg error, or 0
    FragmentRule rule_;
    std::vector<std::shared_ptr<ff_wrap::Packet>> collected_;
    std::array<std::optional<std::int64_t>, FragmentRule::kMaxTracks> lastDts_;

    std::vector<std::uint8_t> ordinaryHeader_;
    std::optional<std::int64_t> indexBegin_; ///< what the ordinary writer writes from there on is kept
    bool indexIsWhole_ = true;
    ff_wrap::CallbackIo index_;
    std::unique_ptr<FragmentWriter> fragments_; ///< set by the constructor
};

} // namespace ko_player
