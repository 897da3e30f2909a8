#include "support/ChildProcess.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <thread>

#include <windows.h>

namespace mediaworker::test {
namespace {

[[noreturn]] void fail(const std::string& what) {
    throw std::system_error(static_cast<int>(GetLastError()), std::system_category(), what);
}

/// A handle with one owner.
class Handle {
public:
    explicit Handle(HANDLE value = nullptr) noexcept
        : value_(value == INVALID_HANDLE_VALUE ? nullptr : value) {}
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    Handle(Handle&& other) noexcept : value_(std::exchange(other.value_, nullptr)) {}
    Handle& operator=(Handle&& other) noexcept {
        std::swap(value_, other.value_);
        return *this;
    }
    ~Handle() { reset(); }

    [[nodiscard]] HANDLE get() const noexcept { return value_; }
    void reset() noexcept {
        if (value_ != nullptr) {
            CloseHandle(std::exchange(value_, nullptr));
        }
    }

private:
    HANDLE value_;
};

std::wstring wide(std::string_view utf8) {
    const int length =
        MultiByteToWideChar(CP_UTF8, 0, utf8.data(), static_cast<int>(utf8.size()), nullptr, 0);
    std::wstring result(static_cast<std::size_t>(length), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, utf8.data(), static_cast<int>(utf8.size()), result.data(), length);
    return result;
}

/// By the rules of the C run-time library, which takes the line apart.
std::string quoted(const std::string& word) {
    std::string result(1, '"');
    std::size_t backslashes = 0;
    for (const char c : word) {
        if (c == '"') {
            result.append(backslashes + 1, '\\');
        }
        backslashes = c == '\\' ? backslashes + 1 : 0;
        result += c;
    }
    result.append(backslashes, '\\');
    return result + '"';
}

std::wstring commandLine(const std::vector<std::string>& command) {
    std::string line;
    for (const std::string& word : command) {
        if (!line.empty()) {
            line += ' ';
        }
        line += quoted(word);
    }
    return wide(line);
}

std::wstring mergedEnvironment(const std::vector<std::pair<std::string, std::string>>& added) {
    std::wstring result;
    wchar_t* const own = GetEnvironmentStringsW();
    for (const wchar_t* entry = own; *entry != L'\0'; entry += std::wstring_view(entry).size() + 1) {
        const std::wstring_view text(entry);
        const bool replaced = std::any_of(added.begin(), added.end(), [&](const auto& variable) {
            return text.starts_with(wide(variable.first).append(L"="));
        });
        if (!replaced) {
            result.append(text).push_back(L'\0');
        }
    }
    FreeEnvironmentStringsW(own);
    for (const auto& [name, value] : added) {
        result.append(wide(std::string(name).append("=").append(value))).push_back(L'\0');
    }
    result.push_back(L'\0');
    return result;
}

HANDLE openInheritable(const std::filesystem::path& path, DWORD access, DWORD creation) {
    SECURITY_ATTRIBUTES inherited{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
    HANDLE file = CreateFileW(path.empty() ? L"NUL" : path.c_str(), access,
                              FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, &inherited, creation,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        fail(path.string());
    }
    return file;
}

/// A program of the Linux system around Wine: it has no ending and is to be searched for.
bool isOfTheSystemAround(const std::string& program) {
    return program.find_first_of("./\\") == std::string::npos;
}

/// The same file as the Linux system knows it, when it looks like the path of one.
std::string pathAround(const std::string& word) {
    if (word.size() < 3 || word[1] != ':' || (word[2] != '\\' && word[2] != '/') ||
        std::isalpha(static_cast<unsigned char>(word[0])) == 0) {
        return word;
    }
    std::string rest = word.substr(2);
    std::replace(rest.begin(), rest.end(), '\\', '/');
    const char* const prefix = std::getenv("WINEPREFIX");
    std::string path(prefix != nullptr ? prefix : "");
    path.append("/dosdevices/");
    path.push_back(static_cast<char>(std::tolower(static_cast<unsigned char>(word[0]))));
    path.push_back(':');
    return path.append(rest);
}

std::string shellWord(const std::string& text) {
    std::string result(1, '\'');
    for (const char c : text) {
        if (c == '\'') {
            result.append("'\\'");
        }
        result.push_back(c);
    }
    result.push_back('\'');
    return result;
}

std::string shellPath(const std::filesystem::path& path) {
    return shellWord(pathAround(std::filesystem::absolute(path).string()));
}

} // namespace

struct ChildProcess::State {
    Options options;
    std::optional<int> status;

