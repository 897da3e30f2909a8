// What a worker writes to its standard error, as the parent's library reads it: lines, what they tell about
// failures, and which commands the worker took. The first byte chooses how the rest is cut into pieces.

#include "parent/CommandQueue.h"
#include "parent/ExitReason.h"
#include "parent/LineSplitter.h"
#include "parent/MaskedUrls.h"
#include "parent/Problem.h"
#include "parent/WorkerFindings.h"

#include <algorithm>
#include <cstdlib>

namespace {

using namespace mediaworker::parent;

void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

/// A text for people: one line, of a length that can be shown.
void requirePlain(const QString& text) {
    constexpr int kLongest = 4096;
    require(text.size() <= kLongest && !text.contains(QLatin1Char('\n')));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::size_t pieceSize = std::size_t{1} + bytes[0];
    LineSplitter splitter;
    WorkerFindings findings;
    CommandQueue commands;
    CommandQueue::TimePoint now{};
    const auto take = [&](const QByteArray& line) {
        require(line.size() <= LineSplitter::kMaxLineBytes && !line.contains('\n'));
        const QString text = QString::fromUtf8(line);
        const QString masked = maskedUrls(text);
        require(maskedUrls(masked) == masked);
        findings.take(text, line.size() % 2 == 0);
        static_cast<void>(commands.pushPause());
        if (!line.isEmpty()) {
            commands.acknowledged(static_cast<std::uint8_t>(line.back()));
        }
        now += std::chrono::milliseconds(line.size());
        static_cast<void>(commands.take(now));
        require(commands.waiting() <= CommandQueue::kCapacity);
    };
    for (std::size_t offset = 1; offset < size; offset += pieceSize) {
        const std::size_t count = std::min(pieceSize, size - offset);
        splitter.feed(QByteArray(reinterpret_cast<const char*>(bytes + offset), static_cast<int>(count)),
                      take);
    }
    splitter.finish(take);
    for (const WorkerMode mode : {WorkerMode::Stream, WorkerMode::LocalFile, WorkerMode::Export}) {
        for (int code = 0; code <= 5; ++code) {
            requirePlain(exitReason(mode, code, false, findings));
            requirePlain(problemOf(mode, code, code % 2 == 1, findings).networkError);
            require(!exitCauseName(exitCause(mode, code, false, findings)).isEmpty());
        }
    }
    requirePlain(findings.httpReason);
    requirePlain(findings.networkErrorText);
    requirePlain(findings.picturesUnavailable);
    requirePlain(findings.soundUnavailable);
    requirePlain(findings.streamError);
    requirePlain(findings.writeError);
    requirePlain(findings.otherFailure);
    return 0;
}
