#include "DieAtOnce.h"

#include <csignal>

#include <unistd.h>

void dieAtOnce() {
    kill(getpid(), SIGKILL);
}
