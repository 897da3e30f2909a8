#pragma once

#include "ffmpeg/CodecParameters.h"
#include "ffmpeg/Packet.h"
#include "flv/FlvHandler.h"
#include "flv/FlvReader.h"
#include "record/Muxer.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace ko_player {

/// Records the bytes of an FLV stream into an MP4 file without decoding them.
///
/// The file's header has to name all streams, and sound may begin late or never: so pictures are held back
/// until sound begins, or until the wait has been long enough. Sound that comes before the header is dropped.
///
/// One thread at a time. What goes wrong is in the log.
class FileRecorder {
public:
    /// How much video (milliseconds by its time stamps, bytes) is held back at most while no sound begins.
    static constexpr std::int64_t kMaxWaitMs = 3000;
    static constexpr std::uint64_t kMaxBufferedBytes = 5'242'880;
    /// And how many packets: tiny ones cost much more memory than they have bytes. No camera sends so many in
    /// that time.
    static constexpr std::size_t kMaxBufferedPackets = 10'000;

    /// `path` is in the encoding that FFmpeg wants for file names. The file is created when the header is
    /// written. Throws what Muxer and FlvHandler throw.
    explicit FileRecorder(const std::string& path);
    FileRecorder(const FileRecorder&) = delete;
    FileRecorder& operator=(const FileRecorder&) = delete;
    ~FileRecorder() = default;

    /// Reads on. False means that the recording cannot go on.
    [[nodiscard]] bool consume(const std::uint8_t* data, std::size_t size);

    /// The stream has ended: writes what is held back and finishes the file. False where no
    /// picture has come, or the file is not whole.
    [[nodiscard]] bool pushEofAndClose();

    /// The largest time stamp of a video packet so far, milliseconds; 0 before the first.
    [[nodiscard]] std::int64_t maxVideoDts() const noexcept { return maxVideoDts_; }

    /// Bytes of video that are held back.
    [[nodiscard]] std::uint64_t bufferedBytes() const noexcept { return bufferedBytes_; }

private:
    using PacketPtr = std::shared_ptr<ff_wrap::Packet>;

    void startVideo();
    void startAudio();
    void pushVideo(PacketPtr packet);
    void pushAudio(PacketPtr packet);
    [[nodiscard]] bool isReadyForHeader() const;
    void beginRecordStreams(bool forced);
    [[nodiscard]] ff_wrap::CodecParametersPtr videoParameters() const;
    [[nodiscard]] bool addAudioStream(const AVCodecParameters& parameters);
    void finishFile();

    bool buffering_ = true; ///< until the header is begun
    bool headerWritten_ = false;
    bool videoStarted_ = false;
    bool audioStarted_ = false; ///< while buffering: announced; then: the file has an audio stream
    bool hasVideo_ = false;     ///< a picture has come
    std::uint64_t bufferedBytes_ = 0;
    std::vector<PacketPtr> bufferedVideo_;
    std::int64_t maxVideoDts_ = 0;
    Muxer muxer_;
    std::shared_ptr<FlvHandler> handler_;
    flv::FlvReader reader_;
};

} // namespace ko_player
