#include "Measures.h"
#include "ProcessCpu.h"

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

/// The system tells the sum of all children that have ended: only one may run at a time.
struct ProcessCpu::System {
    double secondsBefore = childCpuSeconds();
};

ProcessCpu::ProcessCpu(std::int64_t /*pid*/) : system_(std::make_unique<System>()) {}
ProcessCpu::~ProcessCpu() = default;

double ProcessCpu::seconds() const {
    return childCpuSeconds() - system_->secondsBefore;
}

} // namespace mediaworker::bench
