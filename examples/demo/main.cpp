#include "Camera.h"
#include "Session.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>

#include <cstdio>
#include <exception>
#include <memory>

namespace {

constexpr int kDefaultSeconds = 8;
// What the camera films beyond that: the worker's start and its buffering.
constexpr int kSpareSeconds = 4;

} // namespace

int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Plays a stream in a worker process, without display or sound device: tells how it goes, and "
        "saves a few pictures.\nWithout a URL it films a moving test picture and serves it itself."));
    parser.addHelpOption();
    const QCommandLineOption secondsOption(QStringLiteral("seconds"), QStringLiteral("How long to watch."),
                                           QStringLiteral("N"), QString::number(kDefaultSeconds));
    const QCommandLineOption picturesOption(QStringLiteral("pictures"),
                                            QStringLiteral("The folder for the pictures."),
                                            QStringLiteral("folder"), QStringLiteral("demo-pictures"));
    const QCommandLineOption workerOption(
        QStringLiteral("worker"), QStringLiteral("The worker's program file."), QStringLiteral("file"));
    const QCommandLineOption soundOption(QStringLiteral("sound"), QStringLiteral("Play the sound as well."));
    parser.addOptions({secondsOption, picturesOption, workerOption, soundOption});
    parser.addPositionalArgument(QStringLiteral("URL"), QStringLiteral("An FLV stream, or file:///path."),
                                 QStringLiteral("[URL]"));
    parser.process(application);

    mediaworker::demo::SessionOptions options;
    options.seconds = parser.value(secondsOption).toInt();
    options.picturesFolder = QDir(parser.value(picturesOption)).absolutePath();
    options.program = parser.value(workerOption);
    options.hasSound = parser.isSet(soundOption);
    options.url = parser.positionalArguments().value(0);
    if (options.seconds < 1 || options.seconds > 3600 || parser.positionalArguments().size() > 1) {
        std::fprintf(stderr, "%s", qUtf8Printable(parser.helpText()));
        return 2;
    }
    try {
        std::unique_ptr<mediaworker::demo::Camera> camera;
        if (options.url.isEmpty()) {
            std::printf("filming %d seconds of a test picture\n", options.seconds + kSpareSeconds);
            std::fflush(stdout);
            camera = std::make_unique<mediaworker::demo::Camera>(
                std::chrono::seconds(options.seconds + kSpareSeconds));
            options.url = camera->url();
            options.filmedMs = [&camera] { return camera->filmedMs(); };
            options.frameNumberAt = &mediaworker::demo::Camera::frameNumberAt;
        }
        std::printf("playing %s for %d seconds\n", qUtf8Printable(options.url), options.seconds);
        std::fflush(stdout);
        mediaworker::demo::Session session(options);
        QObject::connect(
            &session, &mediaworker::demo::Session::done, &session,
            [](int status) { QCoreApplication::exit(status); }, Qt::QueuedConnection);
        session.start();
        return QCoreApplication::exec();
    } catch (const std::exception& e) {
        std::fprintf(stderr, "FAILED: %s\n", e.what());
        return 1;
    }
}
