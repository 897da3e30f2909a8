#include "Stage.h"

#include "support/servers/Pacing.h"
#include "support/servers/TestCertificates.h"
#include "tools/view/ExportDialog.h"

#include <QAction>
#include <QApplication>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileDialog>
#include <QLineEdit>
#include <QMimeData>
#include <QPushButton>
#include <QTest>
#include <QTimer>

#include <filesystem>

namespace mediaworker::test {
namespace {

using testing::EndsWith;

/// By other ways than the keyboard: the dialogs for files, and the mouse.
class Opening : public Stage {
protected:
    static constexpr int kFirstOfFile = 7000;

    Opening() {
        ClipSpec spec;
        spec.frames = 250;
        serveLive("/live.flv", spec);
        spec.firstFrameNumber = kFirstOfFile;
        // A name that is another one when somebody encodes or decodes it.
        std::filesystem::copy_file(encodedFile(spec), file_);
    }

    [[nodiscard]] QString file() const { return QString::fromStdString(file_.string()); }
    [[nodiscard]] QString live() const { return QString::fromStdString(server_.url("/live.flv")); }

    /// What the user does in the next dialog for files, which has an event loop of its own.
    void inFileDialog(const std::function<void(QFileDialog&)>& action) {
        QTimer::singleShot(0, [this, action] {
            auto* const dialog = qobject_cast<QFileDialog*>(QApplication::activeModalWidget());
            hasSeenDialog_ = dialog != nullptr;
            if (dialog != nullptr) {
                action(*dialog);
            }
        });
    }
    static void typeName(QFileDialog& dialog, const QString& name) {
        auto* const edit = dialog.findChild<QLineEdit*>(QStringLiteral("fileNameEdit"));
        edit->setText(name);
        QTest::keyClick(edit, Qt::Key_Return);
    }

