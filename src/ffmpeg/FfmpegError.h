#pragma once

#include <exception>
#include <string>

namespace ko_player::ff_wrap {

/// FFmpeg's text for an error code, or "Undef error: " and the decimal code where it has none. Thread-safe.
[[nodiscard]] std::string errorText(int code);

/// A failure whose FFmpeg error code matters to the catcher.
class FfmpegError : public std::exception {
public:
    FfmpegError(const char* message, int code) : message_(message), code_(code) {}

    [[nodiscard]] const char* what() const noexcept override { return message_.c_str(); }
    /// A negative FFmpeg error code, such as AVERROR(ENOMEM).
    [[nodiscard]] int code() const noexcept { return code_; }

private:
    std::string message_;
    int code_;
};

} // namespace ko_player::ff_wrap
