#include "tools/view/StatusLine.h"

#include "tools/view/Labels.h"

#include <QLabel>
#include <QStatusBar>

#include <utility>

namespace mediaworker::view {

namespace {

constexpr int kLabelMarginPx = 4;

QLabel* makeLabel(const char* name) {
    auto* label = new QLabel;
    label->setObjectName(QLatin1String(name));
    label->setTextFormat(Qt::PlainText);
    label->setMargin(kLabelMarginPx);
    return label;
}

} // namespace

StatusLine::StatusLine(QStatusBar& bar)
    : QObject(&bar), state_(makeLabel("state")), size_(makeLabel("size")), rate_(makeLabel("rate")),
      position_(makeLabel("position")), delay_(makeLabel("delay")) {
    state_->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    bar.addWidget(state_, 1);
    for (QLabel* label : {size_, rate_, position_, delay_}) {
        bar.addPermanentWidget(label);
    }
}

void StatusLine::show(const StreamStatus& status) {
    QStringList words{stateText(status)};
    for (const QString& more : {behindText(status), soundText(status)}) {
        if (!more.isEmpty()) {
            words << more;
        }
    }
    state_->setText(words.join(QStringLiteral(", ")));
    state_->setToolTip(toolTipText(state_->text()));
    const std::pair<QLabel*, QString> labels[] = {{size_, sizeText(status)},
                                                  {rate_, rateText(status)},
                                                  {position_, positionText(status)},
                                                  {delay_, delayText(status)}};
    for (const auto& [label, text] : labels) {
        label->setText(text);
        label->setVisible(!text.isEmpty());
    }
}

} // namespace mediaworker::view
