#include "widgets/PictureWidget.h"

#include "parent/FrameChannel.h"
#include "support/ChildProcess.h"

#include <QPainter>
#include <QRandomGenerator>
#include <QtEndian>

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <memory>
#include <string>

namespace mediaworker::widgets {
namespace {

using namespace std::chrono_literals;

/// A widget, and a test in the place of the worker.
class PictureWidgetTest : public testing::Test {
protected:
    PictureWidgetTest() : widget_([this] { return channel_.get(); }) { widget_.resize(64, 36); }

    /// A file whose header says so, with that many pixels of one gray behind it.
    void write(quint32 width, quint32 height, std::size_t pixels, char gray) {
        std::string bytes(8, '\0');
        qToLittleEndian(width, bytes.data());
        qToLittleEndian(height, bytes.data() + 4);
        bytes.append(pixels * 4, gray);
        bytes.append(64, '\0');
        const auto hold = channel_->hold();
        test::writeFile(channel_->filePath().toStdString(), bytes);
    }
    void write(int width, int height, char gray) {
        write(static_cast<quint32>(width), static_cast<quint32>(height),
              static_cast<std::size_t>(width) * static_cast<std::size_t>(height), gray);
    }

    /// The gray in the middle of what is painted.
    int paint() { return qRed(widget_.grab().toImage().pixel(widget_.width() / 2, widget_.height() / 2)); }

