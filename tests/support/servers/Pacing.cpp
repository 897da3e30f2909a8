#include "support/servers/Pacing.h"

#include <chrono>
#include <memory>
#include <utility>

namespace mediaworker::test {

bool servePaced(HttpResponse& response, const std::vector<TimedBytes>& pieces, const PaceOptions& options) {
    const auto begin = std::chrono::steady_clock::now();
    for (const TimedBytes& piece : pieces) {
        if (options.speed > 0 && piece.ms > options.burstMs) {
            const std::chrono::duration<double, std::milli> due(
                static_cast<double>(piece.ms - options.burstMs) / options.speed);
            if (!response.sleepUntil(begin + std::chrono::duration_cast<std::chrono::nanoseconds>(due))) {
                return false;
            }
        }
        if (!response.send(piece.bytes)) {
            return false;
        }
    }
    if (options.staysOpen) {
        response.waitForClientToLeave();
        return false;
    }
    return true;
}

HttpServer::Handler pacedHandler(std::vector<TimedBytes> pieces, PaceOptions options) {
    auto shared = std::make_shared<const std::vector<TimedBytes>>(std::move(pieces));
    return [shared, options](HttpResponse& response) {
        response.header("Content-Type", "video/x-flv");
        static_cast<void>(servePaced(response, *shared, options));
    };
}

} // namespace mediaworker::test
