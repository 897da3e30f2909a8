#include "Measures.h"

#include <fstream>
#include <sstream>

#include <sys/resource.h>

namespace mediaworker::bench {

double childCpuSeconds() {
    rusage usage{};
    getrusage(RUSAGE_CHILDREN, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

double memoryMb(long pid, const std::string& field) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with(field + ":")) {
            std::istringstream value(line.substr(field.size() + 1));
            double kibibytes = 0;
            value >> kibibytes;
            return kibibytes * 1024 / 1e6;
        }
    }
    return 0;
}

} // namespace mediaworker::bench
