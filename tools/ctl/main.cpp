#include "tools/ctl/Arguments.h"
#include "tools/ctl/Console.h"
#include "tools/ctl/Player.h"
#include "tools/ctl/Recorder.h"
#include "tools/ctl/standard_output.h"
#include "tools/interruption/Interruption.h"

#include <QCoreApplication>
#include <QDir>
#include <QEventLoop>

#include <cstdio>
#include <exception>

namespace {

using namespace mediaworker::ctl;
using mediaworker::Interruption;

constexpr int kDone = 0;
constexpr int kNotDone = 1;
constexpr int kWrongUsage = 2;
constexpr int kCutShort = 3;

template <class Job, class JobCommand>
int run(const JobCommand& command) {
    Console console(command.isJson);
    Interruption interruption;
    Job job(command, console);
    QObject::connect(&interruption, &Interruption::requested, &job, &Job::interrupt);
    QEventLoop loop;
    int status = kNotDone;
    // Queued: the job may be over before the loop runs.
    QObject::connect(
        &job, &Job::done, &loop,
        [&](const QString& problem, bool isCutShort) {
            status = !problem.isEmpty() ? kNotDone : isCutShort ? kCutShort : kDone;
            if (!problem.isEmpty()) {
                console.complain(problem);
            }
            loop.quit();
        },
        Qt::QueuedConnection);
    job.start();
    loop.exec();
    return console.isBroken() ? kNotDone : status;
}

int carryOut(const PlayCommand& command) {
    return run<Player>(command);
}

int carryOut(const ExportCommand& command) {
    return run<Recorder>(command);
}

int carryOut(const Information& information) {
    std::fputs(information.text.toUtf8().constData(), stdout);
    return std::fflush(stdout) == 0 ? kDone : kNotDone;
}

int carryOut(const Misuse& misuse) {
    std::fprintf(stderr, "mediaworker-ctl: %s\nTry: mediaworker-ctl %s\n", misuse.why.toUtf8().constData(),
                 misuse.help.toUtf8().constData());
    return kWrongUsage;
}

} // namespace

int main(int argc, char** argv) {
    try {
        const QCoreApplication application(argc, argv);
        standard_output::prepare();
        const Command command = parseArguments(QCoreApplication::arguments(), QDir::currentPath());
        return std::visit([](const auto& kind) { return carryOut(kind); }, command);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "mediaworker-ctl: %s\n", e.what());
        return kNotDone;
    }
}
