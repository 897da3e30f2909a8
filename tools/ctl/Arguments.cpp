#include "tools/ctl/Arguments.h"

#include "parent/Address.h"
#include "parent/MaskedUrls.h"
#include "tools/ctl/PlaylistName.h"
#include "tools/files/FileUrl.h"

#include <QCommandLineParser>
#include <QDir>
#include <QFileInfo>
#include <QUrl>

#include <cmath>
#include <limits>
#include <utility>

namespace mediaworker::ctl {

namespace {

using std::chrono::milliseconds;

constexpr char kProgram[] = "mediaworker-ctl";

/// Thrown and caught in this file only.
struct Refusal {
    QString why;
};

QString programName() {
    return QString::fromLatin1(kProgram);
}

QCommandLineOption option(const char* name, const char* value, const QString& description) {
    return {QString::fromLatin1(name), description, QString::fromLatin1(value)};
}

QCommandLineOption helpOption() {
    return {{QStringLiteral("h"), QStringLiteral("help")}, QStringLiteral("Print this help.")};
}

QCommandLineOption jsonOption() {
    return {QStringLiteral("json"), QStringLiteral("Print one JSON object per line, for scripts.")};
}

QCommandLineOption workerOption() {
    return option("worker", "FILE",
                  QStringLiteral("The worker's program file. Default: mediaworker beside this program, else "
                                 "in the PATH."));
}

QCommandLineOption flvOption() {
    return option("flv", "READING",
                  QStringLiteral("How the stream's FLV is read: standard (the default), as common programs "
                                 "write it; strict, to the letter of the servers that the worker was first "
                                 "made for."));
}

QCommandLineOption noSandboxOption() {
    return {QStringLiteral("no-sandbox"),
            QStringLiteral("Let the worker do all that its user may do, instead of its work alone.")};
}

QCommandLineOption logOption() {
    return option("log", "FILE",
                  QStringLiteral("Add the worker's own log to this file, with the time before each line."));
}

QCommandLineOption verboseOption() {
    return {QStringLiteral("verbose"), QStringLiteral("Print the worker's own log on standard error.")};
}

QCommandLineOption playlistOption() {
    return option(
        "playlist", "FILE",
        QStringLiteral("URL is a name in this list of streams, which has a line NAME = URL for it."));
}

/// @throws Refusal
LogTargets logTargetsOf(const QCommandLineParser& parser, const QString& folder) {
    const QString log = logOption().names().constFirst();
    if (parser.isSet(log) && parser.value(log).isEmpty()) {
        throw Refusal{QStringLiteral("--log needs a file")};
    }
    return {.file = parser.isSet(log) ? QDir(folder).absoluteFilePath(parser.value(log)) : QString(),
            .isVerbose = parser.isSet(verboseOption())};
}

/// The parser's help with our own first line, which Qt would begin with the path of the program.
QString helpOf(const QCommandLineParser& parser, const QString& usage) {
    const QString text = parser.helpText();
    return QStringLiteral("Usage: %1 %2").arg(programName(), usage) + text.mid(text.indexOf(u'\n'));
}

QString generalHelp() {
    return QStringLiteral(
               "Usage: %1 COMMAND ...\n"
               "Plays or records a video stream in a worker process, without a window.\n"
               "\n"
               "Commands:\n"
               "  play URL [options]                         Play a stream or a file, and tell how it goes.\n"
               "  export URL FILE [options]                  Record a stream into an MP4 file.\n"
               "  help [COMMAND]                             Print the help of a command.\n"
               "\n"
               "Options:\n"
               "  -h, --help     Print this help; behind a command, the command's.\n"
               "  -v, --version  Print the version.\n"
               "\n"
               "Exit status: 0 if the job was done, 2 for wrong usage, 3 if an export is complete but "
               "shorter\n"
               "than it was to be, 1 for anything else.\n")
        .arg(programName());
}

std::optional<milliseconds> toDuration(const QString& text) {
    bool isNumber = false;
    const double seconds = text.toDouble(&isNumber);
    // The worker takes milliseconds in 32 bits.
    constexpr double kMaxSeconds = std::numeric_limits<qint32>::max() / 1000.0;
    if (!isNumber || !(seconds >= 0) || seconds > kMaxSeconds) {
        return std::nullopt;
    }
    return milliseconds(std::llround(seconds * 1000));
}

/// A number of seconds. @throws Refusal when it is none, or shorter than a millisecond.
milliseconds durationOf(const QCommandLineParser& parser, const QCommandLineOption& option) {
    const auto duration = toDuration(parser.value(option));
    if (!duration || duration->count() == 0) {
        throw Refusal{QStringLiteral("--%1 must be a number of seconds, such as 10 or 0.5")
                          .arg(option.names().constFirst())};
    }
    return *duration;
}

/// @throws Refusal
parent::FlvReading flvReadingOf(const QCommandLineParser& parser, const QCommandLineOption& flv) {
    const QString reading = parser.value(flv);
    if (!parser.isSet(flv) || reading == QStringLiteral("standard")) {
        return parent::FlvReading::Standard;
    }
    if (reading != QStringLiteral("strict")) {
        throw Refusal{QStringLiteral("--flv must be strict or standard")};
    }
    return parent::FlvReading::Strict;
}

/// @throws Refusal
QStringList positional(const QCommandLineParser& parser, const QStringList& names) {
    QStringList values = parser.positionalArguments();
    for (int i = 0; i < names.size(); ++i) {
        if (values.value(i).isEmpty()) {
            throw Refusal{QStringLiteral("%1 is missing").arg(names[i])};
        }
    }
    if (values.size() > names.size()) {
        throw Refusal{QStringLiteral("unexpected argument: %1").arg(values[names.size()])};
    }
    return values;
}

bool isWebUrl(const QString& text) {
    const QUrl url(text);
    const bool isWeb = url.scheme() == QStringLiteral("http") || url.scheme() == QStringLiteral("https");
    return isWeb && !url.host().isEmpty();
}

/// The URL for the worker; a path becomes one. @throws Refusal
QString playableUrl(const QString& text, const QString& folder) {
    if (isWebUrl(text) || text.startsWith(QStringLiteral("file:"))) {
        return text;
    }
    if (const QString problem = parent::addressProblem(text); !problem.isEmpty()) {
        throw Refusal{problem};
    }
    return fileUrl(text, folder);
}

struct Address {
    QString text;
    QString folder; ///< where a relative path begins
};

/// What is to be played or recorded: the text itself, or what a playlist has under that name. @throws Refusal
Address addressOf(const QCommandLineParser& parser, const QString& text, const QString& folder) {
    if (!parser.isSet(QStringLiteral("playlist"))) {
        return {text, folder};
    }
    const NamedStream stream = streamOfPlaylist(parser.value(QStringLiteral("playlist")), folder, text);
    if (!stream.problem.isEmpty()) {
        throw Refusal{stream.problem};
    }
    return {stream.address, stream.folder};
}

struct PlayOptions {
    const QCommandLineOption help = helpOption();
    const QCommandLineOption seconds =
        option("seconds", "N",
               QStringLiteral("Watch for N seconds from the first picture, then end. Pictures must still "
                              "come by then."));
    const QCommandLineOption snapshots = option(
        "snapshots", "DIR", QStringLiteral("Save pictures into this folder as PNG files; it is made."));
    const QCommandLineOption every =
        option("every", "N",
               QStringLiteral("Seconds of the stream from one saved picture to the next. Default: 1. The "
                              "first picture is always saved."));
    const QCommandLineOption volume =
        option("volume", "P", QStringLiteral("Play the sound, at P percent (0 to 100). Default: no sound."));
    const QCommandLineOption json = jsonOption();
    const QCommandLineOption proxy =
        option("proxy", "URL", QStringLiteral("Fetch through a proxy: http://[user:password@]host:port."));
    const QCommandLineOption proxyType =
        option("proxy-type", "TYPE", QStringLiteral("What the proxy is: http (the default) or socks5."));
    const QCommandLineOption flv = flvOption();
    const QCommandLineOption lowLatency = {
        QStringLiteral("low-latency"),
        QStringLiteral("Keep no pictures ahead: the delay is small, and every hitch of the network shows.")};
    const QCommandLineOption noSync = {
        QStringLiteral("no-sync"),
        QStringLiteral("Do not keep the sound in step with the pictures: it has a rhythm of its own.")};
    const QCommandLineOption reconnect = {
        QStringLiteral("reconnect"),
        QStringLiteral("Start a stream again when it has ended: after half a second, later up to half a "
                       "minute. Counts and --seconds go on.")};
    const QCommandLineOption playlist = playlistOption();
    const QCommandLineOption noSandbox = noSandboxOption();
    const QCommandLineOption worker = workerOption();
    const QCommandLineOption log = logOption();
    const QCommandLineOption verbose = verboseOption();
};

/// @throws Refusal
void takeSnapshots(const QCommandLineParser& parser, const PlayOptions& options, const QString& folder,
                   PlayCommand& command) {
    if (parser.isSet(options.snapshots)) {
        if (parser.value(options.snapshots).isEmpty()) {
            throw Refusal{QStringLiteral("--snapshots needs a folder")};
        }
        command.snapshotFolder = QDir(folder).absoluteFilePath(parser.value(options.snapshots));
    }
    if (parser.isSet(options.every)) {
        if (!parser.isSet(options.snapshots)) {
            throw Refusal{QStringLiteral("--every needs --snapshots")};
        }
        command.snapshotInterval = durationOf(parser, options.every);
    }
}

/// @throws Refusal
void takeVolume(const QCommandLineParser& parser, const PlayOptions& options, PlayCommand& command) {
    if (!parser.isSet(options.volume)) {
        return;
    }
    bool isNumber = false;
    const int percent = parser.value(options.volume).toInt(&isNumber);
    if (!isNumber || percent < 0 || percent > 100) {
        throw Refusal{QStringLiteral("--volume must be a number from 0 to 100")};
    }
    command.volumePercent = percent;
}

/// @throws Refusal
void takeProxy(const QCommandLineParser& parser, const PlayOptions& options, PlayCommand& command) {
    command.proxyUrl = parser.value(options.proxy);
    command.proxyType = parser.value(options.proxyType);
    if (parser.isSet(options.proxy) && QUrl(command.proxyUrl).host().isEmpty()) {
        throw Refusal{QStringLiteral("--proxy must be like http://[user:password@]host:port")};
    }
    if (!parser.isSet(options.proxyType)) {
        return;
    }
    if (!parser.isSet(options.proxy)) {
        throw Refusal{QStringLiteral("--proxy-type needs --proxy")};
    }
    if (command.proxyType != QStringLiteral("http") && command.proxyType != QStringLiteral("socks5")) {
        throw Refusal{QStringLiteral("--proxy-type must be http or socks5")};
    }
}

/// @throws Refusal
Command parsePlay(const QStringList& arguments, const QString& folder) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Plays a stream or a file in a worker process and tells how it goes: one line per second, or one\n"
        "that is written over again and again on a terminal. Ctrl-C ends it.\n"
        "\n"
        "The job is done when pictures were shown for as long as --seconds says; without it, when the\n"
        "stream ended (or Ctrl-C was pressed) after at least one picture."));
    const PlayOptions options;
    parser.addOptions({options.help, options.seconds, options.snapshots, options.every, options.volume,
                       options.json, options.proxy, options.proxyType, options.flv, options.lowLatency,
                       options.noSync, options.reconnect, options.playlist, options.noSandbox, options.worker,
                       options.log, options.verbose});
    parser.addPositionalArgument(
        QStringLiteral("URL"),
        QStringLiteral("An FLV stream (http, https), or a file (file:///path, or a path)."));
    if (!parser.parse(arguments)) {
        throw Refusal{parser.errorText()};
    }
    if (parser.isSet(options.help)) {
        return Information{helpOf(parser, QStringLiteral("play URL [options]"))};
    }

    PlayCommand command;
    const Address address =
        addressOf(parser, positional(parser, {QStringLiteral("the URL")}).constFirst(), folder);
    command.url = playableUrl(address.text, address.folder);
    if (parser.isSet(options.seconds)) {
        command.duration = durationOf(parser, options.seconds);
    }
    takeSnapshots(parser, options, folder, command);
    takeVolume(parser, options, command);
    takeProxy(parser, options, command);
    command.flv = flvReadingOf(parser, options.flv);
    command.hasLowLatency = parser.isSet(options.lowLatency);
    command.hasSync = !parser.isSet(options.noSync);
    command.isReconnecting = parser.isSet(options.reconnect);
    if (command.isReconnecting && !isWebUrl(command.url)) {
        throw Refusal{QStringLiteral("--reconnect is for streams (http, https), not for files")};
    }
    command.isConfined = !parser.isSet(options.noSandbox);
    command.worker = parser.value(options.worker);
    command.log = logTargetsOf(parser, folder);
    command.isJson = parser.isSet(options.json);
    return command;
}

