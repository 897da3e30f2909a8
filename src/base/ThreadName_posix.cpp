#include "base/ThreadName.h"

#include <pthread.h>

namespace base {

void setThreadName(const char* name) noexcept {
    pthread_setname_np(pthread_self(), name);
}

} // namespace base
