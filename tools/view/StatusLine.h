#pragma once

#include "tools/view/StreamStatus.h"

#include <QObject>

class QLabel;
class QStatusBar;

namespace mediaworker::view {

/// What a window's status bar tells about one stream.
class StatusLine : public QObject {
    Q_OBJECT

public:
    /// `bar` owns it.
    explicit StatusLine(QStatusBar& bar);

    void show(const StreamStatus& status);

private:
    QLabel* state_;
    QLabel* size_;
    QLabel* rate_;
    QLabel* position_;
    QLabel* delay_;
};

} // namespace mediaworker::view
