#include "Starts.h"

#include "Usage.h"
#include "parent/WorkerProcess.h"
#include "support/ChildProcess.h"
#include "support/Platform.h"
#include "support/media/FlvStream.h"
#include "support/servers/Pacing.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QTimer>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include <unistd.h>

namespace mediaworker::soak {
namespace {

using namespace std::chrono_literals;
using parent::WorkerProcess;

constexpr int kAtATime = 4;
constexpr int kLongestLifeMs = 400; ///< a worker shows its first picture after 50 to 100 ms
constexpr auto kLongestEnd = 30s;

/// What is served and recorded while workers come and go.
class Scene {
public:
    explicit Scene(std::filesystem::path folder) : folder_(std::move(folder)) {
        test::ClipSpec spec;
        spec.frames = 50;
        spec.audio = test::AudioCodec::Aac;
        const test::Clip clip = test::encode(spec);
        const auto pieces = test::makeFlv(clip);
        server_.route("/live.flv", test::pacedHandler(pieces, {.burstMs = 1500, .staysOpen = true}));
        server_.route("/archive.flv", test::pacedHandler(pieces, {.speed = 0}));
        file_ = QString::fromStdString(test::platform::fileUrl(test::encodedFile(spec)));
    }

    [[nodiscard]] bool start(WorkerProcess& worker, int kind, int number) {
        const auto url = [&](const char* path) { return QString::fromStdString(server_.url(path)); };
        switch (kind) {
        case 0:
            return worker.start(parent::StreamJob{url("/archive.flv")});
        case 1:
            return worker.start(parent::StreamJob{url("/missing.flv")});
        case 2:
            return worker.start(parent::StreamJob{file_});
        case 3:
            return worker.start(parent::ExportJob{
                url("/archive.flv"), 2000,
                QString::fromStdString((folder_ / (std::to_string(number) + ".mp4")).string())});
        default:
            return worker.start(parent::StreamJob{url("/live.flv")});
        }
    }

private:
    test::HttpServer server_;
    const std::filesystem::path folder_; ///< of exports: their parents own the files
    QString file_;
};

/// One place in which worker follows worker.
class Slot {
public:
    Slot(Scene& scene, std::mt19937& random, std::map<std::string, int>& ends)
        : scene_(scene), random_(random), ends_(ends) {}

    void start(int number) {
        worker_ = std::make_unique<WorkerProcess>();
        worker_->setProgram(QStringLiteral(MEDIAWORKER_PROGRAM));
        asked_ = Asked::Nothing;
        code_.reset();
        QObject::connect(worker_.get(), &WorkerProcess::connected, [this] {
            if (between(0, 1) == 0) {
                static_cast<void>(worker_->setVolume(0));
            }
        });
        QObject::connect(worker_.get(), &WorkerProcess::frame,
                         [this] { static_cast<void>(worker_->frames()->read()); });
        QObject::connect(worker_.get(), &WorkerProcess::finished,
                         [this](int code, bool crashed) { code_ = crashed ? -1 : code; });
        if (!scene_.start(*worker_, between(0, 7), number)) {
            complain(worker_->errorString().toStdString());
            worker_.reset();
            return;
        }
        since_ = std::chrono::steady_clock::now();
        endAfter_ = std::chrono::microseconds(between(0, kLongestLifeMs * 1000));
        isAlone_ = between(0, 9) == 0;
    }

    [[nodiscard]] bool isFree() const { return !worker_; }

    void tick() {
        if (!worker_) {
            return;
        }
        const auto age = std::chrono::steady_clock::now() - since_;
        if (!worker_->isRunning()) {
            count();
            worker_.reset();
        } else if (age > kLongestEnd) {
            complain("it does not end:\n" + worker_->recentLog().join('\n').toStdString());
            worker_.reset();
        } else if (asked_ == Asked::Nothing && age >= endAfter_ && !isAlone_) {
            end();
        } else if (asked_ == Asked::Nothing && age > kLongestEnd / 3) {
            worker_->disconnectLink(); // a live stream has no end of its own
            asked_ = Asked::ByLink;
        }
    }

