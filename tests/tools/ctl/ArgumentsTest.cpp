#include "tools/ctl/Arguments.h"

#include "support/Platform.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

using namespace mediaworker::ctl;
using namespace std::chrono_literals;
using mediaworker::test::platform::kIsWindows;
using ::testing::HasSubstr;
using ::testing::StartsWith;

namespace {

/// Where the current folder is.
const QString kRoot = kIsWindows ? QStringLiteral("C:/") : QStringLiteral("/");

Command parse(const QStringList& words) {
    return parseArguments(QStringList{QStringLiteral("/opt/bin/mediaworker-ctl")} + words,
                          kRoot + QStringLiteral("home/me"));
}

Command parse(const char* line) {
    return parse(QString::fromUtf8(line).split(u' ', Qt::SkipEmptyParts));
}

std::string textOf(const Command& command) {
    const auto* information = std::get_if<Information>(&command);
    return information != nullptr ? information->text.toStdString() : "not an information";
}

} // namespace

TEST(CtlArguments, PlayHasDefaults) {
    EXPECT_EQ(std::get<PlayCommand>(parse("play http://cam/live.flv")),
              PlayCommand{.url = QStringLiteral("http://cam/live.flv")});
}

TEST(CtlArguments, PlayTakesEveryOption) {
    const PlayCommand expected{.url = QStringLiteral("https://cam/live.flv?a=b&speed=2"),
                               .duration = 2500ms,
                               .snapshotFolder = kRoot + QStringLiteral("home/me/pictures"),
                               .snapshotInterval = 40ms,
                               .volumePercent = 0,
                               .proxyUrl = QStringLiteral("http://u:p@proxy:3128"),
                               .proxyType = QStringLiteral("socks5"),
                               .flv = mediaworker::parent::FlvReading::Strict,
                               .hasLowLatency = true,
                               .hasSync = false,
                               .isReconnecting = true,
                               .isConfined = false,
                               .worker = QStringLiteral("/opt/worker"),
                               .isJson = true};
    EXPECT_EQ(std::get<PlayCommand>(parse(
                  "play https://cam/live.flv?a=b&speed=2 --seconds 2.5 --snapshots pictures --every 0.04 "
                  "--volume 0 --proxy http://u:p@proxy:3128 --proxy-type socks5 --flv strict --low-latency "
                  "--no-sync --reconnect --no-sandbox --worker /opt/worker --json")),
              expected);
    EXPECT_EQ(std::get<PlayCommand>(
                  parse("play --no-sandbox --reconnect --json --no-sync --low-latency --flv=strict "
                        "--worker=/opt/worker "
                        "--proxy-type=socks5 --proxy=http://u:p@proxy:3128 "
                        "--volume=0 --every=0.04 --snapshots=/home/me/pictures --seconds=2.5 "
                        "https://cam/live.flv?a=b&speed=2")),
              expected)
        << "in any order";
}

TEST(CtlArguments, PlayMakesUrlsOfPaths) {
    struct Row {
        const char* given;
        const char* url;
    };
    const std::vector<Row> rowsOfPosix{
        {"/films/a b.mp4", "file:///films/a b.mp4"},
        {"a.mp4", "file:///home/me/a.mp4"},
        {"file.mp4", "file:///home/me/file.mp4"},
    };
    const std::vector<Row> rowsOfWindows{
        {"D:\\films\\a b.mp4", "file:///D:/films/a b.mp4"},
        {"D:/films/a.mp4", "file:///D:/films/a.mp4"},
        {"\\films\\a.mp4", "file:///C:/films/a.mp4"},
        {"\\\\server\\films\\a.mp4", "file://///server/films/a.mp4"},
        {"films\\a.mp4", "file:///C:/home/me/films/a.mp4"},
        {"file.mp4", "file:///C:/home/me/file.mp4"},
    };
    std::vector<Row> rows = kIsWindows ? rowsOfWindows : rowsOfPosix;
    rows.push_back({"file:///films/a.mp4", "file:///films/a.mp4"});
    rows.push_back({"HTTP://cam/live.flv", "HTTP://cam/live.flv"});
    for (const Row& row : rows) {
        const Command command = parse({QStringLiteral("play"), QString::fromUtf8(row.given)});
        ASSERT_TRUE(std::holds_alternative<PlayCommand>(command)) << row.given;
        EXPECT_EQ(std::get<PlayCommand>(command).url.toStdString(), row.url);
    }
}