    // A Windows program.
    Handle job;
    Handle process;
    Handle input;
    DWORD id = 0;

    // A Linux program: Wine starts it, but says nothing about it afterwards.
    std::unique_ptr<TemporaryFolder> folder; ///< set for such a one
    std::string pendingInput;
    bool isStarted = false;

    void startWindowsProgram();
    void startLinuxProgram();
};

void ChildProcess::State::startWindowsProgram() {
    job = Handle(CreateJobObjectW(nullptr, nullptr));
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    SetInformationJobObject(job.get(), JobObjectExtendedLimitInformation, &limits, sizeof limits);

    Handle childInput;
    if (options.hasInput) {
        SECURITY_ATTRIBUTES inherited{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
        HANDLE readEnd = nullptr;
        HANDLE writeEnd = nullptr;
        if (CreatePipe(&readEnd, &writeEnd, &inherited, 0) == 0) {
            fail("CreatePipe");
        }
        SetHandleInformation(writeEnd, HANDLE_FLAG_INHERIT, 0);
        childInput = Handle(readEnd);
        input = Handle(writeEnd);
    } else {
        childInput = Handle(openInheritable({}, GENERIC_READ, OPEN_EXISTING));
    }
    const Handle output(openInheritable(options.output, GENERIC_WRITE,
                                        options.output.empty() ? OPEN_EXISTING : CREATE_ALWAYS));
    Handle errors;
    HANDLE errorHandle = GetStdHandle(STD_ERROR_HANDLE);
    if (!options.errors.empty()) {
        errors = Handle(openInheritable(options.errors, GENERIC_WRITE, CREATE_ALWAYS));
        errorHandle = errors.get();
    }

    // Nothing else that happens to be inheritable in a process with several threads.
    std::vector<HANDLE> handles = {childInput.get(), output.get()};
    if (errorHandle != nullptr && errorHandle != INVALID_HANDLE_VALUE) {
        SetHandleInformation(errorHandle, HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT);
        handles.push_back(errorHandle);
    }
    SIZE_T bytes = 0;
    InitializeProcThreadAttributeList(nullptr, 1, 0, &bytes);
    std::vector<char> buffer(bytes);
    STARTUPINFOEXW startup{};
    startup.lpAttributeList = reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(buffer.data());
    InitializeProcThreadAttributeList(startup.lpAttributeList, 1, 0, &bytes);
    UpdateProcThreadAttribute(startup.lpAttributeList, 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST, handles.data(),
                              handles.size() * sizeof(HANDLE), nullptr, nullptr);
    startup.StartupInfo.cb = sizeof startup;
    startup.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
    startup.StartupInfo.hStdInput = childInput.get();
    startup.StartupInfo.hStdOutput = output.get();
    startup.StartupInfo.hStdError = errorHandle;
    std::wstring line = commandLine(options.command);
    std::wstring environment = mergedEnvironment(options.environment);
    PROCESS_INFORMATION started{};
    const BOOL done = CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE,
                                     CREATE_SUSPENDED | CREATE_UNICODE_ENVIRONMENT |
                                         EXTENDED_STARTUPINFO_PRESENT | CREATE_NO_WINDOW,
                                     environment.data(), nullptr, &startup.StartupInfo, &started);
    DeleteProcThreadAttributeList(startup.lpAttributeList);
    if (done == 0) {
        fail(options.command.at(0));
    }
    const Handle thread(started.hThread);
    process = Handle(started.hProcess);
    id = started.dwProcessId;
    AssignProcessToJobObject(job.get(), process.get());
    ResumeThread(thread.get());
}

void ChildProcess::State::startLinuxProgram() {
    isStarted = true;
    const std::filesystem::path script = *folder / "run";
    std::ostringstream text;
    text << "export PATH=/usr/local/bin:/usr/bin:/bin LC_ALL=C.UTF-8\n";
    for (const auto& [name, value] : options.environment) {
        text << "export " << name << '=' << shellWord(value) << '\n';
    }
    for (const std::string& word : options.command) {
        text << shellWord(pathAround(word)) << ' ';
    }
    const std::string nothing = "/dev/null";
    std::string source = nothing;
    if (options.hasInput) {
        writeFile(*folder / "in", pendingInput);
        pendingInput.clear();
        source = shellPath(*folder / "in");
    }
    text << '<' << source << " >" << (options.output.empty() ? nothing : shellPath(options.output)) << " 2>"
         << (options.errors.empty() ? nothing : shellPath(options.errors)) << " &\necho $! >"
         << shellPath(*folder / "pid") << "\nwait $! 2>" << nothing << "\necho $? >"
         << shellPath(*folder / "part") << "\nmv " << shellPath(*folder / "part") << ' '
         << shellPath(*folder / "status") << '\n';
    writeFile(script, text.str());

    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION started{};
    std::wstring line = commandLine({"Z:\\bin\\sh", pathAround(script.string())});
    if (CreateProcessW(L"Z:\\bin\\sh", line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                       &started) == 0) {
        fail("Z:\\bin\\sh");
    }
}

ChildProcess::ChildProcess(const Options& options) : state_(std::make_unique<State>()) {
    state_->options = options;
    if (!isOfTheSystemAround(options.command.at(0))) {
        state_->startWindowsProgram();
        return;
    }
    state_->folder = std::make_unique<TemporaryFolder>();
    if (!options.hasInput) {
        state_->startLinuxProgram();
    }
}

ChildProcess::~ChildProcess() {
    closeInput();
    kill();
    static_cast<void>(wait());
}

bool ChildProcess::write(std::span<const std::uint8_t> bytes) {
    if (state_->folder) {
        state_->pendingInput.append(reinterpret_cast<const char*>(bytes.data()), bytes.size());
        return true;
    }
    while (!bytes.empty()) {
        DWORD written = 0;
        if (WriteFile(state_->input.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written,
                      nullptr) == 0) {
            return false;
        }
        bytes = bytes.subspan(written);
    }
    return true;
}

void ChildProcess::closeInput() {
    state_->input.reset();
    if (state_->folder && !state_->isStarted) {
        state_->startLinuxProgram();
    }
}

int ChildProcess::wait() {
    return *waitFor(std::chrono::hours(1));
}

std::optional<int> ChildProcess::waitFor(std::chrono::milliseconds limit) {
    if (!state_->folder) {
        DWORD code = 0;
        if (!state_->status &&
            WaitForSingleObject(state_->process.get(), static_cast<DWORD>(limit.count())) == WAIT_OBJECT_0 &&
            GetExitCodeProcess(state_->process.get(), &code) != 0) {
            state_->status = static_cast<int>(code);
        }
        return state_->status;
    }
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!state_->status) {
        if (std::filesystem::exists(*state_->folder / "status")) {
            state_->status = std::stoi(readFile(*state_->folder / "status"));
        } else if (std::chrono::steady_clock::now() >= deadline) {
            break;
        } else {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }
    return state_->status;
}

void ChildProcess::signal(int /*number*/) {
    kill();
}

void ChildProcess::kill() {
    if (state_->status) {
        return;
    }
    if (!state_->folder) {
        TerminateProcess(state_->process.get(), 128 + 9);
        return;
    }
    if (waitFor(std::chrono::milliseconds(0))) {
        return;
    }
    runCommand({"sh", "-c", "kill -KILL $(cat \"$1\") || true", "sh", (*state_->folder / "pid").string()});
}

std::int64_t ChildProcess::id() const noexcept {
    return state_->id;
}

} // namespace mediaworker::test
