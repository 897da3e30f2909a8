#include "sound/module/QtAudioDevice.h"

#include <QAudioOutput>
#include <QIODevice>
#include <QPointer>

#include <new>

namespace {

// Qt counts a block of the wave interface as free when it was played; sound servers take sound ahead.
#ifdef Q_OS_WIN
constexpr auto kRoomComes = AudioDevice::RoomComes::AfterItWasHeard;
constexpr bool kPlaysBlocks = true;
#else
constexpr auto kRoomComes = AudioDevice::RoomComes::BeforeItIsHeard;
constexpr bool kPlaysBlocks = false;
#endif

class QtAudioDevice final : public AudioDevice {
public:
    explicit QtAudioDevice(const PcmFormat& format) : output_(new QAudioOutput(toQAudioFormat(format))) {}
    QtAudioDevice(const QtAudioDevice&) = delete;
    QtAudioDevice& operator=(const QtAudioDevice&) = delete;
    ~QtAudioDevice() override {
        output_->stop();
        // Its timers and the back end's queued calls may still be on their way.
        output_->deleteLater();
    }

    void setBufferSize(int bytes) override { output_->setBufferSize(bytes); }
    void start() override { io_ = output_->start(); }
    AudioError error() const override { return toAudioError(output_->error()); }
    bool isWritable() const override { return !io_.isNull(); }
    int bytesFree() const override { return output_->bytesFree(); }
    qint64 write(const char* data, qint64 size) override { return io_->write(data, size); }
    QString errorString() const override { return io_ ? io_->errorString() : QString(); }
    double volume() const override { return output_->volume(); }
    void setVolume(double volume) override { output_->setVolume(volume); }
    int bufferSize() const override { return output_->bufferSize(); }
    RoomComes roomComes() const override { return kRoomComes; }
    int blockSize() const override { return kPlaysBlocks ? output_->periodSize() : 0; }
    void suspend() override { output_->suspend(); }
    void resume() override { output_->resume(); }

private:
    QAudioOutput* output_;   ///< deleted by the event loop
    QPointer<QIODevice> io_; ///< the output's, which deletes it when the sound server goes
};

} // namespace

QAudioFormat toQAudioFormat(const PcmFormat& format) {
    QAudioFormat result;
    result.setSampleRate(format.sampleRate);
    result.setChannelCount(format.channels);
    result.setCodec(QStringLiteral("audio/pcm"));
    result.setSampleSize(16);
    result.setByteOrder(QAudioFormat::LittleEndian);
    result.setSampleType(QAudioFormat::SignedInt);
    return result;
}

AudioError toAudioError(QAudio::Error error) {
    switch (error) {
    case QAudio::NoError:
        return AudioError::None;
    case QAudio::OpenError:
        return AudioError::Open;
    case QAudio::IOError:
        return AudioError::ReadWrite;
    case QAudio::UnderrunError:
        return AudioError::Underrun;
    case QAudio::FatalError:
        return AudioError::Fatal;
    }
    return AudioError::Unknown;
}

std::unique_ptr<AudioDevice> makeQtAudioDevice(const PcmFormat& format) {
    try {
        return std::make_unique<QtAudioDevice>(format);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