TEST(CtlArguments, ExportTakesEveryOption) {
    EXPECT_EQ(std::get<ExportCommand>(parse("export http://cam/a.flv out.mp4 --duration 60")),
              (ExportCommand{.url = QStringLiteral("http://cam/a.flv"),
                             .file = kRoot + QStringLiteral("home/me/out.mp4"),
                             .duration = 60s,
                             .patience = 63s}));
    EXPECT_EQ(std::get<ExportCommand>(
                  parse("export --json --timeout 0 --worker w http://cam/a.flv /out.mp4 --duration 0.5")),
              (ExportCommand{.url = QStringLiteral("http://cam/a.flv"),
                             .file = kRoot + QStringLiteral("out.mp4"),
                             .duration = 500ms,
                             .patience = 0ms,
                             .worker = QStringLiteral("w"),
                             .isJson = true}));
    EXPECT_EQ(std::get<ExportCommand>(parse("export http://cam/a.flv a.mp4 --duration 1 --flv strict")).flv,
              mediaworker::parent::FlvReading::Strict);
    EXPECT_EQ(std::get<ExportCommand>(parse("export http://cam/a.flv a.mp4 --duration 1 --flv standard")).flv,
              mediaworker::parent::FlvReading::Standard);
}

TEST(CtlArguments, BothTakeTargetsForTheLog) {
    const LogTargets expected{.file = kRoot + QStringLiteral("home/me/a.log"), .isVerbose = true};
    EXPECT_EQ(std::get<PlayCommand>(parse("play http://cam/a.flv --log a.log --verbose")).log, expected);
    EXPECT_EQ(std::get<ExportCommand>(parse("export http://cam/a.flv a.mp4 --verbose --log a.log")).log,
              expected);
    EXPECT_EQ(std::get<Misuse>(parse("play http://cam/a.flv --log=")).why,
              QStringLiteral("--log needs a file"));
    EXPECT_EQ(std::get<Misuse>(parse("play rtsp://u:p@cam/a")).why,
              QStringLiteral("cannot play rtsp://***@cam/a: only http, https and files"));
}

TEST(CtlArguments, ExportGoesOnUntilItIsStopped) {
    EXPECT_EQ(std::get<ExportCommand>(parse("export http://cam/a.flv A.MP4 --no-clobber")),
              (ExportCommand{.url = QStringLiteral("http://cam/a.flv"),
                             .file = kRoot + QStringLiteral("home/me/A.MP4"),
                             .duration = 0ms,
                             .patience = 0ms,
                             .mayReplace = false}));
    EXPECT_EQ(std::get<ExportCommand>(parse("export http://cam/a.flv a.mp4 --timeout 5")).patience, 5s);
}

TEST(CtlArguments, WaitsForAWhileAndAPartOfTheLength) {
    EXPECT_EQ(defaultPatience(0s), 60s);
    EXPECT_EQ(defaultPatience(1h), 4min);
}

TEST(CtlArguments, HelpIsEverywhere) {
    for (const char* line : {"help", "--help", "-h"}) {
        EXPECT_THAT(textOf(parse(line)), StartsWith("Usage: mediaworker-ctl COMMAND")) << line;
    }
    for (const char* line :
         {"play --help", "play -h", "help play", "play --help --json", "play http://c --help"}) {
        EXPECT_THAT(textOf(parse(line)), StartsWith("Usage: mediaworker-ctl play URL [options]\n")) << line;
        for (const char* option : {"--snapshots <DIR>", "--flv <READING>", "--low-latency", "--no-sync",
                                   "--reconnect", "--no-sandbox"}) {
            EXPECT_THAT(textOf(parse(line)), HasSubstr(option)) << line;
        }
    }
    for (const char* line : {"export --help", "export -h", "help export"}) {
        EXPECT_THAT(textOf(parse(line)), StartsWith("Usage: mediaworker-ctl export URL FILE [options]"))
            << line;
        EXPECT_THAT(textOf(parse(line)), HasSubstr("(http_proxy, https_proxy)")) << line;
        EXPECT_THAT(textOf(parse(line)), HasSubstr("--flv <READING>")) << line;
    }
}

TEST(CtlArguments, TellsTheVersion) {
    EXPECT_THAT(textOf(parse("--version")), ::testing::MatchesRegex("mediaworker-ctl .*\\..*\\..*\n"));
    EXPECT_EQ(textOf(parse("-v")), textOf(parse("--version")));
}

