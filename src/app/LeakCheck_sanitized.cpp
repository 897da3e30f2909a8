// Only in builds with sanitizers.

#include <sys/prctl.h>

/// The leak check looks at the process from a second one, which a confined worker may not start.
extern "C" int __lsan_is_turned_off(); // NOLINT(bugprone-reserved-identifier)
extern "C" int __lsan_is_turned_off() {
    return ::prctl(PR_GET_NO_NEW_PRIVS, 0, 0, 0, 0) == 1 ? 1 : 0;
}
