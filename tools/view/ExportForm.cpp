#include "tools/view/ExportForm.h"

#include "tools/files/FileUrl.h"
#include "tools/view/StreamStatus.h"

#include <QFileInfo>
#include <QStringList>

namespace mediaworker::view {

namespace {

constexpr int kMsPerSecond = 1000;
constexpr int kMaxSeconds = 24 * 60 * 60;
constexpr int kMaxDigits = 6;
constexpr int kMaxNameLength = 60; // of the stream's part of a file name

} // namespace

std::optional<int> parseLength(const QString& text) {
    const QStringList parts = text.trimmed().split(QLatin1Char(':'));
    if (parts.size() > 3) {
        return std::nullopt;
    }
    int seconds = 0;
    for (int i = 0; i < parts.size(); ++i) {
        const QString& part = parts[i];
        bool isNumber = !part.isEmpty() && part.size() <= kMaxDigits;
        for (const QChar c : part) {
            isNumber = isNumber && c >= QLatin1Char('0') && c <= QLatin1Char('9');
        }
        const int value = part.toInt();
        if (!isNumber || (i > 0 && value >= 60) || value > kMaxSeconds || seconds > kMaxSeconds) {
            return std::nullopt;
        }
        seconds = seconds * 60 + value;
    }
    if (seconds < 1 || seconds > kMaxSeconds) {
        return std::nullopt;
    }
    return seconds * kMsPerSecond;
}

TargetFile lookAt(const QString& path) {
    const QFileInfo file(path);
    const QFileInfo folder(file.absolutePath());
    return {.isFolder = file.isDir(),
            .exists = file.exists(),
            .folderExists = folder.isDir(),
            .folderIsWritable = folder.isWritable()};
}

QString exportFormProblem(const QString& url, const std::optional<QString>& length, const QString& path,
                          const TargetFile& target) {
    if (url.isEmpty()) {
        return QStringLiteral("There is no stream to export.");
    }
    if (isFileUrl(url)) {
        return QStringLiteral("A local file cannot be exported: it is a file already.");
    }
    if (length && !parseLength(*length)) {
        return QStringLiteral("The length must be given as seconds, minutes:seconds or "
                              "hours:minutes:seconds, a day at most.");
    }
    if (path.trimmed().isEmpty()) {
        return QStringLiteral("Choose a file.");
    }
    if (target.isFolder) {
        return QStringLiteral("This is a folder. Choose a file.");
    }
    if (!target.folderExists) {
        return QStringLiteral("The folder does not exist.");
    }
    if (!target.folderIsWritable) {
        return QStringLiteral("The folder cannot be written to.");
    }
    return {};
}

QString withMp4Suffix(const QString& path) {
    const QString trimmed = path.trimmed();
    const bool hasIt = trimmed.isEmpty() || trimmed.endsWith(QLatin1Char('/')) ||
                       trimmed.endsWith(QStringLiteral(".mp4"), Qt::CaseInsensitive) ||
                       trimmed.endsWith(QStringLiteral(".m4v"), Qt::CaseInsensitive);
    return hasIt ? trimmed : trimmed + QStringLiteral(".mp4");
}

QString recordingFileName(const QString& streamName, const QDateTime& when,
                          const std::function<bool(const QString& name)>& isTaken) {
    QString base;
    for (const QChar c : streamName) {
        const bool isPlain = c.isLetterOrNumber() || c == QLatin1Char('.') || c == QLatin1Char('_');
        // A name that begins with a dot would be hidden, and one with a dash taken for an option.
        if (isPlain && (!base.isEmpty() || c != QLatin1Char('.'))) {
            base += c;
        } else if (!base.isEmpty() && !base.endsWith(QLatin1Char('-'))) {
            base += QLatin1Char('-');
        }
    }
    base.truncate(kMaxNameLength);
    while (base.endsWith(QLatin1Char('-')) || base.endsWith(QLatin1Char('.'))) {
        base.chop(1);
    }
    if (base.isEmpty()) {
        base = QStringLiteral("stream");
    }
    base += when.toString(QStringLiteral("-yyyy-MM-dd-HH-mm-ss"));
    QString name = base + QStringLiteral(".mp4");
    for (int number = 2; isTaken(name); ++number) {
        name = QStringLiteral("%1-%2.mp4").arg(base).arg(number);
    }
    return name;
}

QString recordedText(std::chrono::milliseconds recorded, std::chrono::milliseconds asked) {
    const QString text = clockText(recorded.count());
    return asked.count() > 0 ? QStringLiteral("%1 of %2").arg(text, clockText(asked.count())) : text;
}

QString exportEndText(ExportEnd end, const QString& file, const QString& why) {
    switch (end) {
    case ExportEnd::Complete:
        return QStringLiteral("The file is complete: %1").arg(file) +
               (why.isEmpty() ? QString() : QStringLiteral("\nBut ") + why + QStringLiteral("."));
    case ExportEnd::Cancelled:
        return QStringLiteral("Cancelled. Nothing was saved.");
    case ExportEnd::Empty:
        return QStringLiteral("Ended before anything was recorded.");
    case ExportEnd::Failed:
        return file.isEmpty() ? QStringLiteral("Failed: %1.").arg(why)
                              : QStringLiteral("Failed: %1. What was recorded until then is in %2, which "
                                               "may not be playable.")
                                    .arg(why, file);
    case ExportEnd::NotSaved:
        return QStringLiteral("The recording is complete, but could not be given its name. It is in %1")
            .arg(file);
    }
    return {};
}

} // namespace mediaworker::view
