#include "tools/files/PartialFile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

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

bool moveFile(const QString& from, const QString& target, Replacing replacing) {
    if (replacing == Replacing::Refused) {
        return QFile::rename(from, target); // which takes no name that is taken
    }
    std::error_code error;
    std::filesystem::rename(from.toStdU16String(), target.toStdU16String(), error);
    return !error;
}

} // namespace mediaworker
