#include "tools/interruption/Interruption.h"

#include <QSocketNotifier>

#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

namespace mediaworker {

namespace {

constexpr std::array kSignals = {SIGINT, SIGTERM, SIGHUP};

// The way out of the signal handler, which may do next to nothing.
int wakeUpWrite = -1;

extern "C" void wakeUp(int /*signal*/) {
    const int error = errno;
    // A full pipe has woken us already.
    static_cast<void>(!::write(wakeUpWrite, "", 1));
    errno = error;
}

} // namespace

struct Interruption::Platform {
    int readEnd = -1;
    std::unique_ptr<QSocketNotifier> notifier;
    std::array<struct sigaction, kSignals.size()> before{};
};

Interruption::Interruption() : platform_(std::make_unique<Platform>()) {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
        throw std::system_error(errno, std::generic_category(), "pipe");
    }
    platform_->readEnd = ends[0];
    wakeUpWrite = ends[1];
    platform_->notifier = std::make_unique<QSocketNotifier>(ends[0], QSocketNotifier::Read);
    connect(platform_->notifier.get(), &QSocketNotifier::activated, this, [this] {
        std::array<char, 64> bytes{};
        while (::read(platform_->readEnd, bytes.data(), bytes.size()) > 0) {
        }
        hear();
    });
    struct sigaction action {};
    action.sa_handler = wakeUp;
    action.sa_flags = SA_RESTART;
    ::sigemptyset(&action.sa_mask);
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
        ::sigaction(kSignals[i], nullptr, &platform_->before[i]);
        // nohup and shells without job control have their children ignore some.
        if (platform_->before[i].sa_handler != SIG_IGN) {
            ::sigaction(kSignals[i], &action, nullptr);
        }
    }
}

Interruption::~Interruption() {
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
        ::sigaction(kSignals[i], &platform_->before[i], nullptr);
    }
    platform_->notifier.reset();
    ::close(platform_->readEnd);
    ::close(wakeUpWrite);
    wakeUpWrite = -1;
}

// A child inherits the mask of the thread that starts it.
struct Interruption::Shield::State {
    sigset_t before{};
};

Interruption::Shield::Shield() : state_(std::make_unique<State>()) {
    sigset_t blocked;
    ::sigemptyset(&blocked);
    ::sigaddset(&blocked, SIGINT);
    ::pthread_sigmask(SIG_BLOCK, &blocked, &state_->before);
}

Interruption::Shield::~Shield() {
    ::pthread_sigmask(SIG_SETMASK, &state_->before, nullptr);
}

} // namespace mediaworker
