#pragma once

#include "parent/StreamSupervisor.h"

#include <QObject>
#include <QStringList>

namespace mediaworker::view {

/// The newest lines that a stream's workers wrote, those of earlier ones included, without passwords. Belongs
/// to the view of the stream: of() finds it there.
class StreamLog : public QObject {
    Q_OBJECT

public:
    static constexpr int kMostLines = 2000;
    /// Of one line; the rest is cut off.
    static constexpr int kMostCharacters = 1000;

    StreamLog(parent::StreamSupervisor& stream, QObject* view);

    /// Null when that has none.
    [[nodiscard]] static StreamLog* of(const QObject& view);

    [[nodiscard]] const QStringList& lines() const noexcept { return lines_; }

Q_SIGNALS:
    void added(const QString& line);

private:
    void add(const QString& line);

    QStringList lines_;
};

} // namespace mediaworker::view