    [[nodiscard]] bool hasFailed() const { return hasFailed_; }

private:
    enum class Asked { Nothing, ByLink, BySignal };

    void end() {
        switch (between(0, 3)) {
        case 0:
            worker_->disconnectLink();
            asked_ = Asked::ByLink;
            break;
        case 1:
            worker_->kill();
            asked_ = Asked::BySignal;
            break;
        case 2:
            worker_->terminate();
            asked_ = Asked::BySignal;
            break;
        default:
            ++ends_["with its parent's object"];
            worker_.reset();
        }
    }

    void count() {
        if (code_ == -1 && asked_ != Asked::BySignal) {
            complain("by a signal that nobody sent:\n" + worker_->recentLog().join('\n').toStdString());
        } else if (code_ && (*code_ > 4 || *code_ < -1)) {
            complain("code " + std::to_string(*code_));
        }
        ++ends_[!code_ ? "without an end" : *code_ == -1 ? "by a signal" : "code " + std::to_string(*code_)];
    }

    void complain(const std::string& what) {
        hasFailed_ = true;
        std::cout << "a worker failed: " << what << std::endl;
    }

    int between(int least, int most) { return std::uniform_int_distribution<int>(least, most)(random_); }

    Scene& scene_;
    std::mt19937& random_;
    std::map<std::string, int>& ends_;
    std::unique_ptr<WorkerProcess> worker_;
    std::optional<int> code_;
    Asked asked_ = Asked::Nothing;
    bool isAlone_ = false; ///< nobody ends it before its time
    bool hasFailed_ = false;
    std::chrono::steady_clock::time_point since_;
    std::chrono::microseconds endAfter_{0};
};

/// Lets everything go that is deleted later, and sockets that were aborted.
void settle() {
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QEventLoop loop;
    QTimer::singleShot(500, &loop, &QEventLoop::quit);
    loop.exec();
}

/// Fills the slots again and again until so many workers were started in all, and all have ended.
void run(std::vector<std::unique_ptr<Slot>>& slots, int workers, int& started) {
    QEventLoop loop;
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, [&] {
        bool isIdle = true;
        for (const auto& slot : slots) {
            slot->tick();
            if (slot->isFree() && started < workers) {
                slot->start(started++);
            }
            isIdle = isIdle && slot->isFree();
        }
        if (isIdle) {
            loop.quit();
        }
    });
    timer.start(1);
    loop.exec();
    timer.stop();
    settle();
}

} // namespace

bool startAndEnd(int workers, const std::filesystem::path& folder, const Traces& traces) {
    Scene scene(folder);
    std::mt19937 random(12345);
    std::map<std::string, int> ends;
    std::vector<std::unique_ptr<Slot>> slots;
    for (int i = 0; i < kAtATime; ++i) {
        slots.push_back(std::make_unique<Slot>(scene, random, ends));
    }
    const auto begin = std::chrono::steady_clock::now();
    int started = 0;
    const int warmUp = workers / 20; // what Qt and the system keep is there after these
    run(slots, warmUp, started);
    const Usage before = usageOf(::getpid(), 0);
    run(slots, workers, started);
    const Usage after = usageOf(::getpid(), 0);
    const auto seconds =
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - begin).count();

    std::cout << "workers started: " << started << ", " << kAtATime << " at a time, in " << seconds << " s\n";
    for (const auto& [end, count] : ends) {
        std::cout << "ended " << end << ": " << count << '\n';
    }
    std::cout << "left behind: " << traces.text() << '\n'
              << "descriptors of the parent: " << before.descriptors << " after the first " << warmUp << ", "
              << after.descriptors << " after all; threads: " << before.threads << ", " << after.threads
              << std::endl;
    // The server's connections end when their clients are seen gone, so there may be fewer than before.
    return traces.count() == 0 && after.descriptors <= before.descriptors &&
           after.threads <= before.threads &&
           std::none_of(slots.begin(), slots.end(), [](const auto& slot) { return slot->hasFailed(); });
}

} // namespace mediaworker::soak
