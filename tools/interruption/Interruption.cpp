#include "tools/interruption/Interruption.h"

namespace mediaworker {

namespace {

/// What sends a signal to a process and to its group (as timeout(1) does) means it once. Nobody presses
/// Ctrl-C twice in that time.
constexpr qint64 kSameRequestMs = 300;

} // namespace

void Interruption::hear() {
    if (heard_.isValid() && heard_.elapsed() < kSameRequestMs) {
        return;
    }
    heard_.start();
    Q_EMIT requested();
}

} // namespace mediaworker
