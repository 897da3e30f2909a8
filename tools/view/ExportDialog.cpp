#include "tools/view/ExportDialog.h"

#include "tools/files/PartialFile.h"
#include "tools/view/ExportForm.h"
#include "tools/view/StreamStatus.h"

#include <QDialogButtonBox>
#include <QDir>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QStandardPaths>
#include <QVBoxLayout>

#include <chrono>

namespace mediaworker::view {

namespace {

using parent::WorkerProcess;

constexpr std::chrono::seconds kEndPatience{2};
constexpr int kMinimumWidth = 480;
constexpr int kMaxWords = 300; // of a log line

QString defaultFile() {
    const QString movies = QStandardPaths::writableLocation(QStandardPaths::MoviesLocation);
    const QString folder = QFileInfo(movies).isDir() ? movies : QDir::homePath();
    return QDir(folder).filePath(QStringLiteral("export.mp4"));
}

/// What a complete file lacks.
QString shortcomings(const parent::WorkerFindings& findings) {
    QStringList words;
    if (findings.isResponseFailed()) {
        words << QStringLiteral("the stream broke off: ") + parent::responseFailure(findings);
    }
    if (!findings.soundUnavailable.isEmpty()) {
        words << QStringLiteral("it has no sound: ") + findings.soundUnavailable;
    }
    return words.join(QStringLiteral("; "));
}

} // namespace

ExportDialog::ExportDialog(const QString& url, const QString& workerProgram, QWidget* parent)
    : QDialog(parent), url_(url) {
    worker_.setProgram(workerProgram);
    setWindowTitle(tr("Export %1").arg(streamName(url)));
    makeWidgets();
    connect(&worker_, &WorkerProcess::progress, progress_, &QProgressBar::setValue);
    connect(&worker_, &WorkerProcess::finished, this, &ExportDialog::end);
    connect(&worker_, &WorkerProcess::startFailed, this, [this] {
        QFile::remove(partialFile_);
        finish(exportEndText(ExportEnd::Failed, {}, worker_.startProblem().value_or(parent::Problem{}).text),
               false);
    });
    connect(&worker_, &WorkerProcess::connectTimedOut, &worker_, &WorkerProcess::kill);
    check();
}

ExportDialog::~ExportDialog() {
    cancel();
    worker_.disconnect(this);
}

void ExportDialog::makeWidgets() {
    length_ = new QLineEdit(QStringLiteral("1:00"));
    length_->setObjectName(QStringLiteral("length"));
    length_->setToolTip(tr("Seconds, minutes:seconds or hours:minutes:seconds"));
    path_ = new QLineEdit(QDir::toNativeSeparators(defaultFile()));
    path_->setObjectName(QStringLiteral("file"));
    browse_ = new QPushButton(tr("Browse…"));
    browse_->setObjectName(QStringLiteral("browse"));
    browse_->setAutoDefault(false);
    connect(browse_, &QPushButton::clicked, this, &ExportDialog::browse);
    auto* fileRow = new QHBoxLayout;
    fileRow->addWidget(path_, 1);
    fileRow->addWidget(browse_);
    auto* form = new QFormLayout;
    form->addRow(tr("Length:"), length_);
    form->addRow(tr("File:"), fileRow);

    message_ = new QLabel;
    message_->setObjectName(QStringLiteral("message"));
    message_->setTextFormat(Qt::PlainText); // words of a worker, and of its server
    message_->setWordWrap(true);
    message_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    progress_ = new QProgressBar;
    progress_->setObjectName(QStringLiteral("progress"));
    progress_->setRange(0, 100);

    buttons_ = new QDialogButtonBox;
    start_ = buttons_->addButton(tr("Export"), QDialogButtonBox::AcceptRole);
    start_->setObjectName(QStringLiteral("start"));
    close_ = buttons_->addButton(QDialogButtonBox::Close);
    close_->setObjectName(QStringLiteral("close"));
    connect(buttons_, &QDialogButtonBox::accepted, this, &ExportDialog::begin);
    connect(buttons_, &QDialogButtonBox::rejected, this, &ExportDialog::reject);
    connect(length_, &QLineEdit::textChanged, this, &ExportDialog::check);
    connect(path_, &QLineEdit::textChanged, this, &ExportDialog::check);

    auto* layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addWidget(progress_);
    layout->addWidget(message_);
    layout->addWidget(buttons_);
    setMinimumWidth(kMinimumWidth);
}

void ExportDialog::setLength(const QString& text) {
    length_->setText(text);
}

void ExportDialog::setFile(const QString& path) {
    path_->setText(QDir::toNativeSeparators(path));
}

void ExportDialog::browse() {
    const QString chosen =
        QFileDialog::getSaveFileName(this, tr("Export to"), path_->text(), tr("MP4 files (*.mp4)"));
    if (!chosen.isEmpty()) {
        setFile(chosen);
    }
}

void ExportDialog::check() {
    const QString path = withMp4Suffix(QDir::fromNativeSeparators(path_->text()));
    const TargetFile target = lookAt(path);
    const QString problem = exportFormProblem(url_, length_->text(), path, target);
    start_->setEnabled(problem.isEmpty());
    const bool replaces = problem.isEmpty() && target.exists;
    message_->setText(replaces ? tr("The file exists. It will be replaced when the export is complete.")
                               : problem);
}

void ExportDialog::begin() {
    const std::optional<int> lengthMs = parseLength(length_->text());
    check(); // the file system may have changed
    if (isExporting_ || !lengthMs || !start_->isEnabled()) {
        return;
    }
    file_ = withMp4Suffix(QDir::fromNativeSeparators(path_->text()));
    const auto partial = makePartialFile(file_);
    if (!partial) {
        message_->setText(
            tr("Cannot write into %1.").arg(QDir::toNativeSeparators(QFileInfo(file_).absolutePath())));
        return;
    }
    partialFile_ = *partial;
    isCancelled_ = false;
    isExporting_ = true;
    for (QWidget* widget : {static_cast<QWidget*>(length_), static_cast<QWidget*>(path_),
                            static_cast<QWidget*>(browse_), static_cast<QWidget*>(start_)}) {
        widget->setEnabled(false);
    }
    progress_->setValue(0);
    message_->setText(tr("Exporting …"));
    close_->setText(tr("Cancel"));
    if (!worker_.start(parent::ExportJob{.url = url_,
                                         .durationMs = *lengthMs,
                                         .outputPath = QFileInfo(partialFile_).absoluteFilePath(),
                                         .flv = flv_,
                                         .sandbox = isConfined_})) {
        QFile::remove(partialFile_);
        finish(exportEndText(ExportEnd::Failed, {}, worker_.errorString()), false);
    }
}

void ExportDialog::cancel() {
    if (!isExporting_) {
        return;
    }
    isCancelled_ = true;
    if (!worker_.isConnected()) {
        worker_.kill(); // it would not hear of it, and record on
    }
    worker_.disconnectLink();
    if (!worker_.waitForFinished(kEndPatience)) {
        worker_.kill();
        worker_.waitForFinished(kEndPatience);
    }
}

void ExportDialog::reject() {
    if (isExporting_) {
        cancel();
    } else {
        QDialog::reject();
    }
}

void ExportDialog::end(int exitCode, bool crashed) {
    if (isCancelled_) {
        QFile::remove(partialFile_);
        finish(exportEndText(ExportEnd::Cancelled, {}, {}), false);
        return;
    }
    if (!crashed && exitCode == 0) {
        const bool isSaved = moveFile(partialFile_, file_, Replacing::Allowed);
        finish(isSaved ? exportEndText(ExportEnd::Complete, QDir::toNativeSeparators(file_),
                                       shortcomings(worker_.findings()))
                       : exportEndText(ExportEnd::NotSaved, QDir::toNativeSeparators(partialFile_), {}),
               isSaved);
        return;
    }
    const QString left =
        keepRemains(partialFile_, crashed) ? QDir::toNativeSeparators(partialFile_) : QString();
    QString why = parent::exitReason(parent::WorkerMode::Export, exitCode, crashed, worker_.findings());
    if (!worker_.recentLog().isEmpty()) {
        why += tr(" (its last words: %1)").arg(worker_.recentLog().last().left(kMaxWords));
    }
    finish(exportEndText(ExportEnd::Failed, left, why), false);
}

void ExportDialog::finish(const QString& text, bool isComplete) {
    isExporting_ = false;
    for (QWidget* widget : {static_cast<QWidget*>(length_), static_cast<QWidget*>(path_),
                            static_cast<QWidget*>(browse_), static_cast<QWidget*>(start_)}) {
        widget->setEnabled(true);
    }
    if (isComplete) {
        progress_->setValue(progress_->maximum());
    }
    close_->setText(tr("Close"));
    message_->setText(text);
}

} // namespace mediaworker::view
