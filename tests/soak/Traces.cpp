#include "Traces.h"

#include "support/Platform.h"

#include <algorithm>
#include <iterator>

namespace mediaworker::soak {

namespace platform = test::platform;

Traces::Traces(const std::filesystem::path& temporary)
    : temporary_(temporary), seesSemaphores_(platform::hideSemaphoresOfOthers()) {}

std::size_t Traces::files() const {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(temporary_),
                                                  std::filesystem::directory_iterator()));
}

std::size_t Traces::semaphores() const {
    if (!seesSemaphores_) {
        return 0;
    }
    const std::string list = platform::semaphores();
    return static_cast<std::size_t>(std::count(list.begin(), list.end(), '\n'));
}

std::size_t Traces::processes() const {
    return platform::childProcesses().size();
}

std::string Traces::text() const {
    return std::to_string(files()) + " files, " +
           (seesSemaphores_ ? std::to_string(semaphores()) : "an unknown number of") + " semaphores, " +
           std::to_string(processes()) + " processes";
}

} // namespace mediaworker::soak
