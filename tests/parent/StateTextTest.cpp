#include "parent/StateText.h"

#include <gtest/gtest.h>

namespace mediaworker::parent {
namespace {

using namespace std::chrono_literals;

struct WordsCase {
    PlaybackState state;
    const char* problem;
    std::optional<std::chrono::milliseconds> untilNextAttempt;
    const char* text;
    const char* overlay;
};

void PrintTo(const WordsCase& words, std::ostream* out) {
    *out << words.text;
}

class StateWords : public testing::TestWithParam<WordsCase> {};

TEST_P(StateWords, AreThoseOfPeople) {
    const auto& [state, problem, untilNextAttempt, text, overlay] = GetParam();
    EXPECT_EQ(stateText(state, QString::fromUtf8(problem), untilNextAttempt).toStdString(), text);
    EXPECT_EQ(overlayText(state, QString::fromUtf8(problem), untilNextAttempt).toStdString(), overlay);
}

INSTANTIATE_TEST_SUITE_P(
    States, StateWords,
    testing::Values(
        WordsCase{PlaybackState::Idle, "", {}, "no stream", ""},
        WordsCase{PlaybackState::Connecting, "", {}, "connecting", "Connecting"},
        WordsCase{PlaybackState::Buffering, "", {}, "buffering", "Buffering"},
        WordsCase{PlaybackState::Playing, "", {}, "playing", ""},
        WordsCase{PlaybackState::Paused, "", {}, "paused", ""},
        WordsCase{PlaybackState::Ended, "", {}, "ended", "Ended"},
        WordsCase{PlaybackState::Ended, "stopped", {}, "ended: stopped", "Ended: stopped"},
        WordsCase{PlaybackState::Ended, "über", 3001ms, "über – again in 4 s", "Über – again in 4 s"},
        WordsCase{PlaybackState::Ended, "gone", 0ms, "gone – again in 0 s", "Gone – again in 0 s"}));

} // namespace
} // namespace mediaworker::parent
