#pragma once

#include "Session.h"
#include "support/servers/PulseSink.h"

#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace mediaworker::test {

/// What a worker is asked for, by its environment.
enum class Reading {
    Strict,   ///< nothing: as parents of old start it
    Standard, ///< the reading of what common programs write, with sound in step
};

/// The value of MEDIAWORKER_OPTIONS.
[[nodiscard]] const char* optionsOf(Reading reading);

/// One worker that shows a film, with a sound device of its own.
class Spectator {
public:
    Spectator(Reading reading, bool hasSound);

    /// The sound is wanted as soon as there is something to be seen, or at once where nothing ever will.
    void start(const std::string& url, bool hasVideo);

    [[nodiscard]] Session& session() { return *session_; }

    /// In words: pictures that are torn, or older than the one before. When a message is read, the next
    /// picture may be there already, or on a busy machine a later one; never an older one.
    [[nodiscard]] std::vector<std::string> wrongPictures() const;
    /// For how long the film's tone has come out so far. Ends the recording; without a device there is none.
    [[nodiscard]] std::chrono::milliseconds heard();

private:
    void recordAtOnce();

    std::unique_ptr<PulseSink> sink_;
    std::unique_ptr<Session> session_;
    bool isSoundWanted_ = false;
};

} // namespace mediaworker::test
