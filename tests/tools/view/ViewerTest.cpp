#include "Stage.h"

#include "support/servers/Pacing.h"
#include "tools/view/RecordingControl.h"

#include <QAction>
#include <QApplication>
#include <QFileInfo>
#include <QInputDialog>
#include <QLabel>
#include <QPushButton>
#include <QScreen>
#include <QSignalSpy>
#include <QSlider>
#include <QTest>
#include <QTimer>
#include <QWheelEvent>

#include <csignal>
#include <filesystem>
#include <future>

namespace mediaworker::test {
namespace {

using namespace std::chrono_literals;
using parent::PlaybackState;
using testing::HasSubstr;

constexpr int kFrameMs = 40;

QString commandLine(char type) {
    return QStringLiteral("Command from parent process: ") + QLatin1Char(type);
}
const QString kVolumeLine = commandLine(5);
const QString kStopAudioLine = commandLine(9);

class Viewer : public Stage {
protected:
    Viewer() { serveLive("/live.flv", lively()); }

    static ClipSpec lively(int widthPx = 320, int heightPx = 180) {
        ClipSpec spec;
        spec.widthPx = widthPx;
        spec.heightPx = heightPx;
        spec.frames = 250;
        return spec;
    }

    void showLive(view::StreamSettings settings = silent()) {
        show({"/live.flv"}, std::move(settings));
        ASSERT_TRUE(waitForPictures(view()));
    }
};

TEST_F(Viewer, ShowsThePicturesOfAStream) {
    showLive();
    int before = -1;
    for (int i = 0; i < 5; ++i) {
        ASSERT_TRUE(waitForPictures(view()));
        const std::optional<int> number = grabbedNumber(view());
        ASSERT_TRUE(number);
        EXPECT_GT(*number, before);
        before = *number;
        // The picture of the newest message, or the one behind it.
        const int announced = static_cast<int>(*view().status().positionMs / kFrameMs);
        EXPECT_GE(*number, announced);
        EXPECT_LE(*number, announced + 1);
    }
}

TEST_F(Viewer, BringsThePicturesToTheScreen) {
    showLive();
    int before = -1;
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(waitForPictures(view(), 5));
        std::optional<int> number;
        EXPECT_TRUE(waitUntil([&] { return (number = numberOnScreen(view())).has_value(); }));
        EXPECT_GT(number.value_or(-1), before);
        before = number.value_or(before);
    }
}

TEST_F(Viewer, ShowsPixelsAsTheyWereDelivered) {
    serveLive("/large.flv", lively(640, 360));
    show({"/large.flv"});
    ASSERT_TRUE(waitForPictures(view()));
    // The window has taken the size of the picture.
    ASSERT_TRUE(waitUntil([&] { return view().pictures().pictureRect().size() == QSize(640, 360); }))
        << view().pictures().width() << " x " << view().pictures().height();
    view().setPaused(true);
    ASSERT_TRUE(waitForLog(view(), QStringLiteral("ko_player::Player::setPause: paused: 1")));
    const QImage shown = grab(view());
    EXPECT_EQ(shown, view().pictures().picture());
    EXPECT_LE(largestPatchError(bgra(shown)), 24);
}

TEST_F(Viewer, KeepsTheAspectWhenItIsResized) {
    showLive();
    for (const QSize size : {QSize(1200, 500), QSize(500, 900), QSize(1600, 1000), QSize(420, 420)}) {
        window().resize(size);
        ASSERT_TRUE(waitForPictures(view(), 2));
        const QRect place = view().pictures().pictureRect();
        EXPECT_NEAR(place.width() * 9.0 / 16, place.height(), 1) << size.width();
        EXPECT_TRUE(view().pictures().rect().contains(place));
        EXPECT_TRUE(place.width() == view().pictures().width() ||
                    place.height() == view().pictures().height());
        EXPECT_TRUE(grabbedNumber(view())) << size.width();
        EXPECT_LE(largestPatchError(bgra(grab(view()))), 24) << size.width();
        // What the picture leaves is black.
        const QImage all = view().pictures().grab().toImage();
        const QRect bars = view().pictures().rect();
        for (const QPoint corner : {bars.topLeft(), bars.topRight(), bars.bottomLeft(), bars.bottomRight()}) {
            if (!place.contains(corner)) {
                EXPECT_EQ(all.pixelColor(corner), QColor(Qt::black)) << size.width();
            }
        }
    }
}

TEST_F(Viewer, CopiesEachPictureOnceForAllPainting) {
    showLive();
    for (int i = 0; i < 20; ++i) {
        window().resize(700 + i, 500);
        ASSERT_TRUE(waitForPictures(view(), 1));
        view().pictures().repaint();
        view().pictures().repaint();
    }
    const widgets::PictureWidget& pictures = view().pictures();
    EXPECT_LE(pictures.copies(), view().monitor().frames());
    EXPECT_EQ(pictures.copies(), pictures.shown());
}

TEST_F(Viewer, CopiesNothingWhileItIsHidden) {
    showLive();
    window().hide();
    const quint64 before = view().pictures().copies();
    const quint64 frames = view().monitor().frames();
    ASSERT_TRUE(waitUntil([&] { return view().monitor().frames() > frames + 10; }));
    EXPECT_EQ(view().pictures().copies(), before);
    window().show();
    EXPECT_TRUE(waitForPictures(view()));
}

TEST_F(Viewer, SpacePausesAndResumes) {
    showLive();
    EXPECT_EQ(action("pause").text(), QStringLiteral("Pause"));
    press(Qt::Key_Space);
    ASSERT_TRUE(waitForLog(view(), QStringLiteral("ko_player::Player::setPause: paused: 1")));
    EXPECT_EQ(text("state"), QStringLiteral("paused"));
    EXPECT_EQ(text("rate"), QString());
    EXPECT_EQ(action("pause").text(), QStringLiteral("Resume"));
    const quint64 frames = view().monitor().frames();
    QTest::qWait(400);
    EXPECT_LE(view().monitor().frames(), frames + 1); // one may have been on its way

    press(Qt::Key_Space);
    ASSERT_TRUE(waitForLog(view(), QStringLiteral("ko_player::Player::setPause: paused: 0")));
    EXPECT_TRUE(waitForPictures(view()));
    EXPECT_TRUE(waitUntil([&] { return text("state") == QStringLiteral("playing"); }));
}

TEST_F(Viewer, ArrowsAndSliderSetTheVolume) {
    view::StreamSettings settings = silent();
    settings.isMuted = false;
    settings.volumePercent = 50;
    showLive(settings);
    ASSERT_TRUE(waitForLog(view(), kVolumeLine));
    int commands = 1;
    QSignalSpy lines(&view().worker(), &parent::WorkerProcess::logLine);
    const auto arrived = [&] {
        return waitUntil([&] {
            return std::count_if(lines.begin(), lines.end(), [](const auto& line) {
                       return line.at(0).toString() == kVolumeLine;
                   }) >= commands;
        });
    };
    const struct {
        Qt::Key key;
        int expected;
    } steps[] = {{Qt::Key_Up, 55}, {Qt::Key_Right, 60}, {Qt::Key_Down, 55}, {Qt::Key_Left, 50}};
    for (const auto& [key, expected] : steps) {
        press(key);
        EXPECT_EQ(view().sound().percent(), expected);
        EXPECT_EQ(text("volumeText"), QStringLiteral("%1 % ").arg(expected));
        EXPECT_TRUE(arrived()) << expected;
        ++commands;
    }
    auto* const slider = window().findChild<QSlider*>(QStringLiteral("volume"));
    EXPECT_EQ(slider->value(), 50);
    slider->setValue(20);
    EXPECT_EQ(view().sound().percent(), 20);
    EXPECT_TRUE(arrived());
}

TEST_F(Viewer, TheWheelIsTheVolume) {
    showLive();
    const auto turn = [this](int angle) {
        const QPointF place(10, 10);
        QWheelEvent event(place, view().pictures().mapToGlobal(place.toPoint()), {}, {0, angle}, Qt::NoButton,
                          Qt::NoModifier, Qt::NoScrollPhase, false);
        QCoreApplication::sendEvent(&view().pictures(), &event);
    };
    turn(120);
    EXPECT_EQ(view().sound().percent(), 85);
    turn(-240);
    EXPECT_EQ(view().sound().percent(), 75);
    turn(-60); // a touch pad moves in small pieces
    EXPECT_EQ(view().sound().percent(), 75);
    turn(-60);
    EXPECT_EQ(view().sound().percent(), 70);
}

TEST_F(Viewer, OpensWhatIsTypedIn) {
    showLive();
    const auto type = [this](Qt::Key key, const QString& text) {
        // The dialog has an event loop of its own.
        QTimer::singleShot(0, [text] {
            auto* const dialog = qobject_cast<QInputDialog*>(QApplication::activeModalWidget());
            ASSERT_NE(dialog, nullptr);
            dialog->setTextValue(text);
            QTest::keyClick(dialog, Qt::Key_Return);
        });
        press(key, Qt::ControlModifier);
    };
    const QString file = QString::fromStdString(encodedFile(lively()).string());
    type(Qt::Key_O, file);
    EXPECT_EQ(view().url(), QStringLiteral("file://") + file);
    EXPECT_TRUE(waitForPictures(view()));
    type(Qt::Key_N, QString::fromStdString(server_.url("/live.flv")));
    ASSERT_EQ(window().views().size(), 2U);
    EXPECT_TRUE(waitForPictures(view(1)));
    type(Qt::Key_O, QString());
    EXPECT_EQ(window().views().size(), 2U);
    EXPECT_EQ(view(1).url().toStdString(), server_.url("/live.flv"));
}

TEST_F(Viewer, MuteClosesTheSoundAndComesBackWithTheVolume) {
    view::StreamSettings settings = silent();
    settings.isMuted = false;
    showLive(settings);
    ASSERT_TRUE(waitForLog(view(), kVolumeLine));
    press(Qt::Key_M);
    EXPECT_TRUE(waitForLog(view(), kStopAudioLine));
    EXPECT_TRUE(action("mute").isChecked());
    QSignalSpy lines(&view().worker(), &parent::WorkerProcess::logLine);
    press(Qt::Key_M);
    EXPECT_FALSE(action("mute").isChecked());
    EXPECT_TRUE(waitUntil([&] { return lines.contains(QVariantList{kVolumeLine}); }));
    EXPECT_EQ(view().sound().percent(), 80);
}

TEST_F(Viewer, AMutedStreamOpensNoSound) {
    showLive();
    ASSERT_TRUE(waitForPictures(view(), 10));
    EXPECT_FALSE(view().worker().recentLog().contains(kVolumeLine));
    EXPECT_TRUE(action("mute").isChecked());
}

TEST_F(Viewer, SSavesAPicture) {
    showLive();
    QSignalSpy saved(&window(), &view::ViewerWindow::snapshotSaved);
    press(Qt::Key_S);
    const std::optional<int> number = readFrameNumber(bgra(view().pictures().picture()));
    ASSERT_TRUE(waitUntil([&] { return saved.size() == 1; }));
    const QString path = saved.at(0).at(0).toString();
    EXPECT_THAT(path.toStdString(), testing::StartsWith((folder_ / "shots/127.0.0.1-live.flv_").string()));
    const QImage picture = QImage(path).convertToFormat(QImage::Format_RGB32);
    EXPECT_EQ(picture.size(), QSize(320, 180)); // as delivered, whatever the window's size is
    EXPECT_EQ(readFrameNumber(bgra(picture)), number);
    EXPECT_LE(largestPatchError(bgra(picture)), 24);
    press(Qt::Key_S);
    ASSERT_TRUE(waitUntil([&] { return saved.size() == 2; }));
    EXPECT_NE(saved.at(1).at(0).toString(), path);
}

TEST_F(Viewer, TellsWhenAPictureCannotBeSaved) {
    writeFile(folder_ / "shots", "in the way");
    showLive();
    QSignalSpy failed(&window(), &view::ViewerWindow::snapshotFailed);
    press(Qt::Key_S);
    EXPECT_TRUE(waitUntil([&] { return failed.size() == 1; }));
    EXPECT_TRUE(waitForPictures(view()));
}

TEST_F(Viewer, FillsTheScreenAndComesBack) {
    showLive();
    ASSERT_TRUE(waitForPictures(view(), 5)); // the window has its size by then
    const QRect before = window().geometry();
    const QRect screen = window().screen()->geometry();
    const auto fills = [&] {
        return waitUntil(
            [&] { return window().geometry() == screen && view().pictures().size() == screen.size(); });
    };
    const auto isBack = [&] { return waitUntil([&] { return window().geometry() == before; }); };

    press(Qt::Key_F);
    EXPECT_TRUE(fills());
    EXPECT_FALSE(action("pause").associatedWidgets().isEmpty());
    EXPECT_TRUE(waitForPictures(view()));
    EXPECT_TRUE(grabbedNumber(view()));
    press(Qt::Key_Escape);
    EXPECT_TRUE(isBack());

    press(Qt::Key_F);
    EXPECT_TRUE(fills());
    press(Qt::Key_Space); // keys work without menus
    EXPECT_TRUE(view().isPaused());
    press(Qt::Key_F);
    EXPECT_TRUE(isBack());
    EXPECT_FALSE(window().isFullScreen());

    QTest::mouseDClick(&view().pictures(), Qt::LeftButton);
    EXPECT_TRUE(fills());
    QTest::mouseDClick(&view().pictures(), Qt::LeftButton);
    EXPECT_TRUE(isBack());
    press(Qt::Key_Escape); // nothing to leave
    EXPECT_TRUE(isBack());
}

TEST_F(Viewer, StatusBarTellsHowItGoes) {
    FlvOptions options;
    options.timedMetadata = {{400, {{"absolute_time", 1.4e12}}}};
    std::promise<void> begin;
    // The server outlives this function.
    server_.route("/dated.flv", [pieces = makeFlv(encode(lively()), options),
                                 mayBegin = begin.get_future().share()](HttpResponse& response) {
        mayBegin.wait();
        servePaced(response, pieces, {.burstMs = 1500, .staysOpen = true});
    });
    show({"/dated.flv"});
    const bool isBuffering = waitUntil([&] { return text("state") == QStringLiteral("buffering"); });
    EXPECT_EQ(text("overlayText"), QStringLiteral("Buffering"));
    begin.set_value();
    ASSERT_TRUE(isBuffering);
    ASSERT_TRUE(waitUntil([&] { return text("state") == QStringLiteral("playing"); }));
    EXPECT_TRUE(waitUntil([&] { return text("size") == QStringLiteral("320 × 180"); }));
    EXPECT_TRUE(waitUntil([&] { return text("rate") == QStringLiteral("25 fps"); }))
        << text("rate").toStdString();
    EXPECT_TRUE(waitUntil([&] { return text("position").startsWith(QStringLiteral("2014-05-13 16:53:2")); }))
        << text("position").toStdString();
    EXPECT_THAT(text("delay").toStdString(), testing::MatchesRegex("delay -?0\\.[0-9][0-9] s"));
}

TEST_F(Viewer, SaysWhyAStreamEndedAndStartsItAgain) {
    ClipSpec spec;
    spec.frames = 10;
    server_.route("/short.flv", pacedHandler(makeFlv(encode(spec)), {.speed = 0}));
    show({"/short.flv"});
    ASSERT_TRUE(waitForState(view(), PlaybackState::Ended));
    const std::string words = "the server ended the stream";
    EXPECT_EQ(text("state").toStdString(), "ended: " + words);
    auto* const button = window().findChild<QPushButton*>(QStringLiteral("restart"));
    ASSERT_TRUE(button->isVisible());
    EXPECT_EQ(text("overlayText").toStdString(), "Ended: " + words);
    EXPECT_FALSE(action("pause").isEnabled());
    EXPECT_EQ(readFrameNumber(bgra(view().pictures().picture())), 9); // the last one stays

    QTest::mouseClick(button, Qt::LeftButton);
    EXPECT_FALSE(button->isVisible());
    EXPECT_TRUE(waitUntil([&] { return server_.exchanges().size() == 2; }));
    EXPECT_TRUE(waitForState(view(), PlaybackState::Ended));
}

TEST_F(Viewer, SaysWhenThereIsNoWorker) {
    view::StreamSettings settings = silent();
    settings.workerProgram = QStringLiteral("/nonexistent/worker");
    show({"/live.flv"}, settings);
    ASSERT_TRUE(waitForState(view(), PlaybackState::Ended));
    EXPECT_THAT(text("state").toStdString(), HasSubstr("the worker cannot be started"));
}

/// A program in the place of the worker.
class StrangeWorker : public Stage {
protected:
    void showWith(const std::string& script) {
        const auto file = folder_ / "worker";
        writeFile(file, "#!/bin/sh\n" + script + "\n");
        std::filesystem::permissions(file, std::filesystem::perms::owner_all);
        view::StreamSettings settings = silent();
        settings.workerProgram = QString::fromStdString(file.string());
        show({"/live.flv"}, settings);
        ASSERT_TRUE(waitForState(view(), PlaybackState::Ended));
    }
};

TEST_F(StrangeWorker, ThatEndsAtOnceIsNoWorker) {
    showWith("echo '<b>bold</b>' >&2; exit 7");
    EXPECT_EQ(text("state").toStdString(),
              "ended: " + (folder_ / "worker").string() +
                  " is no mediaworker, or cannot run here: it ended before it connected");
    closeWindow();
    EXPECT_EQ(leftovers(), "");
}

TEST_F(StrangeWorker, ThatNeverConnectsIsEnded) {
    showWith("exec sleep 1000");
    EXPECT_EQ(text("state"), QStringLiteral("ended: the worker did not connect"));
    EXPECT_FALSE(view().isRunning());
    closeWindow();
    EXPECT_EQ(leftovers(), "");
}

TEST_F(Viewer, PlaysALocalFile) {
    show({"/live.flv"});
    view().open(QStringLiteral("file://") + QString::fromStdString(encodedFile(lively()).string()));
    ASSERT_TRUE(waitForPictures(view(), 5));
    EXPECT_TRUE(grabbedNumber(view()));
    EXPECT_FALSE(action("export").isEnabled());
}

TEST_F(Viewer, OpensAnotherStreamInThePlaceOfTheFirst) {
    ClipSpec spec = lively();
    spec.firstFrameNumber = 7000;
    serveLive("/other.flv", spec);
    showLive();
    const qint64 pid = view().worker().processId();
    window().open(QString::fromStdString(server_.url("/other.flv")));
    EXPECT_FALSE(isAlive(pid));
    ASSERT_TRUE(waitForPictures(view()));
    EXPECT_GE(grabbedNumber(view()).value_or(0), 7000);
    EXPECT_EQ(window().views().size(), 1U);
}

TEST_F(Viewer, FollowsAChangeOfThePictureSize) {
    ClipSpec first = lively(320, 180);
    first.frames = 50;
    ClipSpec second = lively(480, 480);
    second.frames = 50;
    second.firstFrameNumber = 1000;
    const Clip small = encode(first);
    const Clip large = encode(second);
    server_.route("/changing.flv",
                  pacedHandler(makeFlv({&small, &large}), {.burstMs = 1500, .staysOpen = true}));
    show({"/changing.flv"});
    ASSERT_TRUE(waitUntil([&] { return text("size") == QStringLiteral("320 × 180"); }));
    EXPECT_NEAR(view().pictures().pictureRect().width() * 9.0 / 16, view().pictures().pictureRect().height(),
                1);
    ASSERT_TRUE(waitUntil([&] { return text("size") == QStringLiteral("480 × 480"); }));
    ASSERT_TRUE(waitForPictures(view()));
    EXPECT_EQ(view().pictures().pictureRect().width(), view().pictures().pictureRect().height());
    EXPECT_GE(grabbedNumber(view()).value_or(0), 1000);
    EXPECT_GE(numberOnScreen(view()).value_or(0), 1000);
}

TEST_F(Viewer, ClosingDuringPlaybackLeavesNothing) {
    show({"/live.flv", "/live.flv"});
    ASSERT_TRUE(waitForPictures(view(0)));
    ASSERT_TRUE(waitForPictures(view(1)));
    const qint64 pids[] = {view(0).worker().processId(), view(1).worker().processId()};
    ASSERT_TRUE(isAlive(pids[0]) && isAlive(pids[1]));
    closeWindow();
    EXPECT_FALSE(isAlive(pids[0]));
    EXPECT_FALSE(isAlive(pids[1]));
    EXPECT_EQ(leftovers(), "");
}

TEST_F(Viewer, ClosingWhileItConnectsLeavesNothing) {
    server_.route("/silent.flv", [](HttpResponse& response) { response.waitForClientToLeave(); });
    for (int i = 0; i < 10; ++i) {
        show({"/silent.flv"});
        ASSERT_TRUE(waitUntil([&] { return i == 0 || view().worker().isConnected(); }));
        const qint64 pid = view().worker().processId();
        closeWindow();
        EXPECT_FALSE(isAlive(pid));
    }
    EXPECT_EQ(leftovers(), "");
}

TEST_F(Viewer, AWorkerThatStandsStillDoesNotHoldUpTheWindow) {
    showLive();
    const qint64 pid = view().worker().processId();
    ASSERT_EQ(::kill(static_cast<pid_t>(pid), SIGSTOP), 0);
    ASSERT_TRUE(waitForState(view(), PlaybackState::Buffering));
    const auto begin = std::chrono::steady_clock::now();
    view().pictures().repaint();
    closeWindow();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 5s);
    EXPECT_FALSE(isAlive(pid));
    EXPECT_EQ(leftovers(), "");
}

