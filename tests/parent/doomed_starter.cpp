// A parent whose worker never connects, until somebody kills it.
//
//   doomed_starter WORKER SCRIPT
//
// Prints the worker's process id.
#include "parent/WorkerProcess.h"

#include <QCoreApplication>

#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv) {
    if (argc != 3) {
        return EXIT_FAILURE;
    }
    const QCoreApplication application(argc, argv);
    mediaworker::parent::WorkerProcess worker;
    worker.setProgram(QString::fromLocal8Bit(argv[1]));
    mediaworker::parent::StreamJob job;
    job.url = QString::fromLocal8Bit(argv[2]);
    if (!worker.start(job)) {
        return EXIT_FAILURE;
    }
    // The worker says so: it is itself by now.
    QObject::connect(&worker, &mediaworker::parent::WorkerProcess::logLine, [&] {
        std::printf("%lld\n", static_cast<long long>(worker.processId()));
        std::fflush(stdout);
    });
    return QCoreApplication::exec();
}
