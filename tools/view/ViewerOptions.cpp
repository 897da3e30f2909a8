#include "tools/view/ViewerOptions.h"

#include "parent/Address.h"
#include "parent/MaskedUrls.h"
#include "tools/playlist/PlainText.h"
#include "tools/playlist/Playlist.h"

#include <QCommandLineParser>
#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

#include <optional>

namespace mediaworker::view {

namespace {

std::optional<int> number(const QString& text, int least, int most) {
    bool isNumber = false;
    const int value = text.toInt(&isNumber);
    return isNumber && value >= least && value <= most ? std::optional(value) : std::nullopt;
}

QString picturesFolder() {
    const QString folder = QStandardPaths::writableLocation(QStandardPaths::PicturesLocation);
    return folder.isEmpty() ? QDir::homePath() : folder;
}

/// What is wrong with the playlist; empty when it was read.
QString readStreams(const QString& path, const QString& group, std::vector<StreamSource>& streams) {
    const Playlist list = readPlaylist(path);
    if (!list.problem.isEmpty()) {
        return list.problem;
    }
    const QString folder = QFileInfo(path).absolutePath();
    for (const PlaylistEntry& entry : list.entries) {
        if (group.isEmpty() || entry.group == plainText(group)) {
            streams.push_back({.url = streamUrl(entry.address, folder), .name = entry.name});
        }
    }
    return streams.empty() ? QStringLiteral("it has no streams in the group \"%1\"").arg(group) : QString();
}

} // namespace

ViewerOptions parseArguments(const QStringList& arguments, const QString& folder) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Shows streams and local video files, each played by a worker process of its own.\n"
        "\n"
        "Keys: space pause, End live, arrows volume, M mute, S snapshot, R record, F or F11 full screen,\n"
        "Esc back, F5 start again, Ctrl+O open, Ctrl+Shift+O open file, Ctrl+N add, Ctrl+W close stream,\n"
        "Ctrl+C copy address, Ctrl+E export, L the worker's log, Ctrl+Q quit. Of several streams, Tab, "
        "arrows and digits choose\n"
        "one, Enter fills the window with it and goes back, + and - are the volume. A double click fills\n"
        "the screen, the wheel is the volume."));
    const QCommandLineOption help({QStringLiteral("h"), QStringLiteral("help")},
                                  QStringLiteral("Print this and end."));
    const QCommandLineOption version(QStringLiteral("version"), QStringLiteral("Print the version and end."));
    const QCommandLineOption worker(
        QStringLiteral("worker"),
        QStringLiteral("The worker's program file. Default: \"mediaworker\" beside "
                       "this program, else in the PATH."),
        QStringLiteral("FILE"));
    const QCommandLineOption proxy(QStringLiteral("proxy"),
                                   QStringLiteral("Proxy for the streams: http://[user:password@]host:port."),
                                   QStringLiteral("URL"));
    const QCommandLineOption proxyType(QStringLiteral("proxy-type"),
                                       QStringLiteral("Kind of the proxy: http (the default) or socks5."),
                                       QStringLiteral("TYPE"));
    const QCommandLineOption flv(
        QStringLiteral("flv"),
        QStringLiteral("How the FLV of streams is read: standard (the default), as common programs write "
                       "it; strict, to the letter of the servers that the worker was first made for."),
        QStringLiteral("READING"));
    const QCommandLineOption lowLatency(
        QStringLiteral("low-latency"),
        QStringLiteral("Keep no pictures ahead: the delay is small, and every hitch of the network shows."));
    const QCommandLineOption noSync(
        QStringLiteral("no-sync"),
        QStringLiteral("Do not keep the sound in step with the pictures: it has a rhythm of its own."));
    const QCommandLineOption noReconnect(
        QStringLiteral("no-reconnect"),
        QStringLiteral("Do not start a live stream again when it has ended."));
    const QCommandLineOption noSandbox(
        QStringLiteral("no-sandbox"),
        QStringLiteral("Let the workers do all that their user may do, instead of their work alone."));
    const QCommandLineOption volume(
        QStringLiteral("volume"),
        QStringLiteral("Volume at the start, 0 to 100. Default: %1.").arg(SoundControl::kDefaultPercent),
        QStringLiteral("PERCENT"));
    const QCommandLineOption mute(
        QStringLiteral("mute"),
        QStringLiteral("Start without sound, which is the default for more than one stream unless --volume "
                       "is given."));
    const QCommandLineOption snapshots(
        QStringLiteral("snapshots"),
        QStringLiteral("The folder for snapshots. Default: the user's pictures."), QStringLiteral("DIR"));
    const QCommandLineOption playlist(
        QStringLiteral("playlist"),
        QStringLiteral(
            "A file with streams, one a line: NAME = URL. [GROUP] and # comments may stand between."),
        QStringLiteral("FILE"));
    const QCommandLineOption group(QStringLiteral("group"),
                                   QStringLiteral("Only the streams of that group of the playlist."),
                                   QStringLiteral("NAME"));
    const QCommandLineOption seconds(QStringLiteral("seconds"), QStringLiteral("End after that time."),
                                     QStringLiteral("N"));
    const QCommandLineOption noSettings(
        QStringLiteral("no-settings"),
        QStringLiteral("Neither use nor change what was remembered: window, volumes, addresses."));
    const QCommandLineOption statistics(
        QStringLiteral("statistics"),
        QStringLiteral("Print at the end how many pictures each stream announced, showed and copied."));
    parser.addOptions({help, version, worker, proxy, proxyType, flv, lowLatency, noSync, noReconnect,
                       noSandbox, volume, mute, snapshots, playlist, group, noSettings, seconds, statistics});
    parser.addPositionalArgument(
        QStringLiteral("URL"), QStringLiteral("A stream (http, https), or a file (file:///path, or a path)."),
        QStringLiteral("[URL…]"));

    ViewerOptions options;
    const auto refuse = [&options](const QString& why) {
        options.action = ViewerOptions::Action::Refuse;
        options.text = parent::maskedUrls(why);
        return options;
    };
    if (!parser.parse(arguments)) {
        return refuse(parser.errorText());
    }
    if (parser.isSet(help)) {
        options.action = ViewerOptions::Action::PrintHelp;
        options.text = parser.helpText();
        return options;
    }
    if (parser.isSet(version)) {
        options.action = ViewerOptions::Action::PrintVersion;
        return options;
    }
    options.streams.workerProgram = parser.value(worker);
    options.streams.proxyUrl = parser.value(proxy);
    options.streams.proxyType = parser.value(proxyType);
    const QString& type = options.streams.proxyType;
    if (!type.isEmpty() && type != QStringLiteral("http") && type != QStringLiteral("socks5")) {
        return refuse(QStringLiteral("--proxy-type must be http or socks5."));
    }
    if (!type.isEmpty() && options.streams.proxyUrl.isEmpty()) {
        return refuse(QStringLiteral("--proxy-type needs --proxy."));
    }
    const QString reading = parser.isSet(flv) ? parser.value(flv) : QStringLiteral("standard");
    if (reading != QStringLiteral("strict") && reading != QStringLiteral("standard")) {
        return refuse(QStringLiteral("--flv must be strict or standard."));
    }
    options.streams.flv =
        reading == QStringLiteral("strict") ? parent::FlvReading::Strict : parent::FlvReading::Standard;
    options.streams.hasLowLatency = parser.isSet(lowLatency);
    options.streams.hasSync = !parser.isSet(noSync);
    options.streams.isReconnecting = !parser.isSet(noReconnect);
    options.streams.isConfined = !parser.isSet(noSandbox);
    if (parser.isSet(volume)) {
        const std::optional<int> percent = number(parser.value(volume), 0, 100);
        if (!percent) {
            return refuse(QStringLiteral("--volume must be a number from 0 to 100."));
        }
        options.streams.volumePercent = *percent;
        options.streams.isVolumeChosen = true;
    }
    if (parser.isSet(seconds)) {
        constexpr int kWeek = 7 * 24 * 60 * 60;
        const std::optional<int> value = number(parser.value(seconds), 1, kWeek);
        if (!value) {
            return refuse(QStringLiteral("--seconds must be a number from 1 on."));
        }
        options.seconds = *value;
    }
    for (const QString& argument : parser.positionalArguments()) {
        if (const QString problem = parent::addressProblem(argument); !problem.isEmpty()) {
            return refuse(problem + u'.');
        }
        const QString url = streamUrl(argument, folder);
        if (url.isEmpty()) {
            return refuse(QStringLiteral("A URL is empty."));
        }
        options.urls << url;
    }
    if (parser.isSet(group) && !parser.isSet(playlist)) {
        return refuse(QStringLiteral("--group needs --playlist."));
    }
    if (parser.isSet(playlist)) {
        const QString path = QDir(folder).absoluteFilePath(parser.value(playlist));
        const QString problem = readStreams(path, parser.value(group), options.playlist);
        if (!problem.isEmpty()) {
            return refuse(QStringLiteral("The playlist %1 cannot be used: %2.")
                              .arg(QDir::toNativeSeparators(path), problem));
        }
    }
    // Nobody understands nine streams that talk at once.
    const std::size_t streams = options.playlist.size() + static_cast<std::size_t>(options.urls.size());
    options.streams.isMuted = parser.isSet(mute) || (streams > 1 && !parser.isSet(volume));
    options.snapshotFolder =
        parser.isSet(snapshots) ? QDir(folder).absoluteFilePath(parser.value(snapshots)) : picturesFolder();
    options.remembers = !parser.isSet(noSettings);
    options.printsStatistics = parser.isSet(statistics);
    return options;
}

} // namespace mediaworker::view
