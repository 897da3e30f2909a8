#include "stream/LocalPath.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gmock/gmock.h>

namespace {

TEST(LocalPath, BarePathStaysAsItIs) {
    EXPECT_EQ(localPath("file.flv"), "file.flv");
    EXPECT_EQ(localPath("filesystem/a b.mp4"), "filesystem/a b.mp4");
}

TEST(LocalPath, OnlyTheFirstSchemeIsRemoved) {
    EXPECT_EQ(localPath("file:///C:/video.mp4"), "C:/video.mp4");
    EXPECT_EQ(localPath("file://///server/films/a b.mp4"), "//server/films/a b.mp4");
    EXPECT_EQ(localPath("file:///file:///x"), "file:///x");
    EXPECT_EQ(localPath("file://host/x"), "file://host/x");
}

TEST(LocalPath, MissingFileKeepsTheRest) {
    EXPECT_EQ(localPath("file:///no/such/file.mp4"), "no/such/file.mp4");
}

TEST(LocalPath, FileUrlOfThisPlatformNamesTheFile) {
    const QTemporaryDir folder;
    const QString path = folder.filePath("video.mp4");
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    const std::string opened = localPath("file:///" + (path.startsWith('/') ? path.mid(1) : path));
    EXPECT_EQ(QFileInfo(QString::fromStdString(opened)), QFileInfo(path));
}

} // namespace
