#include "Stage.h"

#include "support/servers/Pacing.h"
#include "tools/view/ExportDialog.h"

#include <QAction>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QTest>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <system_error>

#include <unistd.h>

namespace mediaworker::test {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::StartsWith;
using view::ExportDialog;

class ExportTest : public Stage {
protected:
    ExportTest() {
        server_.route("/clip.flv", pacedHandler(makeFlv(clip_), {.speed = 0}));
        serveLive("/live.flv");
        server_.route("/text.flv", [](HttpResponse& response) { response.send("this is no stream"); });
    }

    void openDialog(const std::string& path, const QString& worker = QStringLiteral(MEDIAWORKER_PROGRAM)) {
        dialog_ = std::make_unique<ExportDialog>(QString::fromStdString(server_.url(path)), worker);
        fill();
    }
    void fill() {
        dialog().setLength(QStringLiteral("60"));
        dialog().setFile(QString::fromStdString(file_.string()));
        dialog().show();
    }

    ExportDialog& dialog() { return *dialog_; }
    template <class Widget>
    Widget& find(const char* name) {
        return *dialog_->findChild<Widget*>(QLatin1String(name));
    }
    std::string message() { return find<QLabel>("message").text().toStdString(); }
    void click(const char* button) { QTest::mouseClick(&find<QPushButton>(button), Qt::LeftButton); }
    bool waitForEnd() {
        return waitUntil([this] { return !dialog().isExporting(); });
    }
    /// Until the worker tells of progress and has written something.
    bool waitForProgress() {
        return waitUntil([this] {
            std::error_code none;
            const auto written = std::filesystem::file_size(folder_ / "out.partial.mp4", none);
            return find<QProgressBar>("progress").value() > 0 && !none && written > 0;
        });
    }

