#include "Results.h"

#include "support/ChildProcess.h"
#include "support/media/Clip.h"
#include "support/media/FlvStream.h"
#include "support/servers/HttpServer.h"
#include "support/servers/Pacing.h"

#include <QImage>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <signal.h>

namespace mediaworker::test {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr auto kLimit = 60s;
constexpr int kFps = 25;

/// A parent that reads after the message for picture N sees N, or N + 1, or what came while it was late
/// itself: here up to a second.
auto isPicture(int number) {
    return testing::Optional(testing::AllOf(testing::Ge(number), testing::Lt(number + kFps)));
}

std::vector<std::string> linesBeginning(const std::filesystem::path& file, const std::string& begin) {
    std::ifstream stream(file);
    std::vector<std::string> found;
    for (std::string line; std::getline(stream, line);) {
        if (line.rfind(begin, 0) == 0) {
            found.push_back(line);
        }
    }
    return found;
}

/// Of the picture of 16:9 in the middle of a window.
std::optional<int> numberInWindow(const std::filesystem::path& png) {
    const QImage window(QString::fromStdString(png.string()));
    const QSize size = QSize(16, 9).scaled(window.size(), Qt::KeepAspectRatio);
    const QPoint corner((window.width() - size.width()) / 2, (window.height() - size.height()) / 2);
    return window.copy(QRect(corner, size)).save(QString::fromStdString(png.string())) ? numberOf(png)
                                                                                       : std::nullopt;
}

/// A live stream of numbered pictures, and folders for what an example makes.
class Example : public testing::Test {
protected:
    Example() {
        ClipSpec spec;
        spec.frames = 10 * kFps;
        server_.route("/live.flv", pacedHandler(makeFlv(encode(spec)), {.burstMs = 1500}));
        std::filesystem::create_directory(temporary());
        std::filesystem::create_directory(pictures());
    }

    [[nodiscard]] std::filesystem::path temporary() const { return folder_ / "tmp"; }
    [[nodiscard]] std::filesystem::path pictures() const { return folder_ / "pictures"; }
    [[nodiscard]] std::filesystem::path output() const { return folder_ / "output"; }
    [[nodiscard]] std::filesystem::path errors() const { return folder_ / "errors"; }
    [[nodiscard]] std::string said() const { return readFile(output()) + readFile(errors()); }

    std::unique_ptr<ChildProcess> start(const std::vector<std::string>& command) {
        const std::string path =
            std::filesystem::path(MEDIAWORKER_PROGRAM).parent_path().string() + ":" + std::getenv("PATH");
        return std::make_unique<ChildProcess>(
            ChildProcess::Options{.command = command,
                                  .environment = {{"PATH", path}, {"TMPDIR", temporary().string()}},
                                  .output = output(),
                                  .errors = errors()});
    }
    std::optional<int> run(const std::vector<std::string>& command) {
        return start(command)->waitFor(kLimit);
    }

    /// For programs with windows, which Qt gives a folder for sockets and a cache.
    std::optional<int> runWithoutAScreen(std::vector<std::string> command) {
        const auto runtime = folder_ / "runtime";
        std::filesystem::create_directory(runtime);
        std::filesystem::permissions(runtime, std::filesystem::perms::owner_all);
        command.insert(command.begin(), {"env", "QT_QPA_PLATFORM=offscreen", "QT_QUICK_BACKEND=software",
                                         "QML_DISABLE_DISK_CACHE=1", "XDG_RUNTIME_DIR=" + runtime.string()});
        return run(command);
    }

    /// Throws when that fails. The build's folder.
    std::string buildAgainstTheInstalledPackage(const std::string& source) {
        const std::string prefix = (folder_ / "prefix").string();
        std::string build = (folder_ / "build").string();
        runCommand(
            {CMAKE_PROGRAM, "--install", MEDIAWORKER_BUILD_FOLDER, "--component", "dev", "--prefix", prefix});
        runCommand({CMAKE_PROGRAM, "-S", source, "-B", build, "-G", CMAKE_GENERATOR_NAME,
                    "-DCMAKE_PREFIX_PATH=" + prefix, "-DCMAKE_CXX_COMPILER=" CXX_COMPILER,
                    "-DCMAKE_EXE_LINKER_FLAGS=" SANITIZER_FLAGS,
                    "-DCMAKE_CXX_FLAGS=-Wall -Wextra -Wpedantic -Werror " SANITIZER_FLAGS});
        runCommand({CMAKE_PROGRAM, "--build", build});
        return build;
    }

