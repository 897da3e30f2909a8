#include "sandbox/Confine.h"

#include "sandbox/Landlock_linux.h"
#include "sandbox/SystemCalls_linux.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <link.h>
#include <sys/prctl.h>

namespace sandbox {
namespace {

int takeFolder(dl_phdr_info* library, std::size_t /*size*/, void* folders) {
    auto& known = *static_cast<std::vector<std::string>*>(folders);
    const std::string_view file = library->dlpi_name == nullptr ? "" : library->dlpi_name;
    const std::size_t slash = file.find_last_of('/');
    if (slash != std::string_view::npos && slash != 0) {
        const std::string_view folder = file.substr(0, slash);
        if (std::find(known.begin(), known.end(), folder) == known.end()) {
            known.emplace_back(folder);
        }
    }
    return 0;
}

} // namespace

Surroundings surroundings() {
    Surroundings result;
    ::dl_iterate_phdr(takeFolder, &result.libraryFolders);
    for (const char* name : variablesOfInterest()) {
        if (const char* value = std::getenv(name)) {
            result.variables.emplace(name, value);
        }
    }
    return result;
}

std::vector<std::string> confine(const Needs& needs) {
    if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) {
        return {std::string("no_new_privs (").append(std::strerror(errno)).append(")")};
    }
    std::vector<std::string> missing;
    for (const auto& obstacle : {restrictPaths(needs), restrictSystemCalls(needs)}) {
        if (obstacle) {
            missing.push_back(*obstacle);
        }
    }
    return missing;
}

} // namespace sandbox
