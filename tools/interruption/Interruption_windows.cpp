#include "tools/interruption/Interruption.h"

#include <windows.h>

namespace mediaworker {

namespace {

Interruption* listener = nullptr; ///< set while no handler is installed

// Called on a thread that the system makes for it.
BOOL WINAPI onControlEvent(DWORD event) {
    if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) {
        return FALSE;
    }
    QMetaObject::invokeMethod(listener, "hear", Qt::QueuedConnection);
    return TRUE;
}

} // namespace

struct Interruption::Platform {};

Interruption::Interruption() {
    listener = this;
    SetConsoleCtrlHandler(onControlEvent, TRUE);
}

Interruption::~Interruption() {
    SetConsoleCtrlHandler(onControlEvent, FALSE);
    listener = nullptr;
}

// A child inherits whether this process ignores Ctrl-C.
struct Interruption::Shield::State {};

Interruption::Shield::Shield() {
    SetConsoleCtrlHandler(nullptr, TRUE);
}

Interruption::Shield::~Shield() {
    SetConsoleCtrlHandler(nullptr, FALSE);
}

} // namespace mediaworker