/// Four streams, each with numbers of its own.
class Grid : public Stage {
protected:
    static constexpr int kApart = 10000;

    Grid() {
        for (int i = 0; i < 4; ++i) {
            ClipSpec spec;
            spec.frames = 250;
            spec.firstFrameNumber = i * kApart;
            serveLive(path(i), spec);
        }
    }

    static std::string path(int stream) { return "/camera-" + std::to_string(stream + 1) + ".flv"; }

    void showAll() {
        show({path(0), path(1), path(2), path(3)});
        for (std::size_t i = 0; i < 4; ++i) {
            ASSERT_TRUE(waitForPictures(view(i))) << i;
        }
    }
};

TEST_F(Grid, ShowsEveryStreamInItsPlace) {
    showAll();
    for (std::size_t i = 0; i < 4; ++i) {
        const auto number = grabbedNumber(view(i));
        EXPECT_EQ(number.value_or(-1) / kApart, static_cast<int>(i));
    }
    const QRect places[] = {view(0).geometry(), view(1).geometry(), view(2).geometry(), view(3).geometry()};
    EXPECT_EQ(places[0].top(), places[1].top());
    EXPECT_EQ(places[0].left(), places[2].left());
    EXPECT_NEAR(places[0].width(), places[3].width(), 1);
    EXPECT_NEAR(places[0].height(), places[3].height(), 1);
    EXPECT_FALSE(places[0].intersects(places[3]));
}

