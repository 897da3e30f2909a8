#include "Stage.h"

#include "support/servers/Pacing.h"

#include <QAction>
#include <QPushButton>
#include <QTest>

#include <atomic>

namespace mediaworker::test {
namespace {

using parent::PlaybackState;
using testing::StartsWith;

/// Cameras that a test takes away and gives back.
class Reconnect : public Stage {
protected:
    Reconnect() {
        const Clip clip = encode({});
        FlvOptions minute;
        minute.repeats = 30;
        server_.route("/camera.flv", [this, live = pacedHandler(makeFlv(clip, minute), {.burstMs = 600})](
                                         HttpResponse& response) {
            ++requests_;
            if (isThere_) {
                live(response);
            } else {
                response.errorPage(404, 0);
            }
        });
        FlvOptions film;
        film.repeats = 1;
        server_.route("/archive/film.flv",
                      [this, all = pacedHandler(makeFlv(clip, film), {.speed = 0})](HttpResponse& response) {
                          ++requests_;
                          all(response);
                      });
    }

    static view::StreamSettings reconnecting() {
        view::StreamSettings settings = silent();
        settings.isReconnecting = true;
        return settings;
    }
    bool waitForAttempt(int attempt, std::size_t index = 0) {
        return waitUntil([&] { return view(index).stream().attempt() >= attempt; });
    }

    std::atomic<bool> isThere_{true};
    std::atomic<int> requests_{0};
};

TEST_F(Reconnect, ACameraThatComesBackIsShownAgain) {
    show({"/camera.flv"}, reconnecting());
    ASSERT_TRUE(waitForPictures(view()));
    isThere_ = false;
    view().worker().kill();
    ASSERT_TRUE(waitUntil([&] {
        const QString words = text("overlayText");
        return words.startsWith(QStringLiteral("The server answered 404 Error – again in ")) &&
               words.endsWith(QStringLiteral(" s"));
    })) << text("overlayText").toStdString();
    EXPECT_FALSE(view().pictures().picture().isNull()) << "the last picture is still there";
    EXPECT_NE(view().stream().frames(), nullptr);
    EXPECT_TRUE(window().findChild<QPushButton*>(QStringLiteral("restart"))->isVisible());
    EXPECT_EQ(view().status().state, PlaybackState::Ended);
    isThere_ = true;
    EXPECT_TRUE(waitForPictures(view()));
    EXPECT_EQ(view().status().state, PlaybackState::Playing);
    EXPECT_TRUE(text("overlayText").isEmpty());
    closeWindow();
    EXPECT_EQ(leftovers(), "");
}

TEST_F(Reconnect, TheButtonDoesNotWait) {
    isThere_ = false;
    show({"/camera.flv"}, reconnecting());
    view().stream().setPolicy({.quickAttempts = 1});
    ASSERT_TRUE(waitForAttempt(4)); // the delays are seconds by then
    ASSERT_TRUE(waitUntil([&] { return view().stream().untilNextAttempt().has_value(); }));
    isThere_ = true;
    QTest::mouseClick(window().findChild<QPushButton*>(QStringLiteral("restart")), Qt::LeftButton);
    EXPECT_EQ(view().stream().attempt(), 1);
    EXPECT_TRUE(waitForPictures(view()));
}

TEST_F(Reconnect, APauseOutlastsTheWorker) {
    show({"/camera.flv"}, reconnecting());
    ASSERT_TRUE(waitForPictures(view()));
    press(Qt::Key_Space);
    ASSERT_EQ(view().status().state, PlaybackState::Paused);
    view().worker().kill();
    ASSERT_TRUE(waitForAttempt(2));
    EXPECT_TRUE(view().isPaused());
    ASSERT_TRUE(waitUntil([&] { return view().worker().isConnected(); }));
    press(Qt::Key_Space);
    EXPECT_FALSE(view().isPaused());
    EXPECT_TRUE(waitForPictures(view()));
}

TEST_F(Reconnect, ARecordingIsAtItsEnd) {
    show({"/archive/film.flv"}, reconnecting());
    ASSERT_TRUE(waitForState(view(), PlaybackState::Ended));
    EXPECT_EQ(view().status().endWords.toStdString(), "the server ended the stream");
    EXPECT_FALSE(view().status().untilNextAttempt);
    EXPECT_EQ(requests_, 1);
}

TEST_F(Reconnect, AStreamThatWasStoppedStaysSo) {
    show({"/camera.flv"}, reconnecting());
    ASSERT_TRUE(waitForPictures(view()));
    view().stop();
    ASSERT_TRUE(waitForState(view(), PlaybackState::Ended));
    EXPECT_FALSE(view().status().untilNextAttempt);
    EXPECT_EQ(view().status().endWords.toStdString(), "stopped");
}

TEST_F(Reconnect, ClosingTheWindowEndsTheWaiting) {
    isThere_ = false;
    show({"/camera.flv", "/camera.flv"}, reconnecting());
    ASSERT_TRUE(waitForAttempt(3, 0));
    ASSERT_TRUE(waitForAttempt(3, 1));
    closeWindow();
    const int asked = requests_;
    QTest::qWait(1500); // longer than their delay
    EXPECT_EQ(requests_, asked);
    EXPECT_EQ(leftovers(), "");
}

} // namespace
} // namespace mediaworker::test
