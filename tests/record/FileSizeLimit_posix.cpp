#include "FileSizeLimit.h"

#include <csignal>

#include <sys/resource.h>

namespace mediaworker::test {

struct FileSizeLimit::Before {
    void (*handler)(int) = nullptr;
    rlimit limit{};
};

FileSizeLimit::FileSizeLimit(std::uint64_t bytes) : before_(std::make_unique<Before>()) {
    before_->handler = std::signal(SIGXFSZ, SIG_IGN);
    ::getrlimit(RLIMIT_FSIZE, &before_->limit);
    const rlimit limited{bytes, before_->limit.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &limited);
}

FileSizeLimit::~FileSizeLimit() {
    ::setrlimit(RLIMIT_FSIZE, &before_->limit);
    std::signal(SIGXFSZ, before_->handler);
}

std::optional<std::string> FileSizeLimit::obstacle() {
    return std::nullopt;
}

} // namespace mediaworker::test
