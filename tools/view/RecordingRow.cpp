#include "tools/view/RecordingRow.h"

#include "tools/view/Labels.h"

#include <QDir>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

namespace mediaworker::view {

RecordingRow::RecordingRow(Recording& recording, QWidget* parent)
    : QFrame(parent), recording_(recording), title_(new ElidedLabel), time_(new QLabel),
      progress_(new QProgressBar), message_(new QLabel), finish_(new QPushButton(tr("Finish"))),
      cancel_(new QPushButton(tr("Cancel"))) {
    setObjectName(QStringLiteral("recording"));
    setFrameShape(QFrame::StyledPanel);
    const RecordingOrder& order = recording.order();
    title_->setText(order.name, QStringLiteral(" → ") + QFileInfo(order.file).fileName());
    title_->setToolTip(toolTipText(QDir::toNativeSeparators(order.file)));
    time_->setObjectName(QStringLiteral("time"));
    time_->setTextFormat(Qt::PlainText);
    progress_->setObjectName(QStringLiteral("progress"));
    progress_->setRange(0, recording.percent() ? 100 : 0);
    message_->setObjectName(QStringLiteral("message"));
    message_->setTextFormat(Qt::PlainText); // words of a worker, and of its server
    message_->setWordWrap(true);
    message_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    finish_->setObjectName(QStringLiteral("finish"));
    finish_->setToolTip(tr("Close the file and keep it"));
    cancel_->setObjectName(QStringLiteral("cancel"));
    cancel_->setToolTip(tr("Stop, and remove what was recorded"));
    connect(finish_, &QPushButton::clicked, &recording, &Recording::finish);
    connect(cancel_, &QPushButton::clicked, &recording, &Recording::cancel);
    connect(&recording, &Recording::changed, this, &RecordingRow::refresh);

    auto* first = new QHBoxLayout;
    first->addWidget(title_, 1);
    first->addWidget(time_);
    auto* second = new QHBoxLayout;
    second->addWidget(message_, 2);
    second->addWidget(progress_, 1);
    second->addWidget(finish_);
    second->addWidget(cancel_);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(first);
    layout->addLayout(second);
    refresh();
}

void RecordingRow::refresh() {
    time_->setText(
        recordedText(recording_.recorded().value_or(recording_.elapsed()), recording_.order().length));
    message_->setText(recording_.text());
    const bool isRunning = recording_.isRunning();
    finish_->setEnabled(!recording_.isFinishing());
    finish_->setVisible(isRunning);
    cancel_->setVisible(isRunning);
    progress_->setVisible(isRunning || recording_.percent());
    if (const auto percent = recording_.percent()) {
        progress_->setValue(*percent);
    }
}

} // namespace mediaworker::view
