#include "tools/view/ExportForm.h"

#include "support/ChildProcess.h"

#include <QDir>

#include <gmock/gmock.h>

namespace mediaworker::view {
namespace {

struct LengthCase {
    const char* text;
    std::optional<int> expectedMs;
};

class Length : public testing::TestWithParam<LengthCase> {};

TEST_P(Length, IsReadAsPeopleWriteIt) {
    EXPECT_EQ(parseLength(QString::fromUtf8(GetParam().text)), GetParam().expectedMs);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, Length,
    testing::Values(LengthCase{"1", 1000}, LengthCase{"90", 90000}, LengthCase{" 90 ", 90000},
                    LengthCase{"1:30", 90000}, LengthCase{"0:05", 5000}, LengthCase{"90:00", 5400000},
                    LengthCase{"1:02:03", 3723000}, LengthCase{"24:00:00", 86400000},
                    LengthCase{"86400", 86400000}, LengthCase{"86401", {}}, LengthCase{"24:00:01", {}},
                    LengthCase{"0", {}}, LengthCase{"0:00", {}}, LengthCase{"", {}}, LengthCase{":", {}},
                    LengthCase{"1:", {}}, LengthCase{":30", {}}, LengthCase{"1:60", {}},
                    LengthCase{"1:60:00", {}}, LengthCase{"1:2:3:4", {}}, LengthCase{"-5", {}},
                    LengthCase{"+5", {}}, LengthCase{"1.5", {}}, LengthCase{"5 s", {}},
                    LengthCase{"9999999999", {}}, LengthCase{"86400:59:59", {}}, LengthCase{"٣", {}}));

constexpr TargetFile kNewFile{
    .isFolder = false, .exists = false, .folderExists = true, .folderIsWritable = true};

struct FormCase {
    const char* name;
    const char* url;
    const char* length;
    const char* path;
    TargetFile target;
    const char* expected; ///< part of the problem; empty: there is none
};

class Form : public testing::TestWithParam<FormCase> {};

TEST_P(Form, TellsWhatIsWrong) {
    const FormCase& c = GetParam();
    const std::string problem = exportFormProblem(QString::fromUtf8(c.url), QString::fromUtf8(c.length),
                                                  QString::fromUtf8(c.path), c.target)
                                    .toStdString();
    if (*c.expected == '\0') {
        EXPECT_EQ(problem, "");
    } else {
        EXPECT_THAT(problem, testing::HasSubstr(c.expected));
    }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, Form,
    testing::Values(
        FormCase{"Good", "http://a/b", "5", "/x/y.mp4", kNewFile, ""},
        FormCase{"Replaces",
                 "http://a/b",
                 "5",
                 "/x/y.mp4",
                 {.isFolder = false, .exists = true, .folderExists = true, .folderIsWritable = true},
                 ""},
        FormCase{"NoStream", "", "5", "/x/y.mp4", kNewFile, "no stream"},
        FormCase{"LocalFile", "file:///a", "5", "/x/y.mp4", kNewFile, "local file"},
        FormCase{"BadLength", "http://a/b", "soon", "/x/y.mp4", kNewFile, "length"},
        FormCase{"NoFile", "http://a/b", "5", "  ", kNewFile, "Choose a file"},
        FormCase{"Folder",
                 "http://a/b",
                 "5",
                 "/x",
                 {.isFolder = true, .exists = true, .folderExists = true, .folderIsWritable = true},
                 "folder"},
        FormCase{"NoFolder",
                 "http://a/b",
                 "5",
                 "/x/y.mp4",
                 {.isFolder = false, .exists = false, .folderExists = false, .folderIsWritable = false},
                 "does not exist"},
        FormCase{"ReadOnlyFolder",
                 "http://a/b",
                 "5",
                 "/x/y.mp4",
                 {.isFolder = false, .exists = false, .folderExists = true, .folderIsWritable = false},
                 "cannot be written"}),
    [](const auto& instance) { return instance.param.name; });

TEST(ExportFile, IsLookedAt) {
    const test::TemporaryFolder folder;
    test::writeFile(folder / "a.mp4", "x");
    const auto look = [&](const char* name) {
        return lookAt(QString::fromStdString((folder / name).string()));
    };
    EXPECT_TRUE(look("a.mp4").exists);
    EXPECT_FALSE(look("a.mp4").isFolder);
    EXPECT_TRUE(look("a.mp4").folderExists);
    EXPECT_FALSE(look("b.mp4").exists);
    EXPECT_TRUE(look("b.mp4").folderIsWritable);
    EXPECT_TRUE(look(".").isFolder);
    EXPECT_FALSE(look("none/b.mp4").folderExists);
}

TEST(ExportFile, EndsWithMp4) {
    EXPECT_EQ(withMp4Suffix(QStringLiteral("/x/a")), QStringLiteral("/x/a.mp4"));
    EXPECT_EQ(withMp4Suffix(QStringLiteral(" /x/a.MP4 ")), QStringLiteral("/x/a.MP4"));
    EXPECT_EQ(withMp4Suffix(QStringLiteral("/x/a.M4v")), QStringLiteral("/x/a.M4v"));
    EXPECT_EQ(withMp4Suffix(QStringLiteral("/x/a.mov")), QStringLiteral("/x/a.mov.mp4"));
    EXPECT_EQ(withMp4Suffix(QStringLiteral("/x/")), QStringLiteral("/x/"));
    EXPECT_EQ(withMp4Suffix(QStringLiteral("  ")), QString());
}

TEST(ExportForm, NeedsNoLengthUntilStopped) {
    EXPECT_EQ(
        exportFormProblem(QStringLiteral("http://a/b"), std::nullopt, QStringLiteral("/x/y.mp4"), kNewFile),
        QString());
}

TEST(RecordingFile, HasTheNameOfTheStreamAndTheTime) {
    const QDateTime when(QDate(2026, 11, 21), QTime(14, 5, 30));
    const auto name = [&](const char* stream) {
        return recordingFileName(QString::fromUtf8(stream), when, [](const QString&) { return false; })
            .toStdString();
    };
    const std::pair<const char*, const char*> cases[] = {
        {"Entrance", "Entrance"},
        {"cam.example/live.flv", "cam.example-live.flv"},
        {"Tür 2 (Süd)", "Tür-2-Süd"},
        {"", "stream"},
        {"...", "stream"},
        {"../../etc/passwd", "etc-passwd"},
        {"--help", "help"},
        {"a\nb\tc", "a-b-c"},
        {"C:\\x|y<z>\"?*", "C-x-y-z"},
        {"<b>bold</b>", "b-bold-b"},
        {"left\xe2\x80\xaeright", "left-right"},
        {"end. ", "end"},
    };
    for (const auto& [stream, expected] : cases) {
        EXPECT_EQ(name(stream), std::string(expected) + "-2026-11-21-14-05-30.mp4") << stream;
    }
    EXPECT_EQ(name(std::string(500, 'x').c_str()).size(), 60U + 24);
}

TEST(RecordingFile, IsCountedOnWhereItIsTaken) {
    int asked = 0;
    EXPECT_EQ(recordingFileName(QStringLiteral("a"), QDateTime(QDate(2026, 1, 2), QTime(3, 4, 5)),
                                [&](const QString&) { return ++asked < 3; })
                  .toStdString(),
              "a-2026-01-02-03-04-05-3.mp4");
}

TEST(RecordedText, TellsHowMuchOfWhat) {
    using namespace std::chrono_literals;
    EXPECT_EQ(recordedText(12'345ms, 0ms).toStdString(), "0:12.3");
    EXPECT_EQ(recordedText(12'345ms, 60s).toStdString(), "0:12.3 of 1:00.0");
}

TEST(ExportEnd, IsToldInSentences) {
    const auto text = [](ExportEnd end, const char* file, const char* why) {
        return exportEndText(end, QString::fromUtf8(file), QString::fromUtf8(why)).toStdString();
    };
    EXPECT_EQ(text(ExportEnd::Complete, "/x/a.mp4", ""), "The file is complete: /x/a.mp4");
    EXPECT_EQ(text(ExportEnd::Complete, "/x/a.mp4", "it has no sound: x: y"),
              "The file is complete: /x/a.mp4\nBut it has no sound: x: y.");
    EXPECT_EQ(text(ExportEnd::Cancelled, "", ""), "Cancelled. Nothing was saved.");
    EXPECT_EQ(text(ExportEnd::Empty, "", ""), "Ended before anything was recorded.");
    EXPECT_EQ(text(ExportEnd::Failed, "", "no network"), "Failed: no network.");
    EXPECT_EQ(text(ExportEnd::Failed, "/x/a.partial.mp4", "no network"),
              "Failed: no network. What was recorded until then is in /x/a.partial.mp4, which may not be "
              "playable.");
    EXPECT_THAT(text(ExportEnd::NotSaved, "/x/a.partial.mp4", ""), testing::EndsWith("/x/a.partial.mp4"));
}

} // namespace
} // namespace mediaworker::view
