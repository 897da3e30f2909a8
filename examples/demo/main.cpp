#include "Camera.h"
#include "PictureCheck.h"

#include <QCommandLineParser>
#include <QCoreApplication>

#include <cstdio>
#include <exception>

namespace {

using namespace mediaworker::demo;

/// Until nobody writes to us any more: whoever started the camera closes its standard input, or dies.
void waitForEndOfInput() {
    while (std::getchar() != EOF) {
    }
}

int serve(int seconds) {
    const Camera camera{std::chrono::seconds(seconds)};
    std::printf("%s\n%s\n", qUtf8Printable(camera.url()), qUtf8Printable(camera.archiveUrl()));
    std::fflush(stdout);
    waitForEndOfInput();
    return 0;
}

int check(const QString& folder) {
    int checked = 0;
    const QStringList wrong = wrongPictures(folder, checked);
    for (const QString& line : wrong) {
        std::fprintf(stderr, "%s\n", qUtf8Printable(line));
    }
    std::printf("checked %d pictures: %s\n", checked,
                wrong.isEmpty() ? "each is whole and in its place" : "some are wrong");
    return wrong.isEmpty() && checked > 0 ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("A camera for scripts/demo: films a moving, numbered test picture with a tone, and "
                       "serves it on a free port.\n"
                       "Prints the URL of the live stream and that of an archive of its first seconds, and "
                       "serves until its standard input ends."));
    parser.addHelpOption();
    const QCommandLineOption secondsOption(QStringLiteral("seconds"), QStringLiteral("Length of the film."),
                                           QStringLiteral("N"), QStringLiteral("10"));
    const QCommandLineOption checkOption(
        QStringLiteral("check"),
        QStringLiteral("Do not serve, but check the pictures of the film that mediaworker-ctl has saved into "
                       "this folder."),
        QStringLiteral("DIR"));
    parser.addOptions({secondsOption, checkOption});
    parser.process(application);

    const int seconds = parser.value(secondsOption).toInt();
    if (seconds < 1 || seconds > 3600 || !parser.positionalArguments().isEmpty()) {
        std::fprintf(stderr, "%s", qUtf8Printable(parser.helpText()));
        return 2;
    }
    try {
        return parser.isSet(checkOption) ? check(parser.value(checkOption)) : serve(seconds);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "FAILED: %s\n", e.what());
        return 1;
    }
}
