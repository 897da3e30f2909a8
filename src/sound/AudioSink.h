#pragma once

#include "base/Clock.h"
#include "records/Handlers.h"
#include "records/MediaParams.h"
#include "sound/AudioDevice.h"
#include "sound/HeldSound.h"
#include "sound/PlayedBlocks.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

/// Plays the engine's sound on the default device while the parent wants to hear it, and drops it otherwise.
///
/// A device of the system and its timers belong to the thread that made it, and are not thread-safe. So
/// everything about a device happens on one thread, the device thread; calls from other threads are
/// carried there and wait for their outcome. The device thread waits for no other thread and is never held
/// for longer than one call takes, so that cannot deadlock. No lock is needed, and none is held across the
/// wait for a full device.
class AudioSink {
public:
    /// Runs the function on the device thread and returns when it has run; in place when called there.
    using RunOnDeviceThread = std::function<void(const std::function<void()>&)>;

    /// `bufferMs` is what a device is asked to hold.
    AudioSink(RunOnDeviceThread runOnDeviceThread, AudioDeviceFactory makeDevice,
              base::Clock& clock = base::steadyClock(), int bufferMs = 1000);
    AudioSink(const AudioSink&) = delete;
    AudioSink& operator=(const AudioSink&) = delete;
    ~AudioSink();

    /// Fills `out` with what the device gets for `in`: 16-bit interleaved samples. A device that is there is
    /// started anew in that format; false if that fails. Thread-safe.
    bool setParams(const ko_player::AudioParams& in, ko_player::AudioParams& out);

    /// Writes the block to the device, waiting in steps of 100 ms while it is full; after four passes that
    /// wrote nothing the rest is dropped, and so it is when the device goes meanwhile. Called from the audio
    /// output thread.
    void write(const std::uint8_t* data, int size);

    /// What the device holds now; nothing while there is none, or one that failed. Called from the audio
    /// output thread, as is the next.
    [[nodiscard]] std::optional<ko_player::SoundLevel> level();
    /// The device stands still, with what it holds, or goes on.
    void setPaused(bool paused);

    /// Makes and starts a device, unless there is one. Thread-safe.
    void start();
    /// Removes the device; a later start plays at volume 0 until a volume is set. Thread-safe.
    void stop();
    /// Percent; kept for later devices. Thread-safe.
    void setVolume(int percent);

private:
    enum class Pass { Wrote, WroteNothing, Failed };

    bool restartDevice();
    void dropDevice();
    void applyVolume(int percent);
    [[nodiscard]] std::int64_t queuedBytes(int freeBytes, int capacityBytes);
    [[nodiscard]] double durationMs(std::int64_t bytes) const;
    Pass writePass(std::uint64_t device, const std::uint8_t*& data, std::int64_t& remaining);

    const RunOnDeviceThread runOnDeviceThread_;
    const AudioDeviceFactory makeDevice_;
    base::Clock& clock_;
    const int bufferMs_;

    // Device thread only.
    PcmFormat format_;
    std::unique_ptr<AudioDevice> device_;
    std::optional<HeldSound> held_;      ///< of that device
    std::optional<PlayedBlocks> blocks_; ///< of that device, if it plays such
    int volumePercent_ = 0;
    std::uint64_t devicesMade_ = 0;

    /// Which device is there, counted from 1; 0 for none. Written on the device thread; the audio output
    /// thread sees by it, without asking that thread, that there is nothing to play on.
    std::atomic<std::uint64_t> currentDevice_{0};
};
