#include "tools/playlist/Playlist.h"

#include "support/ChildProcess.h"

#include <gmock/gmock.h>

namespace mediaworker {
namespace {

using Entries = std::vector<PlaylistEntry>;

PlaylistEntry entry(const char* group, const char* name, const char* address) {
    return {QString::fromUtf8(group), QString::fromUtf8(name), QString::fromUtf8(address)};
}

struct GoodCase {
    const char* text;
    Entries expected;
};

TEST(Playlist, IsReadAsPeopleWriteIt) {
    const GoodCase cases[] = {
        {"", {}},
        {"# nothing\n\n  \n", {}},
        {"Entrance = http://a/b\n", {entry("", "Entrance", "http://a/b")}},
        {"Entrance=http://a/b", {entry("", "Entrance", "http://a/b")}},
        {"a = http://x\r\nb = http://y\r\n", {entry("", "a", "http://x"), entry("", "b", "http://y")}},
        {"a = http://x/?q=1&r=2", {entry("", "a", "http://x/?q=1&r=2")}},
        {"http://x/?q=1", {entry("", "", "http://x/?q=1")}},
        {"= http://x", {entry("", "", "http://x")}},
        {"film = films/a b.mp4", {entry("", "film", "films/a b.mp4")}},
        {"a = http://x\n[Ground floor]\nb = http://y\n[]\nc = http://z",
         {entry("", "a", "http://x"), entry("Ground floor", "b", "http://y"), entry("", "c", "http://z")}},
        {"\xef\xbb\xbf"
         "a = http://x",
         {entry("", "a", "http://x")}},
        {"  # indented\n  a  =  http://x  ", {entry("", "a", "http://x")}},
        {"<b>x</b>\xe2\x80\xae = http://x", {entry("", "<b>x</b>", "http://x")}},
        {"a = http://x # not a comment", {entry("", "a", "http://x # not a comment")}},
    };
    for (const GoodCase& c : cases) {
        const Playlist list = parsePlaylist(c.text);
        EXPECT_EQ(list.problem.toStdString(), "") << c.text;
        EXPECT_EQ(list.entries, c.expected) << c.text;
    }
}

TEST(Playlist, IsRefusedWithASentence) {
    QByteArray many;
    for (int i = 0; i < 65; ++i) {
        many += "http://x/" + QByteArray::number(i) + "\n";
    }
    const struct {
        QByteArray text;
        const char* expected;
    } cases[] = {
        {many, "it has more than 64 streams"},
        {QByteArray(kLongestPlaylistBytes + 1, '\n'), "it is larger than a megabyte"},
        {QByteArray("a = http://x\0", 13), "it is no text in UTF-8"},
        {"\x89PNG\r\n\x1a\n", "it is no text in UTF-8"},
        {"a = http://\xff\xfe", "it is no text in UTF-8"},
        {"a = http://\xc3", "it is no text in UTF-8"},
        {"# ok\na = http://x\nhello", "line 3 is neither \"NAME = URL\" nor a URL, a [group] or a # comment"},
        {"a =", "line 1 is neither \"NAME = URL\" nor a URL, a [group] or a # comment"},
        {"[open", "line 1 is neither \"NAME = URL\" nor a URL, a [group] or a # comment"},
        {"a = http://" + QByteArray(5000, 'x'),
         "line 1 is neither \"NAME = URL\" nor a URL, a [group] or a # comment"},
    };
    for (const auto& [text, expected] : cases) {
        const Playlist list = parsePlaylist(text);
        EXPECT_EQ(list.problem.toStdString(), expected);
        EXPECT_TRUE(list.entries.empty()) << expected;
    }
    many.chop(many.size() - many.lastIndexOf("http"));
    EXPECT_EQ(parsePlaylist(many).entries.size(), 64U);
}

TEST(Playlist, IsReadFromAFile) {
    const test::TemporaryFolder folder;
    const auto read = [&](const char* name) {
        return readPlaylist(QString::fromStdString((folder / name).string()));
    };
    test::writeFile(folder / "good", "a = http://x\n");
    test::writeFile(folder / "large", std::string(3'000'000, '#'));
    test::writeFile(folder / "empty", "");
    EXPECT_EQ(read("good").entries.size(), 1U);
    EXPECT_EQ(read("large").problem.toStdString(), "it is larger than a megabyte");
    EXPECT_EQ(read("empty").problem.toStdString(), "it has no streams");
    EXPECT_EQ(read(".").problem.toStdString(), "it is a folder");
    EXPECT_NE(read("none").problem, QString());
}

} // namespace
} // namespace mediaworker
