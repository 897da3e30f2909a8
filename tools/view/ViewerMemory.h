#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QStringList>

#include <optional>

namespace mediaworker::view {

/// What a viewer remembers from one start to the next.
struct ViewerMemory {
    static constexpr int kMostAddresses = 10;
    static constexpr int kMostVolumes = 200;

    QByteArray geometry = {};        ///< of the window, as Qt writes it
    QByteArray layout = {};          ///< of its docks
    QStringList addresses = {};      ///< opened last, newest first; without passwords
    QMap<QString, int> volumes = {}; ///< percent, of addresses without passwords
    QString recordingFolder = {};

    void noteAddress(const QString& url);
    void noteVolume(const QString& url, int percent);
    [[nodiscard]] std::optional<int> volumeOf(const QString& url) const;

    friend bool operator==(const ViewerMemory&, const ViewerMemory&) = default;
};

struct LoadedMemory {
    ViewerMemory memory;
    QString problem; ///< why there is nothing in it, in a sentence; a file that is not there is none
};

/// Reads an INI file. What is too long, of another kind or out of range is left out.
[[nodiscard]] LoadedMemory loadMemory(const QString& file);
/// Writes it, and its folder. False when that did not work: there is nothing to be done.
bool saveMemory(const ViewerMemory& memory, const QString& file);

/// The file of the user.
[[nodiscard]] QString memoryFile();

} // namespace mediaworker::view
