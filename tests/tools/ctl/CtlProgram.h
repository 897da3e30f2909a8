#pragma once

#include "support/ChildProcess.h"
#include "support/Platform.h"
#include "support/media/Clip.h"
#include "support/media/FlvStream.h"
#include "support/media/TestPicture.h"
#include "support/servers/HttpServer.h"
#include "support/servers/Pacing.h"

#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

/// The program as its users run it.
namespace mediaworker::test {

inline constexpr int kDone = 0;
inline constexpr int kNotDone = 1;
inline constexpr int kWrongUsage = 2;
inline constexpr int kCutShort = 3;

inline Clip clip(AudioCodec audio) {
    ClipSpec spec;
    spec.audio = audio;
    return encode(spec);
}

inline bool eventually(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

inline std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> result;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        result.push_back(line);
    }
    return result;
}

/// As ContainsRegex, whose expressions have no brackets on Windows.
MATCHER_P(ContainsPattern, pattern, "contains the pattern \"" + std::string(pattern) + "\"") {
    return std::regex_search(arg, std::regex(pattern));
}

/// The program in a temporary directory of its own, with a camera that it can play.
class CtlProgram : public testing::Test {
protected:
    CtlProgram() {
        std::filesystem::create_directory(folder_ / "tmp");
        environment_ = {{platform::kTemporaryVariable, (folder_ / "tmp").string()}};
        server_.route("/clip.flv", pacedHandler(pieces_, {.burstMs = 1000}));
        server_.route("/fast.flv", pacedHandler(pieces_, {.speed = 0}));
        FlvOptions minutes;
        minutes.repeats = 60;
        server_.route("/long.flv", pacedHandler(makeFlv(clip_, minutes), {.burstMs = 1000}));
        server_.route("/silent.flv", [](HttpResponse& response) {
            response.sendHeader();
            response.waitForClientToLeave();
        });
    }

    void TearDown() override {
        program_.reset();
        EXPECT_THAT(filesIn(folder_ / "tmp"), testing::IsEmpty()) << "left in the temporary directory";
    }

    /// `launcher`: a command that starts it.
    void start(std::vector<std::string> arguments, const std::vector<std::string>& launcher = {}) {
        arguments.insert(arguments.begin(), MEDIAWORKER_CTL);
        arguments.insert(arguments.begin(), launcher.begin(), launcher.end());
        program_ = std::make_unique<ChildProcess>(ChildProcess::Options{
            .command = std::move(arguments),
            .environment = environment_,
            .output = output_,
            .errors = folder_ / "errors",
        });
    }
    std::optional<int> finish() { return program_->waitFor(std::chrono::seconds(60)); }
    std::optional<int> run(std::vector<std::string> arguments) {
        start(std::move(arguments));
        return finish();
    }

    [[nodiscard]] std::string output() const { return readText(output_); }
    [[nodiscard]] std::string errors() const { return readText(folder_ / "errors"); }

    /// The objects that were printed completely.
    [[nodiscard]] std::vector<QJsonObject> events(const char* kind = nullptr) const {
        const std::string text = output();
        std::vector<QJsonObject> result;
        for (const std::string& line : lines(text.substr(0, text.rfind('\n') + 1))) {
            QJsonParseError error;
            const auto document = QJsonDocument::fromJson(QByteArray::fromStdString(line), &error);
            EXPECT_TRUE(document.isObject()) << line << ": " << error.errorString().toStdString();
            if (kind == nullptr || document[QStringLiteral("event")].toString() == QLatin1String(kind)) {
                result.push_back(document.object());
            }
        }
        return result;
    }
    bool waitForEvent(const char* kind, std::size_t count = 1) {
        return eventually([&] { return events(kind).size() >= count || !program_->isRunning(); }) &&
               events(kind).size() >= count;
    }

    static std::vector<std::string> filesIn(const std::filesystem::path& folder) {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(folder)) {
            names.push_back(entry.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    [[nodiscard]] static int intOf(const QJsonObject& object, const char* name) {
        EXPECT_TRUE(object.contains(QLatin1String(name))) << name;
        return object[QLatin1String(name)].toInt();
    }
    [[nodiscard]] static std::string textOf(const QJsonObject& object, const char* name) {
        return object[QLatin1String(name)].toString().toStdString();
    }

    const Clip clip_ = clip(AudioCodec::Aac);
    const std::vector<TimedBytes> pieces_ = makeFlv(clip_);
    TemporaryFolder folder_;
    std::filesystem::path output_ = folder_ / "output";
    std::vector<std::pair<std::string, std::string>> environment_;
    HttpServer server_;
    std::unique_ptr<ChildProcess> program_;
};

class CtlPlay : public CtlProgram {
protected:
    const std::filesystem::path pictures_ = folder_ / "some/pictures";

    /// Whole, and the one that was announced or, read a little late, one of the next.
    static void expectPicture(const std::filesystem::path& file, std::int64_t stampMs) {
        const QImage picture =
            QImage(QString::fromStdString(file.string())).convertToFormat(QImage::Format_RGB32);
        ASSERT_EQ(picture.size(), QSize(320, 180)) << file;
        const auto number =
            readFrameNumber({picture.constBits(), picture.width(), picture.height(), picture.bytesPerLine()});
        ASSERT_TRUE(number.has_value()) << file << " is torn";
        EXPECT_GE(*number, stampMs / 40) << file;
        EXPECT_LE(*number, stampMs / 40 + 3) << file;
    }
};

class CtlExport : public CtlProgram {
protected:
    CtlExport() { std::filesystem::create_directory(file_.parent_path()); }

    [[nodiscard]] std::vector<std::string> files() const { return filesIn(file_.parent_path()); }
    /// Codecs and numbers of packets.
    [[nodiscard]] std::vector<std::string> probe() const {
        return lines(runCommand({"ffprobe", "-v", "error", "-count_packets", "-show_entries",
                                 "stream=codec_name,nb_read_packets", "-of", "compact=p=0", file_.string()}));
    }

    const std::filesystem::path file_ = folder_ / "films/film.mp4";
};

} // namespace mediaworker::test
