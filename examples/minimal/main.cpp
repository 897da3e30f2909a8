// Plays URL in a worker and saves its 25th picture:  minimal URL FILE.png
#include <mediaworker/parent/WorkerProcess.h>

#include <QCoreApplication>
#include <QTextStream>

using namespace mediaworker::parent;

int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    QTextStream out(stdout);
    WorkerProcess worker;
    int pictures = 0;
    QObject::connect(&worker, &WorkerProcess::frame, [&](qint64 ptsMs) {
        const auto picture = worker.frames()->read(); // a QImage, or nothing
        if (picture && ++pictures == 25) {
            out << picture->width() << "x" << picture->height() << " at " << ptsMs << " ms" << Qt::endl;
            QCoreApplication::exit(picture->save(arguments.value(2)) ? 0 : 1);
        }
    });
    QObject::connect(&worker, &WorkerProcess::finished, [&](int exitCode, bool crashed) {
        out << exitReason(worker.mode(), exitCode, crashed, worker.findings()) << Qt::endl;
        QCoreApplication::exit(1);
    });
    QObject::connect(&worker, &WorkerProcess::startFailed, [&](const QString& why) {
        out << why << Qt::endl;
        QCoreApplication::exit(1);
    });
    return worker.start(StreamJob{arguments.value(1)}) ? QCoreApplication::exec() : 1;
}
