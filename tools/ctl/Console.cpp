#include "tools/ctl/Console.h"

#include "tools/ctl/standard_output.h"

#include <cstdio>
#include <utility>

namespace mediaworker::ctl {

Console::Console(bool isJson) : isJson_(isJson), isLive_(!isJson && standard_output::isTerminal()) {}

std::chrono::milliseconds Console::progressInterval() const {
    return std::chrono::milliseconds(isLive_ ? 200 : 1000);
}

void Console::report(const Event& event) {
    if (isJson_) {
        print(toJson(event) + '\n');
        return;
    }
    const QString text = toText(event, isLive_ ? ProgressForm::Bar : ProgressForm::Line);
    if (isLive_ && isProgress(event)) {
        // Spaces wipe out what is left of a longer line.
        print('\r' + text.leftJustified(openLineLength_).toUtf8());
        openLineLength_ = text.size();
        return;
    }
    endOpenLine();
    if (!text.isEmpty()) {
        print(text.toUtf8() + '\n');
    }
}

void Console::complain(const QString& problem) {
    endOpenLine();
    std::fprintf(stderr, "mediaworker-ctl: %s\n", problem.toUtf8().constData());
}

void Console::log(const QString& line) {
    endOpenLine();
    std::fprintf(stderr, "%s\n", line.toUtf8().constData());
}

void Console::endOpenLine() {
    if (std::exchange(openLineLength_, 0) > 0) {
        print("\n");
    }
}

void Console::print(const QByteArray& text) {
    const auto size = static_cast<std::size_t>(text.size());
    if (std::fwrite(text.constData(), 1, size, stdout) != size || std::fflush(stdout) != 0) {
        isBroken_ = true;
    }
}

} // namespace mediaworker::ctl
