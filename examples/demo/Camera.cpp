#include "Camera.h"

#include "support/media/Clip.h"
#include "support/media/FlvStream.h"
#include "support/servers/Pacing.h"

#include <algorithm>
#include <iterator>
#include <memory>
#include <vector>

namespace mediaworker::demo {

namespace {

std::vector<test::TimedBytes> film(std::chrono::seconds duration) {
    test::ClipSpec spec;
    spec.widthPx = Camera::kWidthPx;
    spec.heightPx = Camera::kHeightPx;
    spec.fps = Camera::kFps;
    spec.frames = static_cast<int>(duration.count()) * Camera::kFps;
    spec.gop = Camera::kFps;
    spec.zeroLatency = true;
    spec.audio = test::AudioCodec::Aac;
    spec.toneHz = 440;
    spec.toneLevel = 0.2;
    return test::makeFlv(test::encode(spec));
}

} // namespace

Camera::Camera(std::chrono::seconds duration) {
    const auto pieces = std::make_shared<const std::vector<test::TimedBytes>>(film(duration));
    server_.route("/live.flv", [pieces](test::HttpResponse& response) {
        response.header("Content-Type", "video/x-flv");
        test::PaceOptions pace;
        pace.burstMs = kBufferedMs;
        test::servePaced(response, *pieces, pace);
    });
    server_.route("/archive.flv", [pieces](test::HttpResponse& response) {
        std::vector<test::TimedBytes> recorded;
        std::copy_if(pieces->begin(), pieces->end(), std::back_inserter(recorded),
                     [](const test::TimedBytes& piece) { return piece.ms < kRecordedMs; });
        response.header("Content-Type", "video/x-flv");
        test::PaceOptions pace;
        pace.speed = 2;
        test::servePaced(response, recorded, pace);
    });
}

QString Camera::url() const {
    return QString::fromStdString(server_.url("/live.flv"));
}

QString Camera::archiveUrl() const {
    return QString::fromStdString(server_.url("/archive.flv"));
}

} // namespace mediaworker::demo
