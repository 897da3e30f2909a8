// Runs a program, and writes a line with its exit code into a file.
//
//   witness CODE_FILE PROGRAM ARGUMENT...
#include <QCoreApplication>
#include <QFile>
#include <QProcess>

#include <cstdlib>

int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    QStringList command = QCoreApplication::arguments().mid(1);
    if (command.size() < 2) {
        return EXIT_FAILURE;
    }
    QFile file(command.takeFirst());
    const QString program = command.takeFirst();
    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedChannels);
    process.start(program, command);
    process.waitForFinished(-1);
    const bool written =
        file.open(QIODevice::WriteOnly) && file.write(QByteArray::number(process.exitCode()) + '\n') > 0;
    return written ? EXIT_SUCCESS : EXIT_FAILURE;
}
