#include "sandbox/Needs.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>
#include <utility>

namespace sandbox {
namespace {

struct Known {
    const char* path;
    Access access = Access::Read;
};

/// Libraries and their data, the configuration of the system, and what libraries ask about processor, process
/// and names. Programs lie there as well; they can be read, but not executed.
constexpr std::array kSystem{Known{"/usr"}, Known{"/lib"}, Known{"/lib32"}, Known{"/lib64"}, Known{"/etc"},
                             // where systems keep their libraries that have no /usr/lib
                             Known{"/nix/store"}, Known{"/gnu/store"},
                             // the kernel about itself and this process; nothing of other processes
                             Known{"/proc/self"}, Known{"/proc/cpuinfo"}, Known{"/proc/meminfo"},
                             Known{"/proc/stat"}, Known{"/proc/filesystems"}, Known{"/proc/sys"},
                             Known{"/sys/devices/system"}, Known{"/dev/null", Access::ReadWrite},
                             Known{"/dev/zero", Access::ReadWrite}, Known{"/dev/full", Access::ReadWrite},
                             Known{"/dev/random"}, Known{"/dev/urandom"}};

/// How names are looked up, where that does not lie below /etc.
constexpr std::array kNames{Known{"/etc/resolv.conf"}, // a link to anywhere
                            Known{"/run/systemd/resolve"},
                            Known{"/run/resolvconf"},
                            Known{"/run/NetworkManager/resolv.conf"},
                            Known{"/run/nscd"},
                            Known{"/var/cache/nscd"},
                            Known{"/var/lib/ca-certificates"}};

/// The system's sound, where that does not lie below /usr and /etc.
constexpr std::array kSound{Known{"/dev/snd", Access::Device},
                            Known{"/dev/shm", Access::SharedFiles}, // what clients and server share
                            Known{"/proc/asound"}, Known{"/var/lib/alsa"}, Known{"/var/lib/dbus/machine-id"}};

/// Names below a folder, of the sound's configuration and cookie.
constexpr std::array kSoundInHome{"/.pulse", "/.pulse-cookie", "/.asoundrc"};
constexpr std::array kSoundInConfiguration{"/pulse", "/alsa", "/pipewire"};
/// Variables that name files or folders of the sound server.
constexpr std::array kSoundVariables{"PULSE_COOKIE", "PULSE_CLIENTCONFIG", "PULSE_RUNTIME_PATH",
                                     "PULSE_STATE_PATH", "ALSA_CONFIG_PATH"};

std::string variable(const Surroundings& surroundings, const char* name) {
    const auto found = surroundings.variables.find(name);
    return found == surroundings.variables.end() ? std::string() : found->second;
}

/// Without "." and "..", which the system could not be asked about in a rule that only takes values.
bool isPlain(std::string_view path) {
    return path.starts_with('/') && path.find("/../") == std::string_view::npos && !path.ends_with("/..");
}

bool isBelow(std::string_view path, std::string_view folder) {
    return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

class Collector {
public:
    explicit Collector(const Surroundings& surroundings) : home_(variable(surroundings, "HOME")) {}

    template <std::size_t count>
    void add(const std::array<Known, count>& rules) {
        for (const Known& rule : rules) {
            rules_.push_back({rule.path, rule.access});
        }
    }

    void add(std::string path, Access access = Access::Read) {
        if (!path.empty()) {
            rules_.push_back({std::move(path), access});
        }
    }

    /// A folder that this program was put into, or looks for libraries in. It may be anything: neither the
    /// root nor one that the whole home folder lies in is meant.
    void addFolderOfPrograms(const std::string& path) {
        const bool isKnown = std::any_of(rules_.begin(), rules_.end(), [&](const PathRule& rule) {
            return rule.access == Access::Read && isBelow(path, rule.path);
        });
        if (isPlain(path) && path != "/" && !isKnown && !(isPlain(home_) && isBelow(home_, path))) {
            rules_.push_back({path, Access::Read});
        }
    }

    [[nodiscard]] std::vector<PathRule> take() { return std::move(rules_); }

private:
    const std::string home_;
    std::vector<PathRule> rules_;
};

void addLibraries(Collector& rules, const Surroundings& surroundings) {
    const std::string& program = surroundings.programFolder;
    rules.addFolderOfPrograms(program);
    // The modules of an installed program. Here and in no other place ".." is ours, and says what it means.
    const std::size_t slash = program.find_last_of('/');
    if (slash != std::string::npos && slash != 0) {
        rules.addFolderOfPrograms(program.substr(0, slash) + "/lib/mediaworker");
    }
    for (const std::string& folder : surroundings.libraryFolders) {
        rules.addFolderOfPrograms(folder);
    }
    for (const char* list : {"LD_LIBRARY_PATH", "QT_PLUGIN_PATH"}) {
        std::string rest = variable(surroundings, list);
        while (!rest.empty()) {
            const std::size_t colon = std::min(rest.find(':'), rest.size());
            rules.addFolderOfPrograms(rest.substr(0, colon));
            rest.erase(0, colon + 1);
        }
    }
}

void addSound(Collector& rules, const Surroundings& surroundings) {
    rules.add(kSound);
    const std::string home = variable(surroundings, "HOME");
    std::string configuration = variable(surroundings, "XDG_CONFIG_HOME");
    if (configuration.empty() && !home.empty()) {
        configuration = home + "/.config";
    }
    for (const char* name : kSoundInHome) {
        rules.add(home.empty() ? home : home + name);
    }
    for (const char* name : kSoundInConfiguration) {
        rules.add(configuration.empty() ? configuration : configuration + name);
    }
    const std::string runtime = variable(surroundings, "XDG_RUNTIME_DIR");
    rules.add(runtime.empty() ? runtime : runtime + "/pulse");
    for (const char* name : kSoundVariables) {
        rules.add(variable(surroundings, name));
    }
}

/// The file that FFmpeg writes for that name; empty where it takes it for something else.
std::string outputFile(const std::string& name) {
    constexpr std::string_view kScheme = "file:";
    if (name.starts_with(kScheme)) {
        return name.substr(kScheme.size());
    }
    const std::size_t end =
        name.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789+-.");
    return end != std::string::npos && name[end] == ':' ? std::string() : name;
}

} // namespace

const std::vector<const char*>& variablesOfInterest() {
    static const std::vector<const char*> names = [] {
        std::vector<const char*> all{
            "HOME",           "XDG_CONFIG_HOME", "XDG_RUNTIME_DIR", "LD_LIBRARY_PATH",
            "QT_PLUGIN_PATH", "PULSE_SERVER",    "SSL_CERT_FILE",   "SSL_CERT_DIR"};
        all.insert(all.end(), kSoundVariables.begin(), kSoundVariables.end());
        return all;
    }();
    return names;
}

Needs neededBy(const Work& work, const Surroundings& surroundings) {
    Collector rules(surroundings);
    rules.add(kSystem);
    addLibraries(rules, surroundings);
    Needs needs;
    // A sound server may be another machine's.
    needs.network = work.kind != Work::Kind::LocalFile ||
                    variable(surroundings, "PULSE_SERVER").find("tcp") != std::string::npos;
    if (needs.network) {
        rules.add(kNames);
        rules.add(variable(surroundings, "SSL_CERT_FILE"));
        rules.add(variable(surroundings, "SSL_CERT_DIR"));
    }
    if (work.kind == Work::Kind::Export) {
        rules.add(outputFile(work.file), Access::Output);
    } else {
        addSound(rules, surroundings);
        rules.add(work.file);
    }
    needs.paths = rules.take();
    return needs;
}

} // namespace sandbox
