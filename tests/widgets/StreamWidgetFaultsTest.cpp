#include "support/Eventually.h"
#include "support/Leftovers.h"
#include "widgets/StreamWidget.h"

#include <QLabel>
#include <QPushButton>

#include <gmock/gmock.h>

namespace mediaworker::widgets {
namespace {

using parent::PlaybackState;
using test::eventually;
using testing::ElementsAre;

/// A widget with the stand-in of the parent's tests, which does what its "URL" says.
class FaultsOfAStreamWidget : public testing::Test {
protected:
    FaultsOfAStreamWidget() {
        widget_.player().supervisor().worker().setProgram(QStringLiteral(FAKE_WORKER));
        QObject::connect(&widget_.player().supervisor().worker(), &parent::WorkerProcess::logLine, &widget_,
                         [this](const QString& line) {
                             if (line.startsWith(QStringLiteral("took "))) {
                                 taken_.push_back(line.mid(5).toStdString());
                             }
                         });
        widget_.show();
    }
    void play(const char* script) { widget_.play(QString::fromUtf8(script)); }
    bool waitForCommands(std::size_t count) {
        return eventually([&] { return taken_.size() >= count; });
    }

    StreamWidget widget_;
    std::vector<std::string> taken_; ///< commands, as the worker got them
};

constexpr const char* kServing = "connect;hello;serve";

TEST_F(FaultsOfAStreamWidget, WordsOfAServerAreNoMarkup) {
    play("connect;hello;log:http failed: status 404 <b>Not</b> there;exit:3");
    ASSERT_TRUE(eventually([&] { return widget_.state() == PlaybackState::Ended; }));
    const auto* const label = widget_.findChild<QLabel*>(QStringLiteral("overlayText"));
    EXPECT_THAT(label->text().toStdString(),
                testing::StartsWith("Ended: the server answered 404 <b>Not</b>"));
    EXPECT_EQ(label->textFormat(), Qt::PlainText);
}

TEST_F(FaultsOfAStreamWidget, SoundAndPauseGoToEachWorker) {
    widget_.setVolume(40);
    widget_.setPaused(true);
    play(kServing);
    ASSERT_TRUE(waitForCommands(2));
    const std::vector<std::string> before = taken_;
    EXPECT_EQ(widget_.state(), PlaybackState::Paused);
    widget_.restart();
    ASSERT_TRUE(waitForCommands(4));
    EXPECT_EQ(std::vector(taken_.begin() + 2, taken_.end()), before);

    taken_.clear();
    widget_.setMuted(true);
    ASSERT_TRUE(waitForCommands(1));
    widget_.setVolume(60); // not heard
    widget_.setPaused(false);
    ASSERT_TRUE(waitForCommands(2));
    widget_.setMuted(false);
    ASSERT_TRUE(waitForCommands(3));
    EXPECT_THAT(taken_,
                ElementsAre(testing::StartsWith("09"), testing::StartsWith("07"), testing::StartsWith("05")));
    EXPECT_EQ(widget_.player().volume(), 60);
    widget_.setVolume(1000);
    EXPECT_EQ(widget_.player().volume(), 100);
}

TEST_F(FaultsOfAStreamWidget, HasRoomForMoreBelowItsWords) {
    const auto* const label = widget_.findChild<QLabel*>(QStringLiteral("overlayText"));
    EXPECT_FALSE(label->isVisible());
    widget_.setIdleText(QStringLiteral("nothing yet"));
    EXPECT_TRUE(label->isVisible());
    EXPECT_EQ(label->text(), QStringLiteral("nothing yet"));
    auto* const button = new QPushButton(QStringLiteral("go"));
    widget_.addToOverlay(button);
    EXPECT_TRUE(eventually([&] { return button->isVisible() && button->width() > 0; }));
    play(kServing);
    EXPECT_TRUE(eventually([&] { return widget_.state() == PlaybackState::Buffering; }));
    EXPECT_EQ(label->text(), QStringLiteral("Buffering"));
    widget_.stop();
    EXPECT_TRUE(eventually([&] { return widget_.state() == PlaybackState::Ended; }));
    EXPECT_EQ(label->text(), QStringLiteral("Ended: stopped"));
    widget_.restart();
    EXPECT_TRUE(eventually([&] { return widget_.state() == PlaybackState::Buffering; }));
}

// Nobody has painted it, and its worker goes.
TEST_F(FaultsOfAStreamWidget, ThePictureOfTheWorkerBeforeStays) {
    widget_.hide();
    play("connect;hello;picture:16x8;send:0108000000000000000000;serve");
    ASSERT_TRUE(eventually([&] { return widget_.player().monitor().frames() == 1; }));
    EXPECT_EQ(widget_.copies(), 0U);
    widget_.player().play({QString::fromUtf8(kServing)});
    EXPECT_EQ(widget_.picture().size(), QSize(16, 8));
}

TEST_F(FaultsOfAStreamWidget, SaysWhenThereIsNoWorker) {
    widget_.player().supervisor().worker().setProgram(QStringLiteral("/nonexistent/worker"));
    play("http://127.0.0.1:1/live.flv");
    ASSERT_TRUE(eventually([&] { return widget_.state() == PlaybackState::Ended; }));
    EXPECT_THAT(widget_.problem().toStdString(), testing::HasSubstr("the worker cannot be started"));
}

} // namespace
} // namespace mediaworker::widgets
