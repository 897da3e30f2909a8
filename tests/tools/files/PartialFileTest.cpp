#include "tools/files/PartialFile.h"

#include "support/ChildProcess.h"

#include <QDir>

#include <gtest/gtest.h>

namespace mediaworker {
namespace {

TEST(PartialFile, IsBesideItsTarget) {
    const QString root = QDir::rootPath();
    EXPECT_EQ(partialPath(root + QStringLiteral("x/a.b.mp4")), root + QStringLiteral("x/a.b.partial.mp4"));
    EXPECT_EQ(partialPath(QStringLiteral("a.mp4")),
              QDir::current().filePath(QStringLiteral("a.partial.mp4")));
}

TEST(PartialFile, TakesThePlaceOfItsTarget) {
    const test::TemporaryFolder folder;
    const auto target = folder / "film.mp4";
    const QString name = QString::fromStdString(target.string());
    const auto partial = folder / "film.partial.mp4";
    for (const char* text : {"first", "second"}) {
        test::writeFile(partial, text);
        EXPECT_TRUE(replaceFile(partialPath(name), name));
        EXPECT_EQ(test::readFile(target), text);
        EXPECT_FALSE(std::filesystem::exists(partial));
    }
}

TEST(PartialFile, CannotTakeThePlaceOfAFolder) {
    const test::TemporaryFolder folder;
    std::filesystem::create_directory(folder / "film.mp4");
    test::writeFile(folder / "film.partial.mp4", "text");
    const QString name = QString::fromStdString((folder / "film.mp4").string());
    EXPECT_FALSE(replaceFile(partialPath(name), name));
    EXPECT_EQ(test::readFile(folder / "film.partial.mp4"), "text");
}

} // namespace
} // namespace mediaworker
