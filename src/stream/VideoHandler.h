#pragma once

#include "records/Handlers.h"

#include <cstdint>
#include <functional>

/// Carries the engine's picture calls to callables, on the thread that calls.
class VideoHandler final : public ko_player::VideoHandler {
public:
    /// All but `expectPicture` and `onStopped` are required: calling one that is not set throws
    /// std::bad_function_call.
    struct Callables {
        std::function<void()> onStopped;
        std::function<std::uint8_t*(const ko_player::VideoParams& in, ko_player::VideoParams& out)>
            onVideoParams;
        std::function<void(const std::uint8_t* data, int size, std::int64_t pts)> onFrame;
        std::function<void(std::int64_t value)> onMetadataValue;
        std::function<void(std::int64_t first, std::int64_t second)> onMetadataPair;
        std::function<ko_player::ResourceGuard()> lockFrameBuffer;
        std::function<void(int width, int height)> expectPicture = {};
    };

    explicit VideoHandler(Callables callables);

    void expectPicture(int width, int height) override;
    /// Ends the process with code 2; does not return.
    bool onFrameTimeout() override;
    void onStopped() override;
    std::uint8_t* onVideoParams(const ko_player::VideoParams& in, ko_player::VideoParams& out) override;
    void onFrame(const std::uint8_t* data, int size, std::int64_t pts) override;
    void onMetadataValue(std::int64_t value) override;
    void onMetadataPair(std::int64_t first, std::int64_t second) override;
    ko_player::ResourceGuard lockFrameBuffer() override;

private:
    const Callables callables_;
};
