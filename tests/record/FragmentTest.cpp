#include "record/Fragment.h"
#include "record/FragmentRule.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <limits>
#include <string>

namespace ko_player {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

using Bytes = std::vector<std::uint8_t>;

void put(Bytes& bytes, std::uint32_t number) {
    for (int shift = 24; shift >= 0; shift -= 8) {
        bytes.push_back(static_cast<std::uint8_t>(number >> shift));
    }
}

// Byte by byte: GCC 12 takes a range that is inserted behind single bytes for an overflow.
void append(Bytes& bytes, const std::string& text) {
    for (const char character : text) {
        bytes.push_back(static_cast<std::uint8_t>(character));
    }
}

Bytes box(const std::string& name, const std::vector<Bytes>& contents) {
    constexpr std::size_t kHeaderBytes = 8;
    std::size_t size = kHeaderBytes;
    for (const Bytes& piece : contents) {
        size += piece.size();
    }
    Bytes result;
    result.reserve(size);
    put(result, static_cast<std::uint32_t>(size));
    append(result, name);
    for (const Bytes& piece : contents) {
        for (const std::uint8_t byte : piece) {
            result.push_back(byte);
        }
    }
    return result;
}

Bytes box(const std::string& name, const std::vector<std::uint32_t>& numbers) {
    Bytes content;
    for (const std::uint32_t number : numbers) {
        put(content, number);
    }
    return box(name, std::vector<Bytes>{content});
}

Bytes format(std::size_t size = 28) {
    Bytes result = box("ftyp", std::vector<Bytes>{Bytes(size - 8, 'x')});
    return result;
}

/// Of a fragment with two tracks and payload behind it.
struct FragmentParts {
    Bytes firstHeader = box("tfhd", {0x020000, 1});
    Bytes firstRun = box("trun", {0x000301, 2, 200, 40, 10, 40, 20}); // durations and sizes
    Bytes secondHeader = box("tfhd", {0x02003A, 2, 1, 1024, 5, 0});   // with a size for all
    Bytes secondRun = box("trun", {0x000001, 3, 230});
    std::size_t payloadBytes = 100;

