// The whole chain: bytes of a stream in, pictures and sound out, with all queues, decoders and outputs
// between them on threads of their own. Time is a clock that this moves on whenever somebody waits for it, so
// nothing takes long.
//
// The first two bytes choose the reading, buffering, keeping in step, whether there is a sound device,
// pauses, and how the rest is cut into pieces. The stream must end by itself: a chain that stands still is a
// finding by its time.

#include "base/Log.h"
#include "player/Player.h"
#include "support/ManualClock.h"

extern "C" {
#include <libavutil/log.h>
#include <libavutil/pixfmt.h>
}

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;
using mediaworker::test::ManualClock;

void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

class SilentLog final : public base::LogSink {
public:
    void write(std::string_view) override {}
};

/// Touches every byte.
template <class Byte>
void read(const Byte* data, std::size_t size) {
    volatile unsigned sum = 0;
    for (std::size_t i = 0; i < size; ++i) {
        sum = sum + data[i];
    }
}

class Screen final : public ko_player::VideoHandler {
public:
    bool onFrameTimeout() override { return ++timeouts_ < kMostTimeouts; }
    void onStopped() override { require(!std::exchange(isStopped_, true)); }
    std::uint8_t* onVideoParams(const ko_player::VideoParams& in, ko_player::VideoParams& out) override {
        require(in.width > 0 && in.height > 0 && !isLocked_);
        out = in;
        out.format = AV_PIX_FMT_BGRA;
        pictureBytes_ = static_cast<std::size_t>(in.width) * static_cast<std::size_t>(in.height) * 4;
        if (pictureBytes_ > kMostBytes) {
            buffer_.clear();
            return nullptr; // the converter has one
        }
        buffer_.assign(pictureBytes_ + ko_player::kPictureTailBytes, 0);
        return buffer_.data();
    }
    void onFrame(const std::uint8_t* data, int size, std::int64_t) override {
        require(!isStopped_ && !isLocked_ && data != nullptr);
        require(buffer_.empty() || data == buffer_.data());
        require(static_cast<std::size_t>(size) == pictureBytes_);
        read(data, static_cast<std::size_t>(size));
    }
    void onMetadataValue(std::int64_t value) override { require(value > 0); }
    void onMetadataPair(std::int64_t first, std::int64_t second) override {
        require(first > 0 && second > 0);
    }
    ko_player::ResourceGuard lockFrameBuffer() override {
        return ko_player::ResourceGuard([this] { require(!std::exchange(isLocked_, true)); },
                                        [this] { require(std::exchange(isLocked_, false)); });
    }
    void expectPicture(int width, int height) override { require(width > 0 && height > 0); }

private:
    static constexpr int kMostTimeouts = 3;
    static constexpr std::size_t kMostBytes = 64 << 20;

    // All but expectPicture() is called on one thread.
    std::vector<std::uint8_t> buffer_;
    std::size_t pictureBytes_ = 0;
    int timeouts_ = 0;
    bool isLocked_ = false;
    bool isStopped_ = false;
};

/// A device that plays by the clock, or none.
class Speaker final : public ko_player::AudioHandler {
public:
    Speaker(const base::Clock& clock, bool hasDevice) : clock_(clock), hasDevice_(hasDevice) {}

