#include "Camera.h"
#include "Export.h"
#include "Session.h"
#include "Terminal.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QEventLoop>

#include <cstdio>
#include <exception>
#include <memory>

namespace {

using namespace mediaworker::demo;

constexpr int kDefaultSeconds = 6;
// What the camera films beyond that: the worker's start and its buffering.
constexpr int kSpareSeconds = 4;
constexpr int kFileSeconds = 3; // of the exported file

/// Carries out one part of the demo; gives its exit status.
template <class Part>
int run(Part& part) {
    QEventLoop loop;
    int result = 1;
    // Queued: the part may be done before the loop runs.
    QObject::connect(
        &part, &Part::done, &loop,
        [&](int exitStatus) {
            result = exitStatus;
            loop.quit();
        },
        Qt::QueuedConnection);
    part.start();
    loop.exec();
    return result;
}

struct Demo {
    SessionOptions stream;
    QString exportUrl; ///< empty: there is nothing to export

    [[nodiscard]] int play() const;
};

int Demo::play() const {
    terminal::printLine(QStringLiteral("playing %1 for %2 seconds").arg(stream.url).arg(stream.seconds));
    Session session(stream);
    if (const int status = run(session); status != 0) {
        return status;
    }
    if (exportUrl.isEmpty()) {
        terminal::printLine(QStringLiteral("\nno export: a local file is not a stream"));
        return 0;
    }

    ExportOptions exportOptions;
    exportOptions.url = exportUrl;
    exportOptions.durationMs = static_cast<int>(Camera::kRecordedMs);
    exportOptions.file = QDir(stream.picturesFolder).filePath(QStringLiteral("export.mp4"));
    exportOptions.program = stream.program;
    terminal::printLine(QStringLiteral("\nexporting %1").arg(exportUrl));
    Export recording(exportOptions);
    if (const int status = run(recording); status != 0) {
        return status;
    }

    SessionOptions file;
    file.url = QStringLiteral("file://") + exportOptions.file;
    file.seconds = kFileSeconds;
    file.picturesFolder = stream.picturesFolder;
    file.snapshotName = QStringLiteral("file");
    file.snapshots = 1;
    file.program = stream.program;
    file.frameNumberAt = stream.frameNumberAt;
    terminal::printLine(QStringLiteral("\nplaying %1 for %2 seconds").arg(file.url).arg(file.seconds));
    Session fileSession(file);
    return run(fileSession);
}

} // namespace

int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Plays a stream in a worker process, without display or sound device: tells how it goes, and "
        "saves a few pictures.\nThen exports some seconds of it to an MP4 file, and plays that file.\n"
        "Without a URL it films a moving test picture and serves it itself."));
    parser.addHelpOption();
    const QCommandLineOption secondsOption(QStringLiteral("seconds"), QStringLiteral("How long to watch."),
                                           QStringLiteral("N"), QString::number(kDefaultSeconds));
    const QCommandLineOption picturesOption(QStringLiteral("pictures"),
                                            QStringLiteral("The folder for the pictures and the MP4 file."),
                                            QStringLiteral("folder"), QStringLiteral("demo-pictures"));
    const QCommandLineOption workerOption(
        QStringLiteral("worker"), QStringLiteral("The worker's program file."), QStringLiteral("file"));
    const QCommandLineOption soundOption(QStringLiteral("sound"), QStringLiteral("Play the sound as well."));
    parser.addOptions({secondsOption, picturesOption, workerOption, soundOption});
    parser.addPositionalArgument(QStringLiteral("URL"), QStringLiteral("An FLV stream, or file:///path."),
                                 QStringLiteral("[URL]"));
    parser.process(application);

    Demo demo;
    demo.stream.seconds = parser.value(secondsOption).toInt();
    demo.stream.picturesFolder = QDir(parser.value(picturesOption)).absolutePath();
    demo.stream.program = parser.value(workerOption);
    demo.stream.hasSound = parser.isSet(soundOption);
    demo.stream.url = parser.positionalArguments().value(0);
    if (demo.stream.seconds < 1 || demo.stream.seconds > 3600 || parser.positionalArguments().size() > 1) {
        std::fprintf(stderr, "%s", qUtf8Printable(parser.helpText()));
        return 2;
    }
    try {
        std::unique_ptr<Camera> camera;
        if (demo.stream.url.isEmpty()) {
            const int filmSeconds = demo.stream.seconds + kSpareSeconds;
            terminal::printLine(QStringLiteral("filming %1 seconds of a test picture").arg(filmSeconds));
            camera = std::make_unique<Camera>(std::chrono::seconds(filmSeconds));
            demo.stream.url = camera->url();
            demo.stream.filmedMs = [&camera] { return camera->filmedMs(); };
            demo.stream.frameNumberAt = &Camera::frameNumberAt;
            demo.exportUrl = camera->archiveUrl();
        } else if (!demo.stream.url.startsWith(QStringLiteral("file"))) {
            demo.exportUrl = demo.stream.url;
        }
        return demo.play();
    } catch (const std::exception& e) {
        std::fprintf(stderr, "FAILED: %s\n", e.what());
        return 1;
    }
}
