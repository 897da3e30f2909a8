#pragma once

#include <QDialog>
#include <QString>

#include <chrono>
#include <functional>

class QCheckBox;
class QDialogButtonBox;
class QLabel;
class QLineEdit;
class QPushButton;

namespace mediaworker::view {

/// Asks how long a stream is to be recorded, and into which file; and again, before it replaces one.
class ExportDialog : public QDialog {
    Q_OBJECT

public:
    /// What it proposes; `isTaken` tells which files other recordings write.
    struct Proposal {
        QString url = {};
        QString name = {}; ///< of the stream
        QString file = {};
        bool isUntilStopped = true;
    };
    using IsTaken = std::function<bool(const QString& file)>;

    ExportDialog(const Proposal& proposal, IsTaken isTaken, QWidget* parent = nullptr);

    /// Not until it is stopped, but as long.
    void setLength(const QString& text);
    void setFile(const QString& path);
    [[nodiscard]] const QString& url() const { return url_; }

Q_SIGNALS:
    /// The user wants this. `length`: zero: until it is stopped.
    void confirmed(const QString& file, std::chrono::milliseconds length, bool mayReplace);

private:
    void makeWidgets(const Proposal& proposal);
    void browse();
    [[nodiscard]] QString file() const;
    void check();
    void begin();
    [[nodiscard]] bool mayReplace();

    QString url_;
    IsTaken isTaken_;

    QCheckBox* untilStopped_ = nullptr;
    QLineEdit* length_ = nullptr;
    QLineEdit* path_ = nullptr;
    QPushButton* browse_ = nullptr;
    QLabel* message_ = nullptr;
    QDialogButtonBox* buttons_ = nullptr;
    QPushButton* start_ = nullptr;
};

} // namespace mediaworker::view
