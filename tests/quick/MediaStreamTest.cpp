#include "quick/MediaStream.h"

#include "support/Eventually.h"
#include "support/Leftovers.h"
#include "support/media/TestPicture.h"
#include "support/servers/Camera.h"

#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickView>
#include <QTemporaryFile>

#include <gmock/gmock.h>

#include <csignal>
#include <memory>
#include <optional>
#include <string>

namespace mediaworker::quick {
namespace {

using test::Camera;
using test::eventually;
using State = MediaStream::PlaybackState;

/// As an application has it: in a window, said in QML. The worker lies beside the test's own program.
class MediaStreamTest : public testing::Test {
protected:
    static constexpr int kSidePx = 481; ///< a height of 270.6: not the same on all screens

    ~MediaStreamTest() override {
        item_.reset();
        EXPECT_EQ(test::leftovers(), "");
    }

    /// Makes the item, in a window with a magenta background.
    void show(const QString& properties) {
        window_.setColor(Qt::magenta);
        window_.resize(kSidePx, kSidePx);
        QQmlComponent component(&engine_);
        component.setData(QStringLiteral("import QtQuick 2.15\nimport Mediaworker 1.0\n"
                                         "MediaStream {\n property int told: 0\n muted: true\n"
                                         " property bool isEnded: playbackState === MediaStream.Ended\n"
                                         " onProblemChanged: ++told\n %1\n}\n")
                              .arg(properties)
                              .toUtf8(),
                          QUrl());
        ASSERT_TRUE(component.isReady()) << component.errorString().toStdString();
        item_.reset(qobject_cast<MediaStream*>(component.create()));
        ASSERT_NE(item_, nullptr) << component.errorString().toStdString();
        item_->setParentItem(window_.contentItem());
        window_.show();
    }
    void show(const Camera& camera, const QString& more = {}) {
        show(QStringLiteral("source: \"%1\"\n width: %2; height: %2\n %3")
                 .arg(QString::fromStdString(camera.url()))
                 .arg(kSidePx)
                 .arg(more));
    }
    bool waitForPicture() {
        return eventually([this] { return item_->isPlaying() && number().has_value(); });
    }
    QImage grab() { return window_.grabWindow().convertToFormat(QImage::Format_RGB32); }
    /// Where a picture of 16:9 is in one of the window.
    static QRect placeIn(const QImage& window) {
        const QSize size = QSize(16, 9).scaled(window.size(), Qt::KeepAspectRatio);
        return {QPoint((window.width() - size.width()) / 2, (window.height() - size.height()) / 2), size};
    }
    std::optional<int> number() {
        const QImage all = grab();
        const QImage image = all.copy(placeIn(all));
        return test::readFrameNumber(
            {image.constBits(), image.width(), image.height(), image.bytesPerLine()});
    }
    QVariant property(const char* name) { return item_->property(name); }
    pid_t workerId() { return static_cast<pid_t>(item_->player().supervisor().worker().processId()); }

