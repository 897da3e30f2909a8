#include "parent/LineSplitter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

using namespace mediaworker::parent;
using ::testing::ElementsAre;

namespace {

class LineSplitterTest : public ::testing::Test {
protected:
    void feed(const QByteArray& bytes) { splitter_.feed(bytes, sink()); }
    void finish() { splitter_.finish(sink()); }
    LineSplitter::Sink sink() {
        return [this](const QByteArray& line) { lines_.push_back(line); };
    }

    LineSplitter splitter_;
    std::vector<QByteArray> lines_;
};

} // namespace

TEST_F(LineSplitterTest, CutsAtNewlinesWhereverTheBytesAreSplit) {
    const QByteArray text = "one\ntwo\r\n\nfour";
    for (int split = 0; split <= text.size(); ++split) {
        LineSplitter splitter;
        std::vector<QByteArray> lines;
        const auto sink = [&](const QByteArray& line) { lines.push_back(line); };
        splitter.feed(text.left(split), sink);
        splitter.feed(text.mid(split), sink);
        splitter.finish(sink);
        EXPECT_THAT(lines, ElementsAre("one", "two", "", "four")) << "split at " << split;
    }
}

TEST_F(LineSplitterTest, KeepsAnUnfinishedLineUntilTheEnd) {
    feed("Socket error: gone");
    EXPECT_TRUE(lines_.empty());
    finish();
    EXPECT_THAT(lines_, ElementsAre("Socket error: gone"));
    finish();
    EXPECT_EQ(lines_.size(), 1U);
}

TEST_F(LineSplitterTest, KeepsControlCharacters) {
    feed(QByteArray("Command from parent process: \x05\n"));
    EXPECT_THAT(lines_, ElementsAre(QByteArray("Command from parent process: \x05")));
}

TEST_F(LineSplitterTest, HandsOutAnEndlessLineInPieces) {
    for (int i = 0; i < 200; ++i) {
        feed(QByteArray(1000, 'x'));
    }
    ASSERT_EQ(lines_.size(), 3U);
    EXPECT_EQ(lines_[0].size(), LineSplitter::kMaxLineBytes);
    feed("\n");
    ASSERT_EQ(lines_.size(), 4U);
    EXPECT_EQ(lines_[3].size(), 200 * 1000 - 3 * LineSplitter::kMaxLineBytes);
}

TEST_F(LineSplitterTest, ALineOfExactlyTheBoundIsOneLine) {
    feed(QByteArray(LineSplitter::kMaxLineBytes, 'x') + '\n');
    ASSERT_EQ(lines_.size(), 1U);
    EXPECT_EQ(lines_[0].size(), LineSplitter::kMaxLineBytes);
}
