#include "tools/ctl/PictureWriter.h"

#include <QCoreApplication>
#include <QTemporaryDir>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

using namespace mediaworker::ctl;
using ::testing::ElementsAre;

namespace {

struct Written {
    QString file;
    qint64 ptsMs;
    bool isGood;
    friend bool operator==(const Written&, const Written&) = default;
};

class CtlPictureWriter : public ::testing::Test {
protected:
    CtlPictureWriter() {
        // Through the event loop, as in the program: the writer speaks from another thread.
        QObject::connect(
            &writer_, &PictureWriter::written, &receiver_,
            [this](const QString& file, qint64 ptsMs, bool isGood) {
                written_.push_back({file, ptsMs, isGood});
            },
            Qt::QueuedConnection);
    }
    void finish() {
        writer_.flush();
        QCoreApplication::processEvents();
    }
    static QImage picture(QRgb colour) {
        QImage image(64, 32, QImage::Format_RGB32);
        image.fill(colour);
        return image;
    }

    QTemporaryDir folder_;
    QObject receiver_;
    std::vector<Written> written_;
    PictureWriter writer_;
};

} // namespace

TEST_F(CtlPictureWriter, WritesWhatItIsGivenInThatOrder) {
    std::vector<Written> expected;
    for (int i = 0; i < 30; ++i) {
        const QString file = folder_.filePath(QStringLiteral("%1.png").arg(i));
        writer_.write(picture(qRgb(i, 2 * i, 3 * i)), file, qint64{40} * i);
        expected.push_back({file, qint64{40} * i, true});
    }
    finish();
    EXPECT_EQ(written_, expected);
    EXPECT_EQ(QImage(expected[7].file).convertToFormat(QImage::Format_RGB32), picture(qRgb(7, 14, 21)));
}

TEST_F(CtlPictureWriter, SaysWhenAFileCannotBeWritten) {
    const QString file = folder_.filePath(QStringLiteral("nowhere/a.png"));
    writer_.write(picture(0), file, 5);
    finish();
    EXPECT_THAT(written_, ElementsAre(Written{file, 5, false}));
}
