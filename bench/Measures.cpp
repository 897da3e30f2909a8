#include "Measures.h"

#include <fstream>
#include <sstream>

namespace mediaworker::bench {

double memoryMb(std::int64_t pid, const std::string& field) {
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

PeakMemory::PeakMemory(std::int64_t pid)
    : thread_([this, pid] {
          const auto program = [](const std::string& process) {
              std::string name;
              std::getline(std::ifstream("/proc/" + process + "/comm"), name);
              return name;
          };
          const std::string own = program("self");
          while (!stopping_) {
              if (program(std::to_string(pid)) != own) {
                  mb_ = std::max(mb_.load(), memoryMb(pid, "VmHWM"));
              }
              std::this_thread::sleep_for(std::chrono::milliseconds(2));
          }
      }) {}

PeakMemory::~PeakMemory() {
    stopping_ = true;
    thread_.join();
}

} // namespace mediaworker::bench
