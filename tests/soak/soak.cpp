// Workers over time, under parents and a server that give them no rest: see scripts/soak.
//
//   soak MINUTES STREAMS     ends with a table of what came of it
//   soak --starts N          starts and ends N workers at random moments

#include "Broadcast.h"
#include "Starts.h"
#include "Viewer.h"
#include "support/ChildProcess.h"
#include "support/OwnEnvironment.h"
#include "support/Platform.h"
#include "support/servers/PulseServer.h"

#include <QCoreApplication>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

namespace {

using namespace mediaworker;
using namespace mediaworker::soak;
using namespace std::chrono_literals;

constexpr auto kSampleEvery = 5s;

/// The server's process, and what it tells.
class Server {
public:
    Server(const std::filesystem::path& folder, int streams)
        : output_(folder / "broadcast"),
          process_({.command = {"/proc/self/exe", "--broadcast", std::to_string(streams)},
                    .output = output_,
                    .hasInput = true}) {
        // Encoding its films may take a while.
        for (int i = 0; i < 1200 && lines().empty(); ++i) {
            std::this_thread::sleep_for(100ms);
        }
    }

    [[nodiscard]] std::string url() const { return "http://127.0.0.1:" + lines().at(0); }

    /// Ends it. The pictures that it sent, for each stream.
    [[nodiscard]] std::vector<std::string> stop() {
        process_.closeInput();
        process_.wait();
        std::vector<std::string> all = lines();
        all.erase(all.begin());
        return all;
    }

private:
    [[nodiscard]] std::vector<std::string> lines() const {
        std::istringstream text(test::readFile(output_));
        std::vector<std::string> lines;
        for (std::string line; std::getline(text, line) && !text.eof();) {
            lines.push_back(line);
        }
        return lines;
    }

    const std::filesystem::path output_;
    test::ChildProcess process_;
};

/// What this process, the side of all parents, held in the course of time.
struct ParentSide {
    std::vector<Usage> usage;
    std::size_t mostFiles = 0;
    std::size_t mostSemaphores = 0;

