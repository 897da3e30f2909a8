#include "tools/files/PartialFile.h"

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QtEndian>

#include <filesystem>
#include <system_error>

namespace mediaworker {

std::optional<QString> makePartialFile(const QString& target) {
    constexpr int kMostNames = 1000;
    const QFileInfo file(target);
    const QDir folder(file.absolutePath());
    for (int i = 1; i <= kMostNames; ++i) {
        const QString number = i == 1 ? QString() : QStringLiteral("-%1").arg(i);
        const QString name =
            folder.filePath(file.completeBaseName() + QStringLiteral(".partial%1.mp4").arg(number));
        // Made by one process only, whoever asks at the same time.
        if (QFile partial(name); partial.open(QIODevice::WriteOnly | QIODevice::NewOnly)) {
            return name;
        }
        if (!QFileInfo::exists(name)) {
            break;
        }
    }
    return std::nullopt;
}

namespace {

struct Box {
    QByteArray name;
    quint64 size = 0; ///< of all of it; 0: up to the end of the file
    quint64 header = 0;
};

/// The header of a box, where the file is. Empty at its end, and where there is none.
std::optional<Box> nextBox(QFile& file) {
    constexpr int kShortHeader = 8;
    const QByteArray header = file.read(kShortHeader);
    if (header.size() < kShortHeader) {
        return std::nullopt;
    }
    Box box{header.mid(4), qFromBigEndian<quint32>(header.constData()), kShortHeader};
    if (box.size == 1) {
        const QByteArray size = file.read(kShortHeader);
        box.size = size.size() < kShortHeader ? 0 : qFromBigEndian<quint64>(size.constData());
        box.header += kShortHeader;
    }
    const bool isWhole = box.size >= box.header || box.size == 0;
    return isWhole ? std::optional(box) : std::nullopt;
}

} // namespace

bool isPlayable(const QString& name) {
    QFile file(name);
    if (!file.open(QIODevice::ReadOnly)) {
        return false;
    }
    const auto size = static_cast<quint64>(file.size());
    bool hasIndex = false;
    bool hasContent = false;
    for (quint64 at = 0; file.seek(static_cast<qint64>(at));) {
        const auto box = nextBox(file);
        if (!box) {
            break;
        }
        const bool isWhole = box->size != 0 && box->size <= size - at;
        hasIndex = hasIndex || (box->name == "moov" && isWhole);
        hasContent = hasContent || (box->name == "mdat" && size - at > box->header);
        if (!isWhole) {
            break;
        }
        at += box->size;
    }
    return hasIndex && hasContent;
}

bool keepRemains(const QString& partialFile, bool wasKilled) {
    const bool isOfUse = wasKilled ? isPlayable(partialFile) : QFileInfo(partialFile).size() > 0;
    if (!isOfUse) {
        QFile::remove(partialFile);
    }
    return isOfUse;
}

bool moveFile(const QString& from, const QString& target, Replacing replacing) {
    if (replacing == Replacing::Refused) {
        return QFile::rename(from, target); // which takes no name that is taken
    }
    std::error_code error;
    std::filesystem::rename(from.toStdU16String(), target.toStdU16String(), error);
    return !error;
}

} // namespace mediaworker
