#include "Stage.h"

#include "support/servers/Pacing.h"
#include "tools/view/ExportDialog.h"
#include "tools/view/RecordingControl.h"
#include "tools/view/RecordingRow.h"
#include "tools/view/RecordingsDock.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QTest>
#include <QTimer>

#include <algorithm>
#include <filesystem>
#include <system_error>

#include <unistd.h>

namespace mediaworker::test {
namespace {

using testing::HasSubstr;
using testing::StartsWith;
using view::ExportDialog;
using view::Recording;
using view::RecordingRow;
using Names = std::vector<std::string>;

/// From the question how long, to the list of what is recorded.
class ExportTest : public Stage {
protected:
    ExportTest() {
        server_.route("/clip.flv", pacedHandler(makeFlv(clip_), {.speed = 0}));
        serveLive("/live.flv");
    }

    void showLive() {
        show({"/live.flv"});
        window().recordings().setFolder(QString::fromStdString(folder_.path().string()));
        ASSERT_TRUE(waitForPictures(view()));
    }
    ExportDialog& openDialog() {
        action("export").trigger();
        return *window().recordings().dialog();
    }
    template <class Widget>
    static Widget& find(QWidget& parent, const char* name) {
        return *parent.findChild<Widget*>(QLatin1String(name));
    }
    static void click(QWidget& parent, const char* button) {
        QTest::mouseClick(&find<QPushButton>(parent, button), Qt::LeftButton);
    }
    /// Clicks it in the next message box, which has an event loop of its own.
    static void answer(const QString& button) {
        QTimer::singleShot(0, [button] {
            auto* const box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
            ASSERT_NE(box, nullptr);
            for (QAbstractButton* each : box->buttons()) {
                if (each->text().remove(QLatin1Char('&')) == button) {
                    each->click();
                    return;
                }
            }
            FAIL() << "no button " << button.toStdString();
        });
    }
    void beginRecording(const char* name) {
        ExportDialog& dialog = openDialog();
        dialog.setLength(QStringLiteral("60"));
        dialog.setFile(QString::fromStdString((folder_ / name).string()));
        click(dialog, "start");
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    const std::vector<Recording*>& recordings() { return window().recordings().list().recordings(); }
    bool waitForFile(const char* name) {
        return waitUntil([&] {
            std::error_code none;
            return std::filesystem::file_size(folder_ / name, none) > 0 && !none;
        });
    }
    [[nodiscard]] Names files() const {
        Names names;
        for (const auto& entry : std::filesystem::directory_iterator(folder_.path())) {
            names.push_back(entry.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    const Clip clip_ = encode({});
};

TEST_F(ExportTest, BeginsOnlyWithAFormThatIsRight) {
    showLive();
    ExportDialog& dialog = openDialog();
    const auto message = [&] { return find<QLabel>(dialog, "message").text().toStdString(); };
    const auto& start = find<QPushButton>(dialog, "start");
    EXPECT_TRUE(start.isEnabled());
    EXPECT_EQ(message(), "");
    EXPECT_TRUE(find<QCheckBox>(dialog, "untilStopped").isChecked());
    EXPECT_FALSE(find<QLineEdit>(dialog, "length").isEnabled());
    dialog.setLength(QStringLiteral("soon"));
    EXPECT_FALSE(start.isEnabled());
    EXPECT_THAT(message(), HasSubstr("length"));
    find<QLineEdit>(dialog, "length").setText(QStringLiteral("1:00"));
    EXPECT_TRUE(start.isEnabled());
    find<QLineEdit>(dialog, "file").setText(QString::fromStdString((folder_ / "none/a.mp4").string()));
    EXPECT_FALSE(start.isEnabled());
    EXPECT_THAT(message(), HasSubstr("folder does not exist"));
}

TEST_F(ExportTest, ProposesANameAndRecordsUntilStopped) {
    showLive();
    ExportDialog& dialog = openDialog();
    EXPECT_EQ(dialog.windowTitle(), QStringLiteral("Export 127.0.0.1/live.flv"));
    EXPECT_THAT(find<QLineEdit>(dialog, "file").text().toStdString(),
                testing::ContainsRegex("^" + folder_.path().string() +
                                       "/127.0.0.1-live.flv-[0-9-]+-[0-9]+-[0-9]+-[0-9]+-[0-9]+.mp4$"));
    click(dialog, "start");
    ASSERT_EQ(recordings().size(), 1U);
    EXPECT_EQ(recordings()[0]->order().length.count(), 0);
    EXPECT_TRUE(window().recordings().list().isVisible());
    EXPECT_THAT(view().findChild<QLabel*>(QStringLiteral("caption"))->text().toStdString(),
                HasSubstr("● recording"));
    EXPECT_TRUE(waitForPictures(view(), 5));
    click(*window().findChild<RecordingRow*>(), "finish");
    ASSERT_TRUE(waitUntil([&] { return window().recordings().list().running() == 0; }));
    EXPECT_THAT(view().findChild<QLabel*>(QStringLiteral("caption"))->text().toStdString(),
                testing::Not(HasSubstr("recording")));
}

TEST_F(ExportTest, AsksBeforeItReplacesAFile) {
    writeFile(folder_ / "out.mp4", "mine");
    showLive();
    view().open(QString::fromStdString(server_.url("/clip.flv")));
    ExportDialog& dialog = openDialog();
    dialog.setLength(QStringLiteral("60"));
    dialog.setFile(QString::fromStdString((folder_ / "out.mp4").string()));
    EXPECT_THAT(find<QLabel>(dialog, "message").text().toStdString(), HasSubstr("will be replaced"));
    answer(QStringLiteral("Cancel"));
    click(dialog, "start");
    EXPECT_EQ(recordings().size(), 0U);
    answer(QStringLiteral("Replace"));
    click(dialog, "start");
    ASSERT_EQ(recordings().size(), 1U);
    EXPECT_EQ(readFile(folder_ / "out.mp4"), "mine");
    ASSERT_TRUE(waitUntil([&] { return recordings()[0]->isSaved(); }));
    EXPECT_EQ(files(), Names{"out.mp4"});
    EXPECT_GT(std::filesystem::file_size(folder_ / "out.mp4"), 1000U);
}

TEST_F(ExportTest, RecordingsRunBesideEachOther) {
    showLive();
    beginRecording("a.mp4");
    beginRecording("b.mp4");
    ASSERT_EQ(recordings().size(), 2U);
    ASSERT_TRUE(waitForFile("a.partial.mp4"));
    ASSERT_TRUE(waitForFile("b.partial.mp4"));
    EXPECT_TRUE(waitForPictures(view(), 5));

    ExportDialog& dialog = openDialog();
    dialog.setFile(QString::fromStdString((folder_ / "a.mp4").string()));
    EXPECT_FALSE(find<QPushButton>(dialog, "start").isEnabled());
    EXPECT_EQ(find<QLabel>(dialog, "message").text().toStdString(), "Another recording writes this file.");
    dialog.close();

    const auto rows = window().findChildren<RecordingRow*>();
    ASSERT_EQ(rows.size(), 2);
    const auto row = [&](const char* file) -> RecordingRow& {
        const bool isFirst = rows[0]->isOf(*recordings()[0]);
        return *rows[(file[0] == 'a') == isFirst ? 0 : 1];
    };
    click(row("a.mp4"), "cancel");
    click(row("b.mp4"), "finish");
    ASSERT_TRUE(waitUntil([&] { return window().recordings().list().running() == 0; }));
    EXPECT_EQ(files(), Names{"b.mp4"});
    EXPECT_EQ(find<QLabel>(row("a.mp4"), "message").text().toStdString(), "Cancelled. Nothing was saved.");
    EXPECT_THAT(find<QLabel>(row("b.mp4"), "message").text().toStdString(),
                StartsWith("The file is complete"));
    EXPECT_TRUE(find<QPushButton>(row("b.mp4"), "finish").isHidden());
    EXPECT_THAT(find<QLabel>(row("b.mp4"), "time").text().toStdString(),
                testing::MatchesRegex("[0-9]+:[0-9.]+ of 1:00.0"));
}

TEST_F(ExportTest, RBeginsARecordingAndFinishesIt) {
    showLive();
    press(Qt::Key_R);
    ASSERT_EQ(recordings().size(), 1U);
    EXPECT_EQ(action("record").text(), QStringLiteral("Finish recording"));
    ASSERT_TRUE(waitForFile((recordings()[0]->order().file.section(QLatin1Char('/'), -1).chopped(4) +
                             QStringLiteral(".partial.mp4"))
                                .toUtf8()
                                .constData()));
    press(Qt::Key_R);
    ASSERT_TRUE(waitUntil([&] { return !recordings()[0]->isRunning(); }));
    EXPECT_TRUE(recordings()[0]->isSaved()) << recordings()[0]->text().toStdString();
    EXPECT_EQ(action("record").text(), QStringLiteral("Record"));
}

TEST_F(ExportTest, ClosingTheWindowAsksAndFinishes) {
    showLive();
    beginRecording("a.mp4");
    ASSERT_TRUE(waitForFile("a.partial.mp4"));
    answer(QStringLiteral("Keep recording"));
    window().close();
    EXPECT_TRUE(window().isVisible());
    EXPECT_TRUE(recordings()[0]->isRunning());
    EXPECT_FALSE(recordings()[0]->isFinishing());
    EXPECT_TRUE(waitForPictures(view()));

    answer(QStringLiteral("Finish the recordings and quit"));
    window().close();
    ASSERT_TRUE(waitUntil([&] { return !window().isVisible(); }));
    EXPECT_TRUE(recordings()[0]->isSaved());
    EXPECT_EQ(files(), Names{"a.mp4"});
    closeWindow();
    EXPECT_EQ(leftovers(), "");
    EXPECT_THROW(runCommand({"pgrep", "-P", std::to_string(getpid()), "mediaworker"}), std::runtime_error);
}

TEST_F(ExportTest, NobodyIsAskedWhereNobodyIs) {
    showLive();
    beginRecording("a.mp4");
    ASSERT_TRUE(waitForFile("a.partial.mp4"));
    window().closeUnattended();
    ASSERT_TRUE(waitUntil([&] { return !window().isVisible(); }));
    EXPECT_EQ(files(), Names{"a.mp4"});
}

TEST_F(ExportTest, ClosingSaysWhatCouldNotBeSaved) {
    showLive();
    beginRecording("a.mp4");
    ASSERT_TRUE(waitForFile("a.partial.mp4"));
    writeFile(folder_ / "a.mp4", "came in between");
    testing::internal::CaptureStderr();
    window().closeUnattended();
    const bool isClosed = waitUntil([&] { return !window().isVisible(); });
    EXPECT_THAT(
        testing::internal::GetCapturedStderr(),
        HasSubstr("127.0.0.1/live.flv: The recording is complete, but could not be given its name. It "
                  "is in " +
                  (folder_ / "a.partial.mp4").string()));
    ASSERT_TRUE(isClosed);
    EXPECT_EQ(readFile(folder_ / "a.mp4"), "came in between");
}

} // namespace
} // namespace mediaworker::test
