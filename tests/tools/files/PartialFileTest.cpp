#include "tools/files/PartialFile.h"

#include "support/ChildProcess.h"

#include <QDir>

#include <gtest/gtest.h>

namespace mediaworker {
namespace {

QString nameOf(const std::filesystem::path& path) {
    return QString::fromStdString(path.generic_string());
}

TEST(PartialFile, IsBesideItsTarget) {
    const test::TemporaryFolder folder;
    const auto partial = makePartialFile(nameOf(folder / "a.b.mp4"));
    ASSERT_TRUE(partial);
    EXPECT_EQ(*partial, nameOf(folder / "a.b.partial.mp4"));
    EXPECT_EQ(test::readFile(folder / "a.b.partial.mp4"), "");
}

TEST(PartialFile, IsNobodyElses) {
    const test::TemporaryFolder folder;
    const QString target = nameOf(folder / "film.mp4");
    test::writeFile(folder / "film.partial.mp4", "what another one has left");
    EXPECT_EQ(makePartialFile(target), nameOf(folder / "film.partial-2.mp4"));
    EXPECT_EQ(makePartialFile(target), nameOf(folder / "film.partial-3.mp4"));
    EXPECT_EQ(test::readFile(folder / "film.partial.mp4"), "what another one has left");
}

TEST(PartialFile, CannotBeMadeWhereNoFolderIs) {
    const test::TemporaryFolder folder;
    EXPECT_EQ(makePartialFile(nameOf(folder / "nothing" / "film.mp4")), std::nullopt);
}

TEST(MoveFile, TakesThePlaceOfItsTarget) {
    const test::TemporaryFolder folder;
    const auto target = folder / "film \u00fc.mp4";
    const auto partial = folder / "film.partial.mp4";
    for (const char* text : {"first", "second"}) {
        test::writeFile(partial, text);
        EXPECT_TRUE(moveFile(nameOf(partial), nameOf(target), Replacing::Allowed));
        EXPECT_EQ(test::readFile(target), text);
        EXPECT_FALSE(std::filesystem::exists(partial));
    }
}

TEST(MoveFile, ReplacesNothingUnlessItMay) {
    const test::TemporaryFolder folder;
    const auto target = folder / "film.mp4";
    const auto partial = folder / "film.partial.mp4";
    test::writeFile(target, "older");
    test::writeFile(partial, "newer");
    EXPECT_FALSE(moveFile(nameOf(partial), nameOf(target), Replacing::Refused));
    EXPECT_EQ(test::readFile(target), "older");
    EXPECT_EQ(test::readFile(partial), "newer");
    std::filesystem::remove(target);
    EXPECT_TRUE(moveFile(nameOf(partial), nameOf(target), Replacing::Refused));
    EXPECT_EQ(test::readFile(target), "newer");
}

TEST(MoveFile, CannotTakeThePlaceOfAFolder) {
    const test::TemporaryFolder folder;
    std::filesystem::create_directory(folder / "film.mp4");
    test::writeFile(folder / "film.partial.mp4", "text");
    for (const auto replacing : {Replacing::Allowed, Replacing::Refused}) {
        EXPECT_FALSE(moveFile(nameOf(folder / "film.partial.mp4"), nameOf(folder / "film.mp4"), replacing));
    }
    EXPECT_EQ(test::readFile(folder / "film.partial.mp4"), "text");
}

} // namespace
} // namespace mediaworker
