#pragma once

#include "tools/view/Recording.h"

#include <QFrame>

class QLabel;
class QProgressBar;
class QPushButton;

namespace mediaworker::view {

class ElidedLabel;

/// One recording in a list: name, file, how far it is or how it ended, and buttons to finish or cancel it.
class RecordingRow : public QFrame {
    Q_OBJECT

public:
    /// Goes before `recording` does.
    explicit RecordingRow(Recording& recording, QWidget* parent = nullptr);

    [[nodiscard]] bool isOf(const Recording& recording) const { return &recording_ == &recording; }
    /// Says again how it is.
    void refresh();

private:
    Recording& recording_;
    ElidedLabel* title_;
    QLabel* time_;
    QProgressBar* progress_;
    QLabel* message_;
    QPushButton* finish_;
    QPushButton* cancel_;
};

} // namespace mediaworker::view