    TemporaryFolder folder_;
    HttpServer server_;
};

/// The first block of code in that language on a page.
/// Behind a place on the page.
std::string codeBlock(const std::string& page, const std::string& language, std::size_t from = 0) {
    const std::string fence = "```" + language + "\n";
    const auto begin = page.find(fence, from);
    const auto end = page.find("\n```", begin);
    if (begin == std::string::npos || end == std::string::npos) {
        throw std::runtime_error("no code in " + language);
    }
    return page.substr(begin + fence.size(), end + 1 - begin - fence.size());
}

TEST_F(Example, OfTheReadmeIsCompiledAgainstTheInstalledPackage) {
    const std::string page = readFile(EXAMPLES_FOLDER "/../README.md");
    const std::string code = codeBlock(page, "cpp");
    const auto statements = code.find("\nWorkerProcess worker;");
    ASSERT_NE(statements, std::string::npos);
    const auto source = folder_ / "readme";
    std::filesystem::create_directory(source);
    writeFile(source / "CMakeLists.txt", "cmake_minimum_required(VERSION 3.25)\nproject(readme CXX)\n"
                                         "add_library(your_program OBJECT embed.cpp)\n" +
                                             codeBlock(page, "cmake"));
    writeFile(source / "embed.cpp", code.substr(0, statements) +
                                        "\nvoid show(const QImage& picture, qint64 ptsMs);\n"
                                        "void report(const QString& reason, const QStringList& log);\n"
                                        "void embed(const QString& url);\n"
                                        "void embed(const QString& url) {" +
                                        code.substr(statements) + "}\n");
    buildAgainstTheInstalledPackage(source.string());
}

TEST_F(Example, OfTheReadmeShowsAWidgetInThreeLines) {
    if (!HAS_WIDGETS) {
        GTEST_SKIP() << "built without Qt Widgets";
    }
    const std::string page = readFile(EXAMPLES_FOLDER "/../README.md");
    const std::string code = codeBlock(page, "cpp", page.find("COMPONENTS widgets"));
    const auto statements = code.find("\nauto* const widget");
    ASSERT_NE(statements, std::string::npos);
    EXPECT_EQ(std::count(code.begin() + static_cast<std::ptrdiff_t>(statements) + 1, code.end(), '\n'), 3);
    const auto source = folder_ / "readme";
    std::filesystem::create_directory(source);
    writeFile(source / "CMakeLists.txt",
              "cmake_minimum_required(VERSION 3.25)\nproject(readme CXX)\n"
              "find_package(mediaworker REQUIRED COMPONENTS widgets)\nadd_library(readme OBJECT embed.cpp)\n"
              "target_link_libraries(readme PRIVATE mediaworker::widgets)\n");
    writeFile(source / "embed.cpp", code.substr(0, statements) + "\nvoid embed();\nvoid embed() {" +
                                        code.substr(statements) + "}\n");
    buildAgainstTheInstalledPackage(source.string());
}

TEST_F(Example, MinimalIsBuiltAgainstTheInstalledPackage) {
    const std::string build = buildAgainstTheInstalledPackage(EXAMPLES_FOLDER "/minimal");
    const std::filesystem::path png = pictures() / "25th.png";
    ASSERT_EQ(run({build + "/minimal", server_.url("/live.flv"), png.string()}), 0) << said();
    EXPECT_THAT(readFile(output()), HasSubstr("320x180 at 960 ms"));
    EXPECT_THAT(numberOf(png), isPicture(24));
    EXPECT_THAT(filesIn(temporary()), IsEmpty());
}

TEST_F(Example, WidgetsShowAPictureAgainstTheInstalledPackage) {
    if (!HAS_WIDGETS) {
        GTEST_SKIP() << "built without Qt Widgets";
    }
    const std::string build = buildAgainstTheInstalledPackage(EXAMPLES_FOLDER "/widgets");
    const std::filesystem::path png = pictures() / "window.png";
    ASSERT_EQ(runWithoutAScreen({build + "/stream_widget", server_.url("/live.flv"), png.string()}), 0)
        << said();
    EXPECT_THAT(numberInWindow(png), isPicture(0));
    EXPECT_THAT(filesIn(temporary()), IsEmpty());
}

TEST_F(Example, QuickShowsAPictureAgainstTheInstalledPackage) {
    if (!HAS_QUICK) {
        GTEST_SKIP() << "built without Qt Quick";
    }
    const std::string build = buildAgainstTheInstalledPackage(EXAMPLES_FOLDER "/quick");
    const std::filesystem::path png = pictures() / "item.png";
    ASSERT_EQ(runWithoutAScreen({build + "/stream_item", server_.url("/live.flv"), png.string()}), 0)
        << said();
    EXPECT_THAT(numberInWindow(png), isPicture(0));
    EXPECT_THAT(filesIn(temporary()), IsEmpty());
}

TEST_F(Example, AComponentThatIsNotThereIsTold) {
    const auto source = folder_ / "wrong";
    std::filesystem::create_directory(source);
    writeFile(source / "CMakeLists.txt", "cmake_minimum_required(VERSION 3.25)\nproject(wrong CXX)\n"
                                         "find_package(mediaworker COMPONENTS parent gadgets)\n"
                                         "if(mediaworker_FOUND)\n  message(FATAL_ERROR found)\nendif()\n"
                                         "find_package(mediaworker REQUIRED COMPONENTS parent)\n"
                                         "if(TARGET mediaworker::widgets OR TARGET Qt5::Widgets)\n"
                                         "  message(FATAL_ERROR asked)\nendif()\n"
                                         "add_library(wrong OBJECT wrong.cpp)\n");
    writeFile(source / "wrong.cpp", "int wrong();\nint wrong() { return 0; }\n");
    buildAgainstTheInstalledPackage(source.string());
}

TEST(Examples, AreAsShortAsTheReadmeSays) {
    const auto lines = [](const char* file) {
        const std::string text = readFile(file);
        return std::count(text.begin(), text.end(), '\n');
    };
    EXPECT_LT(lines(EXAMPLES_FOLDER "/python/watch.py"), 150);
    EXPECT_LT(lines(EXAMPLES_FOLDER "/minimal/main.cpp"), 35);
    EXPECT_LT(lines(EXAMPLES_FOLDER "/widgets/main.cpp"), 35);
}

class PythonExample : public Example {
protected:
    [[nodiscard]] std::vector<std::string> command(const std::vector<std::string>& arguments) const {
        std::vector<std::string> all{PYTHON_PROGRAM, EXAMPLES_FOLDER "/python/watch.py",
                                     server_.url("/live.flv")};
        std::copy(arguments.begin(), arguments.end(), std::back_inserter(all));
        return all;
    }
};

TEST_F(PythonExample, SeesThePicturesInOrderAndSavesThem) {
    ASSERT_EQ(run(command({"--pictures", "60", "--save", pictures().string()})), 0) << said();
    const auto frames = linesBeginning(output(), "frame ");
    ASSERT_EQ(frames.size(), 60U) << said();
    for (std::size_t i = 0; i < frames.size(); ++i) {
        EXPECT_THAT(frames[i], testing::StartsWith("frame " + std::to_string(i * 40) + " 320x180 bgr "));
    }
    EXPECT_THAT(linesBeginning(output(), "exit code"), ElementsAre("exit code 0 60 pictures"));
    ASSERT_THAT(filesIn(pictures()), ElementsAre("0.png", "1000.png", "2000.png"));
    for (const int number : {0, 25, 50}) {
        const auto png = pictures() / (std::to_string(number * 40) + ".png");
        EXPECT_THAT(numberOf(png), isPicture(number));
    }
    EXPECT_THAT(filesIn(temporary()), IsEmpty());
}

// They are asked for in one go.
TEST_F(PythonExample, SendsOneCommandForEachAcknowledgement) {
    ASSERT_EQ(run(command({"--pictures", "30", "--commands", "volume:50", "pause", "resume", "stop-audio"})),
              0)
        << said();
    const std::string line = "log Command from parent process: ";
    EXPECT_THAT(linesBeginning(output(), line),
                ElementsAre(line + "\\x05", line + "\\x06", line + "\\x07", line + "\\t"));
    EXPECT_THAT(linesBeginning(output(), "log ko_player::Player::setPause"),
                ElementsAre(HasSubstr("paused: 1"), HasSubstr("paused: 0")));
}

TEST_F(PythonExample, SurvivesAWorkerThatIsKilled) {
    const auto parent = start(command({}));
    for (int i = 0; i < 600 && linesBeginning(output(), "frame ").size() < 5; ++i) {
        ASSERT_FALSE(parent->waitFor(100ms)) << said();
    }
    const auto connected = linesBeginning(output(), "connected ");
    ASSERT_EQ(connected.size(), 1U) << said();
    ASSERT_EQ(::kill(std::stoi(connected[0].substr(sizeof("connected ") - 1)), SIGKILL), 0);
    EXPECT_EQ(parent->waitFor(kLimit), 0) << said();
    EXPECT_THAT(linesBeginning(output(), "killed"), testing::SizeIs(1)) << said();
    EXPECT_THAT(filesIn(temporary()), IsEmpty());
}

TEST_F(PythonExample, SaysThatThereIsNoFolder) {
    EXPECT_EQ(run(command({"--save", "/nowhere/pictures"})), 2) << said();
    EXPECT_THAT(said(), HasSubstr("watch.py: error: there is no folder /nowhere/pictures\n"));
    EXPECT_THAT(filesIn(temporary()), IsEmpty());
}

TEST_F(PythonExample, SaysThatThereIsNoWorker) {
    EXPECT_EQ(run(command({"--worker", "/nowhere/mediaworker"})), 1) << said();
    EXPECT_THAT(said(), HasSubstr("watch.py: "));
    EXPECT_THAT(filesIn(temporary()), IsEmpty());
}

} // namespace
} // namespace mediaworker::test
