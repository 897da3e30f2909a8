#include "app/ApplicationProxy.h"
#include "app/CommandLine.h"
#include "app/Confinement.h"
#include "app/FaultGuard.h"
#include "app/QtMessages.h"
#include "base/Log.h"
#include "export/FfpExport.h"
#include "player/Engine.h"
#include "records/Options.h"
#include "sound/PluginFolders.h"
#include "stream/ExitCodes.h"
#include "stream/FfpStream.h"

#include <QCoreApplication>
#include <QNetworkProxy>

#include <variant>

namespace {

int run(const StreamCommand& command, const ko_player::Options& options) {
    if (command.proxy) {
        QNetworkProxy::setApplicationProxy(toNetworkProxy(*command.proxy));
    }
    const FfpStream stream(command.url, command.channelName, command.serverName, options,
                           [&] { confineTo(workOf(command), options.sandbox); });
    return QCoreApplication::exec();
}

int run(const ExportCommand& command, const ko_player::Options& options) {
    confineTo(workOf(command), options.sandbox);
    const FfpExport recording(command.url, command.outputPath, command.durationMs, command.serverName,
                              options);
    return QCoreApplication::exec();
}

ko_player::Options requestedOptions() {
    const ko_player::ParsedOptions parsed =
        ko_player::parseOptions(qgetenv(ko_player::kOptionsVariable).toStdString());
    for (const std::string& line : parsed.complaints) {
        base::logLine(line);
    }
    return parsed.options;
}

} // namespace

int main(int argc, char** argv) {
    if (!hasEnoughArguments(argc)) {
        return exit_code::kFailure;
    }
    fault_guard::silenceFaultDialogs();
    fault_guard::installCrashFilter();
    ko_player::installEngineLog();
    installQtMessages();
    const QCoreApplication application(argc, argv);
    hidePluginFolders();
    return std::visit([options = requestedOptions()](const auto& command) { return run(command, options); },
                      parseCommandLine(argc, argv));
}
