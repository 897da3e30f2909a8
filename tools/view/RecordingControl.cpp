#include "tools/view/RecordingControl.h"

#include "tools/view/ClosingQuestion.h"
#include "tools/view/ExportDialog.h"
#include "tools/view/ExportForm.h"
#include "tools/view/RecordingsDock.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QMainWindow>
#include <QMessageBox>
#include <QStandardPaths>

#include <cstdio>

namespace mediaworker::view {

namespace {

QString defaultFolder() {
    const QString movies = QStandardPaths::writableLocation(QStandardPaths::MoviesLocation);
    return QFileInfo(movies).isDir() ? movies : QDir::homePath();
}

} // namespace

RecordingControl::RecordingControl(QMainWindow& window, const StreamSettings& settings)
    : QObject(&window), window_(window), settings_(settings), folder_(defaultFolder()),
      list_(new RecordingsDock(&window)) {
    window.addDockWidget(Qt::BottomDockWidgetArea, list_);
    list_->hide();
    connect(list_, &RecordingsDock::changed, this, &RecordingControl::changed);
    connect(list_, &RecordingsDock::allEnded, this, &RecordingControl::tellThatItMayClose,
            Qt::QueuedConnection);
}

RecordingControl::~RecordingControl() {
    delete dialog_;
    list_->disconnect(this);
    delete list_;
}

QString RecordingControl::proposedFile(const QString& streamName) const {
    const QDir folder(folder_);
    return folder.absoluteFilePath(
        recordingFileName(streamName, QDateTime::currentDateTime(), [&](const QString& name) {
            return folder.exists(name) || list_->isTaken(folder.absoluteFilePath(name));
        }));
}

void RecordingControl::askFor(const StreamView& view) {
    if (dialog_ && dialog_->url() != view.url()) {
        dialog_->close(); // which destroys it
        dialog_ = nullptr;
    }
    if (!dialog_) {
        dialog_ = new ExportDialog(
            {.url = view.url(),
             .name = view.name(),
             .file = proposedFile(view.name()),
             .isUntilStopped = parent::isLive(view.url())},
            [this](const QString& file) { return list_->isTaken(file); }, &window_);
        dialog_->setAttribute(Qt::WA_DeleteOnClose);
        connect(dialog_, &ExportDialog::confirmed, this,
                [this, url = view.url(),
                 name = view.name()](const QString& file, std::chrono::milliseconds length, bool mayReplace) {
                    begin(url, name, file, length, mayReplace);
                });
    }
    dialog_->show();
    dialog_->raise();
    dialog_->activateWindow();
}

void RecordingControl::begin(const QString& url, const QString& name, const QString& file,
                             std::chrono::milliseconds length, bool mayReplace) {
    folder_ = QFileInfo(file).absolutePath();
    list_->begin({.url = url,
                  .name = name,
                  .file = file,
                  .length = length,
                  .mayReplace = mayReplace,
                  .workerProgram = settings_.workerProgram,
                  .proxyUrl = settings_.proxyUrl,
                  .proxyType = settings_.proxyType,
                  .flv = settings_.flv,
                  .isConfined = settings_.isConfined});
}

void RecordingControl::toggle(const StreamView& view) {
    if (Recording* const running = list_->runningOf(view.url())) {
        running->finish();
    } else {
        begin(view.url(), view.name(), proposedFile(view.name()), std::chrono::milliseconds(0), false);
    }
}

bool RecordingControl::isRecording(const StreamView& view) const {
    return list_->runningOf(view.url()) != nullptr;
}

bool RecordingControl::mayClose(Asking asking) {
    if (list_->running() == 0) {
        return true;
    }
    if (!isClosing_ && (asking == Asking::Nobody || asksToFinish(&window_, list_->running()))) {
        asking_ = asking;
        isClosing_ = true;
        list_->finishAll();
        tellThatItMayClose(); // they may have ended meanwhile
    }
    return false;
}

void RecordingControl::tellThatItMayClose() {
    if (isClosing_ && list_->running() == 0) {
        isClosing_ = false;
        tellWhatIsLeft();
        Q_EMIT mayCloseNow();
    }
}

/// Of the recordings that were finished so that the window can close.
void RecordingControl::tellWhatIsLeft() {
    const QString words = list_->unsavedByFinishing().join(QLatin1Char('\n'));
    if (words.isEmpty()) {
        return;
    }
    if (asking_ == Asking::Nobody) {
        std::fprintf(stderr, "mediaworker-view: %s\n", qUtf8Printable(words));
        return;
    }
    QMessageBox message(QMessageBox::Warning, tr("Recordings"), words, QMessageBox::Ok, &window_);
    message.setTextFormat(Qt::PlainText);
    message.exec();
}

void RecordingControl::closeDialog() {
    if (dialog_) {
        dialog_->close();
    }
}

ExportDialog* RecordingControl::dialog() const {
    return dialog_;
}

} // namespace mediaworker::view