/// The file to write, which has a name that players know it by. @throws Refusal
QString recordingFile(const QString& text, const QString& folder) {
    const QString suffix = QFileInfo(text).suffix().toLower();
    const bool isMp4 = suffix == QStringLiteral("mp4") || suffix == QStringLiteral("m4v");
    if (!isMp4) {
        throw Refusal{QStringLiteral("%1 is no name for an MP4 file: film.mp4 would be").arg(text)};
    }
    return QDir(folder).absoluteFilePath(text);
}

/// @throws Refusal
Command parseExport(const QStringList& arguments, const QString& folder) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Records a stream into an MP4 file, as it comes. FILE appears when it is complete, in place of what\n"
        "was there; until then the recording is \"film.partial.mp4\" for \"film.mp4\". Ctrl-C ends the\n"
        "recording and keeps it; a second Ctrl-C gives it up. The proxy is that of the environment\n"
        "(http_proxy, https_proxy)."));
    const auto help = helpOption();
    const auto duration = option("duration", "S",
                                 QStringLiteral("Record S seconds, up to the next picture. A stream that "
                                                "ends sooner is complete then. Without it, the recording "
                                                "goes on until the stream ends, or Ctrl-C."));
    const auto timeout = option("timeout", "S",
                                QStringLiteral("End when the progress stands still for S seconds, and keep "
                                               "what was recorded; 0: never. Default: 60 and a twentieth "
                                               "of the duration; without one, never."));
    const QCommandLineOption noClobber = {QStringLiteral("no-clobber"),
                                          QStringLiteral("Do not replace a file that is there: status 1.")};
    const auto json = jsonOption();
    const auto flv = flvOption();
    const auto noSandbox = noSandboxOption();
    const auto worker = workerOption();
    parser.addOptions({help, duration, timeout, noClobber, json, flv, playlistOption(), noSandbox, worker,
                       logOption(), verboseOption()});
    parser.addPositionalArgument(QStringLiteral("URL"), QStringLiteral("An FLV stream (http, https)."));
    parser.addPositionalArgument(QStringLiteral("FILE"), QStringLiteral("The MP4 file to write."));
    if (!parser.parse(arguments)) {
        throw Refusal{parser.errorText()};
    }
    if (parser.isSet(help)) {
        return Information{helpOf(parser, QStringLiteral("export URL FILE [options]"))};
    }

    const QStringList values =
        positional(parser, {QStringLiteral("the URL"), QStringLiteral("the file to write")});
    ExportCommand command;
    command.url = addressOf(parser, values[0], folder).text;
    if (!isWebUrl(command.url)) {
        throw Refusal{QStringLiteral("cannot export %1: only http and https").arg(command.url)};
    }
    command.file = recordingFile(values[1], folder);
    if (parser.isSet(duration)) {
        command.duration = durationOf(parser, duration);
        command.patience = defaultPatience(command.duration);
    }
    command.mayReplace = !parser.isSet(noClobber);
    if (parser.isSet(timeout)) {
        const auto patience = toDuration(parser.value(timeout));
        if (!patience) {
            throw Refusal{QStringLiteral("--timeout must be a number of seconds")};
        }
        command.patience = *patience;
    }
    command.flv = flvReadingOf(parser, flv);
    command.isConfined = !parser.isSet(noSandbox);
    command.worker = parser.value(worker);
    command.log = logTargetsOf(parser, folder);
    command.isJson = parser.isSet(json);
    return command;
}

} // namespace

