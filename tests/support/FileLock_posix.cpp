#include "support/FileLock.h"

#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace mediaworker::test {

FileLock::FileLock(const std::filesystem::path& path)
    : file_(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {
    if (file_ < 0) {
        throw std::system_error(errno, std::generic_category(), path.string());
    }
    while (::flock(static_cast<int>(file_), LOCK_EX) != 0 && errno == EINTR) {
    }
}

FileLock::~FileLock() {
    ::close(static_cast<int>(file_));
}

} // namespace mediaworker::test