    QQmlEngine engine_;
    QQuickWindow window_;
    std::unique_ptr<MediaStream> item_;
};

// Also run with a scale of 2.
TEST_F(MediaStreamTest, ShowsAStreamOnItsPixels) {
    const Camera camera;
    show(camera);
    EXPECT_EQ(item_->playbackState(), State::Connecting);
    EXPECT_EQ(property("stateText"), QStringLiteral("connecting"));
    ASSERT_TRUE(waitForPicture());
    EXPECT_TRUE(eventually([this] {
        return property("playing") == true && property("stateText") == QStringLiteral("playing");
    }));
    EXPECT_EQ(property("problem"), QString());
    EXPECT_TRUE(eventually([this] { return item_->pictureSize() == QSize(320, 180); }));
    const int first = number().value_or(-1);
    EXPECT_TRUE(eventually([&] { return number().value_or(-1) > first; })) << "it goes on";
    const QImage image = grab();
    const double ratio = window_.effectiveDevicePixelRatio();
    EXPECT_EQ(ratio, qEnvironmentVariableIsSet("QT_SCALE_FACTOR") ? 2 : 1);
    ASSERT_EQ(image.size(), QSize(kSidePx, kSidePx) * ratio);
    // The item is transparent where there is no picture.
    const QRect place = placeIn(image);
    const int top = place.top();
    const int bottom = place.bottom() + 1;
    for (const int x : {0, image.width() / 2, image.width() - 1}) {
        EXPECT_EQ(image.pixelColor(x, top - 1), QColor(Qt::magenta));
        EXPECT_NE(image.pixelColor(x, top), QColor(Qt::magenta));
        EXPECT_NE(image.pixelColor(x, bottom - 1), QColor(Qt::magenta));
        EXPECT_EQ(image.pixelColor(x, bottom), QColor(Qt::magenta));
    }
    const QImage picture = image.copy(place);
    EXPECT_LE(test::largestPatchError(
                  {picture.constBits(), picture.width(), picture.height(), picture.bytesPerLine()}),
              24);
}

TEST_F(MediaStreamTest, SaysWhatIsWrongAndComesBackByItself) {
    Camera camera;
    camera.setThere(false);
    show(camera);
    ASSERT_TRUE(eventually([this] { return item_->playbackState() == State::Ended; }));
    EXPECT_EQ(property("problem").toString().toStdString(), "the server answered 404 Error");
    EXPECT_THAT(property("stateText").toString().toStdString(),
                testing::StartsWith("the server answered 404 Error – again in "));
    EXPECT_GE(property("told"), 1);
    EXPECT_EQ(property("isEnded"), true);
    camera.setThere(true);
    ASSERT_TRUE(waitForPicture());
    EXPECT_EQ(property("problem"), QString());

    camera.setThere(false);
    ASSERT_TRUE(eventually([this] { return item_->playbackState() == State::Ended; }));
    EXPECT_TRUE(number()) << "the last picture stays";
    camera.setThere(true);
    ASSERT_TRUE(waitForPicture());
}

TEST_F(MediaStreamTest, ShowsAnotherSourceInThePlaceOfTheFirst) {
    const Camera first;
    test::ClipSpec spec;
    spec.firstFrameNumber = 7000;
    const Camera second(spec);
    show(first);
    ASSERT_TRUE(waitForPicture());
    const pid_t before = workerId();
    ASSERT_TRUE(item_->setProperty("source", QString::fromStdString(second.url())));
    EXPECT_NE(::kill(before, 0), 0);
    EXPECT_TRUE(item_->pictureSize().isEmpty());
    EXPECT_TRUE(eventually([this] { return number().value_or(0) >= 7000; }));
    item_->setSource(QString());
    EXPECT_TRUE(eventually([this] { return item_->playbackState() == State::Ended; }));
    EXPECT_FALSE(number());
    EXPECT_EQ(second.requests(), 1);
}

TEST_F(MediaStreamTest, LeavesNoWorkerBehind) {
    const Camera camera;
    show(camera);
    ASSERT_TRUE(waitForPicture());
    const pid_t worker = workerId();
    ASSERT_EQ(::kill(worker, 0), 0);
    item_.reset();
    EXPECT_NE(::kill(worker, 0), 0);
    EXPECT_FALSE(number());
}

TEST_F(MediaStreamTest, HasThePicturesSizeUnlessItIsGivenAnother) {
    const Camera camera;
    show(QStringLiteral("source: \"%1\"").arg(QString::fromStdString(camera.url())));
    EXPECT_EQ(item_->size(), QSizeF(0, 0));
    EXPECT_TRUE(eventually([this] { return item_->size() == QSizeF(320, 180); }));
    EXPECT_TRUE(eventually([this] {
        const QImage image = grab().copy(0, 0, 320, 180);
        return test::readFrameNumber({image.constBits(), image.width(), image.height(), image.bytesPerLine()})
            .has_value();
    }));
}

TEST_F(MediaStreamTest, CanBePausedAndMutedBeforeItPlays) {
    const Camera camera;
    show(camera, QStringLiteral("paused: true; volume: 30; lowLatency: true"));
    EXPECT_EQ(property("volume"), 30);
    EXPECT_EQ(property("muted"), true);
    ASSERT_TRUE(eventually([this] { return item_->player().supervisor().worker().isConnected(); }));
    EXPECT_EQ(item_->playbackState(), State::Paused);
    item_->setPaused(false);
    ASSERT_TRUE(waitForPicture());
    item_->setVolume(500);
    EXPECT_EQ(property("volume"), 100);
    const pid_t before = workerId();
    item_->setLowLatency(false);
    EXPECT_NE(::kill(before, 0), 0);
    EXPECT_TRUE(waitForPicture());
}

TEST_F(MediaStreamTest, CopiesNothingWhileItIsNotSeen) {
    const Camera camera;
    show(camera);
    ASSERT_TRUE(waitForPicture());
    item_->setVisible(false);
    EXPECT_TRUE(eventually([this] { return !number(); }));
    const quint64 frames = item_->player().monitor().frames();
    ASSERT_TRUE(eventually([&] { return item_->player().monitor().frames() > frames + 5; }));
    EXPECT_FALSE(number());
    item_->setVisible(true);
    EXPECT_TRUE(waitForPicture());
}

} // namespace
} // namespace mediaworker::quick
