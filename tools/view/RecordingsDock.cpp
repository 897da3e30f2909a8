#include "tools/view/RecordingsDock.h"

#include "tools/view/RecordingRow.h"

#include <QScrollArea>
#include <QVBoxLayout>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <utility>

namespace mediaworker::view {

namespace {

constexpr std::chrono::milliseconds kRefreshInterval{500};
constexpr std::size_t kMostEnded = 50; // that are still listed

} // namespace

RecordingsDock::RecordingsDock(QWidget* parent) : QDockWidget(tr("Recordings"), parent) {
    setObjectName(QStringLiteral("recordings"));
    auto* list = new QWidget;
    rows_ = new QVBoxLayout(list);
    rows_->setContentsMargins(0, 0, 0, 0);
    rows_->addStretch(1);
    auto* area = new QScrollArea;
    area->setWidgetResizable(true);
    area->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    area->setFrameShape(QFrame::NoFrame);
    area->setWidget(list);
    setWidget(area);
    hide();
    connect(&refreshTimer_, &QTimer::timeout, this, [this] {
        for (RecordingRow* row : findChildren<RecordingRow*>()) {
            row->refresh();
        }
    });
}

RecordingsDock::~RecordingsDock() {
    delete widget(); // with the rows
    for (Recording* recording : std::exchange(recordings_, {})) {
        recording->disconnect(this);
        delete recording;
    }
}

Recording& RecordingsDock::begin(RecordingOrder order) {
    forgetOldest();
    auto* recording = new Recording(std::move(order), this);
    recordings_.push_back(recording);
    rows_->insertWidget(0, new RecordingRow(*recording));
    connect(recording, &Recording::ended, this, [this] {
        Q_EMIT changed();
        if (running() == 0) {
            refreshTimer_.stop();
            Q_EMIT allEnded();
        }
    });
    refreshTimer_.start(kRefreshInterval);
    show();
    recording->start();
    Q_EMIT changed();
    return *recording;
}

void RecordingsDock::forgetOldest() {
    if (recordings_.size() < kMostEnded) {
        return;
    }
    const auto oldest = std::find_if(recordings_.begin(), recordings_.end(),
                                     [](const Recording* each) { return !each->isRunning(); });
    if (oldest != recordings_.end()) {
        Recording* const gone = *oldest;
        recordings_.erase(oldest);
        finished_.erase(std::remove(finished_.begin(), finished_.end(), gone), finished_.end());
        for (RecordingRow* row : findChildren<RecordingRow*>()) {
            if (row->isOf(*gone)) {
                delete row;
            }
        }
        delete gone;
    }
}

int RecordingsDock::running() const {
    return static_cast<int>(std::count_if(recordings_.begin(), recordings_.end(),
                                          [](const Recording* each) { return each->isRunning(); }));
}

Recording* RecordingsDock::runningOf(const QString& url) const {
    const auto found = std::find_if(recordings_.rbegin(), recordings_.rend(), [&](const Recording* each) {
        return each->isRunning() && !each->isFinishing() && each->order().url == url;
    });
    return found != recordings_.rend() ? *found : nullptr;
}

bool RecordingsDock::isTaken(const QString& file) const {
    return std::any_of(recordings_.begin(), recordings_.end(), [&](const Recording* each) {
        return each->isRunning() && each->order().file == file;
    });
}

void RecordingsDock::finishAll() {
    finished_.clear();
    std::copy_if(recordings_.begin(), recordings_.end(), std::back_inserter(finished_),
                 [](const Recording* each) { return each->isRunning(); });
    for (Recording* recording : std::vector<Recording*>(finished_)) {
        recording->finish();
    }
}

QStringList RecordingsDock::unsavedByFinishing() const {
    QStringList texts;
    for (const Recording* recording : finished_) {
        if (!recording->isRunning() && !recording->isSaved()) {
            texts << recording->order().name + QStringLiteral(": ") + recording->text();
        }
    }
    return texts;
}

} // namespace mediaworker::view