    [[nodiscard]] Bytes bytes() const {
        Bytes result =
            box("moof", std::vector<Bytes>{box("mfhd", {0, 1}), box("traf", {firstHeader, firstRun}),
                                           box("traf", {secondHeader, secondRun})});
        const Bytes payload = box("mdat", std::vector<Bytes>{Bytes(payloadBytes, 0)});
        result.insert(result.end(), payload.begin(), payload.end());
        return result;
    }
};

std::optional<std::vector<std::deque<SamplePlace>>> samplesOfWhole(const Bytes& bytes) {
    return samplesOf(bytes, bytes.size(), 2);
}

TEST(Fragment, TellsWhereSamplesLie) {
    const auto places = samplesOfWhole(FragmentParts().bytes());
    ASSERT_TRUE(places);
    EXPECT_THAT((*places)[0], ElementsAre(SamplePlace{200, 10}, SamplePlace{210, 20}));
    EXPECT_THAT((*places)[1], ElementsAre(SamplePlace{230, 5}, SamplePlace{235, 5}, SamplePlace{240, 5}));
}

TEST(Fragment, CountsFromItselfWhateverStandsBefore) {
    Bytes bytes = format();
    const Bytes fragment = FragmentParts().bytes();
    bytes.insert(bytes.end(), fragment.begin(), fragment.end());
    const auto places = samplesOfWhole(bytes);
    ASSERT_TRUE(places);
    EXPECT_EQ((*places)[0].front(), (SamplePlace{228, 10}));
}

TEST(Fragment, NeedsNoneOfItsSamplesToTellWhereTheyLie) {
    const Bytes whole = FragmentParts().bytes();
    const auto fragment = findBox(whole, "moof");
    ASSERT_TRUE(fragment);
    const std::span head = std::span(whole).first(fragment->size + 8);
    EXPECT_EQ(samplesOf(head, whole.size(), 2), samplesOfWhole(whole));
    EXPECT_FALSE(samplesOf(head, 244, 2)) << "the last one ends at 245";
}

TEST(Fragment, IsRefusedWhereItPointsElsewhere) {
    struct Row {
        const char* what;
        FragmentParts parts;
    };
    FragmentParts absolute;
    absolute.firstHeader = box("tfhd", {0x020001, 1, 0, 0});
    FragmentParts fromTheFile;
    fromTheFile.firstHeader = box("tfhd", {0, 1});
    FragmentParts noTrack;
    noTrack.firstHeader = box("tfhd", {0x020000, 0});
    FragmentParts thirdTrack;
    thirdTrack.firstHeader = box("tfhd", {0x020000, 3});
    FragmentParts noOffset;
    noOffset.firstRun = box("trun", {0x000300, 2, 40, 10, 40, 20});
    FragmentParts before;
    before.firstRun = box("trun", {0x000301, 1, static_cast<std::uint32_t>(-1), 40, 10});
    FragmentParts behind;
    behind.payloadBytes = 20;
    FragmentParts tooMany;
    tooMany.firstRun = box("trun", {0x000301, 0xFFFFFFFF, 200, 40, 10});
    FragmentParts tooManyEmpty;
    tooManyEmpty.secondHeader = box("tfhd", {0x020000, 2});
    tooManyEmpty.secondRun = box("trun", {0x000001, 0xFFFFFFFF, 230});
    for (const Row& row :
         {Row{"an absolute base", absolute}, Row{"a base in the file", fromTheFile}, Row{"no track", noTrack},
          Row{"a third track", thirdTrack}, Row{"no offset", noOffset}, Row{"before the fragment", before},
          Row{"behind the end", behind}, Row{"more than there are", tooMany},
          Row{"four thousand million empty ones", tooManyEmpty}}) {
        EXPECT_FALSE(samplesOfWhole(row.parts.bytes())) << row.what;
    }
    EXPECT_FALSE(samplesOfWhole({}));
    EXPECT_FALSE(samplesOfWhole(format()));
}

TEST(Fragment, OfWhichEndsAreMissingIsNeverReadBeyondThem) {
    const Bytes whole = FragmentParts().bytes();
    for (std::size_t size = 0; size < whole.size(); ++size) {
        const Bytes torn(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        const auto places = samplesOfWhole(torn);
        EXPECT_TRUE(!places || size >= 245) << size;
    }
}

TEST(Boxes, AreFoundBehindOthersAndBehindLongOnes) {
    Bytes bytes;
    put(bytes, 1);
    append(bytes, "mdat");
    put(bytes, 0);
    put(bytes, 20);
    put(bytes, 0);
    const Bytes second = format();
    bytes.insert(bytes.end(), second.begin(), second.end());
    const auto found = findBox(bytes, "ftyp");
    ASSERT_TRUE(found);
    EXPECT_EQ(found->offset, 20U);
    EXPECT_EQ(found->size, 28U);
    EXPECT_FALSE(findBox(bytes, "moov"));
    bytes[3] = 7; // a length smaller than its own header
    EXPECT_FALSE(findBox(bytes, "ftyp"));
}

TEST(FileBegin, HasRoomForAHeaderThatTakesAllThatFollows) {
    const auto recording = fragmentedBegin(format());
    ASSERT_TRUE(recording);
    const auto space = findBox(*recording, "free");
    ASSERT_TRUE(space);
    EXPECT_EQ(space->offset + space->size, kFileBeginBytes);

    constexpr std::int64_t kEnd = 5'000'000'000;
    Bytes file(kFileBeginBytes, 0);
    const auto finished = ordinaryBegin(format(32), kEnd);
    ASSERT_TRUE(finished);
    EXPECT_TRUE(findBox(*finished, "ftyp"));
    const Bytes header(finished->end() - 16, finished->end());
    EXPECT_THAT(header, ElementsAre(0, 0, 0, 1, 'm', 'd', 'a', 't', 0, 0, 0, 1, 0x2A, 0x05, 0xF1, 0x90));
}

TEST(FileBegin, IsRefusedWhereTheFormatHasNoPlace) {
    EXPECT_FALSE(fragmentedBegin({}));
    EXPECT_TRUE(fragmentedBegin(format(kFileBeginBytes)));
    EXPECT_FALSE(fragmentedBegin(format(kFileBeginBytes + 1)));
    EXPECT_FALSE(fragmentedBegin(format(kFileBeginBytes - 7))) << "no box is so small";
    EXPECT_TRUE(ordinaryBegin(format(kFileBeginBytes - 16), 1000));
    EXPECT_FALSE(ordinaryBegin(format(kFileBeginBytes - 15), 1000));
    EXPECT_FALSE(ordinaryBegin(format(), 0));
}

TEST(PutAt, ReplacesAndAppendsWithoutGaps) {
    Bytes bytes = {1, 2, 3};
    EXPECT_TRUE(putAt(bytes, 1, Bytes{7}));
    EXPECT_TRUE(putAt(bytes, 2, Bytes{8, 9}));
    EXPECT_TRUE(putAt(bytes, 4, Bytes{10}));
    EXPECT_THAT(bytes, ElementsAre(1, 7, 8, 9, 10));
    EXPECT_FALSE(putAt(bytes, 6, Bytes{1}));
    EXPECT_FALSE(putAt(bytes, -1, Bytes{1}));
    EXPECT_EQ(bytes.size(), 5U);
}

TEST(FragmentRule, EndsAFragmentBeforeEitherTrackLastsASecond) {
    FragmentRule rule;
    EXPECT_FALSE(rule.isDueBefore(0, 5000));
    rule.add(0, 5000, 10);
    EXPECT_FALSE(rule.isDueBefore(0, 5999));
    EXPECT_TRUE(rule.isDueBefore(0, 6000));
    EXPECT_FALSE(rule.isDueBefore(1, 9000)) << "sound of its own time";
    rule.add(1, 9000, 10);
    EXPECT_TRUE(rule.isDueBefore(1, 10000));
    EXPECT_TRUE(rule.isDueBefore(0, std::numeric_limits<std::int64_t>::max()));
    EXPECT_TRUE(rule.isDueBefore(0, std::numeric_limits<std::int64_t>::min()));
    rule.restart();
    EXPECT_FALSE(rule.isDueBefore(0, 6000));
}

TEST(FragmentRule, BoundsWhatIsHeld) {
    FragmentRule rule;
    rule.add(0, 0, FragmentRule::kMostBytes - 1);
    EXPECT_FALSE(rule.isDueBefore(0, 0));
    rule.add(0, 0, 1);
    EXPECT_TRUE(rule.isDueBefore(0, 0));
    EXPECT_TRUE(rule.isDueBefore(1, 0));
}

TEST(FragmentRule, KeepsNothingForLongWhereTheStreamStops) {
    FragmentRule rule;
    base::TimePoint now{};
    EXPECT_FALSE(rule.isOld(now += 1h)) << "nothing is held";
    rule.add(0, 0, 10);
    EXPECT_FALSE(rule.isOld(now += 1h)) << "it has just come";
    EXPECT_FALSE(rule.isOld(now += 999ms));
    EXPECT_TRUE(rule.isOld(now += 1ms));
    rule.restart();
    EXPECT_FALSE(rule.isOld(now += 1h));
}

} // namespace
} // namespace ko_player
