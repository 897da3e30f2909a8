#pragma once

#include "support/ChildProcess.h"
#include "support/media/FlvStream.h"
#include "support/servers/HttpServer.h"

#include <filesystem>
#include <string>
#include <vector>

namespace mediaworker::test {

/// Which of a worker's calls fails: the `at`-th of its kind since the begin of its main function.
struct Fault {
    const char* kind = "memory"; ///< or "thread", or "file": the file that an export writes
    int at = 1;
    int error = 0; ///< errno of a file's call
};

/// What the worker is started for.
enum class Job { Stream, LocalFile, Export, SafeExport };

/// What became of it.
struct Outcome {
    bool struck = false; ///< the call came, and failed
    bool ended = false;  ///< within the time that is given
    int code = -1;       ///< -1: by a signal
    std::string problem; ///< empty: it ended as a worker may
    std::string log;
};

/// Real workers with a faulty system, one after the other, each with a real server and parent. The streams
/// are short ones with sound, so that all of the program takes part.
class FaultyRuns {
public:
    FaultyRuns();

    [[nodiscard]] Outcome run(Job job, const Fault& fault);

private:
    [[nodiscard]] std::string problemOf(Job job, const Outcome& outcome,
                                        const std::filesystem::path& file) const;

    TemporaryFolder folder_;
    HttpServer server_;
    std::filesystem::path clipFile_;
    std::size_t pictures_ = 0;
};

} // namespace mediaworker::test
