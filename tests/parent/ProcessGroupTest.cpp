#include "parent/ProcessGroup.h"
#include "support/ChildProcess.h"
#include "support/Platform.h"

#include <gtest/gtest.h>

#include <chrono>
#include <optional>

using namespace mediaworker;
using namespace std::chrono_literals;

namespace {

/// Runs until it is ended.
test::ChildProcess::Options idler() {
    return {.command = {FAKE_WORKER, "wait:100000", "c", "s"}};
}

TEST(ProcessGroup, EndsWhatIsInItWhenItGoes) {
    test::ChildProcess child(idler());
    std::optional<parent::ProcessGroup> group(0);
    const bool isIn = group->adopt(child.id());
    EXPECT_EQ(isIn, test::platform::kIsWindows) << "nothing of the kind on POSIX";
    EXPECT_TRUE(child.isRunning());
    group.reset();
    EXPECT_EQ(child.waitFor(isIn ? 20000ms : 100ms).has_value(), isIn);
}

TEST(ProcessGroup, TakesNobodyWhoIsNotThere) {
    parent::ProcessGroup group(100 << 20);
    EXPECT_FALSE(group.adopt(0));
}

} // namespace
