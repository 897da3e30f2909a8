// A worker on a faulty system ends with a documented code, or runs through: a sample of the places that
// scripts/walk-faults walks through. A file that is told to be complete is.

#include "FaultyRun.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace mediaworker::test {
namespace {

struct FileError {
    int number;
    const char* name;

    friend void PrintTo(const FileError& error, std::ostream* out) { *out << error.name; }
};

class FaultyFile : public testing::TestWithParam<FileError> {};

// Open, look, write, go back, close: all that an export does with its file.
TEST_P(FaultyFile, NeverMakesAnExportSayThatItIsComplete) {
    FaultyRuns runs;
    int struck = 0;
    for (Fault fault{"file", 1, GetParam().number};; ++fault.at) {
        const Outcome outcome = runs.run(Job::Export, fault);
        EXPECT_EQ(outcome.problem, "") << "call " << fault.at << '\n' << outcome.log;
        if (!outcome.struck) {
            EXPECT_EQ(outcome.code, 0) << outcome.log;
            break;
        }
        ++struck;
        EXPECT_EQ(outcome.code, 1) << "call " << fault.at << '\n' << outcome.log;
        EXPECT_EQ(outcome.log.find("sound unavailable"), std::string::npos)
            << "call " << fault.at << ": the sound is not at fault\n"
            << outcome.log;
    }
    EXPECT_GE(struck, 6) << "the faults do not strike";
}

// What cannot be made an ordinary file at the end is complete as it is; a fragment that cannot be written is
// a failure. Two calls, which look where the file is, are of no consequence.
TEST_P(FaultyFile, NeverCostsACrashSafeExportWhatItHas) {
    FaultyRuns runs;
    int failed = 0;
    int fragmented = 0;
    for (Fault fault{"file", 1, GetParam().number};; ++fault.at) {
        const Outcome outcome = runs.run(Job::SafeExport, fault);
        EXPECT_EQ(outcome.problem, "") << "call " << fault.at << '\n' << outcome.log;
        if (!outcome.struck) {
            EXPECT_EQ(outcome.code, 0) << outcome.log;
            break;
        }
        const bool isSaid = outcome.log.find("the file stays in fragments: ") != std::string::npos;
        EXPECT_FALSE(isSaid && outcome.code != 0) << "call " << fault.at << '\n' << outcome.log;
        fragmented += isSaid ? 1 : 0;
        failed += outcome.code == 1 ? 1 : 0;
    }
    EXPECT_EQ(failed, 3) << "open, the fragment, close";
    EXPECT_EQ(fragmented, 3) << "the index, the way back, the new begin";
}

INSTANTIATE_TEST_SUITE_P(Errors, FaultyFile,
                         testing::Values(FileError{ENOSPC, "ENOSPC"}, FileError{EMFILE, "EMFILE"},
                                         FileError{EIO, "EIO"}),
                         [](const auto& instance) { return instance.param.name; });

struct Place {
    Job job;
    const char* name;

    friend void PrintTo(const Place& place, std::ostream* out) { *out << place.name; }
};

class NoMemory : public testing::TestWithParam<Place> {};

/// Calls in a row that come no more: on a busy machine a worker may give up by its time-outs before it gets
/// there.
constexpr int kMissesAtTheEnd = 3;

// Each of the first ones, which set the program up, then fewer and fewer.
TEST_P(NoMemory, EndsAWorkerByADocumentedCodeOrNotAtAll) {
    FaultyRuns runs;
    int struck = 0;
    int misses = 0;
    for (Fault fault{"memory", 1}; misses < kMissesAtTheEnd; fault.at += 1 + fault.at / 5) {
        const Outcome outcome = runs.run(GetParam().job, fault);
        EXPECT_EQ(outcome.problem, "") << "call " << fault.at << '\n' << outcome.log;
        misses = outcome.struck ? 0 : misses + 1;
        struck += outcome.struck ? 1 : 0;
    }
    EXPECT_GE(struck, 30) << "the faults do not strike";
}

class NoThread : public testing::TestWithParam<Place> {};

TEST_P(NoThread, EndsAWorkerByADocumentedCodeOrNotAtAll) {
    FaultyRuns runs;
    int struck = 0;
    for (Fault fault{"thread", 1};; ++fault.at) {
        const Outcome outcome = runs.run(GetParam().job, fault);
        EXPECT_EQ(outcome.problem, "") << "thread " << fault.at << '\n' << outcome.log;
        if (!outcome.struck) {
            break;
        }
        ++struck;
    }
    EXPECT_GE(struck, 2) << "the faults do not strike";
}

INSTANTIATE_TEST_SUITE_P(Jobs, NoMemory,
                         testing::Values(Place{Job::Stream, "Stream"}, Place{Job::LocalFile, "LocalFile"},
                                         Place{Job::Export, "Export"}),
                         [](const auto& instance) { return instance.param.name; });

INSTANTIATE_TEST_SUITE_P(Jobs, NoThread,
                         testing::Values(Place{Job::Stream, "Stream"}, Place{Job::LocalFile, "LocalFile"},
                                         Place{Job::Export, "Export"}),
                         [](const auto& instance) { return instance.param.name; });

} // namespace
} // namespace mediaworker::test
