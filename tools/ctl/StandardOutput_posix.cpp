#include "tools/ctl/standard_output.h"

#include <unistd.h>

namespace mediaworker::ctl::standard_output {

void prepare() {
    // Terminals speak UTF-8.
}

bool isTerminal() {
    return ::isatty(STDOUT_FILENO) == 1;
}

} // namespace mediaworker::ctl::standard_output