    /// As the window system tells it to what lies under the mouse. False when nobody there wants it.
    static bool drop(QWidget& target, const QMimeData& data) {
        const QPoint place(10, 10);
        QDragEnterEvent enter(place, Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
        enter.ignore();
        QCoreApplication::sendEvent(&target, &enter);
        if (!enter.isAccepted()) {
            return false;
        }
        QDropEvent drop(place, Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
        QCoreApplication::sendEvent(&target, &drop);
        return true;
    }

    const std::filesystem::path file_ = folder_ / "B\u00fcro #1 100%25.mp4";
    bool hasSeenDialog_ = false;
};

TEST_F(Opening, AFileThatIsChosenInTheDialogIsPlayed) {
    show({"/live.flv"});
    ASSERT_TRUE(waitForPictures(view()));
    inFileDialog([this](QFileDialog& dialog) {
        EXPECT_EQ(dialog.fileMode(), QFileDialog::ExistingFile);
        typeName(dialog, file());
    });
    press(Qt::Key_O, Qt::ControlModifier | Qt::ShiftModifier);
    EXPECT_TRUE(hasSeenDialog_);
    ASSERT_EQ(window().views().size(), 1U);
    EXPECT_EQ(view().url(), QStringLiteral("file://") + file());
    ASSERT_TRUE(waitForPictures(view()));
    EXPECT_GE(grabbedNumber(view()).value_or(0), kFirstOfFile);
}

TEST_F(Opening, ADialogThatIsLeftChangesNothing) {
    show({"/live.flv"});
    inFileDialog([](QFileDialog& dialog) { QTest::keyClick(&dialog, Qt::Key_Escape); });
    action("openFile").trigger();
    EXPECT_TRUE(hasSeenDialog_);
    EXPECT_EQ(view().url(), live());
    EXPECT_TRUE(waitForPictures(view()));
}

TEST_F(Opening, BrowsingChoosesTheFileOfAnExport) {
    view::ExportDialog dialog({.url = live()}, [](const QString&) { return false; });
    dialog.show();
    auto* const path = dialog.findChild<QLineEdit*>(QStringLiteral("file"));
    auto* const browse = dialog.findChild<QPushButton*>(QStringLiteral("browse"));
    const QString target = QString::fromStdString((folder_ / "films.mp4").string());
    inFileDialog([&](QFileDialog& files) {
        EXPECT_EQ(files.acceptMode(), QFileDialog::AcceptSave);
        typeName(files, target);
    });
    QTest::mouseClick(browse, Qt::LeftButton);
    EXPECT_TRUE(hasSeenDialog_);
    EXPECT_EQ(path->text(), target);
    EXPECT_TRUE(dialog.findChild<QPushButton*>(QStringLiteral("start"))->isEnabled());

    inFileDialog([](QFileDialog& files) { QTest::keyClick(&files, Qt::Key_Escape); });
    QTest::mouseClick(browse, Qt::LeftButton);
    EXPECT_EQ(path->text(), target);
}

TEST_F(Opening, AnArchiveIsPlayedAsSuch) {
    ClipSpec spec;
    spec.frames = 250;
    server_.route("/archive.flv", pacedHandler(makeFlv(encode(spec)), {.speed = 0, .staysOpen = true}));
    show({"/archive.flv?speed=1"});
    ASSERT_TRUE(waitForPictures(view(), 5));
    EXPECT_TRUE(waitForLog(view(), QStringLiteral("set timeouts for archive local: first frame 10 seconds, "
                                                  "inter frame 5 seconds")));
    // However fast it comes, it is shown at its own pace.
    EXPECT_LT(view().status().positionMs.value_or(0), 9000);
    EXPECT_TRUE(action("export").isEnabled());
}

TEST_F(Opening, ACloudStreamIsPlayedAsSuch) {
    const TestCertificates certificates;
    const PrivateCertificates trusted(certificates);
    if (const auto obstacle = trusted.obstacle()) {
        GTEST_SKIP() << *obstacle;
    }
    HttpServer cloud({.certificates = &certificates});
    ClipSpec spec;
    spec.frames = 250;
    cloud.route("/live.flv", pacedHandler(makeFlv(encode(spec)), {.burstMs = 1500, .staysOpen = true}));
    std::string script = "#!/bin/sh\nexec";
    for (const std::string& word : trusted.commandPrefix()) {
        script += " '" + word + "'";
    }
    writeFile(folder_ / "trusting", script + " '" MEDIAWORKER_PROGRAM "' \"$@\"\n");
    std::filesystem::permissions(folder_ / "trusting", std::filesystem::perms::owner_all);

    view::StreamSettings settings = silent();
    settings.workerProgram = QString::fromStdString((folder_ / "trusting").string());
    show({"/nothing.flv"}, settings);
    view().open(QString::fromStdString(cloud.url("/live.flv")));
    ASSERT_TRUE(waitForPictures(view(), 5)) << view().worker().recentLog().join('\n').toStdString();
    EXPECT_TRUE(waitForLog(
        view(), QStringLiteral("set timeouts for live cloud: first frame 8 seconds, inter frame 5 seconds")));
    closeWindow();
    EXPECT_TRUE(waitUntil([&] { return cloud.exchanges().at(0).clientLeft; }));
}

TEST_F(Opening, AFileThatIsDroppedIsAddedAndPlayed) {
    show({"/live.flv"});
    ASSERT_TRUE(waitForPictures(view()));
    QMimeData data;
    data.setUrls({QUrl::fromLocalFile(file())});
    ASSERT_TRUE(drop(view().pictures(), data));
    ASSERT_EQ(window().views().size(), 2U);
    EXPECT_EQ(view(1).url(), QStringLiteral("file://") + file());
    EXPECT_EQ(window().current(), &view(1));
    ASSERT_TRUE(waitForPictures(view(1)));
    EXPECT_GE(grabbedNumber(view(1)).value_or(0), kFirstOfFile);
    EXPECT_TRUE(waitForPictures(view(0)));
}

TEST_F(Opening, UrlsThatAreDroppedAreAddedAndPlayed) {
    show({"/live.flv"});
    ASSERT_TRUE(waitForPictures(view()));
    serveLive("/signed.flv");
    const QString query = QStringLiteral("?key=a%2Bb%20c");
    QMimeData data;
    data.setUrls({QUrl(QString::fromStdString(server_.url("/signed.flv")) + query), QUrl(live())});
    ASSERT_TRUE(drop(window(), data));
    ASSERT_EQ(window().views().size(), 3U);
    EXPECT_THAT(view(1).url().toStdString(), EndsWith("/signed.flv" + query.toStdString()));
    EXPECT_EQ(view(2).url(), live());
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_TRUE(waitForPictures(view(i))) << i;
    }
}

TEST_F(Opening, NothingElseCanBeDropped) {
    show({"/live.flv"});
    QMimeData data;
    data.setText(QStringLiteral("a text"));
    EXPECT_FALSE(drop(view().pictures(), data));
    EXPECT_EQ(window().views().size(), 1U);
}

} // namespace
} // namespace mediaworker::test