TEST_F(Grid, ADyingWorkerDisturbsNobodyAndIsStartedAgain) {
    showAll();
    ASSERT_EQ(::kill(static_cast<pid_t>(view(1).worker().processId()), SIGKILL), 0);
    ASSERT_TRUE(waitForState(view(1), PlaybackState::Ended));
    EXPECT_EQ(view(1).status().endWords, parent::exitReason(parent::WorkerMode::Stream, 0, true));
    for (const std::size_t other : {0U, 2U, 3U}) {
        EXPECT_TRUE(waitForPictures(view(other), 10)) << other;
        EXPECT_EQ(view(other).status().state, PlaybackState::Playing);
        EXPECT_FALSE(view(other).findChild<QPushButton*>(QStringLiteral("restart"))->isVisible());
    }
    auto* const button = view(1).findChild<QPushButton*>(QStringLiteral("restart"));
    ASSERT_TRUE(button->isVisible());
    const auto* const caption = view(1).findChild<QLabel*>(QStringLiteral("caption"));
    EXPECT_THAT(caption->text().toStdString(), HasSubstr("camera-2.flv – ended"));
    QTest::mouseClick(button, Qt::LeftButton);
    EXPECT_TRUE(waitForPictures(view(1)));
    EXPECT_TRUE(waitForState(view(1), PlaybackState::Playing));
    EXPECT_EQ(window().current(), &view(1));
    EXPECT_EQ(grabbedNumber(view(1)).value_or(-1) / kApart, 1);
}

