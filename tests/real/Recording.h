#pragma once

#include "Session.h"

#include <filesystem>

namespace mediaworker::test {

/// A worker that exports.
class Recording : public Session {
public:
    using Session::Session;

    /// Throws std::runtime_error when the worker cannot be started.
    void start(const std::string& url, const std::filesystem::path& output, int durationMs) {
        parent::ExportJob job;
        job.url = QString::fromStdString(url);
        job.outputPath = QString::fromStdString(output.string());
        job.durationMs = durationMs;
        if (!worker().start(job)) {
            throw std::runtime_error("the worker cannot be started: " + worker().errorString().toStdString());
        }
    }
};

} // namespace mediaworker::test
