#include "parent/ExitReason.h"
#include "parent/RandomName.h"

#include <gtest/gtest.h>

#include <set>

using namespace mediaworker::parent;

namespace {

constexpr auto kStream = WorkerMode::Stream;
constexpr auto kFile = WorkerMode::LocalFile;
constexpr auto kExport = WorkerMode::Export;
constexpr bool kCrashed = true;

/// As a worker's log tells it.
WorkerFindings findings(const char* line) {
    WorkerFindings result;
    result.take(QString::fromUtf8(line), false);
    return result;
}

constexpr const char* kRefused = "http failed: network: ConnectionRefusedError: Connection refused";
constexpr const char* kClosed = "http failed: network: RemoteHostClosedError: Connection closed";
constexpr const char* kNoPictures = "pictures unavailable: vp6: no decoder";
constexpr const char* kNoSound = "sound unavailable: nellymoser: no decoder";

} // namespace

TEST(ExitReason, GivesEveryCodeOfAStreamItsOwnWords) {
    std::set<QString> reasons;
    for (int code = 0; code <= 5; ++code) {
        reasons.insert(exitReason(WorkerMode::Stream, code, false));
    }
    EXPECT_EQ(reasons.size(), 6U);
    EXPECT_EQ(reasons.count(QString()), 0U);
}

TEST(ExitReason, KnowsThatALocalFileEndsWithoutAnotherPicture) {
    EXPECT_EQ(exitReason(WorkerMode::LocalFile, 2, false),
              QStringLiteral("the file is at its end, or cannot be opened or read"));
    EXPECT_NE(exitReason(WorkerMode::LocalFile, 2, false), exitReason(WorkerMode::Stream, 2, false));
    EXPECT_EQ(exitReason(WorkerMode::LocalFile, 0, false), exitReason(WorkerMode::Stream, 0, false));
    EXPECT_FALSE(exitReason(WorkerMode::LocalFile, 1, false).contains(QStringLiteral("FLV")));
}

TEST(ExitReason, NamesTheUnknown) {
    EXPECT_TRUE(exitReason(WorkerMode::Stream, 77, false).contains(QStringLiteral("77")));
    EXPECT_TRUE(exitReason(WorkerMode::Export, 2, false).contains(QStringLiteral("2")));
}

TEST(ExitReason, TellsACompleteExportFromAFailedOne) {
    EXPECT_EQ(exitReason(WorkerMode::Export, 0, false), QStringLiteral("the file is complete"));
    EXPECT_NE(exitReason(WorkerMode::Export, 1, false), exitReason(WorkerMode::Export, 0, false));
}

TEST(ExitReason, DoesNotReadTheCodeOfAKilledWorker) {
    EXPECT_EQ(exitReason(WorkerMode::Export, 0, true), exitReason(WorkerMode::Stream, 9, true));
}

