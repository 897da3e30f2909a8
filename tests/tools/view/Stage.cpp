#include "Stage.h"

#include "support/Eventually.h"
#include "support/servers/Pacing.h"

#include <QAction>
#include <QApplication>
#include <QDir>
#include <QFileInfo>
#include <QLabel>
#include <QScreen>
#include <QTest>

#include <csignal>

namespace mediaworker::test {

using namespace std::chrono_literals;

namespace {

constexpr auto kServed = 60s;

} // namespace

Stage::Stage() = default;

Stage::~Stage() {
    window_.reset();
    server_.stop();
}

void Stage::serveLive(const std::string& path, ClipSpec spec, FlvOptions options) {
    const Clip clip = encode(spec);
    options.repeats = static_cast<int>(kServed / std::chrono::milliseconds(clip.durationMs())) + 1;
    server_.route(path, pacedHandler(makeFlv(clip, options), {.burstMs = 1500, .staysOpen = true}));
}

view::StreamSettings Stage::silent() {
    view::StreamSettings settings;
    settings.workerProgram = QStringLiteral(MEDIAWORKER_PROGRAM);
    settings.isMuted = true;
    settings.isReconnecting = false;
    return settings;
}

void Stage::show(const std::vector<std::string>& paths, view::StreamSettings settings) {
    window_ = std::make_unique<view::ViewerWindow>(std::move(settings),
                                                   QString::fromStdString((folder_ / "shots").string()));
    for (const std::string& path : paths) {
        window_->add(QString::fromStdString(server_.url(path)));
    }
    if (!paths.empty()) {
        window_->choose(window_->views().front());
    }
    window_->show();
    window_->activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(window_.get()));
}

void Stage::closeWindow() {
    window_->close();
    window_.reset();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

bool Stage::waitUntil(const std::function<bool()>& isDone, std::chrono::milliseconds limit) {
    return eventually(isDone, limit);
}

bool Stage::waitForPictures(view::StreamView& view, quint64 count) {
    const quint64 target = view.pictures().shown() + count;
    return waitUntil([&] { return view.pictures().shown() >= target; });
}

bool Stage::waitForState(view::StreamView& view, parent::PlaybackState state) {
    return waitUntil([&] { return view.status().state == state; });
}

bool Stage::waitForLog(view::StreamView& view, const QString& line) {
    return waitUntil([&] { return view.worker().recentLog().contains(line); });
}

BgraView Stage::bgra(const QImage& image) {
    return {image.constBits(), image.width(), image.height(), image.bytesPerLine()};
}

QImage Stage::grab(view::StreamView& view) {
    return view.pictures()
        .grab(view.pictures().pictureRect())
        .toImage()
        .convertToFormat(QImage::Format_RGB32);
}

std::optional<int> Stage::grabbedNumber(view::StreamView& view) {
    const QImage image = grab(view);
    return image.isNull() ? std::nullopt : readFrameNumber(bgra(image));
}

std::optional<int> Stage::numberOnScreen(view::StreamView& view) {
    const QRect place = view.pictures().pictureRect();
    const QPoint corner = view.pictures().mapTo(view.window(), place.topLeft());
    const QImage image =
        view.screen()
            ->grabWindow(view.window()->winId(), corner.x(), corner.y(), place.width(), place.height())
            .toImage()
            .convertToFormat(QImage::Format_RGB32);
    return image.isNull() ? std::nullopt : readFrameNumber(bgra(image));
}

void Stage::press(Qt::Key key, Qt::KeyboardModifiers modifiers) {
    QTest::keyClick(window_.get(), key, modifiers);
}

QString Stage::text(const char* label) {
    const auto* const widget = window_->findChild<QLabel*>(QLatin1String(label));
    return widget != nullptr && !widget->isHidden() ? widget->text() : QString();
}

QAction& Stage::action(const char* name) {
    auto* const found = window_->findChild<QAction*>(QLatin1String(name));
    if (found == nullptr) {
        throw std::runtime_error(std::string("no action ") + name);
    }
    return *found;
}

std::string Stage::leftovers() const {
    QStringList names = QDir(QDir::tempPath())
                            .entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    names.removeAll(QFileInfo(QString::fromStdString(folder_.path().string())).fileName());
    return names.join(QLatin1Char(' ')).toStdString();
}

bool Stage::isAlive(qint64 pid) {
    return pid > 0 && ::kill(static_cast<pid_t>(pid), 0) == 0;
}

} // namespace mediaworker::test
