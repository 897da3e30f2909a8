#pragma once

#include "support/media/FlvStream.h"
#include "support/servers/HttpServer.h"

#include <cstdint>
#include <vector>

namespace mediaworker::test {

struct PaceOptions {
    double speed = 1;         ///< of real time; 0: as fast as the client reads
    std::int64_t burstMs = 0; ///< of the stream, sent at once at the begin: what a server has buffered
    bool staysOpen = false;   ///< after the last piece, until the client leaves
};

/// Sends a stream the way a camera server does: a burst, then every piece at its time, measured from the
/// call. One send per piece, so the records of the exchange are those of the pieces. False when the client
/// left.
bool servePaced(HttpResponse& response, const std::vector<TimedBytes>& pieces,
                const PaceOptions& options = {});

/// A handler that does that for every request, with a copy of the pieces.
[[nodiscard]] HttpServer::Handler pacedHandler(std::vector<TimedBytes> pieces, PaceOptions options = {});

} // namespace mediaworker::test
