#pragma once

#include <map>
#include <string>
#include <vector>

/// What a worker may do once it is confined: its work, and nothing else.
namespace sandbox {

/// What the process is there for.
struct Work {
    enum class Kind {
        Stream,    ///< plays what comes over the network
        LocalFile, ///< plays a file; needs no network
        Export,    ///< records what comes over the network, without sound
    };
    Kind kind = Kind::Stream;
    std::string file = {}; ///< the one that is read, of an export the one that is written; empty: none
};

/// Where the process runs.
struct Surroundings {
    std::string programFolder;
    std::vector<std::string> libraryFolders; ///< of the libraries that it has loaded
    std::map<std::string, std::string>
        variables; ///< its environment, as far as sound and libraries look at it
};

/// The variables that neededBy() asks for.
[[nodiscard]] const std::vector<const char*>& variablesOfInterest();

enum class Access {
    Read,        ///< a file, or a folder with all that is below
    ReadWrite,   ///< the same, and files are written
    Device,      ///< the same, and spoken to (ioctl)
    Output,      ///< one file is written; it is made, empty, where there is none
    SharedFiles, ///< files come and go in a folder, which other programs share
};

struct PathRule {
    std::string path; ///< left out where it does not exist
    Access access = Access::Read;

    friend bool operator==(const PathRule&, const PathRule&) = default;
};

/// What is let in. Everything else is refused.
struct Needs {
    std::vector<PathRule> paths;
    bool network = true; ///< beside sockets within the machine
};

[[nodiscard]] Needs neededBy(const Work& work, const Surroundings& surroundings);

} // namespace sandbox
