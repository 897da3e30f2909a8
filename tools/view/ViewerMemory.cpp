#include "tools/view/ViewerMemory.h"

#include <QDir>
#include <QFileInfo>
#include <QSettings>
#include <QStandardPaths>
#include <QUrl>

#include <algorithm>

namespace mediaworker::view {

namespace {

constexpr qint64 kLargestFileBytes = 1 << 20;
constexpr int kLargestStateBytes = 64 * 1024;
constexpr int kLongestAddress = 4096;

QString withoutPassword(const QString& url) {
    QUrl parsed(url);
    if (parsed.password().isEmpty()) {
        return url;
    }
    parsed.setPassword(QString());
    return parsed.toString(QUrl::FullyEncoded);
}

bool isFit(const QString& address) {
    return !address.isEmpty() && address.size() <= kLongestAddress;
}

QByteArray readState(const QSettings& settings, const QString& key) {
    const QByteArray state = QByteArray::fromBase64(settings.value(key).toString().toLatin1());
    return state.size() <= kLargestStateBytes ? state : QByteArray();
}

LoadedMemory broken(const QString& file) {
    return {.memory = {},
            .problem = QStringLiteral("The settings in %1 cannot be read and are ignored.")
                           .arg(QDir::toNativeSeparators(file))};
}

} // namespace

void ViewerMemory::noteAddress(const QString& url) {
    const QString address = withoutPassword(url);
    if (!isFit(address)) {
        return;
    }
    addresses.removeAll(address);
    addresses.prepend(address);
    addresses = addresses.mid(0, kMostAddresses);
}

void ViewerMemory::noteVolume(const QString& url, int percent) {
    const QString address = withoutPassword(url);
    if (isFit(address) && (volumes.contains(address) || volumes.size() < kMostVolumes)) {
        volumes[address] = std::clamp(percent, 0, 100);
    }
}

std::optional<int> ViewerMemory::volumeOf(const QString& url) const {
    const auto found = volumes.find(withoutPassword(url));
    return found != volumes.end() ? std::optional(*found) : std::nullopt;
}

LoadedMemory loadMemory(const QString& file) {
    const QFileInfo info(file);
    if (!info.exists()) {
        return {};
    }
    if (!info.isFile() || info.size() > kLargestFileBytes) {
        return broken(file);
    }
    QSettings settings(file, QSettings::IniFormat);
    settings.setIniCodec("UTF-8");
    const QStringList keys = settings.allKeys();
    if (settings.status() != QSettings::NoError || (keys.isEmpty() && info.size() > 0)) {
        return broken(file);
    }
    ViewerMemory memory;
    memory.geometry = readState(settings, QStringLiteral("window/geometry"));
    memory.layout = readState(settings, QStringLiteral("window/layout"));
    memory.recordingFolder = settings.value(QStringLiteral("recordings/folder")).toString();
    const int addresses = settings.beginReadArray(QStringLiteral("addresses"));
    for (int i = std::min(addresses, ViewerMemory::kMostAddresses) - 1; i >= 0; --i) {
        settings.setArrayIndex(i);
        memory.noteAddress(settings.value(QStringLiteral("url")).toString());
    }
    settings.endArray();
    const int volumes = settings.beginReadArray(QStringLiteral("volumes"));
    for (int i = 0; i < std::min(volumes, ViewerMemory::kMostVolumes); ++i) {
        settings.setArrayIndex(i);
        bool isNumber = false;
        const int percent = settings.value(QStringLiteral("percent")).toInt(&isNumber);
        if (isNumber) {
            memory.noteVolume(settings.value(QStringLiteral("url")).toString(), percent);
        }
    }
    settings.endArray();
    return {.memory = memory, .problem = {}};
}

bool saveMemory(const ViewerMemory& memory, const QString& file) {
    QDir().mkpath(QFileInfo(file).absolutePath());
    QSettings settings(file, QSettings::IniFormat);
    settings.setIniCodec("UTF-8");
    settings.clear();
    settings.setValue(QStringLiteral("window/geometry"), QString::fromLatin1(memory.geometry.toBase64()));
    settings.setValue(QStringLiteral("window/layout"), QString::fromLatin1(memory.layout.toBase64()));
    settings.setValue(QStringLiteral("recordings/folder"), memory.recordingFolder);
    settings.beginWriteArray(QStringLiteral("addresses"), memory.addresses.size());
    for (int i = 0; i < memory.addresses.size(); ++i) {
        settings.setArrayIndex(i);
        settings.setValue(QStringLiteral("url"), memory.addresses[i]);
    }
    settings.endArray();
    settings.beginWriteArray(QStringLiteral("volumes"), memory.volumes.size());
    int i = 0;
    for (auto volume = memory.volumes.begin(); volume != memory.volumes.end(); ++volume) {
        settings.setArrayIndex(i++);
        settings.setValue(QStringLiteral("url"), volume.key());
        settings.setValue(QStringLiteral("percent"), volume.value());
    }
    settings.endArray();
    settings.sync();
    return settings.status() == QSettings::NoError;
}

QString memoryFile() {
    const QDir folder(QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation));
    return folder.filePath(QStringLiteral("mediaworker/viewer.ini"));
}

} // namespace mediaworker::view