    void sample(const Run& run, const Traces& traces) {
        usage.push_back(usageOf(::getpid(), run.seconds()));
        mostFiles = std::max(mostFiles, traces.files());
        mostSemaphores = std::max(mostSemaphores, traces.semaphores());
    }
};

std::string endsText(const Seen& seen) {
    std::string text;
    for (const auto& [end, count] : seen.ends) {
        text.append(text.empty() ? "" : ", ").append(end).append(": ").append(std::to_string(count));
    }
    return text;
}

void printGrowth(const Growth& growth) {
    std::cout << growthText(growth, &Growth::memoryMb) << " | " << growthText(growth, &Growth::descriptors)
              << " | " << growthText(growth, &Growth::threads) << " |\n";
}

bool printStream(std::size_t stream, const Seen& seen, const std::string& sent) {
    std::cout << "| " << stream << ": " << nameOf(roleOf(stream)) << " | " << seen.workers << " | " << sent
              << " | " << seen.shown << " | " << endsText(seen) << " | "
              << static_cast<int>(seen.peakMb + 0.5) << " | ";
    printGrowth(seen.growth);
    return isWithinBounds(seen.growth) && seen.failures.empty() && seen.malformed == 0 && seen.shown > 0 &&
           seen.read > 0;
}

/// Nothing is lost where nothing disturbs; a stream's last seconds are under way when it ends.
bool showsAll(const Seen& seen, const std::string& sent) {
    constexpr std::uint64_t kUnderWay = 250;
    return seen.shown + kUnderWay >= std::stoull(sent);
}

bool report(const std::vector<Seen>& all, const std::vector<std::string>& sent, const ParentSide& own,
            const Traces& traces, double minutes) {
    std::cout << "\n| stream | workers | pictures sent | shown | ends by code | peak MB | MB per hour | "
                 "descriptors "
                 "per hour | threads per hour |\n|---|---|---|---|---|---|---|---|---|\n";
    std::vector<std::string> problems;
    for (std::size_t i = 0; i < all.size(); ++i) {
        const Seen& seen = all[i];
        const bool isGoodStream = printStream(i, seen, sent.at(i));
        if (!isGoodStream || (roleOf(i) == Role::Steady && !showsAll(seen, sent.at(i)))) {
            problems.push_back("stream " + std::to_string(i) + " is not within its bounds");
        }
        problems.insert(problems.end(), seen.failures.begin(), seen.failures.end());
    }
    const Growth growth = growthOf(own.usage);
    std::cout << "| the parents' side | | | | | " << static_cast<int>(own.usage.back().memoryMb + 0.5)
              << " | ";
    printGrowth(growth);
    if (!isWithinBounds(growth)) {
        problems.emplace_back("the parents' side is not within its bounds");
    }
    if (traces.count() > 0) {
        problems.emplace_back("something is left behind");
    }
    const bool isGood = problems.empty();
    std::cout << "\n"
              << all.size() << " streams for " << minutes << " minutes. At most " << own.mostFiles
              << " files and " << own.mostSemaphores
              << " semaphores at a time; left behind: " << traces.text() << ".\n";
    for (const std::string& problem : problems) {
        std::cout << "PROBLEM: " << problem << '\n';
    }
    std::cout << (isGood ? "within all bounds" : "NOT within all bounds") << std::endl;
    return isGood;
}

/// The parents, each on its thread, and this one watching all of them.
std::vector<Seen> watchAll(const Run& run, std::size_t streams, const Traces& traces, ParentSide& own) {
    std::vector<Seen> seen(streams);
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < streams; ++i) {
        // A worker's object lives and dies on the thread that made it.
        threads.emplace_back([&run, &result = seen[i], i] {
            Viewer viewer(i, run);
            viewer.watch();
            result = viewer.seen();
        });
    }
    while (!run.isOver()) {
        std::this_thread::sleep_for(kSampleEvery);
        own.sample(run, traces);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    return seen;
}

bool soakFor(double minutes, int streams, const std::filesystem::path& folder, const Traces& traces) {
    std::vector<Seen> seen;
    std::vector<std::string> sent;
    ParentSide own;
    {
        std::filesystem::create_directory(folder / "sound");
        const test::PulseServer sound(folder / "sound");
        Server server(folder, streams);
        Run run;
        run.server = server.url();
        for (const auto& [name, value] : sound.environment()) {
            run.environment[QString::fromStdString(name)] = QString::fromStdString(value);
        }
        std::cout << streams << " streams for " << minutes << " minutes" << std::endl;
        run.begin = std::chrono::steady_clock::now();
        run.end = run.begin + std::chrono::duration_cast<std::chrono::nanoseconds>(
                                  std::chrono::duration<double, std::ratio<60>>(minutes));
        seen = watchAll(run, static_cast<std::size_t>(streams), traces, own);
        sent = server.stop();
    }
    return report(seen, sent, own, traces, minutes);
}

int usage() {
    std::cerr << "usage: soak MINUTES STREAMS\n       soak --starts WORKERS\n";
    return 2;
}

} // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    if (arguments.size() != 2) {
        return usage();
    }
    const double first = std::atof(arguments[0].c_str());
    const int count = std::atoi(arguments[1].c_str());
    if (count < 1) {
        return usage();
    }
    if (arguments[0] == "--broadcast") {
        return broadcast(count);
    }
    const test::OwnEnvironment environment;
    const test::TemporaryFolder folder;
    std::filesystem::create_directory(folder / "workers");
    const test::platform::TemporaryDirectory temporary(folder / "workers");
    const Traces traces(folder / "workers");
    const QCoreApplication application(argc, argv);
    if (arguments[0] == "--starts") {
        return startAndEnd(count, folder.path(), traces) ? EXIT_SUCCESS : EXIT_FAILURE;
    }
    return first > 0 ? soakFor(first, count, folder.path(), traces) ? EXIT_SUCCESS : EXIT_FAILURE : usage();
}
