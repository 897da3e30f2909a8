#pragma once

#include "ffmpeg/Packet.h"
#include "record/PacketFile.h"
#include "records/Options.h"

extern "C" {
#include <libavutil/rational.h>
}

#include <array>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>

struct AVCodecParameters;
struct AVFormatContext;
struct AVPacket;
struct AVStream;

namespace ko_player {

/// Writes packets into one MP4 file. Streams are added first, then the file is opened, then packets follow,
/// then the file is closed; a call out of this order throws std::logic_error. One thread at a time.
class Muxer {
public:
    static constexpr int kStreams = 2;

    /// What becomes of the time stamps of one stream's packets.
    struct StampRule {
        /// Whether the presentation time of a packet is kept. Otherwise it is the decode time, and time does
        /// not begin before 0.
        bool keepsPresentation = false;
        /// What counts as 0, in the packets' time base; the same time for all streams.
        std::int64_t origin = 0;
        /// Samples of sound in each packet, 0 where that is unknown or changes: stamps in milliseconds are
        /// made exact by them.
        int samplesPerPacket = 0;
    };

    /// Where a stream's packets come from. The parameters are copied.
    struct StreamSource {
        const AVCodecParameters* parameters = nullptr;
        AVRational streamTimeBase{1, 1}; ///< asked for; the file may get a finer one
        AVRational inputTimeBase{1, 1};  ///< of the packets that will be written
        std::uint32_t codecTag = 0;      ///< 0: the one that the writer takes by itself
        StampRule stamps = {};
    };

    /// How the file is written.
    enum class Form {
        Plain,    ///< as FFmpeg's writer does by itself
        Faithful, ///< with codecs that came late to the format, and the tracks' begins finer than a
                  ///< millisecond
    };

    using FileError = ko_player::FileError;

    /// Touches no file yet. Throws std::invalid_argument "Muxer.ctor empty filename", or std::runtime_error
    /// "Muxer.ctor: ...".
    explicit Muxer(const std::string& fileName, Form form = Form::Plain,
                   Mp4Policy policy = Mp4Policy::AtOnce);
    /// A file that is still open is closed as it is, without an index.
    ~Muxer();
    Muxer(const Muxer&) = delete;
    Muxer& operator=(const Muxer&) = delete;

    /// Whether a file can hold streams of that codec (an AVCodecID).
    [[nodiscard]] bool holds(int codecId) const;

    /// `index` counts the streams from 0. Throws std::runtime_error "Muxer: failed ...", FileError without
    /// memory.
    void addStream(const StreamSource& source, int index);

    /// Creates the file, or empties one that is there, and writes the header. Throws std::runtime_error
    /// "Muxer.writeHeader ...", FileError where not what it should hold is at fault; the object is then good
    /// for nothing but to be destroyed.
    void openFile();

    /// Writes one packet by its stream's StampRule, with its decode time stamp raised where the stamps of the
    /// stream would not increase. The packet's content is taken, not copied. False, with
    /// the reason in `error` unless that is null, where it cannot be written.
    [[nodiscard]] bool writePacket(std::shared_ptr<ff_wrap::Packet> packet, int index, std::string* error);

    /// To be called a few times a second while packets may fail to come: see Mp4Policy::Safe. False where
    /// what was to be written could not be.
    [[nodiscard]] bool keepUp(base::TimePoint now);

    /// Writes the index and closes the file; does nothing without an open one. Throws std::runtime_error
    /// "Muxer.close ..." where any of it fails: the file is closed then, but cannot be played. With
    /// Mp4Policy::Safe, all that was written can be.
    void close();

    [[nodiscard]] bool isOpen() const noexcept { return file_ != nullptr; }

private:
    struct FreeContext {
        void operator()(AVFormatContext* context) const noexcept;
    };
    static constexpr std::int64_t kNoExactStamp = std::numeric_limits<std::int64_t>::min();
    struct Slot {
        AVRational inputTimeBase{1, 1};
        StampRule stamps;
        bool isFirstPacket = true;
        std::int64_t last = 0;              ///< the last stamp written, in the stream's time base
        std::int64_t exact = kNoExactStamp; ///< where the sound has come to, in samples
        /// How much earlier than they say packets are decoded, in the stream's time base.
        std::int64_t lead = 0;
    };

    /// Gives the packet its stamps, in the time base of the stream.
    static void stamp(AVPacket& packet, Slot& slot, const AVStream& stream);
    static void keepStamps(AVPacket& packet, Slot& slot, const AVStream& stream);

    const std::string fileName_;
    const Form form_;
    const Mp4Policy policy_;
    std::array<Slot, kStreams> slots_;
    std::unique_ptr<AVFormatContext, FreeContext> context_;
    std::unique_ptr<PacketFile> file_; ///< set while the file is open; goes before the context
    bool isOpened_ = false;            ///< has been, or was to be
};

} // namespace ko_player
