#include "Stage.h"

#include "tools/view/ExportDialog.h"
#include "tools/view/RecordingControl.h"

#include <QAction>
#include <QApplication>
#include <QInputDialog>
#include <QMenu>
#include <QMenuBar>
#include <QScreen>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>
#include <QToolBar>

#include <map>

namespace mediaworker::test {
namespace {

using testing::MatchesRegex;

/// What can be pressed and clicked, and what it does.
class Controls : public Stage {
protected:
    Controls() { serveLive("/live.flv"); }

    void showLive() {
        show({"/live.flv"});
        ASSERT_TRUE(waitForPictures(view()));
    }
    bool fillsScreen() {
        return waitUntil([&] { return window().geometry() == window().screen()->geometry(); });
    }
    void clickInToolbar(const char* name) {
        auto* const button = window().findChild<QToolBar*>()->widgetForAction(&action(name));
        ASSERT_NE(button, nullptr) << name;
        QTest::mouseClick(button, Qt::LeftButton);
    }
};

TEST_F(Controls, HaveTheKeysThatTheManualNames) {
    show({"/live.flv"});
    std::map<std::string, std::string> keys;
    for (const QAction* each : window().findChildren<QAction*>()) {
        if (!each->shortcuts().isEmpty()) {
            keys[each->objectName().toStdString()] =
                QKeySequence::listToString(each->shortcuts(), QKeySequence::PortableText).toStdString();
        }
    }
    const std::map<std::string, std::string> expected = {
        {"open", "Ctrl+O"},
        {"openFile", "Ctrl+Shift+O"},
        {"add", "Ctrl+N"},
        {"closeStream", "Ctrl+W"},
        {"export", "Ctrl+E"},
        {"quit", "Ctrl+Q"},
        {"pause", "Space"},
        {"startAgain", "F5"},
        {"mute", "M"},
        {"louder", "Up; Right; +; Ctrl+Up"},
        {"quieter", "Down; Left; -; Ctrl+Down"},
        {"live", "End"},
        {"log", "L"},
        {"copyAddress", "Ctrl+C"},
        {"snapshot", "S"},
        {"fullScreen", "F; F11"},
        {"leaveFullScreen", "Esc"},
        {"record", "R"},
    };
    EXPECT_EQ(keys, expected);
}

TEST_F(Controls, F5StartsAgain) {
    showLive();
    const qint64 pid = view().worker().processId();
    press(Qt::Key_F5);
    EXPECT_FALSE(isAlive(pid));
    EXPECT_NE(view().worker().processId(), pid);
    EXPECT_TRUE(waitForPictures(view()));
    EXPECT_TRUE(waitUntil([&] { return server_.exchanges().size() == 2; }));
}

TEST_F(Controls, F11FillsTheScreen) {
    showLive();
    press(Qt::Key_F11);
    EXPECT_TRUE(fillsScreen());
    press(Qt::Key_F11);
    EXPECT_TRUE(waitUntil([&] { return window().geometry() != window().screen()->geometry(); }));
}

TEST_F(Controls, CtrlEOpensTheExport) {
    showLive();
    press(Qt::Key_E, Qt::ControlModifier);
    ASSERT_NE(window().recordings().dialog(), nullptr);
    EXPECT_TRUE(window().recordings().dialog()->isVisible());
}

TEST_F(Controls, CtrlQCloses) {
    showLive();
    const qint64 pid = view().worker().processId();
    press(Qt::Key_Q, Qt::ControlModifier);
    EXPECT_FALSE(window().isVisible());
    EXPECT_FALSE(isAlive(pid));
    closeWindow();
    EXPECT_EQ(leftovers(), "");
}

TEST_F(Controls, AreInMenusAndToolbar) {
    show({"/live.flv"});
    std::map<std::string, QMenu*> menus;
    for (const QAction* each : window().menuBar()->actions()) {
        menus[each->text().toStdString()] = each->menu();
    }
    const std::map<std::string, std::vector<const char*>> expected = {
        {"&File", {"open", "openFile", "add", "closeStream", "snapshot", "export", "quit"}},
        {"&Playback", {"pause", "startAgain", "mute", "louder", "quieter"}},
        {"&View", {"fullScreen", "leaveFullScreen"}},
    };
    for (const auto& [title, names] : expected) {
        ASSERT_NE(menus[title], nullptr) << title;
        for (const char* name : names) {
            EXPECT_TRUE(menus[title]->actions().contains(&action(name))) << title << " " << name;
        }
    }
    for (const char* name : {"open", "pause", "mute", "snapshot", "fullScreen"}) {
        EXPECT_TRUE(window().findChild<QToolBar*>()->widgetForAction(&action(name))->isVisible()) << name;
    }
}

TEST_F(Controls, OfTheToolbarDoWhatTheySay) {
    showLive();
    clickInToolbar("pause");
    EXPECT_TRUE(view().isPaused());
    clickInToolbar("pause");
    EXPECT_FALSE(view().isPaused());

    ASSERT_TRUE(view().sound().isMuted());
    clickInToolbar("mute");
    EXPECT_FALSE(view().sound().isMuted());

    QSignalSpy saved(&window(), &view::ViewerWindow::snapshotSaved);
    clickInToolbar("snapshot");
    EXPECT_TRUE(waitUntil([&] { return saved.size() == 1; }));

    bool wasAsked = false;
    QTimer::singleShot(0, [&] {
        if (auto* const dialog = qobject_cast<QInputDialog*>(QApplication::activeModalWidget())) {
            wasAsked = true;
            dialog->reject();
        }
    });
    clickInToolbar("open");
    EXPECT_TRUE(wasAsked);

    clickInToolbar("fullScreen");
    EXPECT_TRUE(fillsScreen());
    press(Qt::Key_Escape);
}

TEST_F(Controls, StatusBarTellsThePositionWhereThereIsNoAbsoluteTime) {
    showLive();
    EXPECT_TRUE(waitUntil([&] { return text("position") >= QStringLiteral("0:01"); }));
    EXPECT_THAT(text("position").toStdString(), MatchesRegex("0:0[1-9]\\.[0-9]"));
}

TEST_F(Controls, StatusBarTellsThatItConnects) {
    showLive();
    window().open(QString::fromStdString(server_.url("/live.flv")));
    EXPECT_EQ(text("state"), QStringLiteral("connecting"));
    EXPECT_EQ(text("overlayText"), QStringLiteral("Connecting"));
    for (const char* unknown : {"size", "rate", "position", "delay"}) {
        EXPECT_EQ(text(unknown), QString()) << unknown;
    }
}

} // namespace
} // namespace mediaworker::test
