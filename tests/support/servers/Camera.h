#pragma once

#include "support/media/Clip.h"
#include "support/servers/HttpServer.h"

#include <atomic>
#include <string>

namespace mediaworker::test {

/// A live stream of numbered pictures, a minute long, whose server goes away and comes back as a test wants.
class Camera {
public:
    explicit Camera(const ClipSpec& spec = {});

    [[nodiscard]] std::string url() const { return server_.url("/camera.flv"); }
    /// Ends what is being sent, and answers with 404 from then on; or it is as at first.
    void setThere(bool isThere) { isThere_ = isThere; }
    /// Requests so far.
    [[nodiscard]] int requests() const { return requests_; }

private:
    std::atomic<bool> isThere_{true};
    std::atomic<int> requests_{0};
    HttpServer server_; ///< last: its threads use the others
};

} // namespace mediaworker::test
