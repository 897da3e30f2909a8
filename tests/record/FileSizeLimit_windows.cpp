#include "FileSizeLimit.h"

namespace mediaworker::test {

struct FileSizeLimit::Before {};

FileSizeLimit::FileSizeLimit(std::uint64_t /*bytes*/) {}

FileSizeLimit::~FileSizeLimit() = default;

std::optional<std::string> FileSizeLimit::obstacle() {
    return "Windows has no limit for the size of a process's files";
}

} // namespace mediaworker::test