TEST_F(Grid, ToolbarAndStatusBarBelongToTheChosenStream) {
    showAll();
    QTest::mouseClick(&view(2).pictures(), Qt::LeftButton);
    EXPECT_EQ(window().current(), &view(2));
    press(Qt::Key_Space);
    EXPECT_EQ(text("state"), QStringLiteral("paused"));
    EXPECT_TRUE(view(2).isPaused());
    EXPECT_FALSE(view(0).isPaused());
    QTest::mouseClick(&view(0).pictures(), Qt::LeftButton);
    EXPECT_EQ(text("state"), QStringLiteral("playing"));
    press(Qt::Key_Plus); // arrows choose between several
    EXPECT_EQ(view(0).sound().percent(), 85);
    EXPECT_EQ(view(2).sound().percent(), 80);
}

TEST_F(Grid, ADoubleClickShowsOneStreamAlone) {
    showAll();
    QTest::mouseDClick(&view(3).pictures(), Qt::LeftButton);
    EXPECT_TRUE(waitUntil([&] { return view(3).pictures().size() == window().screen()->geometry().size(); }));
    EXPECT_FALSE(view(0).isVisible());
    const quint64 copies = view(0).pictures().copies();
    ASSERT_TRUE(waitForPictures(view(3), 10));
    EXPECT_EQ(view(0).pictures().copies(), copies);
    press(Qt::Key_Escape);
    EXPECT_TRUE(waitForPictures(view(0)));
    EXPECT_TRUE(view(3).isVisible());
}