    [[nodiscard]] std::vector<std::string> exported() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(folder_.path())) {
            names.push_back(entry.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    const Clip clip_ = encode({});
    const std::filesystem::path file_ = folder_ / "out.mp4";
    std::unique_ptr<ExportDialog> dialog_;
};

using Names = std::vector<std::string>;

TEST_F(ExportTest, WritesAFileAndSaysSo) {
    openDialog("/clip.flv");
    std::vector<int> values;
    QObject::connect(&find<QProgressBar>("progress"), &QProgressBar::valueChanged,
                     [&](int value) { values.push_back(value); });
    click("start");
    EXPECT_TRUE(dialog().isExporting());
    EXPECT_EQ(find<QPushButton>("close").text(), QStringLiteral("Cancel"));
    EXPECT_FALSE(find<QPushButton>("start").isEnabled());
    EXPECT_FALSE(find<QLineEdit>("file").isEnabled());
    ASSERT_TRUE(waitForEnd());
    EXPECT_EQ(message(), "The file is complete: " + file_.string());
    EXPECT_EQ(find<QPushButton>("close").text(), QStringLiteral("Close"));
    EXPECT_EQ(find<QProgressBar>("progress").value(), 100);
    EXPECT_GE(values.size(), 2U);
    EXPECT_TRUE(std::is_sorted(values.begin(), values.end()));
    EXPECT_EQ(exported(), Names{"out.mp4"});
    const std::string frames = runCommand({"ffprobe", "-v", "error", "-count_packets", "-show_entries",
                                           "stream=nb_read_packets", "-of", "csv=p=0", file_.string()});
    EXPECT_EQ(frames, std::to_string(clip_.spec.frames) + "\n");
    click("close");
    EXPECT_FALSE(dialog().isVisible());
    dialog_.reset();
    EXPECT_EQ(leftovers(), "");
}

TEST_F(ExportTest, CancelLeavesNoFile) {
    openDialog("/live.flv");
    click("start");
    ASSERT_TRUE(waitForProgress());
    EXPECT_EQ(exported(), Names{"out.partial.mp4"});
    click("close");
    ASSERT_TRUE(waitForEnd());
    EXPECT_EQ(message(), "Cancelled. Nothing was saved.");
    EXPECT_EQ(exported(), Names{});
    EXPECT_TRUE(dialog().isVisible());
    // And once more, to the end.
    dialog().setLength(QStringLiteral("1"));
    EXPECT_TRUE(find<QPushButton>("start").isEnabled());
}

TEST_F(ExportTest, EscapeCancels) {
    openDialog("/live.flv");
    click("start");
    ASSERT_TRUE(waitForProgress());
    QTest::keyClick(&dialog(), Qt::Key_Escape);
    EXPECT_FALSE(dialog().isExporting());
    EXPECT_EQ(exported(), Names{});
}

TEST_F(ExportTest, CancelKeepsTheFileThatWasThere) {
    writeFile(file_, "mine");
    openDialog("/live.flv");
    EXPECT_THAT(message(), HasSubstr("will be replaced"));
    click("start");
    ASSERT_TRUE(waitForProgress());
    click("close");
    ASSERT_TRUE(waitForEnd());
    EXPECT_EQ(exported(), Names{"out.mp4"});
    EXPECT_EQ(readFile(file_), "mine");
}

TEST_F(ExportTest, ReplacesAFileWhenItIsComplete) {
    writeFile(file_, "mine");
    openDialog("/clip.flv");
    click("start");
    ASSERT_TRUE(waitForEnd());
    EXPECT_EQ(exported(), Names{"out.mp4"});
    EXPECT_GT(std::filesystem::file_size(file_), 1000U);
}

TEST_F(ExportTest, SaysWhyItFailed) {
    openDialog("/text.flv");
    click("start");
    ASSERT_TRUE(waitForEnd());
    EXPECT_THAT(message(), StartsWith("Failed: the received data is not an FLV stream"));
    EXPECT_THAT(message(), HasSubstr("its last words: "));
    EXPECT_EQ(exported(), Names{});
}

TEST_F(ExportTest, SaysThatItsWorkerWasKilledAndKeepsWhatThereIs) {
    openDialog("/live.flv");
    click("start");
    ASSERT_TRUE(waitForProgress());
    const std::string pid = runCommand({"pgrep", "-P", std::to_string(getpid()), "-f", "export http"});
    ASSERT_EQ(::kill(std::stoi(pid), SIGKILL), 0);
    ASSERT_TRUE(waitForEnd());
    EXPECT_THAT(message(), HasSubstr("killed"));
    EXPECT_EQ(exported(), Names{"out.partial.mp4"});
    EXPECT_THAT(message(), HasSubstr((folder_ / "out.partial.mp4").string()));
}

TEST_F(ExportTest, SaysWhenThereIsNoWorker) {
    openDialog("/clip.flv", QStringLiteral("/nonexistent/worker"));
    click("start");
    ASSERT_TRUE(waitForEnd());
    EXPECT_THAT(message(), StartsWith("Failed: the worker cannot be started"));
    EXPECT_TRUE(find<QPushButton>("start").isEnabled());
}

TEST_F(ExportTest, BeginsOnlyWithAFormThatIsRight) {
    openDialog("/clip.flv");
    EXPECT_TRUE(find<QPushButton>("start").isEnabled());
    EXPECT_EQ(message(), "");
    find<QLineEdit>("length").setText(QStringLiteral("soon"));
    EXPECT_FALSE(find<QPushButton>("start").isEnabled());
    EXPECT_THAT(message(), HasSubstr("length"));
    find<QLineEdit>("length").setText(QStringLiteral("1:00"));
    EXPECT_TRUE(find<QPushButton>("start").isEnabled());
    find<QLineEdit>("file").setText(QString::fromStdString((folder_ / "none/a.mp4").string()));
    EXPECT_FALSE(find<QPushButton>("start").isEnabled());
    EXPECT_THAT(message(), HasSubstr("folder does not exist"));
}

TEST_F(ExportTest, GoesOnBesideTheStreamThatIsShown) {
    show({"/live.flv"});
    ASSERT_TRUE(waitForPictures(view()));
    action("export").trigger();
    ASSERT_NE(window().exportDialog(), nullptr);
    dialog_.reset(window().exportDialog());
    fill();
    EXPECT_EQ(dialog().windowTitle(), QStringLiteral("Export 127.0.0.1/live.flv"));
    click("start");
    ASSERT_TRUE(waitForProgress());
    action("export").trigger();
    EXPECT_EQ(window().exportDialog(), dialog_.get()); // one at a time
    EXPECT_TRUE(waitForPictures(view(), 10));
    static_cast<void>(dialog_.release());
}

TEST_F(ExportTest, ClosingTheWindowEndsItAndLeavesNothing) {
    show({"/live.flv"});
    ASSERT_TRUE(waitForPictures(view()));
    action("export").trigger();
    dialog_.reset(window().exportDialog());
    fill();
    click("start");
    ASSERT_TRUE(waitForProgress());
    static_cast<void>(dialog_.release()); // the window's
    EXPECT_EQ(exported(), Names{"out.partial.mp4"});
    window().close();
    EXPECT_EQ(exported(), Names{});
    EXPECT_TRUE(window().exportDialog() == nullptr || !window().exportDialog()->isVisible());
    closeWindow();
    EXPECT_EQ(leftovers(), "");
    EXPECT_THROW(runCommand({"pgrep", "-P", std::to_string(getpid()), "mediaworker"}), std::runtime_error);
}

TEST_F(ExportTest, SaysWhyTheServerRefused) {
    openDialog("/nothing.flv");
    click("start");
    ASSERT_TRUE(waitForEnd());
    EXPECT_THAT(message(), StartsWith("Failed: the server answered 404 "));
    EXPECT_EQ(exported(), Names{});
}

TEST_F(ExportTest, SaysWhereACompleteFileBreaksOff) {
    server_.route("/broken.flv", [this](HttpResponse& response) {
        response.contentLength(100'000'000);
        for (const TimedBytes& piece : makeFlv(clip_)) {
            response.send(piece.bytes);
        }
    });
    openDialog("/broken.flv");
    click("start");
    ASSERT_TRUE(waitForEnd());
    EXPECT_EQ(message(), "The file is complete: " + file_.string() +
                             "\nBut the stream broke off: connection lost: it was closed before the answer "
                             "was complete.");
    EXPECT_EQ(exported(), Names{"out.mp4"});
}

TEST_F(ExportTest, AsksForTheReadingAndTheConfinementOfTheViewer) {
    const auto toldWith = [this](const std::function<void()>& prepare) {
        openDialog("/;connect;hello;env:MEDIAWORKER_OPTIONS;exit:1", QStringLiteral(FAKE_WORKER));
        prepare();
        click("start");
        EXPECT_TRUE(waitForEnd());
        return message();
    };
    EXPECT_THAT(toldWith([] {}), HasSubstr("(its last words: env: flv=standard,length=exact,sandbox=on,mp4=safe)"));
    EXPECT_THAT(toldWith([this] {
                    dialog().setFlvReading(parent::FlvReading::Strict);
                    dialog().setConfined(false);
                }),
                HasSubstr("(its last words: env: flv=strict,length=exact,sandbox=off,mp4=safe)"));
}

} // namespace
} // namespace mediaworker::test
