#include "Session.h"

#include <gmock/gmock.h>

#include <stdexcept>

namespace mediaworker::test {
namespace {

using namespace std::chrono_literals;

TEST(Session, SaysAtOnceThatThereIsNoWorker) {
    Session session({.program = "/nowhere/mediaworker"});
    session.start("file:///nowhere.mp4");
    const auto begin = Clock::now();
    try {
        session.waitForExit();
        FAIL() << "nothing was said";
    } catch (const std::runtime_error& error) {
        EXPECT_THAT(error.what(), testing::HasSubstr("the worker cannot be started: "));
    }
    EXPECT_LT(Clock::now() - begin, 5s);
}

} // namespace
} // namespace mediaworker::test
