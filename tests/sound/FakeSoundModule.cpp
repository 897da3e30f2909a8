// A sound module that can be told from another one.

#include "sound/AudioDevice.h"

namespace {

class FakeDevice final : public AudioDevice {
public:
    explicit FakeDevice(const PcmFormat& format) : format_(format) {}

    void setBufferSize(int) override {}
    void start() override {}
    AudioError error() const override { return AudioError::None; }
    bool isWritable() const override { return true; }
    int bytesFree() const override { return format_.sampleRate; }
    qint64 write(const char*, qint64 size) override { return size; }
    QString errorString() const override { return QStringLiteral(FAKE_SOUND_MODULE_NAME); }
    double volume() const override { return 1; }
    void setVolume(double) override {}

private:
    const PcmFormat format_;
};

} // namespace

extern "C" Q_DECL_EXPORT AudioDevice* FAKE_SOUND_MODULE_ENTRY(const PcmFormat* format) {
    return format->channels > 0 ? std::make_unique<FakeDevice>(*format).release() : nullptr;
}
