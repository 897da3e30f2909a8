#include "Measures.h"

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

} // namespace mediaworker::bench
