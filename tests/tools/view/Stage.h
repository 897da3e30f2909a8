#pragma once

#include "support/ChildProcess.h"
#include "support/media/FlvStream.h"
#include "support/media/TestPicture.h"
#include "support/servers/HttpServer.h"
#include "tools/view/ViewerWindow.h"

#include <gmock/gmock.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

class QAction;

namespace mediaworker::test {

/// A viewer on a screen of its own, with the real worker and a real server.
class Stage : public testing::Test {
protected:
    static constexpr std::chrono::milliseconds kLimit{30000};

    Stage();
    ~Stage() override;

    /// A clip of 320 x 180 at 25 pictures a second, numbered from 0, a minute long when it is served.
    void serveLive(const std::string& path, ClipSpec spec = {}, FlvOptions options = {});

    /// A window with these streams, on the screen and active.
    void show(const std::vector<std::string>& paths, view::StreamSettings settings = silent());
    /// Muted, and what has ended stays so.
    [[nodiscard]] static view::StreamSettings silent();

    [[nodiscard]] view::ViewerWindow& window() { return *window_; }
    [[nodiscard]] view::StreamView& view(std::size_t index = 0) { return *window_->views().at(index); }
    void closeWindow();

    /// Lets events happen until it is so. False when the time is over first.
    static bool waitUntil(const std::function<bool()>& isDone, std::chrono::milliseconds limit = kLimit);
    /// Until that many more pictures have been painted.
    bool waitForPictures(view::StreamView& view, quint64 count = 3);
    bool waitForState(view::StreamView& view, parent::PlaybackState state);
    bool waitForLog(view::StreamView& view, const QString& line);

    /// What the widget paints.
    [[nodiscard]] static QImage grab(view::StreamView& view);
    /// The number of the picture that the widget paints.
    [[nodiscard]] static std::optional<int> grabbedNumber(view::StreamView& view);
    /// The same, as it stands on the X server's screen.
    [[nodiscard]] static std::optional<int> numberOnScreen(view::StreamView& view);
    [[nodiscard]] static BgraView bgra(const QImage& image);

    void press(Qt::Key key, Qt::KeyboardModifiers modifiers = Qt::NoModifier);
    [[nodiscard]] QString text(const char* label);
    [[nodiscard]] QAction& action(const char* name);

    /// Names of what lies in the temporary folder, this test's own folder aside.
    [[nodiscard]] std::string leftovers() const;
    [[nodiscard]] static bool isAlive(qint64 pid);

    HttpServer server_;
    TemporaryFolder folder_; ///< for snapshots and exports
    std::unique_ptr<view::ViewerWindow> window_;
};

} // namespace mediaworker::test
