#include "tools/ctl/standard_output.h"

#include <cstdio>

#include <io.h>
#include <windows.h>

namespace mediaworker::ctl::standard_output {

void prepare() {
    SetConsoleOutputCP(CP_UTF8);
}

bool isTerminal() {
    return _isatty(_fileno(stdout)) != 0;
}

} // namespace mediaworker::ctl::standard_output
