#include "app/ApplicationProxy.h"
#include "app/CommandLine.h"
#include "app/fault_guard.h"
#include "player/ff_wrap/Avcodec.h"
#include "player/ff_wrap/FfmpegLog.h"
#include "record/control/FfpExport.h"
#include "stream/ExitCodes.h"
#include "stream/FfpStream.h"

#include <QCoreApplication>
#include <QNetworkProxy>

#include <exception>
#include <thread>
#include <variant>

namespace {

/// Whoever needs a codec first meets the same failure, and reports it where it matters.
void loadCodecs() {
    try {
        static_cast<void>(ko_player::ff_wrap::avcodec());
    } catch (const std::exception&) { // NOLINT(bugprone-empty-catch)
    }
}

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
    const std::jthread codecLoader(loadCodecs);
    const QCoreApplication application(argc, argv);
    return std::visit([](const auto& command) { return run(command); }, parseCommandLine(argc, argv));
}
