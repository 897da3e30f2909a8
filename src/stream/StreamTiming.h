#pragma once

#include "records/Options.h"

#include <QString>

#include <chrono>
#include <string>
#include <vector>

/// What the URL decides about a stream.
struct StreamTiming {
    bool isHttp = false;  ///< plain or secure; otherwise a local file
    bool isCloud = false; ///< secure
    bool isLive = false;
    std::chrono::seconds firstFrame{0}; ///< how long the first picture may take
    std::chrono::seconds nextFrame{0};  ///< how long any later picture may take
    bool buffering = false;
    std::vector<std::string> logLines; ///< to be written in this order
};

/// With BufferingPolicy::Never no stream is buffered, whatever its URL says.
[[nodiscard]] StreamTiming
streamTiming(const QString& url, ko_player::BufferingPolicy policy = ko_player::BufferingPolicy::ByUrl);
