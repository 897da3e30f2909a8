#include "parent/WorkerFindings.h"

#include "parent/MaskedUrls.h"

#include <algorithm>
#include <cstring>

namespace mediaworker::parent {

namespace {

constexpr int kMostCharacters = 300;
// Long URLs become short ones.
constexpr int kMostRead = 4096;

// The beginnings of the worker's lines.
constexpr char kHttpStatus[] = "http failed: status ";
constexpr char kHttpNetwork[] = "http failed: network: ";
constexpr char kPictures[] = "pictures unavailable: ";
constexpr char kSound[] = "sound unavailable: ";
constexpr char kDevice[] = "Trying to start audio device: ";

constexpr char kRecorded[] = "recorded: ";
constexpr char kMuxerRefused[] = "creating of muxer is failed with exc: ";
constexpr char kFrameFile[] = "can't map the frame file: ";
constexpr char kNoThread[] = "can't start a thread: ";
constexpr char kNoLinkThread[] = "can't start the thread of the link";
constexpr char kNoSandbox[] = "sandbox is required, exit";
constexpr char kFileNotOpened[] = "couldn't open file ";
constexpr char kNoFormat[] = "couldn't find stream information";
constexpr char kResponseOver[] = "http reader finished";
constexpr char kExportOver[] = "http is finished, with dts: ";

constexpr char kConsumeFailed[] = "ko_player::FileRecorder::consume: consume failed with exception: ";
constexpr char kCloseFailed[] =
    "ko_player::FileRecorder::pushEofAndClose: pushEofAndClose failed with exception: ";

// And what stands in the middle of them.
constexpr char kParser[] = "::consumeImpl: ec: ";
constexpr char kParserWhat[] = ", what: ";
constexpr char kException[] = " failed with exception: ";
constexpr char kFfmpegSays[] = ", err: ";

constexpr char kDeviceStarted[] = "audio device has been sucessfully started";
constexpr char kNoDevice[] = "Failed to create audio output";
constexpr char kSoundKnown[] = "ko_player::AudioPipeline::open: AudioPipeline has been openned";
constexpr char kSoundRefused[] =
    "ko_player::AudioPipeline::getOutParams: outHandler.onAudioParams return false";
constexpr char kNoDeviceText[] = "no sound device";

QString printable(QString text) {
    text = maskedUrls(text.left(kMostRead));
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

/// What follows these words where they come last, or the whole text: a file may be named so.
QString textBehindWords(const char* words, const QString& text) {
    const int at = text.lastIndexOf(QLatin1String(words));
    return at < 0 ? text : text.mid(at + static_cast<int>(std::strlen(words)));
}

/// An exception of the recorder: what FFmpeg says of the file, where it is that.
std::optional<QString> writeErrorOf(const QString& line) {
    if (line.startsWith(QLatin1String(kConsumeFailed)) || line.startsWith(QLatin1String(kCloseFailed))) {
        return printable(textBehindWords(kFfmpegSays, textBehindWords(kException, line)));
    }
    if (const auto refused = textBehind(kMuxerRefused, line)) {
        return textBehindWords(kFfmpegSays, *refused);
    }
    if (const auto frames = textBehind(kFrameFile, line)) {
        return *frames;
    }
    return std::nullopt;
}

std::optional<QString> otherFailureOf(const QString& line) {
    const bool isKnown = line.startsWith(QLatin1String(kNoThread)) || line == QLatin1String(kNoLinkThread);
    if (isKnown) {
        return printable(line);
    }
    return line == QLatin1String(kNoSandbox)
               ? std::optional(QStringLiteral("the system cannot confine it as it was asked to"))
               : std::nullopt;
}

} // namespace

bool WorkerFindings::isCutShort(std::chrono::milliseconds asked, bool stoodStill) const {
    const bool isAsLong = asked.count() > 0 && recordedMs && *recordedMs >= asked.count();
    return (stoodStill || isResponseFailed()) && !isAsLong;
}

void WorkerFindings::takeEnd(const QString& line) {
    if (line.contains(QLatin1String(kParser))) {
        noteFirst(streamError, printable(textBehindWords(kParserWhat, line)));
    } else if (const auto unwritten = writeErrorOf(line)) {
        noteFirst(writeError, *unwritten);
    } else if (const auto failure = otherFailureOf(line)) {
        noteFirst(otherFailure, *failure);
    } else if (line.startsWith(QLatin1String(kFileNotOpened)) || line == QLatin1String(kNoFormat)) {
        isFileRefused = true;
    } else if (line == QLatin1String(kResponseOver) || line.startsWith(QLatin1String(kExportOver))) {
        isResponseOver = true;
    }
}

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
    } else if (!takeDevice(line, isSoundWanted)) {
        takeEnd(line);
    }
}

bool WorkerFindings::takeDevice(const QString& line, bool isSoundWanted) {
    const auto device = textBehind(kDevice, line);
    const bool isRefused = line == QLatin1String(kNoDevice) || line == QLatin1String(kSoundRefused);
    if (line == QLatin1String(kSoundKnown)) {
        isSoundKnown = true;
    } else if (device && *device == QLatin1String(kDeviceStarted)) {
        if (soundUnavailable == QLatin1String(kNoDeviceText)) {
            soundUnavailable.clear();
        }
    } else if (isSoundWanted && (isRefused || (device && isSoundKnown))) {
        // Before the stream's sound is known no device can be opened, and the next attempt comes by itself.
        noteFirst(soundUnavailable, QLatin1String(kNoDeviceText));
    }
    return device || isRefused;
}

} // namespace mediaworker::parent
