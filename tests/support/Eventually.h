#pragma once

#include <QCoreApplication>
#include <QTimer>

#include <chrono>
#include <functional>

namespace mediaworker::test {

/// Lets events happen until it is so. False when the time is over first. For tests with a Qt application.
inline bool eventually(const std::function<bool()>& isDone,
                       std::chrono::milliseconds limit = std::chrono::seconds(30)) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    // A wake-up now and then, for conditions that no event announces.
    QTimer ticks;
    ticks.start(5);
    while (!isDone()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    return true;
}

} // namespace mediaworker::test