    bool onAudioParams(const ko_player::AudioParams& in, ko_player::AudioParams& out) override {
        out = ko_player::deviceParams(in);
        bytesPerMs_ = static_cast<double>(out.sampleRate) * out.channels * 2 / 1000;
        return true;
    }
    void onAudioData(const std::uint8_t* data, int size) override {
        require(size > 0);
        read(data, static_cast<std::size_t>(size));
        const base::TimePoint now = clock_.now();
        playedUntil_ =
            std::max(playedUntil_, now) +
            std::chrono::duration_cast<base::nanoseconds>(std::chrono::duration<double, std::milli>(
                bytesPerMs_ > 0 ? std::min(size / bytesPerMs_, 1e6) : 0));
    }
    std::optional<ko_player::SoundLevel> soundLevel() override {
        if (!hasDevice_) {
            return std::nullopt;
        }
        const std::chrono::duration<double, std::milli> held = playedUntil_ - clock_.now();
        const double heldMs = isPaused_ ? pausedHeldMs_ : std::max(0.0, held.count());
        return ko_player::SoundLevel{.device = 1,
                                     .isPlaying = !isPaused_ && heldMs > 0,
                                     .heldMs = heldMs,
                                     .roomMs = std::max(0.0, kCapacityMs - heldMs),
                                     .capacityMs = kCapacityMs};
    }
    void onAudioPause(bool paused) override {
        pausedHeldMs_ =
            std::max(0.0, std::chrono::duration<double, std::milli>(playedUntil_ - clock_.now()).count());
        isPaused_ = paused;
    }

private:
    static constexpr double kCapacityMs = 400;

    const base::Clock& clock_;
    const bool hasDevice_;
    // The audio output's thread; onAudioParams() comes before it begins.
    double bytesPerMs_ = 0;
    double pausedHeldMs_ = 0;
    bool isPaused_ = false;
    base::TimePoint playedUntil_{};
};

/// What the first two bytes choose.
struct Choice {
    ko_player::Options options;
    bool buffering = false;
    bool hasDevice = false;
    bool pauses = false;
    bool destroysInstead = false; ///< of the end that waits
    std::size_t pieceBytes = 0;

    Choice(std::uint8_t flags, std::uint8_t piece)
        : buffering((flags & 4) != 0), hasDevice((flags & 8) != 0), pauses((flags & 16) != 0),
          destroysInstead((flags & 32) != 0),
          pieceBytes(piece < 128 ? 1U + piece : std::size_t{1} << (piece % 17U)) {
        options.flv = (flags & 1) != 0 ? ko_player::FlvReading::Standard : ko_player::FlvReading::Strict;
        options.sync =
            (flags & 2) != 0 ? ko_player::SyncPolicy::ByTimeStamps : ko_player::SyncPolicy::StartTogether;
        options.explains = true;
    }
};

/// What the receiving thread does.
void feed(ko_player::Player& player, const Choice& choice, const std::uint8_t* data, std::size_t size) {
    std::size_t number = 0;
    for (std::size_t offset = 0; offset < size; ++number) {
        // A copy of the piece's exact size, so that a read behind its end is seen.
        const std::size_t count = std::min(choice.pieceBytes, size - offset);
        const std::vector<std::uint8_t> piece(data + offset, data + offset + count);
        if (choice.pauses && number % 8 == 3) {
            player.setPause(number % 16 == 3);
        }
        if (!player.consume(piece.data(), piece.size())) {
            break;
        }
        offset += count;
    }
    player.setPause(false);
    if (!choice.destroysInstead) {
        player.stop();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static SilentLog silent;
    static const bool isSilent = [] {
        base::exchangeLogSink(&silent);
        av_log_set_level(AV_LOG_QUIET);
        return true;
    }();
    if (size < 2 || !isSilent) {
        return 0;
    }
    const Choice choice(data[0], data[1]);
    ManualClock clock;
    std::atomic<bool> isDone{false};
    std::thread receiver([&] {
        {
            ko_player::Player player(std::make_shared<Screen>(),
                                     std::make_shared<Speaker>(clock, choice.hasDevice), clock,
                                     choice.options);
            player.start(choice.buffering ? ko_player::Buffering::On : ko_player::Buffering::Off, {5s, 3s});
            feed(player, choice, data + 2, size - 2);
        }
        isDone = true;
    });
    // Time stands still for as long as somebody may still be at work, and not for longer.
    constexpr auto kRest = 20us;
    while (!isDone) {
        std::this_thread::sleep_for(kRest);
        const base::TimePoint next = clock.earliestDeadline();
        if (next != base::TimePoint::max()) {
            clock.advance(std::max(base::nanoseconds(1), next - clock.now()));
        }
    }
    receiver.join();
    return 0;
}
