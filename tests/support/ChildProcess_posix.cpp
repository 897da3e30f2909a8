#include "support/ChildProcess.h"

#include "support/Descriptor.h"

#include <cerrno>
#include <cstdlib>
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

struct ChildProcess::State {
    pid_t pid = -1;
    int input = -1; ///< our end of a socket pair; -1 when closed
    std::optional<int> status;
};

ChildProcess::ChildProcess(const Options& options) : state_(std::make_unique<State>()) {
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
    state_->pid = checked(::fork(), "fork");
    if (state_->pid == 0) {
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
    state_->input = ourEnd.release();
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
    if (!state_->status) {
        kill();
        static_cast<void>(wait());
    }
}

bool ChildProcess::write(std::span<const std::uint8_t> bytes) {
    while (!bytes.empty()) {
        const ssize_t sent = ::send(state_->input, bytes.data(), bytes.size(), MSG_NOSIGNAL);
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
    if (state_->input >= 0) {
        ::close(state_->input);
        state_->input = -1;
    }
}

int ChildProcess::wait() {
    while (!state_->status) {
        int status = 0;
        if (::waitpid(state_->pid, &status, 0) == state_->pid) {
            state_->status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        } else if (errno != EINTR) {
            state_->status = -1;
        }
    }
    return *state_->status;
}

std::optional<int> ChildProcess::waitFor(std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!state_->status) {
        int status = 0;
        const pid_t ended = ::waitpid(state_->pid, &status, WNOHANG);
        if (ended == state_->pid) {
            state_->status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        } else if (std::chrono::steady_clock::now() >= deadline) {
            return std::nullopt;
        } else {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    }
    return state_->status;
}

void ChildProcess::kill() {
    signal(SIGKILL);
}

std::int64_t ChildProcess::id() const noexcept {
    return state_->pid;
}

void ChildProcess::signal(int number) {
    if (!state_->status) {
        ::kill(state_->pid, number);
    }
}

} // namespace mediaworker::test
