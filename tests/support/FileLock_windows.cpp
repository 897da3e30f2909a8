#include "support/FileLock.h"

#include <system_error>

#include <windows.h>

namespace mediaworker::test {

FileLock::FileLock(const std::filesystem::path& path)
    : file_(reinterpret_cast<std::intptr_t>(CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE,
                                                        FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                                        OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr))) {
    const auto file = reinterpret_cast<HANDLE>(file_);
    OVERLAPPED place{};
    if (file == INVALID_HANDLE_VALUE || LockFileEx(file, LOCKFILE_EXCLUSIVE_LOCK, 0, 1, 0, &place) == 0) {
        throw std::system_error(static_cast<int>(GetLastError()), std::system_category(), path.string());
    }
}

FileLock::~FileLock() {
    CloseHandle(reinterpret_cast<HANDLE>(file_));
}

} // namespace mediaworker::test
