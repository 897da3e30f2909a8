#include "parent/WorkerFindings.h"

#include <algorithm>

namespace mediaworker::parent {

namespace {

constexpr int kMostCharacters = 300;

// The beginnings of the worker's lines.
constexpr char kHttpStatus[] = "http failed: status ";
constexpr char kHttpNetwork[] = "http failed: network: ";
constexpr char kPictures[] = "pictures unavailable: ";
constexpr char kSound[] = "sound unavailable: ";
constexpr char kDevice[] = "Trying to start audio device: ";

constexpr char kRecorded[] = "recorded: ";

constexpr char kDeviceStarted[] = "audio device has been sucessfully started";
constexpr char kNoDevice[] = "Failed to create audio output";

QString printable(QString text) {
    text.truncate(kMostCharacters);
    std::replace_if(
        text.begin(), text.end(), [](QChar c) { return !c.isPrint(); }, QLatin1Char('?'));
    return text.trimmed();
}

/// What follows that beginning, if the line has it.
std::optional<QString> textBehind(const char* beginning, const QString& line) {
    const QLatin1String prefix(beginning);
    return line.startsWith(prefix) ? std::optional(printable(line.mid(prefix.size()))) : std::nullopt;
}

/// Later ones follow from it, or say it again.
void noteFirst(QString& reason, const QString& found) {
    if (reason.isEmpty()) {
        reason = found;
    }
}

bool saysThatThereIsNoDevice(const QString& line) {
    const auto device = textBehind(kDevice, line);
    return line == QLatin1String(kNoDevice) || (device && *device != QLatin1String(kDeviceStarted));
}

} // namespace

void WorkerFindings::take(const QString& line, bool isSoundWanted) {
    if (const auto status = textBehind(kHttpStatus, line)) {
        bool isNumber = false;
        const int number = status->section(QLatin1Char(' '), 0, 0).toInt(&isNumber);
        httpStatus = isNumber ? std::optional(number) : std::nullopt;
        httpReason = isNumber ? status->section(QLatin1Char(' '), 1) : QString();
    } else if (const auto error = textBehind(kHttpNetwork, line)) {
        networkError = error->section(QLatin1Char(':'), 0, 0);
        networkErrorText = error->section(QLatin1Char(':'), 1).trimmed();
    } else if (const auto pictures = textBehind(kPictures, line)) {
        noteFirst(picturesUnavailable, *pictures);
    } else if (const auto sound = textBehind(kSound, line)) {
        noteFirst(soundUnavailable, *sound);
    } else if (const auto recorded = textBehind(kRecorded, line)) {
        bool isNumber = false;
        const qint64 lengthMs = recorded->section(QLatin1Char(' '), 0, 0).toLongLong(&isNumber);
        recordedMs = isNumber ? std::optional(lengthMs) : std::nullopt;
        hasRecordedSound = recorded->endsWith(QLatin1String(", with sound"));
    } else if (isSoundWanted && saysThatThereIsNoDevice(line)) {
        noteFirst(soundUnavailable, QStringLiteral("no sound device"));
    }
}

} // namespace mediaworker::parent
