#include "die_at_once.h"

#include <csignal>

#include <unistd.h>

void dieAtOnce() {
    kill(getpid(), SIGKILL);
}
