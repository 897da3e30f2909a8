#include "Table.h"

#include <cstdlib>
#include <iostream>

namespace mediaworker::bench {

void row(const char* what, const std::string& measured, const std::string& bound, bool kept) {
    std::printf("| %s | %s | %s | %s |\n", what, measured.c_str(), bound.c_str(), kept ? "yes" : "NO");
    std::fflush(stdout);
}

void fail(const std::string& what) {
    std::cerr << "bench: " << what << '\n';
    std::exit(1);
}

} // namespace mediaworker::bench
