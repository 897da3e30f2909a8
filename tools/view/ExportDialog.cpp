#include "tools/view/ExportDialog.h"

#include "tools/view/ExportForm.h"

#include <QCheckBox>
#include <QDialogButtonBox>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QVBoxLayout>

#include <utility>

namespace mediaworker::view {

namespace {

constexpr int kMinimumWidth = 480;

} // namespace

ExportDialog::ExportDialog(const Proposal& proposal, IsTaken isTaken, QWidget* parent)
    : QDialog(parent), url_(proposal.url), isTaken_(std::move(isTaken)) {
    setWindowTitle(tr("Export %1").arg(proposal.name));
    makeWidgets(proposal);
    check();
}

void ExportDialog::makeWidgets(const Proposal& proposal) {
    untilStopped_ = new QCheckBox(tr("until stopped"));
    untilStopped_->setObjectName(QStringLiteral("untilStopped"));
    untilStopped_->setChecked(proposal.isUntilStopped);
    length_ = new QLineEdit(QStringLiteral("1:00"));
    length_->setObjectName(QStringLiteral("length"));
    length_->setToolTip(tr("Seconds, minutes:seconds or hours:minutes:seconds"));
    length_->setEnabled(!proposal.isUntilStopped);
    connect(untilStopped_, &QCheckBox::toggled, length_, &QWidget::setDisabled);
    path_ = new QLineEdit(QDir::toNativeSeparators(proposal.file));
    path_->setObjectName(QStringLiteral("file"));
    browse_ = new QPushButton(tr("Browse…"));
    browse_->setObjectName(QStringLiteral("browse"));
    browse_->setAutoDefault(false);
    connect(browse_, &QPushButton::clicked, this, &ExportDialog::browse);
    auto* lengthRow = new QHBoxLayout;
    lengthRow->addWidget(length_, 1);
    lengthRow->addWidget(untilStopped_);
    auto* fileRow = new QHBoxLayout;
    fileRow->addWidget(path_, 1);
    fileRow->addWidget(browse_);
    auto* form = new QFormLayout;
    form->addRow(tr("Length:"), lengthRow);
    form->addRow(tr("File:"), fileRow);

    message_ = new QLabel;
    message_->setObjectName(QStringLiteral("message"));
    message_->setTextFormat(Qt::PlainText);
    message_->setWordWrap(true);

    buttons_ = new QDialogButtonBox(QDialogButtonBox::Close);
    start_ = buttons_->addButton(tr("Export"), QDialogButtonBox::AcceptRole);
    start_->setObjectName(QStringLiteral("start"));
    buttons_->button(QDialogButtonBox::Close)->setObjectName(QStringLiteral("close"));
    connect(buttons_, &QDialogButtonBox::accepted, this, &ExportDialog::begin);
    connect(buttons_, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(length_, &QLineEdit::textChanged, this, &ExportDialog::check);
    connect(untilStopped_, &QCheckBox::toggled, this, &ExportDialog::check);
    connect(path_, &QLineEdit::textChanged, this, &ExportDialog::check);

    auto* layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addWidget(message_);
    layout->addWidget(buttons_);
    setMinimumWidth(kMinimumWidth);
}

void ExportDialog::setLength(const QString& text) {
    untilStopped_->setChecked(false);
    length_->setText(text);
}

void ExportDialog::setFile(const QString& path) {
    path_->setText(QDir::toNativeSeparators(path));
}

void ExportDialog::browse() {
    // Replacing is asked for once, when it begins.
    const QString chosen =
        QFileDialog::getSaveFileName(this, tr("Export to"), path_->text(), tr("MP4 files (*.mp4 *.m4v)"),
                                     nullptr, QFileDialog::DontConfirmOverwrite);
    if (!chosen.isEmpty()) {
        setFile(chosen);
    }
}

QString ExportDialog::file() const {
    const QString path = withMp4Suffix(QDir::fromNativeSeparators(path_->text()));
    return path.isEmpty() ? path : QFileInfo(path).absoluteFilePath();
}

void ExportDialog::check() {
    const TargetFile target = lookAt(file());
    const std::optional<QString> length =
        untilStopped_->isChecked() ? std::nullopt : std::optional(length_->text());
    QString problem = exportFormProblem(url_, length, file(), target);
    if (problem.isEmpty() && isTaken_(file())) {
        problem = tr("Another recording writes this file.");
    }
    start_->setEnabled(problem.isEmpty());
    const bool replaces = problem.isEmpty() && target.exists;
    message_->setText(replaces ? tr("The file exists. It will be replaced when the export is complete.")
                               : problem);
}

bool ExportDialog::mayReplace() {
    QMessageBox question(QMessageBox::Question, tr("Replace the file?"),
                         tr("The file exists:\n%1\n\nReplace it when the recording is complete?")
                             .arg(QDir::toNativeSeparators(file())),
                         QMessageBox::Cancel, this);
    question.setTextFormat(Qt::PlainText);
    const auto* const replace = question.addButton(tr("Replace"), QMessageBox::AcceptRole);
    question.setDefaultButton(QMessageBox::Cancel);
    question.exec();
    return question.clickedButton() == replace;
}

void ExportDialog::begin() {
    check(); // the file system may have changed
    if (!start_->isEnabled()) {
        return;
    }
    const bool exists = lookAt(file()).exists;
    if (exists && !mayReplace()) {
        return;
    }
    const int lengthMs = untilStopped_->isChecked() ? 0 : parseLength(length_->text()).value_or(0);
    Q_EMIT confirmed(file(), std::chrono::milliseconds(lengthMs), exists);
    accept();
}

} // namespace mediaworker::view
