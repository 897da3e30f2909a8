#pragma once

#include "ffmpeg/CodecParameters.h"
#include "ffmpeg/Packet.h"
#include "flv/FlvHandler.h"
#include "flv/FlvReader.h"
#include "record/HeldPackets.h"
#include "record/IndexBudget.h"
#include "record/Muxer.h"
#include "record/RecordingRules.h"
#include "record/SampleFitting.h"
#include "record/SoundTrack.h"
#include "records/Options.h"

extern "C" {
#include <libavcodec/codec_id.h>
}

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace ko_player {

/// Records the bytes of an FLV stream into an MP4 file. Pictures are not decoded (but the first, in the
/// standard reading, for its size), and sound is not either where the file can hold it.
///
/// The file's header has to name all streams, and sound may begin late or never: so pictures are held back
/// until sound begins, or until the wait has been long enough. What else depends on the reading stands in
/// RecordingRules.
///
/// One thread at a time. What goes wrong is in the log.
class FileRecorder {
public:
    /// How much (milliseconds by time stamps, bytes) is held back at most while no sound begins.
    static constexpr std::int64_t kMaxWaitMs = 3000;
    static constexpr std::uint64_t kMaxBufferedBytes = 5'242'880;
    /// And how many packets: tiny ones cost much more memory than they have bytes. No camera sends so many in
    /// that time.
    static constexpr std::size_t kMaxBufferedPackets = 10'000;

    /// `path` is in the encoding that FFmpeg wants for file names. The file is created when the header is
    /// written. `endMs`, more than 0: nothing is recorded from there on, milliseconds from the first picture.
    /// Throws what Muxer and FlvHandler throw.
    explicit FileRecorder(const std::string& path, FlvReading reading = FlvReading::Strict,
                          std::optional<std::int64_t> endMs = std::nullopt,
                          Mp4Policy policy = Mp4Policy::AtOnce);
    FileRecorder(const FileRecorder&) = delete;
    FileRecorder& operator=(const FileRecorder&) = delete;
    ~FileRecorder() = default;

    /// Reads on. False means that the recording cannot go on.
    [[nodiscard]] bool consume(const std::uint8_t* data, std::size_t size);

    /// Writes what may not wait for more of the stream; see Muxer::keepUp(). False means that the recording
    /// cannot go on.
    [[nodiscard]] bool keepUp(base::TimePoint now);

    /// The stream has ended: writes what is held back and finishes the file. False where no
    /// picture has come, or the file is not whole.
    [[nodiscard]] bool pushEofAndClose();

    /// The largest time stamp of a video packet so far, milliseconds, as time counts for the recording (see
    /// RecordingRules); 0 before the first.
    [[nodiscard]] std::int64_t maxVideoDts() const noexcept;

    /// A picture has come that lies behind the end: what was to be recorded is.
    [[nodiscard]] bool isAtEnd() const noexcept { return isAtEnd_; }
    /// How long the pictures last, milliseconds: from the first one to the end of the last.
    [[nodiscard]] std::int64_t recordedMs() const noexcept { return recordedMs_; }
    /// Whether the file has sound.
    [[nodiscard]] bool hasSound() const noexcept { return audioStarted_; }

    /// Bytes that are held back.
    [[nodiscard]] std::uint64_t bufferedBytes() const noexcept { return held_.bytes(); }

private:
    using PacketPtr = std::shared_ptr<ff_wrap::Packet>;

    void startVideo();
    void startAudio();
    void startLateAudio();
    void pushVideo(PacketPtr packet);
    void measure(std::int64_t dts);
    void pushAudio(PacketPtr packet);
    void holdAudio(PacketPtr packet);
    [[nodiscard]] bool isReadyForHeader() const;

    void beginRecordStreams(bool forced);
    void addVideoStream();
    [[nodiscard]] ff_wrap::CodecParametersPtr videoParameters() const;
    [[nodiscard]] bool addAudioStream(const AVCodecParameters* parameters);
    void emplaceMuxer();
    void openFile();
    void openWithoutAudio(const std::string& why);
    void leaveAudioOut(const std::string& why);
    void finishAudio();

    void write(Medium medium, PacketPtr packet);
    void writeAudio(PacketPtr packet);
    void mux(int stream, PacketPtr packet);
    void finishFile();

    const std::string path_;
    const RecordingRules rules_;
    const Mp4Policy policy_;
    bool buffering_ = true; ///< until the header is begun
    bool headerWritten_ = false;
    bool videoStarted_ = false;
    bool audioStarted_ = false; ///< while buffering: announced; then: the file has an audio stream
    bool hasVideo_ = false;     ///< a picture has come
    HeldPackets held_;
    std::int64_t timeZero_ = 0; ///< what counts as 0 for maxVideoDts()
    std::int64_t maxVideoDts_ = 0;
    const std::optional<std::int64_t> endMs_;
    bool isAtEnd_ = false;
    std::optional<std::int64_t> firstVideoDts_;
    std::int64_t newestVideoDts_ = 0;
    std::int64_t recordedMs_ = 0;
    std::int64_t origin_ = 0; ///< of the file: what its first packet has
    std::optional<Muxer> muxer_;
    IndexBudget index_;
    AVCodecID soundCodec_ = AV_CODEC_ID_NONE; ///< for what is said about it
    std::optional<SoundTrack> sound_;         ///< where sound is made to fit: what the file has of it
    ConfigurationFollower configuration_;
    std::shared_ptr<FlvHandler> handler_;
    flv::FlvReader reader_;
};

} // namespace ko_player
