#include "parent/Problem.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <tuple>
#include <utility>
#include <vector>

using namespace mediaworker::parent;

namespace {

constexpr auto kStream = WorkerMode::Stream;
constexpr auto kFile = WorkerMode::LocalFile;
constexpr auto kExport = WorkerMode::Export;

/// What a parent saw.
enum class Seen { Nothing, Connected, Picture };

struct Row {
    WorkerMode mode;
    int exitCode;
    Seen seen;
    std::vector<const char*> lines; ///< of the log
    const char* id;
    const char* text;
};

WorkerFindings findingsOf(const Row& row) {
    WorkerFindings findings;
    for (const char* line : row.lines) {
        findings.take(QString::fromUtf8(line), false);
    }
    findings.isConnected = row.seen != Seen::Nothing;
    findings.hasShownPicture = row.seen == Seen::Picture;
    findings.program = QStringLiteral("/p/worker");
    findings.localFile = {QStringLiteral("/films/a.mp4"), LocalFileState::Missing};
    return findings;
}

constexpr const char* kNoFlv = "ko_player::Player::consumeImpl: ec: Invalid argument, what: invalid header";
constexpr const char* kNoFlvToRecord =
    "ko_player::FileRecorder::consumeImpl: ec: Invalid argument, what: prevTagSize: read: 1 must be: 2";
constexpr const char* kDiskFull =
    "ko_player::FileRecorder::pushEofAndClose: pushEofAndClose failed with exception: Muxer.close "
    "av_write_trailer: file: /x, err: b.mp4, err: No space left on device";
constexpr const char* kTimeOut = "http failed: network: TimeoutError: Connection timed out";
constexpr const char* kSelfSigned =
    "http failed: network: SslHandshakeFailedError: SSL handshake failed: untrusted certificate: The "
    "certificate is self-signed, and untrusted";
constexpr const char* kPassword =
    "http failed: network: ProxyAuthenticationRequiredError: Proxy requires authentication";
constexpr const char* kNoProxy = "http failed: network: ProxyConnectionRefusedError: Connection refused";

} // namespace

