#include "stream/StreamTiming.h"

#include <QUrl>
#include <QUrlQuery>

namespace {

/// An archive at another speed than real time comes at a rate that the buffering rules are not made for.
bool isAtAnotherSpeed(const QString& url) {
    const QString speed = QUrlQuery(QUrl(url)).queryItemValue(QStringLiteral("speed"));
    return !speed.isEmpty() && speed != QLatin1String("1");
}

} // namespace

StreamTiming streamTiming(const QString& url, ko_player::BufferingPolicy policy) {
    StreamTiming timing;
    timing.isHttp = url.startsWith(QLatin1String("http"));
    timing.isCloud = url.startsWith(QLatin1String("https"));
    timing.isLive = !url.contains(QLatin1String("archive"));

    std::string kind;
    if (timing.isHttp) {
        timing.firstFrameSeconds = timing.isLive ? 5 : 10;
        timing.nextFrameSeconds = timing.isLive ? 3 : 5;
        if (timing.isCloud) {
            timing.firstFrameSeconds += 3;
            timing.nextFrameSeconds += 2;
        }
        kind = std::string(timing.isLive ? "live" : "archive") + (timing.isCloud ? " cloud" : " local");
    } else {
        timing.firstFrameSeconds = 1;
        timing.nextFrameSeconds = 1;
        kind = "file " + url.toStdString();
    }
    timing.logLines.push_back("set timeouts for " + kind + ": first frame " +
                              std::to_string(timing.firstFrameSeconds) + " seconds, inter frame " +
                              std::to_string(timing.nextFrameSeconds) + " seconds");

    timing.buffering = timing.isHttp;
    if (policy == ko_player::BufferingPolicy::Never || (!timing.isLive && isAtAnotherSpeed(url))) {
        timing.buffering = false;
        timing.logLines.emplace_back("disable buffering");
    }
    return timing;
}
