#include "tools/view/Wall.h"

#include <QGridLayout>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <utility>

namespace mediaworker::view {

namespace {

constexpr int kGapPx = 2; // between streams
// All workers together have this long to end by themselves when the window closes.
constexpr std::chrono::milliseconds kEndPatience{1000};

} // namespace

Wall::Wall(QWidget* parent) : QWidget(parent), layout_(new QGridLayout(this)) {
    setAutoFillBackground(true);
    setBackgroundRole(QPalette::Shadow);
    layout_->setContentsMargins(0, 0, 0, 0);
    layout_->setSpacing(kGapPx);
}

Wall::~Wall() {
    // Before the widgets that they would tell about their end.
    for (StreamView* view : std::exchange(views_, {})) {
        delete view;
    }
}

StreamView& Wall::add(const StreamSettings& settings) {
    auto* view = new StreamView(settings);
    views_.push_back(view);
    connect(view, &StreamView::chosen, this, [this, view] { choose(view); });
    connect(view, &StreamView::doubleClicked, this, [this, view] { Q_EMIT doubleClicked(view); });
    connect(view, &StreamView::wheelTurned, this, [this, view](int steps) {
        choose(view);
        for (int i = 0; i < std::abs(steps); ++i) {
            view->stepVolume(steps);
        }
    });
    connect(view, &StreamView::menuWanted, this, &Wall::menuWanted);
    connect(view, &StreamView::firstPicture, this, [this, view] { Q_EMIT firstPicture(view); });
    connect(view, &StreamView::changed, this, [this, view] {
        if (view == current_) {
            Q_EMIT changed();
        }
    });
    alone_ = nullptr;
    arrange();
    choose(view);
    return *view;
}

void Wall::remove(StreamView* view) {
    const auto found = std::find(views_.begin(), views_.end(), view);
    if (found == views_.end()) {
        return;
    }
    alone_ = nullptr;
    const auto place = views_.erase(found);
    StreamView* const next = place != views_.end() ? *place : views_.empty() ? nullptr : views_.back();
    StreamView* const chosen = current_ == view ? next : current_;
    current_ = nullptr;
    view->hide();
    view->disconnect(this);
    view->stop();
    view->waitForEnd(kEndPatience);
    view->deleteLater();
    arrange();
    choose(chosen);
}

void Wall::choose(StreamView* view) {
    current_ = view;
    for (StreamView* each : views_) {
        each->setCurrent(each == view);
    }
    if (view != nullptr && alone_ != nullptr && alone_ != view) {
        alone_ = view;
        arrange();
    }
    // One of its buttons may have it.
    const QWidget* const focus = window()->focusWidget();
    if (view != nullptr && focus != view && (focus == nullptr || !view->isAncestorOf(focus))) {
        view->setFocus();
    }
    Q_EMIT changed();
}

void Wall::chooseBeside(Direction direction) {
    const auto place = std::find(views_.begin(), views_.end(), current_);
    if (place != views_.end()) {
        chooseNumber(
            neighbour(static_cast<int>(views_.size()), static_cast<int>(place - views_.begin()), direction));
    }
}

void Wall::chooseNumber(int number) {
    if (number >= 0 && number < static_cast<int>(views_.size())) {
        choose(views_[static_cast<std::size_t>(number)]);
    }
}

void Wall::setAlone(StreamView* view) {
    alone_ = views_.size() > 1 ? view : nullptr;
    arrange();
    Q_EMIT changed();
}

void Wall::arrange() {
    while (layout_->count() > 0) {
        delete layout_->takeAt(0);
    }
    for (int i = 0; i < layout_->rowCount(); ++i) {
        layout_->setRowStretch(i, 0);
    }
    for (int i = 0; i < layout_->columnCount(); ++i) {
        layout_->setColumnStretch(i, 0);
    }
    const int count = alone_ != nullptr ? 1 : static_cast<int>(views_.size());
    const GridShape shape = gridShape(count);
    int place = 0;
    for (StreamView* view : views_) {
        const bool isShown = alone_ == nullptr || view == alone_;
        view->showCaption(count > 1);
        if (isShown) {
            const int row = place / shape.columns;
            const int column = place % shape.columns;
            layout_->addWidget(view, row, column);
            layout_->setRowStretch(row, 1);
            layout_->setColumnStretch(column, 1);
            ++place;
        } else if (view->parentWidget() == nullptr) {
            view->setParent(this);
        }
        view->setVisible(isShown);
    }
}

void Wall::stop() {
    for (StreamView* view : views_) {
        view->stop();
    }
    const auto deadline = std::chrono::steady_clock::now() + kEndPatience;
    for (StreamView* view : views_) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        static_cast<void>(view->waitForEnd(std::max(left, std::chrono::milliseconds(0))));
    }
}

} // namespace mediaworker::view
