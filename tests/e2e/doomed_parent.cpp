// A parent that plays a stream until somebody kills it.
//
//   doomed_parent WORKER URL WITNESS CODE_FILE [holding]
//
// WITNESS runs the worker, and CODE_FILE gets its exit code. When pictures come, a line with the names of the
// frame channel and the server is printed; "holding" takes the semaphore before that, and never gives it
// back.
#include "parent/WorkerProcess.h"

#include <QCoreApplication>

#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv) {
    if (argc != 5 && argc != 6) {
        return EXIT_FAILURE;
    }
    const bool isHolding = argc == 6;
    const QCoreApplication application(argc, argv);
    mediaworker::parent::WorkerProcess worker;
    worker.setProgram(QString::fromLocal8Bit(argv[1]));
    // It outlives this process, and is told how the worker ends.
    worker.setProgramPrefix({QString::fromLocal8Bit(argv[3]), QString::fromLocal8Bit(argv[4])});
    int frames = 0;
    mediaworker::parent::FrameChannel::Hold hold;
    QObject::connect(&worker, &mediaworker::parent::WorkerProcess::frame, [&] {
        if (++frames == 5) {
            if (isHolding) {
                hold = worker.frames()->hold();
            }
            std::printf("%s %s\n", qPrintable(worker.frames()->name()), qPrintable(worker.serverName()));
            std::fflush(stdout);
        }
    });
    mediaworker::parent::StreamJob job;
    job.url = QString::fromLocal8Bit(argv[2]);
    return worker.start(job) ? QCoreApplication::exec() : EXIT_FAILURE;
}
