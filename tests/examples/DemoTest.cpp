#include "Results.h"

#include "support/ChildProcess.h"
#include "support/servers/HttpServer.h"

#include <QImage>
#include <QString>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace mediaworker::test {
namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::Not;

constexpr auto kLimit = 120s;
constexpr int kDone = 0;
constexpr int kNotDone = 1;
constexpr int kWrongUsage = 2;

/// The demo with the programs of this build.
class Demo : public testing::Test {
protected:
    Demo() { std::filesystem::create_directory(temporary()); }

    std::optional<int> run(const std::vector<std::string>& arguments,
                           const std::string& programs = PROGRAMS_FOLDER) {
        std::vector<std::string> command{DEMO_SCRIPT, "--programs", programs, "--pictures",
                                         pictures().string()};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return ChildProcess({.command = command,
                             .environment = {{"TMPDIR", temporary().string()}},
                             .output = folder_ / "output",
                             .errors = folder_ / "errors"})
            .waitFor(kLimit);
    }

    [[nodiscard]] std::filesystem::path temporary() const { return folder_ / "tmp"; }
    [[nodiscard]] std::filesystem::path pictures() const { return folder_ / "pictures"; }
    [[nodiscard]] std::string output() const { return readFile(folder_ / "output"); }
    [[nodiscard]] std::string errors() const { return readFile(folder_ / "errors"); }

    TemporaryFolder folder_;
};

TEST_F(Demo, PlaysAndExportsItsFilm) {
    ASSERT_EQ(run({"--seconds", "2"}), kDone) << output() << errors();
    EXPECT_THAT(output(), Not(HasSubstr("building")));
    // The picture that comes as the time is over may be saved as well.
    EXPECT_THAT(filesIn(pictures()), IsSupersetOf({"export.mp4", "file", "picture-0001-at-0-ms.png",
                                                   "picture-0002-at-1000-ms.png"}));
    EXPECT_THAT(filesIn(pictures() / "file"), Contains("picture-0001-at-0-ms.png"));
    for (const auto& entry : std::filesystem::recursive_directory_iterator(pictures())) {
        if (entry.path().extension() == ".png") {
            const QImage picture(QString::fromStdString(entry.path().string()), "PNG");
            EXPECT_EQ(picture.size(), QSize(1280, 720)) << entry;
            EXPECT_TRUE(numberOf(entry.path())) << entry; // which stands in black and white fields
        }
    }
    // And the demo looks at them, too.
    std::filesystem::copy_file(pictures() / "picture-0001-at-0-ms.png",
                               pictures() / "picture-0009-at-5000-ms.png");
    EXPECT_THROW(runCommand({PROGRAMS_FOLDER "/mediaworker-demo", "--check", pictures().string()}),
                 std::runtime_error);

    const std::string film =
        runCommand({"ffprobe", "-v", "error", "-count_packets", "-of", "compact=p=0", "-show_entries",
                    "stream=codec_name,width,height,nb_read_packets", (pictures() / "export.mp4").string()});
    EXPECT_THAT(film, AllOf(HasSubstr("codec_name=h264|width=1280|height=720|nb_read_packets=100\n"),
                            HasSubstr("codec_name=aac|")));
    EXPECT_THAT(filesIn(temporary()), IsEmpty());
}

TEST_F(Demo, SaysThatAServerDoesNotAnswer) {
    HttpServer server;
    server.route("/silent.flv", [](HttpResponse& response) { response.waitForClientToLeave(); });
    EXPECT_EQ(run({server.url("/silent.flv")}), kNotDone) << output();
    EXPECT_THAT(errors(), HasSubstr("mediaworker-ctl: no picture arrived in time (exit code 2)"));
    EXPECT_THAT(output(), Not(HasSubstr("exporting")));
    EXPECT_THAT(filesIn(pictures()), IsEmpty());
    EXPECT_THAT(filesIn(temporary()), IsEmpty());
}

TEST_F(Demo, SaysThatThereAreNoPrograms) {
    EXPECT_EQ(run({}, folder_.path().string()), kNotDone);
    EXPECT_THAT(errors(), HasSubstr("demo: there is no program "));
}

TEST_F(Demo, TellsItsUsage) {
    EXPECT_EQ(run({"--help"}), kDone);
    EXPECT_THAT(output(), AllOf(HasSubstr("scripts/demo URL"), HasSubstr("--programs DIR"),
                                Not(HasSubstr("set -euo"))));
    for (const std::vector<std::string>& arguments : {std::vector<std::string>{"--nonsense"},
                                                      {"--seconds", "0"},
                                                      {"--pictures"},
                                                      {"http://h/1", "http://h/2"}}) {
        EXPECT_EQ(run(arguments), kWrongUsage) << testing::PrintToString(arguments);
        EXPECT_THAT(errors(), AllOf(testing::StartsWith("demo: "), HasSubstr("--programs DIR")));
    }
}

} // namespace
} // namespace mediaworker::test
