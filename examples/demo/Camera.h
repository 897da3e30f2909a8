#pragma once

#include "support/servers/HttpServer.h"

#include <QString>

#include <chrono>
#include <cstdint>

namespace mediaworker::demo {

/// A camera server in miniature: a moving, numbered picture and a tone, as a live FLV stream on a free port
/// of 127.0.0.1. A client first gets what the server has buffered, then everything at its time.
class Camera {
public:
    static constexpr int kWidthPx = 1280;
    static constexpr int kHeightPx = 720;
    static constexpr int kFps = 25;
    /// Between two key frames: a live picture begins with one, so that much is buffered.
    static constexpr std::int64_t kBufferedMs = 1000;
    /// What the archive holds: the begin of the film.
    static constexpr std::int64_t kRecordedMs = 4000;

    /// Encodes and serves `duration` of film, with the server's end behind it.
    /// Throws std::runtime_error when the film cannot be encoded.
    explicit Camera(std::chrono::seconds duration);

    [[nodiscard]] QString url() const;
    /// What has been recorded, at twice its speed and with an end.
    [[nodiscard]] QString archiveUrl() const;

    /// The number that the picture of a time stamp shows.
    [[nodiscard]] static int frameNumberAt(std::int64_t ms) { return static_cast<int>(ms * kFps / 1000); }

private:
    test::HttpServer server_;
};

} // namespace mediaworker::demo
