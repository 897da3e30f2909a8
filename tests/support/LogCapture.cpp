#include "support/LogCapture.h"

#include <algorithm>
#include <sstream>

namespace mediaworker::test {

LogCapture::LogCapture() : previous_(base::exchangeLogSink(this)) {}

LogCapture::~LogCapture() {
    base::exchangeLogSink(previous_);
}

void LogCapture::write(std::string_view text) {
    const std::lock_guard lock(mutex_);
    text_ += text;
}

std::vector<std::string> LogCapture::lines() const {
    const std::lock_guard lock(mutex_);
    std::vector<std::string> result;
    std::istringstream in(text_);
    for (std::string line; std::getline(in, line);) {
        result.push_back(line);
    }
    return result;
}

int LogCapture::count(std::string_view line) const {
    const auto all = lines();
    return static_cast<int>(std::count(all.begin(), all.end(), line));
}

void LogCapture::clear() {
    const std::lock_guard lock(mutex_);
    text_.clear();
}

} // namespace mediaworker::test