TEST(CtlArguments, RefusesWrongUsageWithAReason) {
    struct Row {
        const char* line;
        const char* why;
        const char* help;
    };
    constexpr const char* kPlay = "play --help";
    constexpr const char* kExport = "export --help";
    for (const Row& row : {
             Row{"", "the command is missing", "--help"},
             Row{"record", "unknown command: record", "--help"},
             Row{"help record", "unknown command: record", "--help"},
             Row{"--json play http://cam", "unknown command: --json", "--help"},
             Row{"play", "the URL is missing", kPlay},
             Row{"play http://cam http://cam2", "unexpected argument: http://cam2", kPlay},
             Row{"play rtmp://cam/live", "cannot play rtmp://cam/live: only http, https and files", kPlay},
             Row{"play http:///live", "cannot play http:///live: only http, https and files", kPlay},
             Row{"play http://cam --loud", "Unknown option 'loud'.", kPlay},
             Row{"play http://cam --seconds", "Missing value after '--seconds'.", kPlay},
             Row{"play http://cam --seconds ten", "--seconds must be a number", kPlay},
             Row{"play http://cam --seconds 0", "--seconds must be a number", kPlay},
             Row{"play http://cam --seconds -1", "--seconds must be a number", kPlay},
             Row{"play http://cam --seconds nan", "--seconds must be a number", kPlay},
             Row{"play http://cam --seconds inf", "--seconds must be a number", kPlay},
             Row{"play http://cam --seconds 2147484", "--seconds must be a number", kPlay},
             Row{"play http://cam --seconds 0.0001", "--seconds must be a number", kPlay},
             Row{"play http://cam --every 2", "--every needs --snapshots", kPlay},
             Row{"play http://cam --snapshots d --every 0", "--every must be a number", kPlay},
             Row{"play http://cam --snapshots=", "--snapshots needs a folder", kPlay},
             Row{"play http://cam --volume loud", "--volume must be a number from 0 to 100", kPlay},
             Row{"play http://cam --volume 101", "--volume must be a number from 0 to 100", kPlay},
             Row{"play http://cam --volume -1", "--volume must be a number from 0 to 100", kPlay},
             Row{"play http://cam --volume 5.5", "--volume must be a number from 0 to 100", kPlay},
             Row{"play http://cam --proxy proxy", "--proxy must be like", kPlay},
             Row{"play http://cam --proxy-type socks5", "--proxy-type needs --proxy", kPlay},
             Row{"play http://cam --proxy http://p:1 --proxy-type SOCKS5", "must be http or socks5", kPlay},
             Row{"play http://cam --flv loose", "--flv must be strict or standard", kPlay},
             Row{"play http://cam --flv Strict", "--flv must be strict or standard", kPlay},
             Row{"play http://cam --flv=", "--flv must be strict or standard", kPlay},
             Row{"play http://cam --flv", "Missing value after '--flv'.", kPlay},
             Row{"play http://cam --low-latency=1", "Unexpected value after '--low-latency'.", kPlay},
             Row{"play film.mp4 --reconnect", "--reconnect is for streams (http, https), not for files",
                 kPlay},
             Row{"export", "the URL is missing", kExport},
             Row{"export http://cam a.mp4 --duration 1 --flv loose", "--flv must be strict or standard",
                 kExport},
             Row{"export http://cam a.mp4 --duration 1 --low-latency", "Unknown option 'low-latency'.",
                 kExport},
             Row{"export http://cam", "the file to write is missing", kExport},
             Row{"export http://cam a.flv", "a.flv is no name for an MP4 file", kExport},
             Row{"export http://cam a", "a is no name for an MP4 file", kExport},
             Row{"export http://cam -", "- is no name for an MP4 file", kExport},
             Row{"export http://cam .mp4.part", "is no name for an MP4 file", kExport},
             Row{"export http://cam a.mp4 b.mp4 --duration 1", "unexpected argument: b.mp4", kExport},
             Row{"export http://cam a.mp4 --duration x", "--duration must be a number", kExport},
             Row{"export http://cam a.mp4 --duration 1 --timeout -1", "--timeout must be a number", kExport},
             Row{"export file:///a.flv a.mp4 --duration 1", "only http and https", kExport},
             Row{"export http://cam a.mp4 --duration 1 --proxy http://p:1", "Unknown option 'proxy'.",
                 kExport},
         }) {
        const Command command = parse(row.line);
        ASSERT_TRUE(std::holds_alternative<Misuse>(command)) << row.line;
        EXPECT_THAT(std::get<Misuse>(command).why.toStdString(), HasSubstr(row.why)) << row.line;
        EXPECT_EQ(std::get<Misuse>(command).help.toStdString(), row.help) << row.line;
    }
}
