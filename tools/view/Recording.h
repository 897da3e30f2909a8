#pragma once

#include "parent/WorkerProcess.h"
#include "tools/view/ExportForm.h"

#include <QObject>
#include <QString>
#include <QTimer>

#include <chrono>
#include <optional>

namespace mediaworker::view {

/// What is to be recorded, and how.
struct RecordingOrder {
    QString url = {};
    QString name = {};                   ///< of the stream, for people
    QString file = {};                   ///< absolute
    std::chrono::milliseconds length{0}; ///< zero: until it is finished
    bool mayReplace = false;             ///< a file of that name; the user was asked
    QString workerProgram = {};
    QString proxyUrl = {};
    QString proxyType = {};
    parent::FlvReading flv = parent::FlvReading::Standard;
    bool isConfined = true;
};

/// One recording of a stream, by a worker of its own, until the file has its name. A cancelled one leaves no
/// file; one that goes while it runs is finished first, within a few seconds.
class Recording : public QObject {
    Q_OBJECT

public:
    explicit Recording(RecordingOrder order, QObject* parent = nullptr);
    ~Recording() override;
    Recording(const Recording&) = delete;
    Recording& operator=(const Recording&) = delete;

    /// Once. What goes wrong is told by ended().
    void start();
    /// The worker closes the file, which is kept, and ends; in a minute at most.
    void finish();
    /// Ends the worker and removes the file. Waits for both.
    void cancel();

    [[nodiscard]] bool isRunning() const { return state_ != State::New && state_ != State::Ended; }
    [[nodiscard]] bool isFinishing() const { return state_ == State::Finishing; }
    /// The file is there, be it shorter than it was to be.
    [[nodiscard]] bool isSaved() const { return isSaved_; }
    [[nodiscard]] const RecordingOrder& order() const { return order_; }
    /// Since the start, until the end.
    [[nodiscard]] std::chrono::milliseconds elapsed() const;
    /// How long the pictures of the complete file last.
    [[nodiscard]] std::optional<std::chrono::milliseconds> recorded() const;
    /// Of the length, and less than 100 at the end where the file is shorter; nothing where there is none.
    [[nodiscard]] std::optional<int> percent() const;
    /// What it does, or how it ended, as a sentence for the user.
    [[nodiscard]] const QString& text() const { return text_; }

Q_SIGNALS:
    void changed();
    void ended(); ///< once; text() says how

private:
    enum class State { New, Running, Finishing, Ended };
    using Clock = std::chrono::steady_clock;

    void onFinished(int exitCode, bool crashed);
    void takeFile();
    void end(const QString& text);

    const RecordingOrder order_;
    State state_ = State::New;
    QString partialFile_; ///< what the worker writes
    QString text_;
    int percent_ = 0;
    bool isSaved_ = false;
    bool isCancelled_ = false;
    bool isGivenUp_ = false; ///< the file was not closed in time
    Clock::time_point startedAt_{};
    Clock::time_point endedAt_{};
    QTimer closing_;

    parent::WorkerProcess worker_; ///< last: it may speak while it goes
};

} // namespace mediaworker::view
