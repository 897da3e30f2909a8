#pragma once

#include "parent/WorkerProcess.h"

#include <QDialog>
#include <QString>

class QDialogButtonBox;
class QLabel;
class QLineEdit;
class QProgressBar;
class QPushButton;

namespace mediaworker::view {

/// Asks for a length and a file, records a stream in a worker of its own, and says how it ended. A cancelled
/// export leaves no file, and an earlier file of that name is only replaced by a complete one.
class ExportDialog : public QDialog {
    Q_OBJECT

public:
    /// `workerProgram` may be empty.
    ExportDialog(const QString& url, const QString& workerProgram, QWidget* parent = nullptr);
    ~ExportDialog() override;
    ExportDialog(const ExportDialog&) = delete;
    ExportDialog& operator=(const ExportDialog&) = delete;

    [[nodiscard]] bool isExporting() const { return isExporting_; }
    /// Ends an export that runs, and waits for the end of its worker.
    void cancel();

    void setLength(const QString& text);
    void setFile(const QString& path);
    void setFlvReading(parent::FlvReading reading) { flv_ = reading; }
    void setConfined(bool isConfined) { isConfined_ = isConfined; }

public Q_SLOTS:
    void reject() override; ///< cancels, or closes when nothing runs

private:
    void makeWidgets();
    void browse();
    void check();
    void begin();
    void end(int exitCode, bool crashed);
    void finish(const QString& text, bool isComplete);

    QString url_;
    QString file_;        ///< what the user chose
    QString partialFile_; ///< what the worker writes
    parent::FlvReading flv_ = parent::FlvReading::Standard;
    bool isConfined_ = true;
    bool isExporting_ = false;
    bool isCancelled_ = false;

    QLineEdit* length_ = nullptr;
    QLineEdit* path_ = nullptr;
    QPushButton* browse_ = nullptr;
    QLabel* message_ = nullptr;
    QProgressBar* progress_ = nullptr;
    QDialogButtonBox* buttons_ = nullptr;
    QPushButton* start_ = nullptr;
    QPushButton* close_ = nullptr;

    parent::WorkerProcess worker_; ///< last: it may speak while it goes
};

} // namespace mediaworker::view
