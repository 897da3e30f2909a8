#pragma once

#include <QAction>
#include <QPointer>
#include <QWidget>

#include <functional>

class QMainWindow;
class QPlainTextEdit;

namespace mediaworker::view {

class StreamLog;
class StreamView;

/// A window with what the workers of one stream wrote; it goes on while they write.
class LogWindow : public QWidget {
    Q_OBJECT

public:
    explicit LogWindow(QWidget* parent);

    /// Of that stream from now on.
    void follow(const StreamView& view);

private:
    QPlainTextEdit* text_;
    QPointer<StreamLog> log_;
};

/// "Worker's log" in the last menu of a viewer's window, with the key L: shows that of the chosen stream.
class LogAction : public QAction {
    Q_OBJECT

public:
    /// `current` gives the chosen stream, or null. Belongs to the window.
    LogAction(QMainWindow& window, std::function<const StreamView*()> current);

    /// Null as long as nobody asked for it.
    [[nodiscard]] LogWindow* logWindow() const { return logWindow_; }

private:
    QPointer<LogWindow> logWindow_;
};

} // namespace mediaworker::view
