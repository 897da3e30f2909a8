#include "tools/ctl/Outcome.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace mediaworker;
using namespace mediaworker::ctl;
using namespace std::chrono_literals;
using ::testing::HasSubstr;

namespace {

constexpr auto kStream = parent::WorkerMode::Stream;
constexpr auto kFile = parent::WorkerMode::LocalFile;
constexpr bool kCrashed = true;

struct Row {
    const char* what;
    PlayStop stop;
    parent::WorkerMode mode;
    quint64 frames;
    bool hasDuration;
    int exitCode;
    bool crashed;
    const char* problem; ///< empty: the job was done
};

} // namespace

TEST(CtlOutcome, SaysWhetherTheStreamWasPlayed) {
    for (const Row& row : {
             Row{"stream at its end", PlayStop::None, kStream, 1, false, 3, false, ""},
             Row{"file at its end", PlayStop::None, kFile, 1, false, 2, false, ""},
             Row{"all was watched", PlayStop::Duration, kStream, 1, true, 0, false, ""},
             Row{"both at once", PlayStop::Duration, kStream, 1, true, 3, false, ""},
             Row{"both at once, file", PlayStop::Duration, kFile, 1, true, 2, false, ""},
             Row{"the user has enough", PlayStop::Interruption, kStream, 1, false, 0, false, ""},
             Row{"and does not want all", PlayStop::Interruption, kStream, 1, true, 0, false, ""},

             Row{"no picture in time", PlayStop::None, kStream, 1, false, 2, false,
                 "the worker ended: no picture arrived in time (exit code 2)"},
             Row{"file with that code of a stream", PlayStop::None, kFile, 1, false, 3, false,
                 "the worker ended: the server ended"},
             Row{"broken data", PlayStop::None, kStream, 9, false, 1, false, "(exit code 1)"},
             Row{"nothing to decode", PlayStop::None, kStream, 9, false, 4, false, "(exit code 4)"},
             Row{"lost link", PlayStop::None, kStream, 9, false, 0, false, "(exit code 0)"},
             Row{"killed", PlayStop::None, kStream, 9, false, 3, kCrashed, "the worker was killed"},
             Row{"killed, file", PlayStop::None, kFile, 9, false, 2, kCrashed, "the worker was killed"},
             Row{"too short", PlayStop::None, kStream, 9, true, 3, false,
                 "the pictures ended after 1.5 of 6 seconds: the server ended"},
             Row{"file too short", PlayStop::None, kFile, 9, true, 2, false,
                 "the pictures ended after 1.5 of 6 seconds: the file is at its end"},
             Row{"no picture at all", PlayStop::None, kStream, 0, false, 3, false,
                 "no picture was shown: the server ended"},
             Row{"no picture in the file", PlayStop::None, kFile, 0, true, 2, false, "no picture was shown"},
             Row{"impatient user", PlayStop::Interruption, kStream, 0, false, 0, false,
                 "interrupted before the first picture"},
             Row{"dies when it should end", PlayStop::Duration, kStream, 9, true, 0, kCrashed,
                 "the worker did not end as it should: the worker was killed"},
             Row{"fails when it should end", PlayStop::Duration, kStream, 9, true, 1, false,
                 "the worker did not end as it should"},
             Row{"times out when it should end", PlayStop::Interruption, kStream, 9, false, 2, false,
                 "the worker did not end as it should"},
         }) {
        PlayEnd end;
        end.worker = {row.mode, row.exitCode, row.crashed, {}};
        end.stop = row.stop;
        end.frames = row.frames;
        end.watched = 1500ms;
        if (row.hasDuration) {
            end.wanted = 6s;
        }
        const std::string problem = whyNotDone(end).toStdString();
        if (*row.problem == '\0') {
            EXPECT_EQ(problem, "") << row.what;
        } else {
            EXPECT_THAT(problem, HasSubstr(row.problem)) << row.what;
        }
    }
}

TEST(CtlOutcome, DescribesAnEndWithReasonCodeAndLastWords) {
    EXPECT_EQ(describe({parent::WorkerMode::Export, 1, false, {QStringLiteral("a"), QStringLiteral("b")}}),
              QStringLiteral("the worker told no reason (exit code 1)\n"
                             "  its last words:\n    a\n    b"));
    EXPECT_EQ(describe({parent::WorkerMode::Stream, 0, true, {}}), QStringLiteral("the worker was killed"));
}

TEST(CtlOutcome, DoesNotSayTwiceThatThereWasNoPicture) {
    PlayEnd end;
    end.worker = {kStream, 2, false, {}};
    EXPECT_EQ(whyNotDone(end), QStringLiteral("no picture arrived in time (exit code 2)"));
    end.worker.exitCode = 3;
    end.worker.findings.hasShownPicture = false;
    EXPECT_EQ(whyNotDone(end),
              QStringLiteral("no picture was shown: the server ended the stream (exit code 3)"));
    end.worker.findings.isResponseOver = true;
    EXPECT_EQ(whyNotDone(end),
              QStringLiteral("the server ended the stream before its first picture (exit code 3)"));
}

TEST(CtlOutcome, TellsProgramsWhyNoWorkerEnded) {
    const Ended end =
        jobEnd(PlaySummary{}, QStringLiteral("x"), std::nullopt, parent::ExitCause::WorkerMissing);
    EXPECT_EQ(end.cause, QStringLiteral("workerMissing"));
    EXPECT_EQ(end.reason, QString());
}

