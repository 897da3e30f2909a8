#include "Usage.h"

#include "support/ChildProcess.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <sstream>
#include <system_error>

namespace mediaworker::soak {
namespace {

constexpr double kWarmUpSeconds = 60;
constexpr double kShortestSeconds = 180;

template <class Value>
double median(std::vector<Usage>::const_iterator begin, std::vector<Usage>::const_iterator end,
              Value Usage::*what) {
    std::vector<double> values;
    std::transform(begin, end, std::back_inserter(values),
                   [&](const Usage& usage) { return static_cast<double>(usage.*what); });
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

} // namespace

Usage usageOf(std::int64_t pid, double seconds) {
    Usage usage;
    usage.seconds = seconds;
    const std::string folder = "/proc/" + std::to_string(pid);
    try {
        std::istringstream status(test::readFile(folder + "/status"));
        for (std::string line; std::getline(status, line);) {
            if (line.starts_with("VmRSS:")) {
                usage.memoryMb = static_cast<double>(std::stoll(line.substr(6))) * 1024 / 1e6;
            } else if (line.starts_with("Threads:")) {
                usage.threads = std::stoi(line.substr(8));
            }
        }
        usage.descriptors = static_cast<int>(std::distance(
            std::filesystem::directory_iterator(folder + "/fd"), std::filesystem::directory_iterator()));
    } catch (const std::exception&) {
        return {seconds};
    }
    return usage;
}

Growth growthOf(const std::vector<Usage>& usage) {
    if (usage.empty() || usage.back().seconds - usage.front().seconds < kShortestSeconds) {
        return {};
    }
    const double from = usage.front().seconds + kWarmUpSeconds;
    const double third = (usage.back().seconds - from) / 3;
    const auto after = [&](double seconds) {
        return std::find_if(usage.begin(), usage.end(),
                            [&](const Usage& one) { return one.seconds >= seconds; });
    };
    const auto begin = after(from);
    const auto firstEnd = after(from + third);
    const auto lastBegin = after(from + 2 * third);
    if (begin == firstEnd || lastBegin == usage.end()) {
        return {};
    }
    const auto rise = [&](auto what) {
        return median(lastBegin, usage.end(), what) - median(begin, firstEnd, what);
    };
    return {.hours = 2 * third / 3600,
            .memoryMb = rise(&Usage::memoryMb),
            .descriptors = rise(&Usage::descriptors),
            .threads = rise(&Usage::threads)};
}

std::string growthText(const Growth& growth, double Growth::*what) {
    if (growth.hours <= 0) {
        return "-";
    }
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%+.1f (%+.1f)", growth.*what / growth.hours, growth.*what);
    return text.data();
}

} // namespace mediaworker::soak
