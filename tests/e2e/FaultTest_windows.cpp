#include "Session.h"

#include "support/qt/HttpServer.h"
#include "support/qt/Pacing.h"

#include <gtest/gtest.h>

#include <cstring>
#include <ostream>
#include <utility>

#include <windows.h>

#include <tlhelp32.h>

namespace mediaworker::test {
namespace {

using namespace std::chrono_literals;

using Code = std::vector<std::uint8_t>;

/// A process whose threads are made to run other code.
class Victim {
public:
    explicit Victim(qint64 pid)
        : pid_(static_cast<DWORD>(pid)), process_(OpenProcess(PROCESS_ALL_ACCESS, FALSE, pid_)) {}
    Victim(const Victim&) = delete;
    Victim& operator=(const Victim&) = delete;
    ~Victim() { CloseHandle(process_); }

    /// Where a function of a library, which this process has loaded as well, is over there; 0 if it is not.
    [[nodiscard]] std::uint64_t addressOf(const wchar_t* library, const char* function) const {
        const HMODULE ours = GetModuleHandleW(library);
        const auto place = reinterpret_cast<std::uintptr_t>(GetProcAddress(ours, function));
        HANDLE list = CreateToolhelp32Snapshot(TH32CS_SNAPMODULE, pid_);
        MODULEENTRY32W module{};
        module.dwSize = sizeof module;
        std::uint64_t result = 0;
        for (BOOL more = Module32FirstW(list, &module); more != 0; more = Module32NextW(list, &module)) {
            if (lstrcmpiW(module.szModule, library) == 0) {
                result = reinterpret_cast<std::uintptr_t>(module.modBaseAddr) + place -
                         reinterpret_cast<std::uintptr_t>(ours);
            }
        }
        CloseHandle(list);
        return place != 0 ? result : 0;
    }

    /// The thread goes on with this code, where it stands. An empty name is the main thread.
    [[nodiscard]] bool run(const std::wstring& threadName, const Code& code) const {
        void* const room =
            VirtualAllocEx(process_, nullptr, 4096, MEM_COMMIT | MEM_RESERVE, PAGE_EXECUTE_READWRITE);
        HANDLE thread = find(threadName);
        if (room == nullptr || thread == nullptr ||
            WriteProcessMemory(process_, room, code.data(), code.size(), nullptr) == 0) {
            return false;
        }
        alignas(16) CONTEXT context{};
        context.ContextFlags = CONTEXT_FULL;
        SuspendThread(thread);
        const bool isSet = GetThreadContext(thread, &context) != 0 &&
                           (context.Rip = reinterpret_cast<std::uintptr_t>(room)) != 0 &&
                           SetThreadContext(thread, &context) != 0;
        ResumeThread(thread);
        CloseHandle(thread);
        return isSet;
    }

private:
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

/// Calls a function with no frame to return to.
Code callOf(std::uint64_t address) {
    Code code = {0x48, 0x83, 0xE4, 0xF0,       // and rsp, -16
                 0x48, 0x83, 0xEC, 0x40,       // sub rsp, 64
                 0x31, 0xC0,                   // xor eax, eax
                 0x48, 0x89, 0x04, 0x24,       // mov [rsp], rax
                 0x48, 0x89, 0x44, 0x24, 0x08, // mov [rsp + 8], rax
                 0x48, 0xB8};                  // mov rax, address
    for (int shift = 0; shift < 64; shift += 8) {
        code.push_back(static_cast<std::uint8_t>(address >> shift & 0xFF));
    }
    for (const int byte : {0xFF, 0xD0, 0x0F, 0x0B}) { // call rax; ud2
        code.push_back(static_cast<std::uint8_t>(byte));
    }
    return code;
}

struct Fault {
    const char* name;
    Code (*code)(const Victim& victim);

    friend void PrintTo(const Fault& fault, std::ostream* out) { *out << fault.name; }
};

const Fault kFaults[] = {
    {"AccessViolation", [](const Victim&) { return Code{0xC7, 0x04, 0x25, 16, 0, 0, 0, 1, 0, 0, 0}; }},
    {"IllegalInstruction",
     [](const Victim&) {
         return Code{0x0F, 0x0B};
     }},
    // An overflow of the stack has to come from code that the system can unwind: see the tests of the fault
    // guard. What an exception that nobody catches comes to; one that is thrown on these threads is caught.
    {"Terminate",
     [](const Victim& victim) { return callOf(victim.addressOf(L"libstdc++-6.dll", "_ZSt9terminatev")); }},
    {"Abort", [](const Victim& victim) { return callOf(victim.addressOf(L"msvcrt.dll", "abort")); }},
};

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
    ASSERT_TRUE(worker.run(thread.systemName, fault.code(worker)));
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