    std::unique_ptr<parent::FrameChannel> channel_ = std::make_unique<parent::FrameChannel>();
    PictureWidget widget_;
};

TEST_F(PictureWidgetTest, IsBlackBeforeTheFirstPicture) {
    EXPECT_EQ(paint(), 0);
    EXPECT_TRUE(widget_.picture().isNull());
    EXPECT_TRUE(widget_.pictureRect().isEmpty());
    widget_.announce(); // a message before there is any file
    EXPECT_EQ(paint(), 0);
    EXPECT_EQ(widget_.copies(), 0U);
}

TEST_F(PictureWidgetTest, CopiesOnlyWhatItPaints) {
    write(32, 18, 50);
    for (int i = 0; i < 5; ++i) {
        widget_.announce();
    }
    EXPECT_EQ(widget_.copies(), 0U);
    EXPECT_EQ(paint(), 50);
    EXPECT_EQ(paint(), 50);
    EXPECT_EQ(widget_.copies(), 1U);
    EXPECT_EQ(widget_.shown(), 1U);
}

TEST_F(PictureWidgetTest, APictureThatWasTakenButNotPaintedIsNotShown) {
    write(32, 18, 50);
    widget_.announce();
    EXPECT_EQ(widget_.picture().size(), QSize(32, 18));
    EXPECT_EQ(widget_.copies(), 1U);
    EXPECT_EQ(widget_.shown(), 0U);
    paint();
    EXPECT_EQ(widget_.copies(), 1U);
    EXPECT_EQ(widget_.shown(), 1U);
}

TEST_F(PictureWidgetTest, KeepsAPictureThatIsGivenAway) {
    write(32, 18, 50);
    widget_.announce();
    const QImage kept = widget_.picture();
    write(32, 18, 90);
    widget_.announce();
    EXPECT_EQ(paint(), 90);
    EXPECT_EQ(qRed(kept.pixel(0, 0)), 50);
}

TEST_F(PictureWidgetTest, FollowsASizeThatChangesBetweenMessageAndMapping) {
    write(32, 18, 50);
    widget_.announce();
    EXPECT_EQ(paint(), 50);
    widget_.announce();
    write(400, 100, 70);
    EXPECT_EQ(paint(), 70);
    EXPECT_EQ(widget_.pictureSize(), QSize(400, 100));
    write(4, 4, 20);
    EXPECT_EQ(paint(), 70); // nothing was announced
    widget_.announce();
    EXPECT_EQ(paint(), 20);
}

TEST_F(PictureWidgetTest, KeepsItsPictureWhenTheFileIsShorterThanItsHeaderSays) {
    write(32, 18, 50);
    widget_.announce();
    EXPECT_EQ(paint(), 50);
    write(64, 36, 100, 90);
    widget_.announce();
    EXPECT_EQ(paint(), 50);
    write(0xFFFFFFFF, 0xFFFFFFFF, 10, 90);
    widget_.announce();
    EXPECT_EQ(paint(), 50);
    write(0, 0, 0, 90);
    widget_.announce();
    EXPECT_EQ(paint(), 50);
    test::writeFile(channel_->filePath().toStdString(), "");
    widget_.announce();
    EXPECT_EQ(paint(), 50);
    write(32, 18, 60);
    widget_.announce();
    EXPECT_EQ(paint(), 60);
}

TEST_F(PictureWidgetTest, DoesNotWaitForAWorkerThatKeepsTheSemaphore) {
    write(32, 18, 50);
    widget_.announce();
    EXPECT_EQ(paint(), 50);
    write(32, 18, 90);
    widget_.announce();
    auto hold = channel_->hold();
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(paint(), 50);
    EXPECT_EQ(paint(), 50); // and waits once for each picture
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 500ms);
    hold.release();
    widget_.announce();
    EXPECT_EQ(paint(), 90);
}

TEST_F(PictureWidgetTest, KeepsItsPictureWhenTheChannelGoes) {
    write(32, 18, 50);
    widget_.announce();
    EXPECT_EQ(paint(), 50);
    widget_.announce();
    channel_.reset();
    EXPECT_EQ(paint(), 50);
    widget_.clear();
    EXPECT_EQ(paint(), 0);
}

/// Ratios of a screen's pixels to the units of widgets.
class OnAScreen : public PictureWidgetTest, public testing::WithParamInterface<double> {
protected:
    /// What such a screen shows of the widget.
    QImage shown() {
        QImage image((QSizeF(widget_.size()) * GetParam()).toSize(), QImage::Format_RGB32);
        image.setDevicePixelRatio(GetParam());
        image.fill(Qt::magenta);
        QPainter painter(&image);
        widget_.render(&painter);
        return image;
    }
};

TEST_P(OnAScreen, ThePictureFillsItsPixelsAndTheRestIsBlack) {
    widget_.resize(65, 65);
    write(32, 18, 90);
    widget_.announce();
    const QImage image = shown();
    const QSize size = QSize(32, 18).scaled(image.size(), Qt::KeepAspectRatio);
    const QRect place(QPoint((image.width() - size.width()) / 2, (image.height() - size.height()) / 2), size);
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            ASSERT_EQ(qRed(image.pixel(x, y)), place.contains(x, y) ? 90 : 0) << x << ", " << y;
            ASSERT_EQ(qGray(image.pixel(x, y)), qRed(image.pixel(x, y))) << x << ", " << y;
        }
    }
}

TEST_P(OnAScreen, APictureOfAsManyPixelsIsNotScaled) {
    widget_.resize(64, 36);
    const QSize size = (QSizeF(widget_.size()) * GetParam()).toSize();
    std::string bytes(8, '\0');
    qToLittleEndian(static_cast<quint32>(size.width()), bytes.data());
    qToLittleEndian(static_cast<quint32>(size.height()), bytes.data() + 4);
    QRandomGenerator random(1);
    for (int i = 0; i < size.width() * size.height(); ++i) {
        const auto pixel = static_cast<char>(random.bounded(256));
        bytes += {pixel, static_cast<char>(i), static_cast<char>(i / 7), '\xff'};
    }
    bytes.append(64, '\0');
    test::writeFile(channel_->filePath().toStdString(), bytes);
    widget_.announce();
    const QImage image = shown();
    ASSERT_EQ(image.size(), size);
    EXPECT_EQ(
        0, std::memcmp(image.constBits(), bytes.data() + 8, static_cast<std::size_t>(image.sizeInBytes())));
}

INSTANTIATE_TEST_SUITE_P(Ratios, OnAScreen, testing::Values(1, 1.5, 2));

} // namespace
} // namespace mediaworker::widgets
