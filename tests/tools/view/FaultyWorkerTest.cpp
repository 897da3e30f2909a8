#include "Stage.h"

#include <QLabel>
#include <QPushButton>
#include <QTest>
#include <QTimer>

#include <csignal>

namespace mediaworker::test {
namespace {

using parent::PlaybackState;

/// A window with the stand-in of the tests of the parent, which does what its "URL" says.
class FaultyWorker : public Stage {
protected:
    static view::StreamSettings standIn() {
        view::StreamSettings settings = silent();
        settings.workerProgram = QStringLiteral(FAKE_WORKER);
        return settings;
    }
    void showScripts(const std::vector<std::string>& scripts) {
        std::vector<std::string> paths;
        for (const std::string& script : scripts) {
            paths.push_back("/;" + script);
        }
        show(paths, standIn());
    }
    bool waitForEnd(std::size_t index = 0) { return waitForState(view(index), PlaybackState::Ended); }
};

struct EndCase {
    const char* name;
    const char* script;
    const char* words;
};

void PrintTo(const EndCase& end, std::ostream* out) {
    *out << end.script;
}

class End : public FaultyWorker, public testing::WithParamInterface<EndCase> {};

TEST_P(End, IsToldInWords) {
    showScripts({GetParam().script});
    ASSERT_TRUE(waitForEnd());
    EXPECT_EQ(text("state").toStdString(), std::string("ended: ") + GetParam().words);
    EXPECT_EQ(text("overlayText").toStdString(), std::string("Ended: ") + GetParam().words);
    EXPECT_TRUE(window().findChild<QPushButton*>(QStringLiteral("restart"))->isVisible());
    EXPECT_FALSE(view().isRunning());
    closeWindow();
    EXPECT_EQ(leftovers(), "");
}

INSTANTIATE_TEST_SUITE_P(
    OfAWorker, End,
    testing::Values(
        EndCase{"LinkClosed", "connect;hello;exit:0", "the link to the parent was closed"},
        EndCase{"Wordless", "connect;hello;exit:1",
                "the worker ended without a word, as one does that crashed"},
        EndCase{"NoPictureInTime", "connect;hello;exit:2", "no picture arrived in time"},
        EndCase{"EndOfTheStream", "connect;hello;exit:3", "the server ended the stream"},
        EndCase{"Refused", "connect;hello;log:http failed: status 404 Not Found;exit:3",
                "the server answered 404 Not Found"},
        EndCase{"NobodyListens",
                "connect;hello;log:http failed: network: ConnectionRefusedError: Connection refused;exit:3",
                "connection refused: nothing listens at that address and port"},
        EndCase{"PicturesUnavailable", "connect;hello;log:pictures unavailable: vp6: no decoder;exit:2",
                "the pictures cannot be shown: vp6: no decoder"},
        EndCase{"NothingToDecode", "connect;hello;exit:4", "the pictures ended or could not be decoded"},
        EndCase{"Unknown", "connect;hello;exit:77", "unknown exit code 77"},
        EndCase{"Killed", "connect;hello;crash", "the worker was killed"},
        EndCase{"KilledInAPacket", "connect;hello;send:0108002800;crash", "the worker was killed"},
        EndCase{"LivesOnWithoutItsLink", "connect;hello;drop;wait:100000",
                "the worker closed its link, but did not end"}),
    [](const auto& instance) { return instance.param.name; });

TEST_F(FaultyWorker, AFileAtItsEndIsToldInWords) {
    showScripts({"exit:0"});
    view().open(QStringLiteral("file:///;connect;hello;exit:2"));
    ASSERT_TRUE(waitForEnd());
    EXPECT_EQ(text("state"), QStringLiteral("ended: the file is at its end, or cannot be opened or read"));
}

TEST_F(FaultyWorker, AnyGarbageIsSurvived) {
    std::vector<std::string> scripts;
    for (int seed = 1; seed <= 9; ++seed) {
        // An unknown type, a frame without data, a command: whole packets that no worker sends.
        scripts.push_back("connect;hello;send:c80200ffff;send:010000060000;garbage:" + std::to_string(seed) +
                          ";exit:3");
    }
    scripts.push_back("connect;garbage:10;exit:3"); // which does not even greet
    showScripts(scripts);
    for (std::size_t i = 0; i < scripts.size(); ++i) {
        EXPECT_TRUE(waitForEnd(i)) << i;
        EXPECT_EQ(view(i).status().endWords, QStringLiteral("the server ended the stream")) << i;
    }
    closeWindow();
    EXPECT_EQ(leftovers(), "");
}

// It does nothing but renew the frame file, in two sizes: most pictures are other ones than were announced.
TEST_F(FaultyWorker, PicturesThatChangeWhileTheyAreReadAreWhole) {
    showScripts({"connect;hello;play", "connect;hello;play"});
    for (int round = 0; round < 20; ++round) {
        ASSERT_TRUE(waitForPictures(view(0), 2));
        const QImage picture = view(0).pictures().picture();
        ASSERT_TRUE(picture.size() == QSize(640, 360) || picture.size() == QSize(64, 36));
        const QRgb colour = picture.pixel(0, 0);
        EXPECT_EQ(colour, picture.pixel(picture.width() - 1, picture.height() - 1));
        EXPECT_EQ(colour, picture.pixel(picture.width() / 2, picture.height() / 2));
    }
    ASSERT_EQ(::kill(static_cast<pid_t>(view(1).worker().processId()), SIGKILL), 0);
    EXPECT_TRUE(waitForEnd(1));
    EXPECT_TRUE(waitForPictures(view(0), 5));
    closeWindow();
    EXPECT_EQ(leftovers(), "");
}

TEST_F(FaultyWorker, KilledWithTheSemaphoreInItsHandsLeavesItsLastPicture) {
    const std::string frame = "send:0108000100000000000000";
    showScripts({"connect;hello;picture:64x36;" + frame + ";await;hold;" + frame + ";log:held;wait:100000"});
    ASSERT_TRUE(waitUntil([&] { return view().pictures().shown() == 1; }));
    ASSERT_TRUE(view().worker().writeRaw("x"));
    ASSERT_TRUE(waitForLog(view(), QStringLiteral("held")));
    view().pictures().repaint(); // of a picture that cannot be read
    EXPECT_EQ(view().pictures().picture().size(), QSize(64, 36));
    ASSERT_EQ(::kill(static_cast<pid_t>(view().worker().processId()), SIGKILL), 0);
    ASSERT_TRUE(waitForEnd());
    EXPECT_EQ(view().pictures().picture().size(), QSize(64, 36));
    QTest::mouseClick(window().findChild<QPushButton*>(QStringLiteral("restart")), Qt::LeftButton);
    EXPECT_TRUE(waitUntil([&] { return view().pictures().shown() == 2; }));
    closeWindow();
    EXPECT_EQ(leftovers(), "");
}

TEST_F(FaultyWorker, OfATinyPictureCanBeStartedAgain) {
    constexpr int kInitialHeight = 640;
    showScripts({"connect;hello;picture:32x16;send:0108000100000000000000;await;exit:3"});
    ASSERT_TRUE(waitUntil([&] { return window().height() < kInitialHeight; })); // it takes the picture's size
    ASSERT_TRUE(view().worker().writeRaw("x"));
    ASSERT_TRUE(waitForEnd());
    const auto* const button = window().findChild<QPushButton*>(QStringLiteral("restart"));
    EXPECT_TRUE(waitUntil([&] {
        const QRect place(button->mapTo(&view().pictures(), QPoint()), button->size());
        return button->height() >= button->minimumSizeHint().height() &&
               view().pictures().rect().contains(place);
    }));
}

/// A stream that goes on, with a picture, after it has told that there is no sound.
constexpr const char* kSilent = "connect;hello;picture:640x360;send:0108000100000000000000;"
                                "log:sound unavailable: nellymoser: no decoder;"
                                "log:sound unavailable: another: reason;wait:100000";
constexpr const char* kNoSound = "No sound: nellymoser: no decoder";

class SilentStream : public FaultyWorker {
protected:
    bool waitForProblem(std::size_t index = 0) {
        return waitUntil([this, index] { return !view(index).status().soundProblem.isEmpty(); });
    }
    QLabel& note(std::size_t index = 0) { return *view(index).findChild<QLabel*>(QStringLiteral("note")); }
};

TEST_F(SilentStream, IsToldOverItsPicturesForAWhileAndInTheStatusBar) {
    view::StreamSettings settings = standIn();
    settings.isMuted = false;
    show({std::string("/;") + kSilent}, settings);
    ASSERT_TRUE(waitUntil([this] { return view().pictures().shown() == 1; }));
    ASSERT_TRUE(waitUntil([this] { return note().isVisible(); }));
    EXPECT_EQ(note().text().toStdString(), kNoSound);
    EXPECT_TRUE(view().pictures().rect().contains(note().geometry()));
    EXPECT_TRUE(waitUntil([this] {
        return text("state") == QStringLiteral("playing, no sound: nellymoser: no decoder") ||
               text("state") == QStringLiteral("buffering, no sound: nellymoser: no decoder");
    }));
    auto* const timer = view().findChild<QTimer*>(QStringLiteral("noteTimer"));
    EXPECT_GT(timer->remainingTime(), 1000) << "time to read it";
    const int durationMs = timer->interval();
    timer->start(0);
    EXPECT_TRUE(waitUntil([this] { return note().isHidden(); }));
    timer->setInterval(durationMs);
    press(Qt::Key_M);
    press(Qt::Key_M);
    EXPECT_TRUE(note().isHidden()) << "told once";
    // A new worker is a new stream.
    view().restart();
    EXPECT_TRUE(waitUntil([this] { return note().isVisible(); }));
    view().restart();
    EXPECT_TRUE(note().isHidden());
}

TEST_F(SilentStream, DisturbsNobodyWhoDoesNotWantToHearIt) {
    showScripts({kSilent, "connect;hello;wait:100000"});
    ASSERT_TRUE(waitForProblem());
    EXPECT_TRUE(note().isHidden());
    const auto* const caption = view(0).findChild<QLabel*>(QStringLiteral("caption"));
    EXPECT_TRUE(waitUntil(
        [&] { return caption->text().endsWith(QStringLiteral("no sound: nellymoser: no decoder")); }));
    EXPECT_TRUE(view(1).status().soundProblem.isEmpty());
    press(Qt::Key_M); // the first is the current one
    EXPECT_TRUE(note().isVisible());
    EXPECT_TRUE(note(1).isHidden());
}

TEST_F(FaultyWorker, IsToldWhatTheViewerWasAskedFor) {
    view::StreamSettings settings = standIn();
    show({"/;connect;hello;env:MEDIAWORKER_OPTIONS;wait:100000"}, settings);
    EXPECT_TRUE(waitForLog(view(), QStringLiteral("env: flv=standard,buffering=on,sync=on,sandbox=on")));
    closeWindow();
    settings.flv = parent::FlvReading::Strict;
    settings.hasLowLatency = true;
    settings.hasSync = false;
    settings.isConfined = false;
    show({"/;connect;hello;env:MEDIAWORKER_OPTIONS;wait:100000"}, settings);
    EXPECT_TRUE(waitForLog(view(), QStringLiteral("env: flv=strict,buffering=off,sync=off,sandbox=off")));
}

} // namespace
} // namespace mediaworker::test