TEST_F(Grid, StreamsCanBeAddedAndClosed) {
    show({path(0)});
    ASSERT_TRUE(waitForPictures(view(0)));
    window().add(QString::fromStdString(server_.url(path(1))));
    ASSERT_TRUE(waitForPictures(view(1)));
    EXPECT_TRUE(waitForPictures(view(0)));
    const qint64 pid = view(1).worker().processId();
    press(Qt::Key_W, Qt::ControlModifier);
    EXPECT_EQ(window().views().size(), 1U);
    EXPECT_TRUE(waitUntil([&] { return !isAlive(pid); }));
    EXPECT_TRUE(waitForPictures(view(0)));
    press(Qt::Key_W, Qt::ControlModifier);
    EXPECT_EQ(window().views().size(), 0U);
    press(Qt::Key_Space);
    press(Qt::Key_S);
    press(Qt::Key_Up);
    window().open(QString::fromStdString(server_.url(path(2))));
    EXPECT_TRUE(waitForPictures(view(0)));
}

TEST_F(Grid, TwoViewersShowOneStream) {
    show({path(0)});
    ASSERT_TRUE(waitForPictures(view()));
    view::ViewerWindow second(silent(), {});
    second.add(QString::fromStdString(server_.url(path(0))));
    second.show();
    ASSERT_TRUE(waitForPictures(*second.views().front(), 10));
    ASSERT_TRUE(waitForPictures(view(), 10));
    EXPECT_TRUE(grabbedNumber(view()));
    EXPECT_TRUE(grabbedNumber(*second.views().front()));
    second.close();
    EXPECT_TRUE(waitForPictures(view(), 5));
}

