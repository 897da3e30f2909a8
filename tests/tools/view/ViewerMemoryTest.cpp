#include "tools/view/ViewerMemory.h"

#include "support/ChildProcess.h"

#include <gmock/gmock.h>

namespace mediaworker::view {
namespace {

class Memory : public testing::Test {
protected:
    [[nodiscard]] QString file(const char* name = "config/viewer.ini") const {
        return QString::fromStdString((folder_ / name).string());
    }
    LoadedMemory loadText(const std::string& text) {
        test::writeFile(folder_ / "broken.ini", text);
        return loadMemory(file("broken.ini"));
    }

    test::TemporaryFolder folder_;
};

TEST_F(Memory, IsReadAsItWasWritten) {
    ViewerMemory memory;
    memory.geometry = QByteArray("\x01\xd9\0\xff=;\n", 7);
    memory.layout = QByteArray(1000, '\x80');
    memory.recordingFolder = QStringLiteral("/home/jo/Vidéos, 1");
    memory.noteAddress(QStringLiteral("http://a/ü?x=1&y=2;z,\"q\""));
    memory.noteAddress(QStringLiteral("http://b/"));
    memory.noteVolume(QStringLiteral("http://a/"), 35);
    memory.noteVolume(QStringLiteral("http://b/"), 0);
    ASSERT_TRUE(saveMemory(memory, file()));
    const LoadedMemory loaded = loadMemory(file());
    EXPECT_EQ(loaded.problem, QString());
    EXPECT_EQ(loaded.memory, memory);
    ASSERT_TRUE(saveMemory({}, file()));
    EXPECT_EQ(loadMemory(file()).memory, ViewerMemory{});
}

TEST_F(Memory, OfAFirstStartIsEmpty) {
    const LoadedMemory loaded = loadMemory(file());
    EXPECT_EQ(loaded.problem, QString());
    EXPECT_EQ(loaded.memory, ViewerMemory{});
}

TEST_F(Memory, HasTheNewestAddressesAndNoPasswords) {
    ViewerMemory memory;
    for (int i = 0; i < 12; ++i) {
        memory.noteAddress(QStringLiteral("http://a/%1").arg(i));
    }
    memory.noteAddress(QStringLiteral("http://a/5"));
    memory.noteAddress(QStringLiteral("http://jo:secret@a/6"));
    memory.noteAddress(QString());
    memory.noteAddress(QString(5000, QLatin1Char('x')));
    ASSERT_EQ(memory.addresses.size(), 10);
    EXPECT_EQ(memory.addresses[0], QStringLiteral("http://jo@a/6"));
    EXPECT_EQ(memory.addresses[1], QStringLiteral("http://a/5"));
    EXPECT_EQ(memory.addresses.count(QStringLiteral("http://a/5")), 1);
    memory.noteVolume(QStringLiteral("http://jo:secret@a/6"), 30);
    EXPECT_EQ(memory.volumeOf(QStringLiteral("http://jo:other@a/6")), 30);
    EXPECT_EQ(memory.volumeOf(QStringLiteral("http://a/7")), std::nullopt);
    EXPECT_FALSE(QStringList(memory.volumes.keys()).join(QString()).contains(QStringLiteral("secret")));
}

TEST_F(Memory, IsBounded) {
    ViewerMemory memory;
    for (int i = 0; i < 1000; ++i) {
        memory.noteVolume(QStringLiteral("http://a/%1").arg(i), 1000);
    }
    EXPECT_EQ(memory.volumes.size(), ViewerMemory::kMostVolumes);
    EXPECT_EQ(memory.volumeOf(QStringLiteral("http://a/0")), 100);
}

TEST_F(Memory, ThatIsBrokenIsIgnoredWithOneSentence) {
    std::string random;
    for (unsigned i = 0; i < 5000; ++i) {
        random += static_cast<char>((i * 2654435761U) >> 13);
    }
    for (const std::string& text : {std::string("[window\ngeometry"), std::string("no key at all"), random,
                                    std::string(2'000'000, 'x'), std::string(100, '\0')}) {
        const LoadedMemory loaded = loadText(text);
        EXPECT_EQ(loaded.memory, ViewerMemory{}) << text.substr(0, 20);
        EXPECT_EQ(
            loaded.problem,
            QStringLiteral("The settings in %1 cannot be read and are ignored.").arg(file("broken.ini")))
            << text.substr(0, 20);
    }
    EXPECT_NE(loadMemory(QString::fromStdString(folder_.path().string())).problem, QString());
}

TEST_F(Memory, WithStrangeValuesLosesOnlyThese) {
    const LoadedMemory loaded =
        loadText("[addresses]\nsize=1000000000\n1\\url=http://a/\n2\\url=\n\n[volumes]\nsize=3\n"
                 "1\\url=http://a/\n1\\percent=500\n2\\url=http://b/\n2\\percent=loud\n3\\percent=5\n\n"
                 "[window]\ngeometry=@Variant(\\0\\0\\0\\x7f)\nlayout=!!!\n");
    EXPECT_EQ(loaded.problem, QString());
    EXPECT_EQ(loaded.memory.addresses, QStringList{QStringLiteral("http://a/")});
    EXPECT_EQ(loaded.memory.volumeOf(QStringLiteral("http://a/")), 100);
    EXPECT_EQ(loaded.memory.volumes.size(), 1);
    EXPECT_TRUE(loaded.memory.geometry.isEmpty());
}

TEST_F(Memory, CannotBeSavedWhereThereIsNoPlace) {
    test::writeFile(folder_ / "config", "in the way");
    EXPECT_FALSE(saveMemory({}, file()));
}

} // namespace
} // namespace mediaworker::view
