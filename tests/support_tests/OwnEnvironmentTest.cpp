#include "support/OwnEnvironment.h"
#include "support/Platform.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>

namespace mediaworker::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// The main function has made it. A run of its own has an environment that means trouble:
// hostile.support_qt_test.

std::vector<std::string> variablesWith(const std::string& prefix) {
    std::vector<std::string> found = platform::variableNames();
    std::erase_if(found, [&](const std::string& name) { return !name.starts_with(prefix); });
    std::sort(found.begin(), found.end());
    return found;
}

TEST(OwnEnvironment, SaysNothingOfTheDesktopAndItsUser) {
    EXPECT_THAT(variablesWith("QT_"), ElementsAre("QT_STYLE_OVERRIDE", "QT_XCB_GL_INTEGRATION"));
    EXPECT_STREQ(std::getenv("QT_XCB_GL_INTEGRATION"), "none");
    EXPECT_THAT(variablesWith("XDG_"), ElementsAre("XDG_CACHE_HOME", "XDG_RUNTIME_DIR"));
    for (const char* name : {"KDE_", "GNOME_", "DISPLAY", "WAYLAND_", "http_proxy", "HTTP_PROXY", "all_proxy",
                             "LANGUAGE", "XMODIFIERS", "XAUTHORITY", "MEDIAWORKER_OPTIONS"}) {
        EXPECT_THAT(variablesWith(name), IsEmpty());
    }
    EXPECT_STREQ(std::getenv("DBUS_SESSION_BUS_ADDRESS"), "disabled:");
    EXPECT_STREQ(std::getenv("PULSE_SERVER"), "unix:/nonexistent");
    EXPECT_STREQ(std::getenv("LC_ALL"), "C.UTF-8");
}

TEST(OwnEnvironment, HasAHomeThatNobodyHasWrittenTo) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(std::getenv("HOME"))) {
        names.push_back(entry.path().filename().string());
    }
    EXPECT_THAT(names, testing::UnorderedElementsAre("runtime", "temp"));
}

TEST(OwnEnvironment, KeepsWhatItTookForToolsThatTheUserHasConfigured) {
    const std::string home = std::getenv("HOME");
    const OwnEnvironment another;
    EXPECT_NE(std::getenv("HOME"), home);
    EXPECT_THAT(OwnEnvironment::ofTheUser(), testing::Contains(testing::Pair("HOME", home)));
    platform::setVariable("HOME", home.c_str());
}

} // namespace
} // namespace mediaworker::test
