#pragma once

#include <QString>

#include <string>
#include <vector>

/// What the URL alone decides about a stream.
struct StreamTiming {
    bool isHttp = false;  ///< plain or secure; otherwise a local file
    bool isCloud = false; ///< secure
    bool isLive = false;
    int firstFrameSeconds = 0; ///< how long the first picture may take
    int nextFrameSeconds = 0;  ///< how long any later picture may take
    bool buffering = false;
    std::vector<std::string> logLines; ///< to be written in this order
};

[[nodiscard]] StreamTiming streamTiming(const QString& url);
