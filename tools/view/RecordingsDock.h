#pragma once

#include "tools/view/Recording.h"

#include <QDockWidget>
#include <QStringList>
#include <QTimer>

#include <vector>

class QVBoxLayout;

namespace mediaworker::view {

/// The list of recordings, the newest at the top: what each records and where, how far it is, how it ended.
/// They run beside each other.
class RecordingsDock : public QDockWidget {
    Q_OBJECT

public:
    explicit RecordingsDock(QWidget* parent = nullptr);
    ~RecordingsDock() override;
    RecordingsDock(const RecordingsDock&) = delete;
    RecordingsDock& operator=(const RecordingsDock&) = delete;

    /// Shows the list, too.
    Recording& begin(RecordingOrder order);

    /// The oldest first.
    [[nodiscard]] const std::vector<Recording*>& recordings() const { return recordings_; }
    [[nodiscard]] int running() const;
    /// The one that records this stream and was begun last; null when none does.
    [[nodiscard]] Recording* runningOf(const QString& url) const;
    /// A recording that runs will write it.
    [[nodiscard]] bool isTaken(const QString& file) const;
    void finishAll();
    /// How those ended that finishAll() finished, and whose file did not get its name.
    [[nodiscard]] QStringList unsavedByFinishing() const;

Q_SIGNALS:
    void changed();  ///< which ones run
    void allEnded(); ///< the last of those that ran has

private:
    void forgetOldest();

    std::vector<Recording*> recordings_; ///< children of this
    std::vector<Recording*> finished_;   ///< some of recordings_, by the last finishAll()
    QVBoxLayout* rows_;
    QTimer refreshTimer_; ///< for the time that goes by
};

} // namespace mediaworker::view
