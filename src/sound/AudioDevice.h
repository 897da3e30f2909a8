#pragma once

#include "sound/PcmFormat.h"

#include <QString>

#include <functional>
#include <memory>

/// The state of a device after its last call.
enum class AudioError { None, Open, ReadWrite, Underrun, Fatal, Unknown };

/// One audio output of the system. Made, used and destroyed on one thread, which has an event loop.
class AudioDevice {
public:
    AudioDevice() = default;
    AudioDevice(const AudioDevice&) = delete;
    AudioDevice& operator=(const AudioDevice&) = delete;
    /// Stops it.
    virtual ~AudioDevice() = default;

    virtual void setBufferSize(int bytes) = 0;
    /// Starts to play what is written. `error()` tells the outcome.
    virtual void start() = 0;
    [[nodiscard]] virtual AudioError error() const = 0;

    /// Whether there is anything to write to: false before a start and after one that failed.
    [[nodiscard]] virtual bool isWritable() const = 0;
    [[nodiscard]] virtual int bytesFree() const = 0;
    /// The bytes taken, negative on an error.
    virtual qint64 write(const char* data, qint64 size) = 0;
    /// Of the last write.
    [[nodiscard]] virtual QString errorString() const = 0;

    [[nodiscard]] virtual double volume() const = 0;
    /// 0.0 to 1.0.
    virtual void setVolume(double volume) = 0;

    // What follows is for sound that keeps step with the pictures.
    /// What it holds when it is full, in bytes; known after a start.
    [[nodiscard]] virtual int bufferSize() const { return 0; }
    /// When room appears: as soon as the system takes sound, some time before it is heard, or once it was
    /// heard.
    enum class RoomComes { BeforeItIsHeard, AfterItWasHeard };
    [[nodiscard]] virtual RoomComes roomComes() const { return RoomComes::BeforeItIsHeard; }
    /// Where it plays blocks, and counts the room of those that are free: bytes of one. Otherwise 0.
    [[nodiscard]] virtual int blockSize() const { return 0; }
    /// Stands still with what it holds, and goes on with it.
    virtual void suspend() {}
    virtual void resume() {}
};

/// Makes an output for the format on the system's default device; null if that fails.
using AudioDeviceFactory = std::function<std::unique_ptr<AudioDevice>(const PcmFormat& format)>;