std::chrono::milliseconds defaultPatience(std::chrono::milliseconds duration) {
    return std::chrono::seconds(60) + duration / 20;
}

Command parseArguments(const QStringList& arguments, const QString& folder) {
    QString command = arguments.value(1);
    QStringList rest = arguments.mid(2);
    if (command == QStringLiteral("--version") || command == QStringLiteral("-v")) {
        return Information{QStringLiteral("%1 " MEDIAWORKER_VERSION "\n").arg(programName())};
    }
    if (command == QStringLiteral("--help") || command == QStringLiteral("-h")) {
        return Information{generalHelp()};
    }
    if (command == QStringLiteral("help")) {
        if (rest.isEmpty()) {
            return Information{generalHelp()};
        }
        command = rest.constFirst();
        rest = QStringList{QStringLiteral("--help")};
    }
    const bool isPlay = command == QStringLiteral("play");
    if (!isPlay && command != QStringLiteral("export")) {
        return Misuse{command.isEmpty()
                          ? QStringLiteral("the command is missing")
                          : QStringLiteral("unknown command: %1").arg(parent::maskedUrls(command)),
                      QStringLiteral("--help")};
    }
    rest.prepend(programName());
    try {
        return isPlay ? parsePlay(rest, folder) : parseExport(rest, folder);
    } catch (const Refusal& refusal) {
        return Misuse{parent::maskedUrls(refusal.why), command + QStringLiteral(" --help")};
    }
}

} // namespace mediaworker::ctl
