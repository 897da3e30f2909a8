#include "Stage.h"

#include <QApplication>
#include <QInputDialog>
#include <QScreen>
#include <QTest>
#include <QTimer>

namespace mediaworker::test {
namespace {

using testing::HasSubstr;

/// What a window has from the one before.
class Remembering : public Stage {
protected:
    void open(const char* path, view::StreamSettings settings = silent()) {
        window_ = std::make_unique<view::ViewerWindow>(std::move(settings), QString());
        window_->setMemory(file_);
        window_->add(QString::fromStdString(server_.url(path)));
        window_->show();
        window_->activateWindow();
        ASSERT_TRUE(QTest::qWaitForWindowActive(window_.get()));
    }
    const QString file_ = QString::fromStdString((folder_ / "config/viewer.ini").string());
};

TEST_F(Remembering, SizeVolumeAndAddresses) {
    open("/a.flv");
    window().setGeometry(50, 60, 520, 410);
    view().setVolume(35);
    closeWindow();

    open("/b.flv");
    EXPECT_TRUE(waitUntil([&] { return window().size() == QSize(520, 410); }));
    EXPECT_EQ(view().sound().percent(), 80);
    window().add(QString::fromStdString(server_.url("/a.flv")));
    EXPECT_EQ(view(1).sound().percent(), 35);
    QTimer::singleShot(0, [this] {
        auto* const dialog = qobject_cast<QInputDialog*>(QApplication::activeModalWidget());
        ASSERT_NE(dialog, nullptr);
        EXPECT_EQ(dialog->comboBoxItems().join(QLatin1Char(' ')).toStdString(),
                  server_.url("/a.flv") + " " + server_.url("/b.flv"));
        dialog->reject();
    });
    press(Qt::Key_N, Qt::ControlModifier);
    closeWindow();

    view::StreamSettings chosen = silent();
    chosen.isVolumeChosen = true;
    chosen.volumePercent = 10;
    open("/a.flv", chosen);
    EXPECT_EQ(view().sound().percent(), 10);
}

TEST_F(Remembering, ABrokenFileIsIgnoredWithOneLine) {
    std::filesystem::create_directory(folder_ / "config");
    writeFile(folder_ / "config/viewer.ini", "[window\nno key");
    testing::internal::CaptureStderr();
    open("/a.flv");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "mediaworker-view: The settings in " +
                                                          file_.toStdString() +
                                                          " cannot be read and are ignored.\n");
    closeWindow();
    EXPECT_THAT(readFile(folder_ / "config/viewer.ini"), HasSubstr("a.flv"));
}

TEST_F(Remembering, AWindowOfALargerScreenFitsThisOne) {
    open("/a.flv");
    const QSize screen = window().screen()->availableSize();
    window().resize(screen * 2);
    window().move(screen.width() - 10, screen.height() - 10);
    closeWindow();
    open("/a.flv");
    EXPECT_TRUE(waitUntil([&] { return window().screen()->geometry().contains(window().frameGeometry()); }))
        << window().width() << " x " << window().height();
}

/// On a screen where each pixel is four: a run of its own, with MEDIAWORKER_TEST_SCALE=2.
class Scaled : public Stage {};

TEST_F(Scaled, DISABLED_WindowsFit) {
    ClipSpec spec;
    spec.widthPx = 1920;
    spec.heightPx = 1080;
    serveLive("/large.flv", spec);
    show({"/large.flv"});
    ASSERT_EQ(window().devicePixelRatioF(), 2);
    ASSERT_TRUE(waitForPictures(view()));
    const auto fits = [](const QWidget& widget) {
        return widget.screen()->availableGeometry().contains(widget.frameGeometry());
    };
    EXPECT_TRUE(waitUntil([&] { return fits(window()); }))
        << window().width() << " x " << window().height() << " on " << window().screen()->size().width();
    press(Qt::Key_E, Qt::ControlModifier);
    const QWidget* const dialog = QApplication::activeWindow();
    ASSERT_NE(dialog, nullptr);
    EXPECT_TRUE(fits(*dialog));
    press(Qt::Key_R);
    EXPECT_TRUE(waitUntil([&] { return fits(window()); }));
}

} // namespace
} // namespace mediaworker::test
