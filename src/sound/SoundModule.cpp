#include "sound/SoundModule.h"

#include "base/Log.h"
#include "sound/PluginFolders.h"

#include <QLibrary>
#include <QStringList>

#include <optional>

namespace {

/// Null if there is none that fits.
SoundEntry loadEntry(const QStringList& folders) {
    QStringList reasons;
    for (const QString& folder : folders) {
        QLibrary module(folder + QStringLiteral("/mediaworker_sound"));
        // Its libraries have threads of their own, and functions to run at the exit.
        module.setLoadHints(QLibrary::PreventUnloadHint);
        if (const QFunctionPointer entry = module.resolve(kSoundEntryName)) {
            return reinterpret_cast<SoundEntry>(entry);
        }
        reasons += module.isLoaded()
                       ? QStringLiteral("%1 has no %2").arg(module.fileName(), QLatin1String(kSoundEntryName))
                       : module.errorString();
    }
    base::logLine("Failed to load the sound module: ", reasons.join(QStringLiteral("; ")).toStdString());
    return nullptr;
}

} // namespace

AudioDeviceFactory soundModule(const QString& applicationFolder) {
    // Absolute paths only: the system's own search must not find another module of this name.
    const QStringList folders{applicationFolder, applicationFolder + QStringLiteral("/../lib/mediaworker")};
    return [folders, entry = std::optional<SoundEntry>()](
               const PcmFormat& format) mutable -> std::unique_ptr<AudioDevice> {
        if (!entry) {
            restorePluginFolders(); // Qt's connections to the systems of sound are plugins
            entry = loadEntry(folders);
        }
        return std::unique_ptr<AudioDevice>(*entry == nullptr ? nullptr : (*entry)(&format));
    };
}
