#include "sound/AudioHandler.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>

namespace {

TEST(AudioHandler, ForwardsEachCallToItsCallable) {
    int written = 0;
    AudioHandler handler({[](const ko_player::AudioParams& in, ko_player::AudioParams& out) {
                              out = in;
                              return in.channels == 2;
                          },
                          [&](const std::uint8_t*, int size) { written += size; }});
    ko_player::AudioParams in;
    ko_player::AudioParams out;
    in.channels = 2;
    EXPECT_TRUE(handler.onAudioParams(in, out));
    EXPECT_EQ(out.channels, 2);
    in.channels = 1;
    EXPECT_FALSE(handler.onAudioParams(in, out));
    handler.onAudioData(nullptr, 5);
    EXPECT_EQ(written, 5);
}

TEST(AudioHandler, ForwardsWhatKeepsSoundInStep) {
    bool isPaused = false;
    AudioHandler handler({{},
                          {},
                          [] { return ko_player::SoundLevel{.device = 1, .heldMs = 20}; },
                          [&](bool paused) { isPaused = paused; }});
    EXPECT_EQ(handler.soundLevel()->heldMs, 20);
    handler.onAudioPause(true);
    EXPECT_TRUE(isPaused);
}

TEST(AudioHandler, MissingCallableIsAnError) {
    AudioHandler handler({});
    ko_player::AudioParams out;
    EXPECT_THROW(handler.onAudioParams({}, out), std::bad_function_call);
    EXPECT_THROW(handler.onAudioData(nullptr, 0), std::bad_function_call);
}

} // namespace
