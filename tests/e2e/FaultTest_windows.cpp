#include "Session.h"

#include "support/servers/HttpServer.h"
#include "support/servers/Pacing.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <ostream>
#include <string>
#include <tuple>
#include <utility>

#include <windows.h>

#include <tlhelp32.h>

namespace mediaworker::test {
namespace {

using namespace std::chrono_literals;

/// A process whose threads are made to call other functions.
class Victim {
public:
    explicit Victim(qint64 pid)
        : pid_(static_cast<DWORD>(pid)), process_(OpenProcess(PROCESS_ALL_ACCESS, FALSE, pid_)) {}
    Victim(const Victim&) = delete;
    Victim& operator=(const Victim&) = delete;
    ~Victim() { CloseHandle(process_); }

    /// Loads our library over there.
    [[nodiscard]] bool load(const std::wstring& library) const {
        const std::size_t bytes = (library.size() + 1) * sizeof(wchar_t);
        void* const name = VirtualAllocEx(process_, nullptr, bytes, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE);
        const auto loader = toAddress<LPTHREAD_START_ROUTINE>(addressOf(L"kernel32.dll", "LoadLibraryW"));
        if (name == nullptr || loader == nullptr ||
            WriteProcessMemory(process_, name, library.c_str(), bytes, nullptr) == 0) {
            return false;
        }
        HANDLE thread = CreateRemoteThread(process_, nullptr, 0, loader, name, 0, nullptr);
        DWORD module = 0; // the lower half of its address
        const bool isLoaded = thread != nullptr && WaitForSingleObject(thread, 10'000) == WAIT_OBJECT_0 &&
                              GetExitCodeThread(thread, &module) != 0 && module != 0;
        CloseHandle(thread);
        return isLoaded;
    }

    /// Where a function of a library, which this process has loaded as well, is over there; 0 if it is not.
    [[nodiscard]] std::uintptr_t addressOf(const wchar_t* library, const char* function) const {
        const HMODULE ours = GetModuleHandleW(library);
        const auto place = reinterpret_cast<std::uintptr_t>(GetProcAddress(ours, function));
        HANDLE list = CreateToolhelp32Snapshot(TH32CS_SNAPMODULE, pid_);
        MODULEENTRY32W module{};
        module.dwSize = sizeof module;
        std::uintptr_t result = 0;
        for (BOOL more = Module32FirstW(list, &module); more != 0; more = Module32NextW(list, &module)) {
            if (lstrcmpiW(module.szModule, library) == 0) {
                result = reinterpret_cast<std::uintptr_t>(module.modBaseAddr) + place -
                         reinterpret_cast<std::uintptr_t>(ours);
            }
        }
        CloseHandle(list);
        return place != 0 ? result : 0;
    }

    /// The thread goes on with this function as soon as it waits for something. An empty name is the main
    /// thread.
    ///
    /// A wait ends in a function of the system that has nothing on the stack but the address it returns to.
    /// The other function takes its place: it finds the stack as if it had been called, and so can be
    /// unwound.
    [[nodiscard]] bool call(const std::wstring& threadName, std::uintptr_t function) const {
        HANDLE thread = find(threadName);
        const HMODULE stubs[] = {GetModuleHandleW(L"ntdll.dll"), GetModuleHandleW(L"win32u.dll")};
        bool isDone = false;
        for (int attempt = 0; thread != nullptr && !isDone && attempt < 1000; ++attempt) {
            SuspendThread(thread);
            alignas(16) CONTEXT context{};
            context.ContextFlags = CONTEXT_FULL;
            HMODULE module = nullptr;
            if (GetThreadContext(thread, &context) != 0 &&
                GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS |
                                       GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                                   toAddress<LPCWSTR>(context.Rip), &module) != 0 &&
                std::ranges::count(stubs, module) == 1 && context.Rsp % 16 == 8) {
                context.Rip = function;
                isDone = SetThreadContext(thread, &context) != 0;
            }
            ResumeThread(thread);
            SwitchToThread();
        }
        CloseHandle(thread);
        return isDone;
    }

private:
    template <class T>
    static T toAddress(std::uintptr_t value) {
        return reinterpret_cast<T>(value); // NOLINT(performance-no-int-to-ptr): it is one of another process
    }

