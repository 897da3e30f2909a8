#include "tools/view/ViewerOptions.h"

#include "support/ChildProcess.h"

#include <QDir>
#include <QFileInfo>

#include <gmock/gmock.h>

namespace mediaworker::view {
namespace {

using Action = ViewerOptions::Action;

ViewerOptions parse(const QStringList& arguments) {
    return parseArguments(QStringList{QStringLiteral("mediaworker-view")} + arguments,
                          QDir::rootPath() + QStringLiteral("me"));
}

ViewerOptions parse(std::initializer_list<const char*> arguments) {
    QStringList list;
    for (const char* argument : arguments) {
        list << QString::fromUtf8(argument);
    }
    return parse(list);
}

TEST(ViewerOptions, NeedNothing) {
    const ViewerOptions options = parse(QStringList{});
    EXPECT_EQ(options.action, Action::Show);
    EXPECT_TRUE(options.urls.isEmpty());
    EXPECT_EQ(options.streams.volumePercent, 80);
    EXPECT_FALSE(options.streams.isMuted);
    EXPECT_EQ(options.seconds, 0);
    EXPECT_FALSE(options.snapshotFolder.isEmpty());
    EXPECT_EQ(options.streams.flv, parent::FlvReading::Standard);
    EXPECT_FALSE(options.streams.hasLowLatency);
    EXPECT_TRUE(options.streams.hasSync);
    EXPECT_TRUE(options.streams.isReconnecting);
    EXPECT_TRUE(options.streams.isConfined);
}

TEST(ViewerOptions, DecideHowStreamsAreRead) {
    const ViewerOptions options =
        parse({"--flv", "strict", "--low-latency", "--no-sync", "--no-reconnect", "--no-sandbox"});
    EXPECT_EQ(options.action, Action::Show) << options.text.toStdString();
    EXPECT_EQ(options.streams.flv, parent::FlvReading::Strict);
    EXPECT_TRUE(options.streams.hasLowLatency);
    EXPECT_FALSE(options.streams.hasSync);
    EXPECT_FALSE(options.streams.isReconnecting);
    EXPECT_FALSE(options.streams.isConfined);
    EXPECT_EQ(parse({"--flv=standard"}).streams.flv, parent::FlvReading::Standard);
}

TEST(ViewerOptions, AreAllRead) {
    const ViewerOptions options =
        parse({"--worker", "/bin/w", "--proxy=http://u:p@host:1080", "--proxy-type", "socks5", "--volume",
               "30", "--snapshots", "shots", "--seconds", "7", "--statistics", "http://a/b", "clip.mp4"});
    EXPECT_EQ(options.action, Action::Show) << options.text.toStdString();
    EXPECT_EQ(options.streams.workerProgram, QStringLiteral("/bin/w"));
    EXPECT_EQ(options.streams.proxyUrl, QStringLiteral("http://u:p@host:1080"));
    EXPECT_EQ(options.streams.proxyType, QStringLiteral("socks5"));
    EXPECT_EQ(options.streams.volumePercent, 30);
    EXPECT_FALSE(options.streams.isMuted);
    EXPECT_EQ(options.snapshotFolder, QDir::rootPath() + QStringLiteral("me/shots"));
    EXPECT_EQ(options.seconds, 7);
    EXPECT_TRUE(options.printsStatistics);
    EXPECT_EQ(options.urls,
              (QStringList{QStringLiteral("http://a/b"),
                           streamUrl(QStringLiteral("clip.mp4"), QDir::rootPath() + QStringLiteral("me"))}));
}

TEST(ViewerOptions, SeveralStreamsAreSilentUnlessAVolumeIsAskedFor) {
    EXPECT_FALSE(parse({"http://a/b"}).streams.isMuted);
    EXPECT_TRUE(parse({"http://a/b", "http://a/c"}).streams.isMuted);
    EXPECT_FALSE(parse({"--volume", "50", "http://a/b", "http://a/c"}).streams.isMuted);
    EXPECT_TRUE(parse({"--mute", "http://a/b"}).streams.isMuted);
    EXPECT_TRUE(parse({"--mute", "--volume", "50", "http://a/b"}).streams.isMuted);
}

TEST(ViewerOptions, HelpNamesEverything) {
    for (const char* option : {"-h", "--help"}) {
        const ViewerOptions options = parse({option});
        EXPECT_EQ(options.action, Action::PrintHelp);
        for (const char* name :
             {"--worker", "--proxy", "--flv", "--low-latency", "--no-sync", "--no-reconnect", "--no-sandbox",
              "--volume", "--snapshots", "--group <NAME>", "URL", "Keys:", "Ctrl+Shift+O", "F11"}) {
            EXPECT_THAT(options.text.toStdString(), testing::HasSubstr(name));
        }
    }
    EXPECT_EQ(parse({"--version"}).action, Action::PrintVersion);
}

struct RefusedCase {
    const char* name;
    std::vector<const char*> arguments;
    const char* expected; ///< part of the text
};

class Refused : public testing::TestWithParam<RefusedCase> {};

TEST_P(Refused, WithAReason) {
    QStringList arguments;
    for (const char* argument : GetParam().arguments) {
        arguments << QString::fromUtf8(argument);
    }
    const ViewerOptions options = parse(arguments);
    EXPECT_EQ(options.action, Action::Refuse);
    EXPECT_THAT(options.text.toStdString(), testing::HasSubstr(GetParam().expected));
}

TEST(ViewerOptions, NameTheStreamsOfAPlaylist) {
    const test::TemporaryFolder folder;
    const QString file = QString::fromStdString((folder / "cameras").string());
    test::writeFile(folder / "cameras", "[in]\nHall = http://a/b\n[out]\nYard = film.mp4\nhttp://c/d\n");
    const ViewerOptions all = parse(QStringList{QStringLiteral("--playlist"), file});
    EXPECT_EQ(all.action, Action::Show) << all.text.toStdString();
    const std::vector<StreamSource> expected = {
        {QStringLiteral("http://a/b"), QStringLiteral("Hall")},
        {QStringLiteral("file://") + QFileInfo(file).absolutePath() + QStringLiteral("/film.mp4"),
         QStringLiteral("Yard")},
        {QStringLiteral("http://c/d"), QString()}};
    EXPECT_EQ(all.playlist, expected);
    EXPECT_TRUE(all.streams.isMuted);
    EXPECT_TRUE(all.urls.isEmpty());
    const ViewerOptions one = parse(
        QStringList{QStringLiteral("--playlist"), file, QStringLiteral("--group"), QStringLiteral("in")});
    EXPECT_EQ(one.playlist, std::vector<StreamSource>{expected[0]});
    EXPECT_FALSE(one.streams.isMuted);
    const ViewerOptions none = parse(
        QStringList{QStringLiteral("--playlist"), file, QStringLiteral("--group"), QStringLiteral("up")});
    EXPECT_EQ(none.action, Action::Refuse);
    EXPECT_THAT(none.text.toStdString(), testing::HasSubstr("it has no streams in the group \"up\""));
}

INSTANTIATE_TEST_SUITE_P(
    CommandLines, Refused,
    testing::Values(RefusedCase{"UnknownOption", {"--fast"}, "fast"},
                    RefusedCase{"MissingValue", {"--worker"}, "worker"},
                    RefusedCase{"VolumeNoNumber", {"--volume", "loud"}, "--volume"},
                    RefusedCase{"VolumeTooLarge", {"--volume", "101"}, "--volume"},
                    RefusedCase{"NoSeconds", {"--seconds", "0"}, "--seconds"},
                    RefusedCase{
                        "ProxyType", {"--proxy", "http://a:1", "--proxy-type", "ftp"}, "--proxy-type"},
                    RefusedCase{"ProxyTypeAlone", {"--proxy-type", "socks5"}, "--proxy"},
                    RefusedCase{"Reading", {"--flv", "loose"}, "--flv must be strict or standard."},
                    RefusedCase{"EmptyReading", {"--flv="}, "--flv must be strict or standard."},
                    RefusedCase{"ReadingMissing", {"--flv"}, "--flv"},
                    RefusedCase{"LatencyOfAValue", {"--low-latency=1"}, "low-latency"},
                    RefusedCase{"PlaylistMissing",
                                {"--playlist", "/nonexistent/list"},
                                "The playlist /nonexistent/list cannot be used: "},
                    RefusedCase{"GroupAlone", {"--group", "in"}, "--group needs --playlist."},
                    RefusedCase{"EmptyUrl", {""}, "empty"}),
    [](const auto& instance) { return instance.param.name; });

} // namespace
} // namespace mediaworker::view
