#include "tools/view/LogWindow.h"

#include "tools/view/StreamLog.h"
#include "tools/view/StreamView.h"

#include <QFontDatabase>
#include <QMainWindow>
#include <QMenu>
#include <QMenuBar>
#include <QPlainTextEdit>
#include <QShortcut>
#include <QVBoxLayout>

#include <utility>

namespace mediaworker::view {

namespace {

constexpr QSize kInitialSize(760, 420);

} // namespace

LogWindow::LogWindow(QWidget* parent) : QWidget(parent, Qt::Window), text_(new QPlainTextEdit) {
    text_->setObjectName(QStringLiteral("log"));
    text_->setReadOnly(true);
    text_->setLineWrapMode(QPlainTextEdit::NoWrap);
    text_->setMaximumBlockCount(StreamLog::kMostLines);
    text_->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(text_);
    for (const QKeySequence& key : {QKeySequence(Qt::Key_Escape), QKeySequence(QKeySequence::Close)}) {
        connect(new QShortcut(key, this), &QShortcut::activated, this, &QWidget::close);
    }
    resize(kInitialSize);
}

void LogWindow::follow(const StreamView& view) {
    setWindowTitle(tr("Worker's log of %1").arg(view.name()));
    StreamLog* const log = StreamLog::of(view);
    if (log_) {
        log_->disconnect(text_);
    }
    log_ = log;
    text_->clear();
    if (log_) {
        text_->setPlainText(log_->lines().join(u'\n'));
        text_->moveCursor(QTextCursor::End);
        connect(log_, &StreamLog::added, text_, &QPlainTextEdit::appendPlainText);
    }
}

LogAction::LogAction(QMainWindow& window, std::function<const StreamView*()> current)
    : QAction(tr("Worker's log"), &window) {
    setObjectName(QStringLiteral("log"));
    setShortcut(QKeySequence(Qt::Key_L));
    window.addAction(this); // the key works while the menu bar is hidden
    const QList<QAction*> menus = window.menuBar()->actions();
    if (!menus.isEmpty() && menus.last()->menu() != nullptr) {
        menus.last()->menu()->addAction(this);
    }
    connect(this, &QAction::triggered, this, [this, &window, current = std::move(current)] {
        const StreamView* const view = current();
        if (view == nullptr) {
            return;
        }
        if (!logWindow_) {
            logWindow_ = new LogWindow(&window);
            logWindow_->setAttribute(Qt::WA_DeleteOnClose);
        }
        logWindow_->follow(*view);
        logWindow_->show();
        logWindow_->raise();
        logWindow_->activateWindow();
    });
}

} // namespace mediaworker::view
