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
    using namespace std::chrono_literals;
    StreamTiming timing;
    timing.isHttp = url.startsWith(QLatin1String("http"));
    timing.isCloud = url.startsWith(QLatin1String("https"));
    timing.isLive = !url.contains(QLatin1String("archive"));

    std::string kind;
    if (timing.isHttp) {
        timing.firstFrame = timing.isLive ? 5s : 10s;
        timing.nextFrame = timing.isLive ? 3s : 5s;
        if (timing.isCloud) {
            timing.firstFrame += 3s;
            timing.nextFrame += 2s;
        }
        kind = std::string(timing.isLive ? "live" : "archive") + (timing.isCloud ? " cloud" : " local");
    } else {
        timing.firstFrame = 1s;
        timing.nextFrame = 1s;
        kind = "file " + url.toStdString();
    }
    timing.logLines.push_back("set timeouts for " + kind + ": first frame " +
                              std::to_string(timing.firstFrame.count()) + " seconds, inter frame " +
                              std::to_string(timing.nextFrame.count()) + " seconds");

    timing.buffering = timing.isHttp;
    if (policy == ko_player::BufferingPolicy::Never || (!timing.isLive && isAtAnotherSpeed(url))) {
        timing.buffering = false;
        timing.logLines.emplace_back("disable buffering");
    }
    return timing;
}
