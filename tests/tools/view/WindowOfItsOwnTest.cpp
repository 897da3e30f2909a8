#include "Stage.h"

#include "support/Platform.h"

#include <QApplication>
#include <QStandardPaths>
#include <QStyle>

#include <unistd.h>

namespace mediaworker::test {
namespace {

using testing::HasSubstr;
using testing::Not;

/// A window looks the same on every machine. A run of its own has an environment that means trouble:
/// hostile.tools_view_test.
class WindowOfItsOwn : public Stage {
protected:
    WindowOfItsOwn() { serveLive("/live.flv"); }
};

TEST_F(WindowOfItsOwn, NeedsNoDriverOfAGraphicsCard) {
    show({"/live.flv"});
    ASSERT_TRUE(waitForPictures(view()));
    const std::string libraries = platform::loadedLibraries(::getpid());
    ASSERT_THAT(libraries, HasSubstr("libqxcb.so"));
    for (const char* name : {"libGLX_", "libEGL_", "_dri.so", "xcbglintegrations"}) {
        EXPECT_THAT(libraries, Not(HasSubstr(name)));
    }
}

TEST_F(WindowOfItsOwn, IsNotShapedByTheDesktop) {
    show({"/live.flv"});
    EXPECT_EQ(QGuiApplication::platformName(), QLatin1String("xcb"));
    EXPECT_EQ(QApplication::style()->objectName(), QLatin1String("fusion"));
    EXPECT_EQ(window().devicePixelRatioF(), 1);
    EXPECT_EQ(window().logicalDpiX(), 96);
    EXPECT_THAT(platform::loadedLibraries(::getpid()), Not(HasSubstr("platformthemes")));
    EXPECT_TRUE(QStandardPaths::writableLocation(QStandardPaths::ConfigLocation)
                    .startsWith(QString::fromLocal8Bit(qgetenv("HOME"))));
}

} // namespace
} // namespace mediaworker::test
