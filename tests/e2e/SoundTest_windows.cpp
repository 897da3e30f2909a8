#include "Session.h"

#include "support/Platform.h"
#include "support/qt/HttpServer.h"
#include "support/qt/Pacing.h"

#include <gmock/gmock.h>

namespace mediaworker::test {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;

/// What is heard cannot be asked here: whether there is a device or none, the pictures go on.
class SoundOnWindows : public testing::Test {
protected:
    SoundOnWindows() {
        ClipSpec spec;
        spec.frames = 250;
        spec.audio = AudioCodec::Aac;
        server_.route("/live.flv", pacedHandler(makeFlv(encode(spec)), {.burstMs = 1500}));
    }

    HttpServer server_;
    Session session_;
};

TEST_F(SoundOnWindows, IsLoadedWhenTheParentAsksForItAndNotBefore) {
    session_.start(server_.url("/live.flv"));
    ASSERT_TRUE(session_.waitForFrames(5)) << session_.logText();
    const qint64 pid = session_.worker().processId();
    EXPECT_THAT(platform::loadedLibraries(pid),
                Not(AnyOf(HasSubstr("mediaworker_sound"), HasSubstr("Qt5Multimedia"), HasSubstr("Qt5Gui"))));
    ASSERT_TRUE(session_.worker().setVolume(50));
    ASSERT_TRUE(session_.waitUntil(
        [&] { return session_.hasLineBeginning("Trying to start audio device: audio device has been"); },
        10s))
        << session_.logText();
    EXPECT_THAT(platform::loadedLibraries(pid),
                AllOf(HasSubstr("mediaworker_sound.dll"), HasSubstr("Qt5Multimedia.dll"),
                      HasSubstr("qtaudio_windows.dll")));
    const std::size_t before = session_.shown().size();
    EXPECT_TRUE(session_.waitForFrames(before + 25)) << session_.logText();
    ASSERT_TRUE(session_.worker().stopAudio());
    EXPECT_TRUE(session_.waitForFrames(before + 50)) << session_.logText();
}

} // namespace
} // namespace mediaworker::test
