#pragma once

#include "tools/ctl/Report.h"

#include <QString>

#include <chrono>

namespace mediaworker::ctl {

/// Prints what is told about a job: on standard output as text or as JSON, problems on standard error.
/// Progress is one line that is written over again and again where a person looks, and lines elsewhere.
/// Belongs to the main thread.
class Console {
public:
    explicit Console(bool isJson);

    /// How often progress is worth a line.
    [[nodiscard]] std::chrono::milliseconds progressInterval() const;

    void report(const Event& event);
    void complain(const QString& problem);
    /// A line of the worker's, on standard error.
    void log(const QString& line);

    /// Nobody reads any more.
    [[nodiscard]] bool isBroken() const noexcept { return isBroken_; }

private:
    void print(const QByteArray& text);
    void endOpenLine();

    const bool isJson_;
    const bool isLive_;      ///< progress is written over
    int openLineLength_ = 0; ///< of the progress that the cursor stands behind
    bool isBroken_ = false;
};

} // namespace mediaworker::ctl