// ExitReasonTest has what the exit code, and the lines about responses and codecs, say.
TEST(Problem, IsWhatTheLogAndTheParentsEyesTell) {
    for (
        const Row& row : std::vector<Row>{
            {kStream,
             3,
             Seen::Connected,
             {kTimeOut},
             "networkTimeout",
             "the server cannot be reached: it did not answer in time"},
            {kStream,
             3,
             Seen::Connected,
             {kSelfSigned},
             "tlsFailure",
             "no secure connection: the server's certificate is not trusted: The certificate is self-signed, "
             "and untrusted"},
            {kStream,
             3,
             Seen::Connected,
             {kPassword},
             "proxyPassword",
             "the proxy wants another user name or password"},
            {kStream,
             3,
             Seen::Connected,
             {"http failed: status 407 No"},
             "proxyPassword",
             "the proxy wants another user name or password"},
            {kStream, 3, Seen::Connected, {kNoProxy}, "proxyFailure", "the proxy failed: Connection refused"},

            {kStream, 1, Seen::Connected, {kNoFlv}, "notAStream", "the received data is not an FLV stream"},
            {kStream, 1, Seen::Picture, {kNoFlv}, "notAStream", "the stream is damaged: invalid header"},
            {kStream,
             1,
             Seen::Connected,
             {"http reader"},
             "crashed",
             "the worker ended without a word, as one does that crashed"},
            {kStream,
             1,
             Seen::Connected,
             {"can't start a thread: x"},
             "failed",
             "the worker cannot go on: can't start a thread: x"},
            {kStream,
             1,
             Seen::Nothing,
             {"sandbox is required, exit"},
             "failed",
             "the worker cannot go on: the system cannot confine it as it was asked to"},
            {kStream,
             1,
             Seen::Connected,
             {"can't map the frame file: /tmp/x: full"},
             "fileNotWritable",
             "the pictures cannot be handed over: /tmp/x: full"},
            {kStream, 2, Seen::Connected, {}, "noPicture", "no picture arrived in time"},
            {kStream, 2, Seen::Picture, {}, "noPicture", "the pictures stopped coming"},
            {kStream,
             3,
             Seen::Connected,
             {"http reader finished"},
             "endOfStream",
             "the server ended the stream before its first picture"},
            {kStream,
             3,
             Seen::Picture,
             {"http reader finished"},
             "endOfStream",
             "the server ended the stream"},
            {kStream, 4, Seen::Connected, {}, "picturesEnded", "the pictures ended or could not be decoded"},

            {kStream,
             0,
             Seen::Nothing,
             {},
             "workerUnusable",
             "/p/worker is no mediaworker, or cannot run here: it ended before it connected"},
            {kStream,
             127,
             Seen::Nothing,
             {"error while loading"},
             "workerUnusable",
             "/p/worker is no mediaworker, or cannot run here: it ended before it connected"},
            {kExport,
             0,
             Seen::Nothing,
             {},
             "workerUnusable",
             "/p/worker is no mediaworker, or cannot run here: it ended before it connected"},
            {kExport,
             1,
             Seen::Nothing,
             {},
             "workerUnusable",
             "/p/worker is no mediaworker, or cannot run here: it ended before it connected"},
            {kExport, 0, Seen::Nothing, {"recorded: 40 ms, with sound"}, "complete", "the file is complete"},
            {kStream, 77, Seen::Connected, {}, "unknown", "unknown exit code 77"},

            {kFile, 2, Seen::Picture, {}, "endOfFile", "the file is at its end"},
            {kFile,
             2,
             Seen::Connected,
             {},
             "endOfFile",
             "the file is at its end, or cannot be opened or read"},
            {kFile,
             2,
             Seen::Connected,
             {"couldn't open file films/a.mp4 : x"},
             "fileMissing",
             "there is no file /films/a.mp4"},
            {kFile,
             2,
             Seen::Connected,
             {"couldn't find stream information"},
             "fileMissing",
             "there is no file /films/a.mp4"},
            {kFile,
             2,
             Seen::Connected,
             {"pictures unavailable: x: y"},
             "picturesUnavailable",
             "the pictures cannot be shown: x: y"},

            {kExport,
             1,
             Seen::Connected,
             {kNoFlvToRecord},
             "notAStream",
             "the received data is not an FLV stream"},
            {kExport,
             1,
             Seen::Connected,
             {kDiskFull},
             "fileNotWritable",
             "the file cannot be written: No space left on device"},
            {kExport,
             1,
             Seen::Connected,
             {"creating of muxer is failed with exc: y"},
             "fileNotWritable",
             "the file cannot be written: y"},
            {kExport,
             1,
             Seen::Connected,
             {"http is finished, with dts: 0"},
             "endOfStream",
             "the server ended the stream before its first picture"},
            {kExport, 1, Seen::Connected, {}, "failed", "the worker told no reason"},
        }) {
        const Problem told = problemOf(row.mode, row.exitCode, false, findingsOf(row));
        EXPECT_EQ(told.text.toStdString(), row.text);
        EXPECT_EQ(told.id().toStdString(), row.id) << row.text;
        EXPECT_EQ(problemOf(row.mode, row.exitCode, true, findingsOf(row)).cause, ExitCause::Killed);
    }
}

TEST(Problem, HasStatusAndNetworkError) {
    WorkerFindings findings;
    findings.take(QStringLiteral("http failed: status 503 Too many"), false);
    EXPECT_EQ(problemOf(kStream, 3, false, findings).httpStatus, 503);
    EXPECT_EQ(problemOf(kStream, 2, false, findings).httpStatus, std::nullopt)
        << "it ended for another reason";
    findings = {};
    findings.take(QString::fromUtf8(kTimeOut), false);
    EXPECT_EQ(problemOf(kExport, 1, false, findings).networkError, QStringLiteral("TimeoutError"));
}

