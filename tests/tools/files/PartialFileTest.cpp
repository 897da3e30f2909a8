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

std::string box(const char* name, std::size_t contentBytes) {
    const auto size = static_cast<unsigned char>(contentBytes + 8);
    return std::string{0, 0, 0, static_cast<char>(size)} + name + std::string(contentBytes, 'x');
}

TEST(Remains, ArePlayableWithAnIndexAndContent) {
    const std::string begin = box("ftyp", 20);
    const std::string toTheEnd = std::string(4, '\0') + "mdat" + "all that comes";
    const std::string longOne = std::string("\0\0\0\1mdat\0\0\0\0\0\0\0\x14xxxx", 20);
    struct Row {
        const char* what;
        std::string bytes;
        bool isPlayable;
    };
    const test::TemporaryFolder folder;
    const auto file = folder / "film.partial.mp4";
    for (const Row& row : {
             Row{"nothing", "", false},
             Row{"no boxes", "half a film", false},
             Row{"an ordinary file", begin + box("mdat", 10) + box("moov", 30), true},
             Row{"a long box", begin + longOne + box("moov", 30), true},
             Row{"not closed", begin + box("free", 0) + toTheEnd, false},
             Row{"the index cut off", begin + box("mdat", 10) + box("moov", 30).substr(0, 37), false},
             Row{"fragments", begin + box("moov", 30) + box("moof", 9) + box("mdat", 10), true},
             Row{"a fragment cut off",
                 begin + box("moov", 30) + box("moof", 9) + box("mdat", 10).substr(0, 9), true},
             Row{"no fragment", begin + box("moov", 30) + box("moof", 9).substr(0, 12), false},
             Row{"a length that cannot be", begin + std::string("\0\0\0\2mdat", 8) + box("moov", 30), false},
         }) {
        test::writeFile(file, row.bytes);
        EXPECT_EQ(isPlayable(nameOf(file)), row.isPlayable) << row.what;
        EXPECT_EQ(keepRemains(nameOf(file), true), row.isPlayable) << row.what;
        EXPECT_EQ(std::filesystem::exists(file), row.isPlayable) << row.what;
    }
    EXPECT_FALSE(isPlayable(nameOf(file))) << "no file";
}

TEST(Remains, OfAWorkerThatClosedThemAreKeptUnlessEmpty) {
    const test::TemporaryFolder folder;
    const auto file = folder / "film.partial.mp4";
    test::writeFile(file, "something");
    EXPECT_TRUE(keepRemains(nameOf(file), false));
    EXPECT_EQ(test::readFile(file), "something");
    test::writeFile(file, "");
    EXPECT_FALSE(keepRemains(nameOf(file), false));
    EXPECT_FALSE(std::filesystem::exists(file));
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