/// What a grid looks like, in a file: names, streams that play, one that is recorded, and one whose worker is
/// gone.
TEST_F(Grid, HasAScreenshot) {
    ClipSpec spec;
    spec.widthPx = 1280;
    spec.heightPx = 720;
    spec.frames = 250;
    serveLive(path(0), spec);
    const auto film = [this](const char* source, const char* name) {
        const auto file = folder_ / name;
        runCommand({"ffmpeg", "-v", "error", "-nostdin", "-f", "lavfi", "-i", source, "-t", "30", "-c:v",
                    "mpeg4", "-q:v", "2", file.string()});
        return QStringLiteral("file://") + QString::fromStdString(file.string());
    };
    const QString entrance = film("testsrc2=size=640x360:rate=25", "entrance.mp4");
    const QString carPark = film("smptehdbars=size=640x360:rate=25", "car-park.mp4");
    show({path(0)});
    window().resize(1000, 690);
    ASSERT_TRUE(waitForPictures(view(0)));
    window().resize(1000, 690);
    view(0).open(view(0).url(), QStringLiteral("Gate"));
    window().add(entrance, QStringLiteral("Entrance"));
    window().add(carPark, QStringLiteral("Car park"));
    window().add(QString::fromStdString(server_.url(path(1))), QStringLiteral("Yard"));
    window().choose(&view(0));
    for (std::size_t i = 0; i < 4; ++i) {
        ASSERT_TRUE(waitForPictures(view(i))) << i;
    }
    window().recordings().setFolder(QString::fromStdString(folder_.path().string()));
    press(Qt::Key_R);
    ASSERT_EQ(::kill(static_cast<pid_t>(view(3).worker().processId()), SIGKILL), 0);
    ASSERT_TRUE(waitForState(view(3), PlaybackState::Ended));
    const auto captionOf = [this](std::size_t i) {
        return view(i).findChild<QLabel*>(QStringLiteral("caption"))->text().toStdString();
    };
    ASSERT_TRUE(waitUntil([&] {
        return captionOf(0).ends_with("25 fps") && captionOf(1).ends_with("25 fps") &&
               captionOf(2).ends_with("25 fps");
    }));
    ASSERT_TRUE(waitForPictures(view(), 5));
    EXPECT_THAT(captionOf(0), testing::ContainsRegex("^Gate – playing, ● recording"));
    EXPECT_THAT(captionOf(3), HasSubstr("Yard – ended"));
    const QPixmap screenshot = window().screen()->grabWindow(window().winId());
    ASSERT_EQ(screenshot.size(), QSize(1000, 690));
    EXPECT_TRUE(screenshot.save(QStringLiteral(SCREENSHOT_FILE), "PNG", 0)); // as small as it gets
    EXPECT_LT(QFileInfo(QStringLiteral(SCREENSHOT_FILE)).size(), 150000);
}

} // namespace
} // namespace mediaworker::test
