#include "sound/PluginFolders.h"

#include <QCoreApplication>
#include <QStringList>

#include <mutex>
#include <utility>

namespace {

std::mutex mutex;
QStringList hiddenFolders; ///< guarded by mutex

} // namespace

void hidePluginFolders() {
    const std::lock_guard lock(mutex);
    hiddenFolders = QCoreApplication::libraryPaths();
    QCoreApplication::setLibraryPaths({});
}

void restorePluginFolders() {
    const std::lock_guard lock(mutex);
    if (!hiddenFolders.isEmpty()) {
        QCoreApplication::setLibraryPaths(std::exchange(hiddenFolders, {}));
    }
}
