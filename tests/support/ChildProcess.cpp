#include "support/ChildProcess.h"

#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>
#include <string_view>
#include <system_error>

namespace mediaworker::test {

std::string runCommand(const std::vector<std::string>& command,
                       const std::vector<std::pair<std::string, std::string>>& environment) {
    const TemporaryFolder folder;
    ChildProcess process(
        {.command = command, .environment = environment, .output = folder / "out", .errors = folder / "err"});
    const int status = process.wait();
    if (status != 0) {
        std::string line;
        for (const std::string& word : command) {
            line += word + " ";
        }
        throw std::runtime_error(line + "ended with status " + std::to_string(status) + ": " +
                                 readFile(folder / "err"));
    }
    return readFile(folder / "out");
}

TemporaryFolder::TemporaryFolder() {
    std::random_device random;
    do {
        path_ = std::filesystem::temp_directory_path() / ("mediaworker-test-" + std::to_string(random()));
    } while (!std::filesystem::create_directory(path_)); // throws when it is not there after all
    std::filesystem::permissions(path_, std::filesystem::perms::owner_all);
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

namespace {

std::string read(const std::filesystem::path& path, std::ios::openmode mode) {
    std::ifstream in(path, mode);
    if (!in) {
        throw std::runtime_error("cannot read " + path.string());
    }
    return {std::istreambuf_iterator<char>(in), {}};
}

} // namespace

std::string readFile(const std::filesystem::path& path) {
    return read(path, std::ios::in | std::ios::binary);
}

std::string readText(const std::filesystem::path& path) {
    return read(path, std::ios::in);
}

void writeFile(const std::filesystem::path& path, std::string_view text) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out.write(text.data(), static_cast<std::streamsize>(text.size())) || !out.flush()) {
        throw std::runtime_error("cannot write " + path.string());
    }
}

} // namespace mediaworker::test
