#include "app/Confinement.h"

#include "base/ImmediateExit.h"
#include "base/Log.h"
#include "sandbox/Confine.h"
#include "stream/ExitCodes.h"
#include "stream/LocalPath.h"
#include "stream/StreamTiming.h"

#include <QCoreApplication>
#include <QFile>

sandbox::Work workOf(const StreamCommand& command) {
    using Kind = sandbox::Work::Kind;
    if (streamTiming(command.url, ko_player::BufferingPolicy::ByUrl).isHttp) {
        return {Kind::Stream};
    }
    // What is not said to be a file may be one all the same, or a stream of FFmpeg's protocols.
    const bool isFile = command.url.startsWith(QLatin1String("file"));
    return {isFile ? Kind::LocalFile : Kind::Stream, localPath(command.url)};
}

sandbox::Work workOf(const ExportCommand& command) {
    return {sandbox::Work::Kind::Export, command.outputPath.toUtf8().toStdString()};
}

void confineTo(const sandbox::Work& work, ko_player::SandboxPolicy policy) {
    if (policy == ko_player::SandboxPolicy::Off) {
        return;
    }
    sandbox::Surroundings surroundings = sandbox::surroundings();
    surroundings.programFolder = QFile::encodeName(QCoreApplication::applicationDirPath()).toStdString();
    std::string missing;
    for (const std::string& what : sandbox::confine(sandbox::neededBy(work, surroundings))) {
        missing.append(missing.empty() ? "" : "; ").append(what);
    }
    if (missing.empty()) {
        return;
    }
    base::logLine("sandbox: this system does not have ", missing);
    if (policy == ko_player::SandboxPolicy::Required) {
        base::logLine("sandbox is required, exit");
        base::exitNow(exit_code::kFailure);
    }
}
