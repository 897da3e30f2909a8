#include "tools/view/Snapshot.h"

#include "support/ChildProcess.h"

#include <gtest/gtest.h>

namespace mediaworker::view {
namespace {

const QDateTime kWhen(QDate(2026, 3, 4), QTime(5, 6, 7));

QString nameFor(const char* stream) {
    return snapshotName(QString::fromUtf8(stream), kWhen, [](const QString&) { return false; });
}

TEST(SnapshotName, HoldsStreamAndTime) {
    EXPECT_EQ(nameFor("cam.example/live.flv").toStdString(), "cam.example-live.flv_20260304-050607.png");
    EXPECT_EQ(nameFor("a b/c:d\\e").toStdString(), "a-b-c-d-e_20260304-050607.png");
    EXPECT_EQ(nameFor("").toStdString(), "stream_20260304-050607.png");
    EXPECT_EQ(nameFor("../x").toStdString(), "stream..-x_20260304-050607.png");
    EXPECT_EQ(nameFor(std::string(500, 'x').c_str()).size(), 60 + 20);
}

TEST(SnapshotName, IsCountedOnWhereItIsTaken) {
    QStringList asked;
    const QString name = snapshotName(QStringLiteral("a"), kWhen, [&](const QString& candidate) {
        asked << candidate;
        return asked.size() < 3;
    });
    EXPECT_EQ(name.toStdString(), "a_20260304-050607-3.png");
    EXPECT_EQ(asked.first().toStdString(), "a_20260304-050607.png");
}

class SavePng : public testing::Test {
protected:
    static QImage picture() {
        QImage image(7, 5, QImage::Format_RGB32);
        image.fill(qRgb(10, 20, 30));
        image.setPixel(6, 4, qRgb(255, 0, 1));
        return image;
    }
    [[nodiscard]] QString path(const char* name) const {
        return QString::fromStdString((folder_ / name).string());
    }

    test::TemporaryFolder folder_;
};

TEST_F(SavePng, KeepsEveryPixel) {
    ASSERT_EQ(savePng(picture(), path("a.png")), QString());
    EXPECT_EQ(QImage(path("a.png")).convertToFormat(QImage::Format_RGB32), picture());
}

TEST_F(SavePng, NeverWritesOverAFile) {
    test::writeFile(folder_ / "a.png", "mine");
    EXPECT_NE(savePng(picture(), path("a.png")), QString());
    EXPECT_EQ(test::readFile(folder_ / "a.png"), "mine");
}

TEST_F(SavePng, TellsWhatGoesWrong) {
    EXPECT_NE(savePng(picture(), path("none/a.png")), QString());
    EXPECT_NE(savePng(QImage(), path("b.png")), QString());
    EXPECT_FALSE(std::filesystem::exists(folder_ / "b.png"));
}

} // namespace
} // namespace mediaworker::view
