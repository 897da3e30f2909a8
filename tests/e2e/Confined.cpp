#include "Session.h"

#include <gtest/gtest.h>

namespace mediaworker::test {
namespace {

/// Leaves out a run with confined workers where the system cannot confine them.
class NeedsConfinement : public testing::Environment {
public:
    void SetUp() override {
        if (areWorkersConfined()) {
            if (const auto obstacle = confinementObstacle()) {
                GTEST_SKIP() << *obstacle;
            }
        }
    }
};

const testing::Environment* const environment = testing::AddGlobalTestEnvironment(new NeedsConfinement);

} // namespace
} // namespace mediaworker::test
