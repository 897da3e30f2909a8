#pragma once

#include "base/Log.h"

#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace mediaworker::test {

/// Collects the process's log while it lives. One at a time. Thread-safe.
class LogCapture final : public base::LogSink {
public:
    LogCapture();
    ~LogCapture() override;

    void write(std::string_view text) override;

    /// Complete lines so far, without their newlines.
    [[nodiscard]] std::vector<std::string> lines() const;
    /// How many lines equal `line`.
    [[nodiscard]] int count(std::string_view line) const;
    [[nodiscard]] bool contains(std::string_view line) const { return count(line) > 0; }
    void clear();

private:
    base::LogSink* previous_;
    mutable std::mutex mutex_;
    std::string text_; ///< guarded by mutex_
};

} // namespace mediaworker::test
