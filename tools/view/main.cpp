#include "tools/interruption/Interruption.h"
#include "tools/view/DisplayGuard.h"
#include "tools/view/ViewerMemory.h"
#include "tools/view/ViewerOptions.h"
#include "tools/view/ViewerWindow.h"

#include <QApplication>
#include <QDir>
#include <QIcon>
#include <QTimer>

#include <cstdio>
#include <optional>
#include <utility>

namespace {

using namespace mediaworker::view;

constexpr int kUsageError = 2;

/// With an application object of its own, since texts and complaints must not need a display.
ViewerOptions readArguments(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    return parseArguments(QCoreApplication::arguments(), QDir::currentPath());
}

int printText(const ViewerOptions& options) {
    switch (options.action) {
    case ViewerOptions::Action::Show:
        break;
    case ViewerOptions::Action::PrintHelp:
        std::printf("%s", qUtf8Printable(options.text));
        return 0;
    case ViewerOptions::Action::PrintVersion:
        std::printf("mediaworker-view %s\n", qUtf8Printable(QCoreApplication::applicationVersion()));
        return 0;
    case ViewerOptions::Action::Refuse:
        break;
    }
    std::fprintf(stderr, "mediaworker-view: %s Try --help.\n", qUtf8Printable(options.text));
    return kUsageError;
}

int show(const ViewerOptions& options) {
    // Before the first worker. A frame file and a semaphore go with their window, so it is closed as by hand.
    const mediaworker::Interruption interruption;
    ViewerWindow window(options.streams, options.snapshotFolder);
    QObject::connect(&interruption, &mediaworker::Interruption::requested, &window,
                     &ViewerWindow::closeUnattended);
    if (options.remembers) {
        window.setMemory(memoryFile());
    }
    for (const StreamSource& stream : options.playlist) {
        window.add(stream.url, stream.name);
    }
    for (const QString& url : options.urls) {
        window.add(url);
    }
    if (window.views().empty()) {
        window.add({});
    }
    window.choose(window.views().front());
    window.show();
    // Without a window manager nobody else does.
    window.activateWindow();
    if (options.seconds > 0) {
        QTimer::singleShot(options.seconds * 1000, &window, &ViewerWindow::closeUnattended);
    }
    const int status = QApplication::exec();
    if (options.printsStatistics) {
        for (const QString& line : window.statistics()) {
            std::printf("%s\n", qUtf8Printable(line));
        }
    }
    return status;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication::setApplicationName(QStringLiteral("mediaworker-view"));
    QCoreApplication::setApplicationVersion(QStringLiteral(MEDIAWORKER_VERSION));
    // So that a desktop knows whose windows these are.
    QGuiApplication::setDesktopFileName(QStringLiteral("mediaworker-view"));
    const ViewerOptions options = readArguments(argc, argv);
    if (options.action != ViewerOptions::Action::Show) {
        return printText(options);
    }
    std::optional<DisplayGuard> guard(std::in_place);
    const QApplication application(argc, argv);
    guard.reset();
    QApplication::setWindowIcon(QIcon::fromTheme(QStringLiteral("mediaworker-view")));
    return show(options);
}
