#include "support/ChildProcess.h"

#include "support/Descriptor.h"

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <thread>

#include <csignal>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace mediaworker::test {
namespace {

int checked(int result, const char* what) {
    if (result < 0) {
        throw std::system_error(errno, std::generic_category(), what);
    }
    return result;
}

int openForOutput(const std::filesystem::path& path) {
    const char* name = path.empty() ? "/dev/null" : path.c_str();
    return checked(::open(name, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600), name);
}

std::vector<std::string> mergedEnvironment(const std::vector<std::pair<std::string, std::string>>& added) {
    std::vector<std::string> result;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string_view text(*entry);
        bool replaced = false;
        for (const auto& [name, value] : added) {
            replaced = replaced || text.starts_with(name + "=");
        }
        if (!replaced) {
            result.emplace_back(text);
        }
    }
    for (const auto& [name, value] : added) {
        result.push_back(name + "=" + value);
    }
    return result;
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> result;
    for (std::string& text : texts) {
        result.push_back(text.data());
    }
    result.push_back(nullptr);
    return result;
}

} // namespace

ChildProcess::ChildProcess(const Options& options) {
    // Between fork and exec only calls that are safe in a signal handler: all else is prepared here.
    std::vector<std::string> arguments = options.command;
    std::vector<std::string> variables = mergedEnvironment(options.environment);
    const std::vector<char*> argv = pointers(arguments);
    const std::vector<char*> envp = pointers(variables);
    const Descriptor output(openForOutput(options.output));
    const Descriptor errors(options.errors.empty() ? -1 : openForOutput(options.errors));
    // A socket, since a write to a program that has ended must not raise SIGPIPE here.
    int pair[2] = {-1, -1};
    if (options.hasInput) {
        checked(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair), "socketpair");
    } else {
        pair[1] = checked(::open("/dev/null", O_RDONLY | O_CLOEXEC), "/dev/null");
    }
    Descriptor ourEnd(pair[0]);
    const Descriptor childEnd(pair[1]);
    int report[2] = {-1, -1};
    checked(::pipe2(report, O_CLOEXEC), "pipe2");
    const Descriptor reportRead(report[0]);
    Descriptor reportWrite(report[1]);

    const pid_t self = ::getpid();
    pid_ = checked(::fork(), "fork");
    if (pid_ == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (::getppid() != self) {
            ::_exit(127);
        }
        ::signal(SIGPIPE, SIG_DFL);
        ::dup2(childEnd.get(), STDIN_FILENO);
        ::dup2(output.get(), STDOUT_FILENO);
        if (errors.get() >= 0) {
            ::dup2(errors.get(), STDERR_FILENO);
        }
        ::execvpe(argv[0], argv.data(), envp.data());
        const int code = errno;
        static_cast<void>(!::write(reportWrite.get(), &code, sizeof code));
        ::_exit(127);
    }
    input_ = ourEnd.release();
    ::close(reportWrite.release());
    int code = 0;
    if (::read(reportRead.get(), &code, sizeof code) == sizeof code) {
        static_cast<void>(wait());
        closeInput();
        throw std::system_error(code, std::generic_category(), options.command.at(0));
    }
}

ChildProcess::~ChildProcess() {
    closeInput();
    if (!status_) {
        ::kill(pid_, SIGKILL);
        static_cast<void>(wait());
    }
}

bool ChildProcess::write(std::span<const std::uint8_t> bytes) {
    while (!bytes.empty()) {
        const ssize_t sent = ::send(input_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) {
            continue;
        }
        if (sent <= 0) {
            return false;
        }
        bytes = bytes.subspan(static_cast<std::size_t>(sent));
    }
    return true;
}

void ChildProcess::closeInput() {
    if (input_ >= 0) {
        ::close(input_);
        input_ = -1;
    }
}

int ChildProcess::wait() {
    while (!status_) {
        int status = 0;
        if (::waitpid(pid_, &status, 0) == pid_) {
            status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        } else if (errno != EINTR) {
            status_ = -1;
        }
    }
    return *status_;
}

std::optional<int> ChildProcess::waitFor(std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!status_) {
        int status = 0;
        const pid_t ended = ::waitpid(pid_, &status, WNOHANG);
        if (ended == pid_) {
            status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        } else if (std::chrono::steady_clock::now() >= deadline) {
            return std::nullopt;
        } else {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    }
    return status_;
}

void ChildProcess::signal(int number) {
    if (!status_) {
        ::kill(pid_, number);
    }
}

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
    std::string name = (std::filesystem::temp_directory_path() / "mediaworker-test-XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr) {
        throw std::system_error(errno, std::generic_category(), name);
    }
    path_ = name;
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::string readFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw std::runtime_error("cannot read " + path.string());
    }
    return {std::istreambuf_iterator<char>(in), {}};
}

void writeFile(const std::filesystem::path& path, std::string_view text) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out.write(text.data(), static_cast<std::streamsize>(text.size())) || !out.flush()) {
        throw std::runtime_error("cannot write " + path.string());
    }
}

} // namespace mediaworker::test