TEST(ExitReason, UsesWhatTheLogToldWhereItBelongs) {
    struct Row {
        WorkerMode mode;
        int exitCode;
        bool crashed;
        const char* line;
        const char* cause;
        const char* reason; ///< null: as by the exit code alone
    };
    for (const Row& row : {
             Row{kStream, 0, false, "", "linkClosed", nullptr},
             Row{kStream, 1, false, "", "notAStream", nullptr},
             Row{kStream, 2, false, "", "noPicture", nullptr},
             Row{kStream, 3, false, "", "endOfStream", "the server ended the stream"},
             Row{kStream, 4, false, "", "picturesEnded", nullptr},
             Row{kStream, 77, false, "", "unknown", nullptr},
             Row{kFile, 0, false, "", "linkClosed", nullptr},
             Row{kFile, 1, false, "", "failed", nullptr},
             Row{kFile, 2, false, "", "endOfFile", nullptr},
             Row{kExport, 0, false, "", "complete", nullptr},
             Row{kExport, 1, false, "", "failed", nullptr},
             Row{kExport, 2, false, "", "unknown", nullptr},
             Row{kStream, 3, kCrashed, kRefused, "killed", nullptr},

             Row{kStream, 3, false, "http failed: status 404 Not Found", "httpStatus",
                 "the server answered 404 Not Found"},
             Row{kStream, 3, false, "http failed: status 401 Unauthorized", "httpStatus",
                 "the server answered 401 Unauthorized"},
             Row{kStream, 3, false, "http failed: status 500", "httpStatus", "the server answered 500"},
             Row{kStream, 3, false, "http failed: status 302 Found", "httpStatus",
                 "the server answered 302 Found, a redirection that is not followed"},
             Row{kStream, 3, false, kRefused, "connectionRefused",
                 "connection refused: nothing listens at that address and port"},
             Row{kStream, 3, false, kClosed, "connectionLost",
                 "connection lost: it was closed before the answer was complete"},
             Row{kStream, 3, false, "http failed: network: HostNotFoundError: Host cam not found",
                 "unknownHost", "unknown host: Host cam not found"},
             Row{kStream, 3, false, "http failed: network: HostNotFoundError:", "unknownHost",
                 "unknown host"},
             Row{kStream, 3, false, "http failed: network: SslHandshakeFailedError: SSL handshake failed: x",
                 "tlsFailure", "no secure connection: SSL handshake failed: x"},
             Row{kStream, 3, false, "http failed: network: ProxyNotFoundError: No such proxy", "proxyFailure",
                 "the proxy failed: No such proxy"},
             Row{kStream, 3, false, "http failed: network: UnknownNetworkError: Network unreachable",
                 "networkFailure", "network failure: Network unreachable"},
             Row{kStream, 3, false, "http failed: network: NewError: x: y", "networkFailure",
                 "network failure: x: y"},
             Row{kStream, 3, false, kNoPictures, "picturesUnavailable",
                 "the pictures cannot be shown: vp6: no decoder"},
             Row{kStream, 2, false, kNoPictures, "picturesUnavailable",
                 "the pictures cannot be shown: vp6: no decoder"},
             Row{kStream, 4, false, kNoPictures, "picturesUnavailable",
                 "the pictures cannot be shown: vp6: no decoder"},
             Row{kStream, 3, false, kNoSound, "endOfStream", "the server ended the stream"},

             // The response may fail while the pictures before it are shown.
             Row{kStream, 0, false, kClosed, "linkClosed", nullptr},
             Row{kStream, 4, false, kClosed, "picturesEnded", nullptr},
             Row{kStream, 0, false, kNoPictures, "linkClosed", nullptr},

             Row{kExport, 1, false, "http failed: status 404 Not Found", "httpStatus",
                 "the server answered 404 Not Found"},
             Row{kExport, 1, false, kRefused, "connectionRefused",
                 "connection refused: nothing listens at that address and port"},
             Row{kExport, 1, false, kNoPictures, "picturesUnavailable",
                 "the pictures cannot be recorded: vp6: no decoder"},
             Row{kExport, 0, false, kClosed, "connectionLost",
                 "the file is complete, but the stream broke off: connection lost: it was closed before the "
                 "answer was complete"},
             Row{kExport, 0, false, kNoSound, "complete", nullptr},
         }) {
        SCOPED_TRACE(testing::Message()
                     << static_cast<int>(row.mode) << ", " << row.exitCode << ", " << row.line);
        const WorkerFindings told = findings(row.line);
        EXPECT_EQ(exitCauseName(exitCause(row.mode, row.exitCode, row.crashed, told)).toStdString(),
                  row.cause);
        EXPECT_EQ(exitReason(row.mode, row.exitCode, row.crashed, told),
                  row.reason != nullptr ? QString::fromUtf8(row.reason)
                                        : exitReason(row.mode, row.exitCode, row.crashed));
    }
}

TEST(ExitReason, NamesEveryCauseOnce) {
    std::set<QString> names;
    int causes = 0;
    for (; causes <= static_cast<int>(ExitCause::Killed); ++causes) {
        names.insert(exitCauseName(static_cast<ExitCause>(causes)));
    }
    EXPECT_EQ(names.size(), static_cast<std::size_t>(causes));
    EXPECT_EQ(names.count(QString()), 0U);
}

TEST(ExitReason, TellsOfAResponseOnlyWhatFailed) {
    EXPECT_EQ(responseFailure({}), QString());
    EXPECT_EQ(responseFailure(findings(kNoSound)), QString());
    EXPECT_TRUE(responseFailure(findings(kRefused)).startsWith(QStringLiteral("connection refused")));
}

TEST(RandomName, IsAnotherOneEachTime) {
    std::set<QString> names;
    for (int i = 0; i < 1000; ++i) {
        names.insert(randomName());
    }
    EXPECT_EQ(names.size(), 1000U);
    EXPECT_EQ(names.begin()->size(), QStringLiteral("mediaworker-").size() + 32);
}