TEST(Problem, IsTheProxysWhereOnlyTheProxyIsConnectedTo) {
    for (const auto& [line, byProxy, byServer] :
         {std::tuple("http failed: network: ConnectionRefusedError: Connection refused",
                     "the proxy cannot be reached: nothing listens at its address and port",
                     "connection refused: nothing listens at that address and port"),
          std::tuple("http failed: network: HostNotFoundError: Host h not found",
                     "the proxy cannot be reached: its name is unknown", "unknown host: Host h not found"),
          std::tuple("http failed: network: UnknownNetworkError: Connection to proxy refused",
                     "the proxy failed: Connection to proxy refused",
                     "the proxy failed: Connection to proxy refused")}) {
        WorkerFindings findings;
        findings.take(QString::fromUtf8(line), false);
        EXPECT_EQ(problemOf(kStream, 3, false, findings).text.toStdString(), byServer);
        findings.isProxyPeer = true;
        EXPECT_EQ(problemOf(kStream, 3, false, findings).text.toStdString(), byProxy);
        EXPECT_EQ(problemOf(kStream, 3, false, findings).cause, ExitCause::ProxyFailure);
    }
}

TEST(Problem, SaysOnlyOnceAndWithoutPasswords) {
    WorkerFindings findings;
    findings.take(QStringLiteral("http failed: network: NewError: http://u:secret@h/x failed"), false);
    EXPECT_EQ(problemOf(kStream, 3, false, findings).text,
              QStringLiteral("network failure: http://***@h/x failed"));
}

TEST(Problem, OfAFileIsWhatTheSystemSays) {
    const QTemporaryDir folder;
    const QString file = folder.filePath(QStringLiteral("a.mp4"));
    const auto shown = [](const QString& path) { return QDir::toNativeSeparators(path); };
    const auto look = [](const QString& path) {
        const bool hasRoot = path.startsWith(u'/');
        return lookAtLocalFile((hasRoot ? QStringLiteral("file://") : QStringLiteral("file:///")) + path);
    };
    EXPECT_EQ(look(file).path, shown(file));
    EXPECT_EQ(look(file).state, LocalFileState::Missing);
    EXPECT_EQ(look(folder.path()).state, LocalFileState::Folder);
    QFile made(file);
    ASSERT_TRUE(made.open(QIODevice::WriteOnly));
    EXPECT_EQ(look(file).state, LocalFileState::Readable);
    EXPECT_EQ(lookAtLocalFile(QStringLiteral("file")).path,
              shown(QDir::current().filePath(QStringLiteral("file"))));

    WorkerFindings findings;
    findings.hasShownPicture = false;
    findings.localFile = {QStringLiteral("/f"), LocalFileState::Readable};
    EXPECT_EQ(problemOf(kFile, 2, false, findings).text,
              QStringLiteral("the file /f has no video that can be shown"));
    EXPECT_EQ(problemOf(kFile, 2, false, findings).cause, ExitCause::NoVideo);
    findings.isFileRefused = true;
    for (const auto& [state, text] :
         {std::pair(LocalFileState::Folder, "/f is a folder, not a file"),
          std::pair(LocalFileState::Unreadable, "the file /f may not be read"),
          std::pair(LocalFileState::Readable, "the file /f is in no format that is known"),
          std::pair(LocalFileState::Unknown, "the file cannot be opened or read")}) {
        findings.localFile = {QStringLiteral("/f"), state};
        const Problem told = problemOf(kFile, 2, false, findings);
        EXPECT_EQ(told.text.toStdString(), text);
        EXPECT_EQ(told.cause, ExitCause::FileUnreadable);
    }
}

TEST(Problem, OfAWorkerThatCannotBeStarted) {
    const QString why = QStringLiteral("execve: y");
    const QTemporaryDir folder;
    const QString begin = QStringLiteral("the worker cannot be started: ");
    const QString missing = folder.filePath(QStringLiteral("worker"));
    EXPECT_EQ(startProblem(missing, why).text,
              begin + QStringLiteral("there is no file ") + QDir::toNativeSeparators(missing));
    EXPECT_EQ(startProblem(missing, why).cause, ExitCause::WorkerMissing);
    EXPECT_EQ(startProblem(QStringLiteral("no-such-worker"), why).text,
              begin + QStringLiteral("there is no no-such-worker beside this program, or in the PATH"));
    EXPECT_EQ(startProblem(folder.path(), why).text, begin + QDir::toNativeSeparators(folder.path()) +
                                                         QStringLiteral(" is not a program that may be run"));
    EXPECT_EQ(startProblem(folder.path(), why).cause, ExitCause::WorkerUnusable);
    EXPECT_EQ(startProblem({}, why).text, begin + why);
    EXPECT_EQ(startProblem({}, why).cause, ExitCause::Failed);
}
