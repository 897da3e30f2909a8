#include "parent/ReconnectPolicy.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

using namespace mediaworker::parent;
using namespace std::chrono_literals;
using std::chrono::milliseconds;

namespace {

constexpr AttemptEnd kRefused{.cause = ExitCause::ConnectionRefused};

TEST(ReconnectRule, DoublesAfterTenQuickAttempts) {
    ReconnectRule rule;
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(rule.next(kRefused, 0), 500ms) << i;
    }
    for (const milliseconds delay : {1000ms, 2000ms, 4000ms, 8000ms, 16000ms, 30000ms, 30000ms}) {
        EXPECT_EQ(rule.next(kRefused, 0), delay);
    }
    for (int i = 0; i < 5000; ++i) {
        ASSERT_EQ(rule.next(kRefused, 0), 30000ms) << i;
    }
}

TEST(ReconnectRule, DoublesAtOnceIfItIsTo) {
    ReconnectRule rule({.quickAttempts = 1});
    for (const milliseconds delay : {500ms, 1000ms, 2000ms, 4000ms}) {
        EXPECT_EQ(rule.next(kRefused, 0), delay);
    }
}

TEST(ReconnectRule, LeavesAPartToChance) {
    const ReconnectPolicy policy{.firstDelay = 1000ms, .longestDelay = 1000ms, .randomPart = 0.25};
    ReconnectRule rule(policy);
    EXPECT_EQ(rule.next(kRefused, 0), 1000ms);
    EXPECT_EQ(rule.next(kRefused, 0.5), 875ms);
    EXPECT_EQ(rule.next(kRefused, 1), 750ms);
    EXPECT_EQ(rule.next(kRefused, 7), 750ms) << "no number that a caller passes makes it less";
    EXPECT_EQ(rule.next(kRefused, -7), 1000ms) << "or more";
}

TEST(ReconnectRule, BeginsAnewAfterTenSecondsOfPictures) {
    ReconnectRule rule;
    for (int i = 0; i < 12; ++i) {
        (void)rule.next(kRefused, 0);
    }
    EXPECT_EQ(rule.next({.cause = ExitCause::ConnectionLost, .played = 9999ms}, 0), 4000ms);
    EXPECT_EQ(rule.next({.cause = ExitCause::ConnectionLost, .played = 10s}, 0), 500ms);
    for (int i = 0; i < 12; ++i) {
        (void)rule.next(kRefused, 0);
    }
    rule.reset();
    EXPECT_EQ(rule.next(kRefused, 0), 500ms) << "the user wanted it";
}

TEST(ReconnectRule, KnowsWhatIsFinal) {
    struct Row {
        const char* what;
        AttemptEnd end;
        bool isFinal;
    };
    for (const Row& row : std::vector<Row>{
             {"a server that is away", kRefused, false},
             {"404", {.cause = ExitCause::HttpStatus}, false},
             {"a name that nobody knows yet", {.cause = ExitCause::UnknownHost}, false},
             {"a certificate", {.cause = ExitCause::TlsFailure}, false},
             {"a proxy", {.cause = ExitCause::ProxyFailure}, false},
             {"the cable", {.cause = ExitCause::NetworkFailure}, false},
             {"cut off", {.cause = ExitCause::ConnectionLost}, false},
             {"the end of a live stream", {.cause = ExitCause::EndOfStream}, false},
             {"silence", {.cause = ExitCause::NoPicture}, false},
             {"a crash", {.cause = ExitCause::Killed}, false},
             {"a code that nobody knows", {.cause = ExitCause::Unknown}, false},
             {"undecodable, once", {.cause = ExitCause::PicturesUnavailable}, false},
             {"this side closed the link", {.cause = ExitCause::LinkClosed}, true},
             {"the end of a file", {WorkerMode::LocalFile, ExitCause::EndOfFile}, true},
             {"a file that fails", {WorkerMode::LocalFile, ExitCause::Failed}, true},
             {"a crash at a file", {WorkerMode::LocalFile, ExitCause::Killed}, true},
             {"an export", {WorkerMode::Export, ExitCause::Failed}, true},
         }) {
        ReconnectRule rule;
        EXPECT_EQ(!rule.next(row.end, 0).has_value(), row.isFinal) << row.what;
    }
}

TEST(ReconnectRule, GivesUpWhatCannotBeDecodedThreeTimesInARow) {
    for (const ExitCause cause : {ExitCause::PicturesUnavailable, ExitCause::PicturesEnded,
                                  ExitCause::NotAStream, ExitCause::Failed}) {
        ReconnectRule rule;
        EXPECT_TRUE(rule.next({.cause = cause}, 0));
        EXPECT_TRUE(rule.next({.cause = cause}, 0));
        EXPECT_TRUE(rule.next(kRefused, 0)) << "another end between them";
        EXPECT_TRUE(rule.next({.cause = cause}, 0));
        EXPECT_TRUE(rule.next({.cause = ExitCause::NotAStream}, 0));
        EXPECT_FALSE(rule.next({.cause = cause}, 0));
    }
    ReconnectRule broken;
    for (int i = 0; i < 20; ++i) {
        EXPECT_TRUE(broken.next({.cause = ExitCause::NotAStream, .played = 11s}, 0))
            << "a stream that plays, and breaks from time to time";
    }
}

TEST(ReconnectRule, Never) {
    ReconnectRule rule(ReconnectPolicy{.isEnabled = false});
    EXPECT_EQ(rule.next(kRefused, 0), std::nullopt);
}

TEST(ReconnectRule, TakesWhatMakesNoSenseForTheNearestThatDoes) {
    ReconnectRule backwards({.firstDelay = -5s, .longestDelay = -10s, .randomPart = -1});
    EXPECT_EQ(backwards.next(kRefused, 1), 0ms);
    ReconnectRule quick({.quickAttempts = -3});
    EXPECT_EQ(quick.next(kRefused, 0), 500ms);
    EXPECT_EQ(quick.next(kRefused, 0), 1000ms);
    ReconnectRule endless({.quickAttempts = std::numeric_limits<int>::max()});
    EXPECT_EQ(endless.next(kRefused, 0), 500ms);
    ReconnectRule shorter({.firstDelay = 2s, .longestDelay = 1s, .randomPart = 9});
    EXPECT_EQ(shorter.next(kRefused, 0), 2000ms);
    EXPECT_EQ(shorter.next(kRefused, 1), 0ms);
    ReconnectRule unordered({.randomPart = std::numeric_limits<double>::quiet_NaN()});
    EXPECT_EQ(unordered.next(kRefused, 1), 500ms);
}

// A server that is away for five seconds is found again within one, whatever chance does.
TEST(ReconnectRule, FindsAServerAgainSoon) {
    for (int seed = 0; seed <= 100; ++seed) {
        ReconnectRule rule;
        milliseconds passed{0};
        for (int i = 0; passed < 5s; ++i) {
            passed += rule.next(kRefused, ((seed * 37 + i * 61) % 101) / 100.0).value();
        }
        EXPECT_LE(passed, 6s) << seed;
    }
}

} // namespace