    [[nodiscard]] HANDLE find(const std::wstring& name) const {
        using GetDescription = HRESULT(WINAPI*)(HANDLE, PWSTR*);
        const auto describe = reinterpret_cast<GetDescription>(reinterpret_cast<void*>(
            GetProcAddress(GetModuleHandleW(L"kernelbase.dll"), "GetThreadDescription")));
        HANDLE found = nullptr;
        HANDLE list = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
        THREADENTRY32 entry{};
        entry.dwSize = sizeof entry;
        for (BOOL more = Thread32First(list, &entry); more != 0 && found == nullptr;
             more = Thread32Next(list, &entry)) {
            if (entry.th32OwnerProcessID != pid_) {
                continue;
            }
            HANDLE thread = OpenThread(THREAD_ALL_ACCESS, FALSE, entry.th32ThreadID);
            PWSTR text = nullptr;
            // The main thread is the first one of the list.
            if (name.empty() || (describe != nullptr && describe(thread, &text) >= 0 && text == name)) {
                found = thread;
            } else {
                CloseHandle(thread);
            }
            LocalFree(text);
        }
        CloseHandle(list);
        return found;
    }

    DWORD pid_;
    HANDLE process_;
};

struct Fault {
    const char* name;
    const char* function; ///< of the library

    friend void PrintTo(const Fault& fault, std::ostream* out) { *out << fault.name; }
};

const Fault kFaults[] = {{"AccessViolation", "accessViolation"},
                         {"IllegalInstruction", "illegalInstruction"},
                         {"StackOverflow", "stackOverflow"},
                         {"UncaughtException", "uncaughtException"},
                         {"Abort", "callAbort"}};

struct Thread {
    const char* name;
    const wchar_t* systemName;

    friend void PrintTo(const Thread& thread, std::ostream* out) { *out << thread.name; }
};

const Thread kThreads[] = {
    {"Main", L""}, {"Link", L"link"}, {"Decoder", L"video decoder"}, {"Output", L"video output"}};

class FaultIn : public testing::TestWithParam<std::tuple<Thread, Fault>> {};

TEST_P(FaultIn, EndsTheWorkerWithOne) {
    const auto& [thread, fault] = GetParam();
    ClipSpec spec;
    spec.frames = 250;
    HttpServer server;
    server.route("/live.flv", pacedHandler(makeFlv(encode(spec)), {.burstMs = 1500}));
    Session session;
    session.start(server.url("/live.flv"));
    ASSERT_TRUE(session.waitForFrames(3)) << session.logText();
    const Victim worker(session.worker().processId());
    const std::wstring library = L"" FAULTS_LIBRARY;
    ASSERT_NE(LoadLibraryW(library.c_str()), nullptr);
    ASSERT_TRUE(worker.load(library));
    const std::wstring libraryName = library.substr(library.find_last_of(L"/\\") + 1);
    const std::uintptr_t function = worker.addressOf(libraryName.c_str(), fault.function);
    ASSERT_NE(function, 0U);
    ASSERT_TRUE(worker.call(thread.systemName, function));
    const auto begin = Clock::now();
    EXPECT_EQ(session.waitForExit(), 1) << session.logText();
    EXPECT_LT(Clock::now() - begin, 3s * kSlowness);
}

INSTANTIATE_TEST_SUITE_P(Threads, FaultIn,
                         testing::Combine(testing::ValuesIn(kThreads), testing::ValuesIn(kFaults)),
                         [](const auto& instance) {
                             return std::string(std::get<0>(instance.param).name) +
                                    std::get<1>(instance.param).name;
                         });

} // namespace
} // namespace mediaworker::test
