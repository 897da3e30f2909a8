#include "support/OwnEnvironment.h"

#include "support/Platform.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <string_view>

namespace mediaworker::test {
namespace {

using Variables = std::vector<std::pair<std::string, std::string>>;

/// How Qt and the desktop around it look and behave, and what the worker is asked for.
constexpr std::array<std::string_view, 5> kPrefixes = {"QT_", "QML_", "QSG_", "MEDIAWORKER_OPTIONS",
                                                       "LANGUAGE"};
constexpr std::array<std::string_view, 23> kPrefixesOfDesktops = {"XDG_",
                                                                  "KDE_",
                                                                  "GNOME_",
                                                                  "GTK_",
                                                                  "DBUS_",
                                                                  "DESKTOP_SESSION",
                                                                  "SESSION_MANAGER",
                                                                  "XMODIFIERS",
                                                                  "DISPLAY",
                                                                  "WAYLAND_",
                                                                  "XAUTHORITY",
                                                                  "XCURSOR_",
                                                                  "XKB_",
                                                                  "PULSE_",
                                                                  "PIPEWIRE_",
                                                                  "ALSA_",
                                                                  "LIBGL_",
                                                                  "MESA_",
                                                                  "__GLX_",
                                                                  "http_proxy",
                                                                  "https_proxy",
                                                                  "all_proxy",
                                                                  "no_proxy"};
constexpr std::array<std::string_view, 4> kProxies = {"HTTP_PROXY", "HTTPS_PROXY", "ALL_PROXY", "NO_PROXY"};

bool isTaken(std::string_view name) {
    const auto begins = [name](std::string_view prefix) { return name.starts_with(prefix); };
    if (std::any_of(kPrefixes.begin(), kPrefixes.end(), begins)) {
        return true;
    }
    return !platform::kIsWindows &&
           (std::any_of(kPrefixesOfDesktops.begin(), kPrefixesOfDesktops.end(), begins) ||
            std::any_of(kProxies.begin(), kProxies.end(), begins));
}

std::string valueOf(const char* name) {
    const char* const value = std::getenv(name); // NOLINT(concurrency-mt-unsafe)
    return value != nullptr ? value : "";
}

/// Caches make nothing different but faster: those of the user are kept (fonts, compilers, GStreamer).
std::string cacheFolder() {
    const std::string named = valueOf("XDG_CACHE_HOME");
    const std::string home = valueOf("HOME");
    return !named.empty() || home.empty() ? named : home + "/.cache";
}

Variables given(const TemporaryFolder& home) {
    return {{"HOME", home.path().string()},
            {"XDG_RUNTIME_DIR", (home / "runtime").string()},
            {"XDG_CACHE_HOME", cacheFolder()},
            {"DBUS_SESSION_BUS_ADDRESS", "disabled:"},
            {"PULSE_SERVER", "unix:/nonexistent"},
            {"ALSA_CONFIG_PATH", "/dev/null"}, // no sound card
            {"LC_ALL", "C.UTF-8"},
            // The drivers of a graphics card leak, and differ from machine to machine.
            {"QT_XCB_GL_INTEGRATION", "none"},
            {"QT_STYLE_OVERRIDE", "fusion"}};
}

Variables& taken() {
    static Variables variables;
    return variables;
}

} // namespace

OwnEnvironment::OwnEnvironment() {
    for (const char* name : {"temp", "runtime"}) {
        std::filesystem::create_directory(home_ / name);
        std::filesystem::permissions(home_ / name, std::filesystem::perms::owner_all);
    }
    const Variables added = platform::kIsWindows ? Variables{} : given(home_);
    taken().clear();
    for (const std::string& name : platform::variableNames()) {
        const bool isReplaced =
            std::any_of(added.begin(), added.end(), [&](const auto& pair) { return pair.first == name; });
        if (isReplaced || isTaken(name)) {
            taken().emplace_back(name, valueOf(name.c_str()));
            platform::setVariable(name.c_str(), nullptr);
        }
    }
    for (const auto& [name, value] : added) {
        platform::setVariable(name.c_str(), value.c_str());
    }
}

const std::vector<std::pair<std::string, std::string>>& OwnEnvironment::ofTheUser() {
    return taken();
}

} // namespace mediaworker::test
