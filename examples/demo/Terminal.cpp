#include "Terminal.h"

#include <cstdio>

#include <unistd.h>

namespace mediaworker::demo::terminal {

namespace {

bool lineIsOpen = false; ///< the cursor stands behind a progress line; main thread only

bool isTerminal() {
    return isatty(STDOUT_FILENO) == 1;
}

} // namespace

int progressIntervalMs() {
    return isTerminal() ? 200 : 1000;
}

void showProgress(const QString& line) {
    if (isTerminal()) {
        std::printf("\r  %s", qUtf8Printable(line));
        lineIsOpen = true;
    } else {
        std::printf("  %s\n", qUtf8Printable(line));
    }
    std::fflush(stdout);
}

void printLine(const QString& text) {
    std::printf("%s%s\n", lineIsOpen ? "\n" : "", qUtf8Printable(text));
    std::fflush(stdout);
    lineIsOpen = false;
}

} // namespace mediaworker::demo::terminal