TEST(CtlOutcome, ShowsNoControlCharactersOfALog) {
    EXPECT_EQ(lastWords({QStringLiteral("a\x1b[2J\tb")}), QStringList{QStringLiteral("a?[2J?b")});
}

TEST(CtlOutcome, DescribesAProblemWithLastWords) {
    const QString problem = QStringLiteral("it stands still");
    EXPECT_EQ(describe(problem, {}), problem);
    EXPECT_EQ(describe(problem, {QStringLiteral(" ")}), problem);
    EXPECT_EQ(describe(problem, {QStringLiteral("a"), QStringLiteral("b"), QStringLiteral("c"), QString(),
                                 QStringLiteral("d")}),
              QStringLiteral("it stands still; the worker's last words:\n    b\n    c\n    d"));
}

TEST(CtlOutcome, TellsOfTheWorkerOnlyWhatIsKnown) {
    const PlaySummary summary{.frames = 7};
    const QString problem = QStringLiteral("x");
    const Ended orderly = jobEnd(summary, problem, WorkerEnd{kFile, 2, false});
    EXPECT_EQ(std::get<PlaySummary>(orderly.summary).frames, 7U);
    EXPECT_EQ(orderly.problem, problem);
    EXPECT_EQ(orderly.exitCode, 2);
    EXPECT_EQ(orderly.reason, QStringLiteral("the file is at its end, or cannot be opened or read"));
    const Ended killed = jobEnd(summary, problem, WorkerEnd{kStream, 9, true});
    EXPECT_EQ(killed.exitCode, std::nullopt);
    EXPECT_EQ(killed.reason, QStringLiteral("the worker was killed"));
    const Ended withoutWorker = jobEnd(ExportSummary{QStringLiteral("f"), 3}, {}, std::nullopt);
    EXPECT_EQ(std::get<ExportSummary>(withoutWorker.summary).bytes, 3);
    EXPECT_EQ(withoutWorker.problem, QString());
    EXPECT_EQ(withoutWorker.exitCode, std::nullopt);
    EXPECT_EQ(withoutWorker.reason, QString());
}

TEST(CtlOutcome, KnowsARecordingThatIsCutShort) {
    struct Row {
        const char* what;
        std::optional<qint64> recordedMs;
        std::chrono::milliseconds asked;
        bool isBroken;
        bool stoodStill;
        bool isCutShort;
    };
    using namespace std::chrono_literals;
    for (const Row& row : {
             Row{"as long as it was to be", 5000, 5s, false, false, false},
             Row{"the server ended it", 400, 5s, false, false, false},
             Row{"the connection broke", 400, 5s, true, false, true},
             Row{"it broke behind the end", 5000, 5s, true, false, false},
             Row{"it stood still", 400, 5s, false, true, true},
             Row{"a worker that does not tell", {}, 5s, true, false, true},
             Row{"until it is stopped, and it was", 400, 0s, false, false, false},
             Row{"until it is stopped, and it broke", 400, 0s, true, false, true},
         }) {
        WorkerEnd end{parent::WorkerMode::Export, 0, false};
        end.findings.recordedMs = row.recordedMs;
        if (row.isBroken) {
            end.findings.networkError = QStringLiteral("RemoteHostClosedError");
        }
        EXPECT_EQ(isCutShort(end, row.asked, row.stoodStill), row.isCutShort) << row.what;
    }
}

TEST(CtlOutcome, TellsWhatTheLogToldOfTheResponse) {
    parent::WorkerFindings refused;
    refused.httpStatus = 404;
    refused.httpReason = QStringLiteral("Not Found");
    const WorkerEnd end{kStream, 3, false, {}, refused};
    EXPECT_EQ(describe(end), QStringLiteral("the server answered 404 Not Found (exit code 3)"));
    const Ended told = jobEnd(PlaySummary{}, QStringLiteral("x"), end);
    EXPECT_EQ(told.reason, QStringLiteral("the server answered 404 Not Found"));
    EXPECT_EQ(told.cause, QStringLiteral("httpStatus"));
    EXPECT_EQ(told.httpStatus, 404);
    EXPECT_EQ(told.remark, QStringLiteral("the stream broke off: the server answered 404 Not Found"));
    // The user left while the last pictures were shown.
    EXPECT_EQ(jobEnd(PlaySummary{}, {}, WorkerEnd{kStream, 0, false, {}, refused}).remark, QString());
    EXPECT_EQ(jobEnd(PlaySummary{}, {}, WorkerEnd{kStream, 3, false}).remark, QString());
    EXPECT_EQ(jobEnd(PlaySummary{}, {}, std::nullopt).cause, QString());
}

TEST(CtlOutcome, TheLastWordsAreThreeLinesWithText) {
    EXPECT_EQ(lastWords({}), QStringList());
    EXPECT_EQ(lastWords({QStringLiteral("one")}), QStringList({QStringLiteral("one")}));
    EXPECT_EQ(lastWords({QStringLiteral("one"), QStringLiteral("two"), QString(), QStringLiteral("three"),
                         QStringLiteral("four"), QStringLiteral(" ")}),
              QStringList({QStringLiteral("two"), QStringLiteral("three"), QStringLiteral("four")}));
}
