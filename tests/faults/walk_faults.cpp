// Lets every call of a kind fail, one after the other, each in a worker of its own: see scripts/walk-faults.
//
//   walk_faults memory|thread|ENOSPC|EMFILE|EIO stream|file|export FIRST STEP [LAST]

#include "FaultyRun.h"

#include "support/OwnEnvironment.h"

#include <QCoreApplication>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <iostream>
#include <map>
#include <string>
#include <vector>

namespace {

using namespace mediaworker::test;

const std::map<std::string, Fault> kFaults{{"memory", {"memory"}},
                                           {"thread", {"thread"}},
                                           {"ENOSPC", {"file", 1, ENOSPC}},
                                           {"EMFILE", {"file", 1, EMFILE}},
                                           {"EIO", {"file", 1, EIO}}};
const std::map<std::string, Job> kJobs{
    {"stream", Job::Stream}, {"file", Job::LocalFile}, {"export", Job::Export}};

/// Calls in a row that come no more: the number differs a little from run to run, and on a busy machine a
/// worker may give up by its time-outs before it gets there.
constexpr int kMissesAtTheEnd = 10;

} // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    if (arguments.size() < 4 || !kFaults.contains(arguments[0]) || !kJobs.contains(arguments[1])) {
        std::cerr
            << "usage: walk_faults memory|thread|ENOSPC|EMFILE|EIO stream|file|export FIRST STEP [LAST]\n";
        return 2;
    }
    const mediaworker::test::OwnEnvironment environment;
    const QCoreApplication application(argc, argv);
    Fault fault = kFaults.at(arguments[0]);
    const int step = std::atoi(arguments[3].c_str());
    const int last = arguments.size() > 4 ? std::atoi(arguments[4].c_str()) : INT_MAX;
    FaultyRuns runs;
    std::map<int, int> codes;
    int problems = 0;
    int misses = 0;
    for (fault.at = std::atoi(arguments[2].c_str()); fault.at <= last && misses < kMissesAtTheEnd;
         fault.at += step) {
        const Outcome outcome = runs.run(kJobs.at(arguments[1]), fault);
        misses = outcome.struck ? 0 : misses + 1;
        codes[outcome.code] += outcome.struck ? 1 : 0;
        if (!outcome.problem.empty()) {
            ++problems;
            std::cout << "FINDING: " << arguments[0] << ' ' << arguments[1] << ", call " << fault.at << ": "
                      << outcome.problem << '\n'
                      << outcome.log << std::endl;
        }
    }
    std::cout << arguments[0] << ", " << arguments[1] << ": up to call " << fault.at - step << " in steps of "
              << step << (misses < kMissesAtTheEnd ? "" : " (to the end)") << ';';
    for (const auto& [code, count] : codes) {
        std::cout << (code == -1 ? " signal or hang" : " code " + std::to_string(code)) << ": " << count
                  << ';';
    }
    std::cout << " findings: " << problems << std::endl;
    return problems == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
