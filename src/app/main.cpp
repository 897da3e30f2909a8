#include "app/ApplicationProxy.h"
#include "app/CommandLine.h"
#include "app/FaultGuard.h"
#include "export/FfpExport.h"
#include "ffmpeg/FfmpegLog.h"
#include "sound/PluginFolders.h"
#include "stream/ExitCodes.h"
#include "stream/FfpStream.h"

#include <QCoreApplication>
#include <QNetworkProxy>

#include <variant>

namespace {

int run(const StreamCommand& command) {
    if (command.proxy) {
        QNetworkProxy::setApplicationProxy(toNetworkProxy(*command.proxy));
    }
    const FfpStream stream(command.url, command.channelName, command.serverName);
    return QCoreApplication::exec();
}

int run(const ExportCommand& command) {
    const FfpExport recording(command.url, command.outputPath, command.durationMs, command.serverName);
    return QCoreApplication::exec();
}

} // namespace

int main(int argc, char** argv) {
    if (!hasEnoughArguments(argc)) {
        return exit_code::kFailure;
    }
    fault_guard::silenceFaultDialogs();
    fault_guard::installCrashFilter();
    ko_player::ff_wrap::installFfmpegLog();
    const QCoreApplication application(argc, argv);
    hidePluginFolders();
    return std::visit([](const auto& command) { return run(command); }, parseCommandLine(argc, argv));
}
