#include "support/servers/Camera.h"

#include "support/media/FlvStream.h"

#include <chrono>

namespace mediaworker::test {

namespace {

using namespace std::chrono_literals;

// What a server has buffered, and a viewer needs to begin at once.
constexpr auto kBurst = 1500ms;

} // namespace

Camera::Camera(const ClipSpec& spec) {
    const Clip clip = encode(spec);
    FlvOptions minute;
    minute.repeats = static_cast<int>(60s / std::chrono::milliseconds(clip.durationMs())) + 1;
    server_.route("/camera.flv", [this, pieces = makeFlv(clip, minute)](HttpResponse& response) {
        ++requests_;
        if (!isThere_) {
            response.errorPage(404, 0);
            return;
        }
        const auto begin = std::chrono::steady_clock::now() - kBurst;
        for (const TimedBytes& piece : pieces) {
            const auto due = begin + std::chrono::milliseconds(piece.ms);
            if (!response.sleepUntil(due) || !isThere_ || !response.send(piece.bytes)) {
                return;
            }
        }
    });
}

} // namespace mediaworker::test
