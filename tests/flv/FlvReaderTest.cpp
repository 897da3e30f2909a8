#include "flv/FlvReader.h"

#include "RecordingObserver.h"
#include "support/FlvWriter.h"

#include <gmock/gmock.h>

#include <stdexcept>
#include <system_error>

namespace ko_player::flv {
namespace {

using mediaworker::test::AmfValue;
using mediaworker::test::FlvWriter;
using mediaworker::test::VideoCodec;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

using Bytes = std::vector<std::uint8_t>;

std::string errorText(const std::string& message) {
    return "ec: " + std::generic_category().message(22) + ", what: " + message;
}

Bytes frame(std::size_t size, std::uint8_t seed) {
    Bytes payload(size);
    for (std::size_t i = 0; i < size; ++i) {
        payload[i] = static_cast<std::uint8_t>(seed + i * 7);
    }
    payload[0] = payload[1] = payload[2] = payload[3] = 0;
    return payload;
}

/// What a stream gives when it is fed in pieces.
struct Reading {
    std::vector<std::string> events;
    std::vector<std::string> errors;

    friend bool operator==(const Reading&, const Reading&) = default;
};

void PrintTo(const Reading& reading, std::ostream* out) {
    *out << testing::PrintToString(reading.events) << testing::PrintToString(reading.errors);
}

/// Feeds pieces whose sizes are taken from `pieces` in turn, until the end or an error.
Reading readInPieces(const Bytes& stream, const std::vector<std::size_t>& pieces) {
    RecordingObserver observer;
    FlvReader reader(&observer);
    Reading result;
    std::size_t offset = 0;
    for (std::size_t i = 0; offset < stream.size(); ++i) {
        const ExactCopy piece(stream.data() + offset,
                              std::min(pieces[i % pieces.size()], stream.size() - offset));
        offset += piece.size();
        if (const auto error = reader.consume(piece.data(), piece.size())) {
            result.errors.push_back(error->text());
            break;
        }
    }
    result.events = observer.events;
    return result;
}

struct Sample {
    const char* name;
    Bytes stream;
    std::size_t events;
    const char* error; ///< null for a good stream
};

void PrintTo(const Sample& row, std::ostream* out) {
    *out << row.name;
}

std::vector<Sample> samples() {
    FlvWriter mixed;
    mixed.header(0x05, 20).metadata(0, {{"width", 640}, {"videocodecid", 7}, {"text", "abc"}});
    mixed.video(0, VideoCodec::Avc, true, 0, frame(40, 1)).aac(0, 0, Bytes{0x12, 0x10});
    for (std::uint32_t i = 0; i < 60; ++i) {
        mixed.video(i * 40, VideoCodec::Avc, i % 10 == 0, 1, frame(5 + (i * i * 13) % 900, 3));
        mixed.aac(i * 40 + 5, 1, Bytes(1 + i % 7, 0x21));
        if (i % 9 == 0) {
            mixed.tag(8, i, Bytes{0xB2, 1, 2});
        }
    }
    FlvWriter large;
    large.header();
    for (std::uint32_t i = 0; i < 6; ++i) {
        large.video(i * 40, VideoCodec::Hevc, i == 0, 1, frame(30'000 + i * 1111, 9));
        large.audio(i * 40, 0x70, Bytes(80, 0xD5));
    }
    const auto broken = [](auto&& breakIt) {
        FlvWriter writer;
        writer.header().audio(1, 0x2E, Bytes(50, 1)).audio(2, 0x2E, Bytes(50, 2));
        breakIt(writer);
        return writer.audio(3, 0x2E, Bytes(50, 3)).take();
    };
    return {
        {"Empty", {}, 0, nullptr},
        {"HeaderOnly", FlvWriter().header().take(), 1, nullptr},
        {"Mixed", mixed.take(), 1 + 1 + 2 + 120 + 7, nullptr},
        {"Large", large.take(), 13, nullptr},
        {"EmptyTags", FlvWriter().header().tag(9, 0, Bytes{}).tag(18, 0, Bytes{}).take(), 2, nullptr},
        {"BadHeader", FlvWriter().header(0x02).take(), 0, "invalid header"},
        {"BadSignature", Bytes(100, 'x'), 0, "invalid header"},
        {"BadBackPointer", broken([](FlvWriter& w) {
             w.tagHeader(8, 2, 0).raw(Bytes{0x2E, 1}).backPointer(12);
         }),
         4, "prevTagSize: read: 12 must be: 13"},
        {"BadStreamId", broken([](FlvWriter& w) {
             w.tag(8, 0, Bytes{0x2E, 1}, 5);
         }),
         3, "streamId: 5"},
        {"BadTagType", broken([](FlvWriter& w) { w.tag(0x28, 0, Bytes(700, 1)); }), 3, "undef tag type:40"},
    };
}

class ChunkedReading : public testing::TestWithParam<Sample> {};

TEST_P(ChunkedReading, GivesTheSameForPiecesOfAnySize) {
    const Sample& sample = GetParam();
    const Reading whole = readInPieces(sample.stream, {SIZE_MAX});
    EXPECT_EQ(whole.events.size(), sample.events);
    EXPECT_EQ(!whole.errors.empty(), sample.error != nullptr);
    if (sample.error != nullptr) {
        EXPECT_THAT(whole.errors, ElementsAre(errorText(sample.error)));
    } else {
        EXPECT_THAT(whole.errors, IsEmpty());
    }
    const std::vector<std::vector<std::size_t>> piecings{
        {1},    {2},    {3},      {4},      {5},
        {9},    {11},   {13},     {15},     {64},
        {1000}, {4096}, {16'383}, {65'536}, {1, 700, 3, 40'000}};
    for (const auto& pieces : piecings) {
        EXPECT_EQ(readInPieces(sample.stream, pieces), whole) << testing::PrintToString(pieces);
    }
}

INSTANTIATE_TEST_SUITE_P(All, ChunkedReading, testing::ValuesIn(samples()),
                         [](const auto& test) { return test.param.name; });

class FlvReaderTest : public testing::Test {
protected:
    bool consume(const Bytes& bytes) {
        const ExactCopy copy(bytes);
        const auto error = reader_.consume(copy.data(), copy.size());
        if (error) {
            errors_.push_back(error->text());
        }
        return !error;
    }

    /// The text of the std::out_of_range that consuming throws, "" without one.
    std::string overflow(const Bytes& bytes) {
        try {
            EXPECT_TRUE(consume(bytes));
            return "";
        } catch (const std::out_of_range& error) {
            return error.what();
        }
    }

    std::vector<std::string> errors_;
    RecordingObserver observer_;
    FlvReader reader_{&observer_};
};

TEST_F(FlvReaderTest, TakesNothingAsSuccess) {
    EXPECT_TRUE(!reader_.consume(nullptr, 0));
    EXPECT_THAT(errors_, IsEmpty());
}

TEST_F(FlvReaderTest, ReturnsTheErrorOnEveryFurtherCall) {
    EXPECT_FALSE(consume(FlvWriter().header(0x02).take()));
    EXPECT_FALSE(consume(FlvWriter().header().take()));
    EXPECT_FALSE(consume({0}));
    EXPECT_TRUE(!reader_.consume(nullptr, 0)) << "no bytes, nothing parsed";
    EXPECT_THAT(errors_, Each(errorText("invalid header")));
    EXPECT_EQ(errors_.size(), 3U);
    EXPECT_THAT(observer_.events, IsEmpty());
}

TEST_F(FlvReaderTest, KeepsTheErrorOfATagThatStraddledTwoPieces) {
    const Bytes bad = FlvWriter().header().tag(1, 0, Bytes(10, 0)).audio(1, 0x2E, Bytes{1}).take();
    EXPECT_TRUE(consume(Bytes(bad.begin(), bad.begin() + 20)));
    EXPECT_FALSE(consume(Bytes(bad.begin() + 20, bad.end())));
    EXPECT_FALSE(consume({0}));
    EXPECT_THAT(errors_, ElementsAre(errorText("undef tag type:1"), errorText("undef tag type:1")));
    EXPECT_EQ(observer_.events.size(), 1U);
}

TEST_F(FlvReaderTest, KeepsEverythingBehindAnErrorUntilTheBufferIsFull) {
    const Bytes bad = FlvWriter().header().tag(1, 0, Bytes(10, 0)).take();
    EXPECT_TRUE(consume(Bytes(bad.begin(), bad.begin() + 20))); // header and back-pointer, 7 bytes unread
    Bytes rest(bad.begin() + 20, bad.end());
    rest.resize(FlvReader::kMaxSliceBytes);
    EXPECT_FALSE(consume(rest));
    const Bytes mebibyte(FlvReader::kMaxSliceBytes, 0);
    for (int i = 0; i < 3; ++i) {
        EXPECT_FALSE(consume(mebibyte));
    }
    EXPECT_FALSE(consume(Bytes(FlvReader::kMaxSliceBytes - 7, 0)));
    EXPECT_EQ(overflow({0}), "FlatBuffer.push gt maxSize");
}

TEST_F(FlvReaderTest, ReadsThreeMebibytesAtOnce) {
    FlvWriter writer;
    writer.header();
    for (std::uint32_t i = 0; i < 40; ++i) {
        writer.video(i, VideoCodec::Avc, true, 1, frame(80'000, 1));
    }
    EXPECT_TRUE(consume(writer.take()));
    EXPECT_EQ(observer_.events.size(), 41U);
}

TEST_F(FlvReaderTest, StopsAtTheSliceWithTheErrorOfALongPiece) {
    Bytes bytes = FlvWriter().header(0x02).take();
    bytes.resize(7 * FlvReader::kMaxSliceBytes);
    // One slice is kept for each call; later slices of the call are not looked at, or they would not fit.
    EXPECT_FALSE(consume(bytes));
    EXPECT_FALSE(consume(bytes));
}

TEST_F(FlvReaderTest, ReadsATagThatJustFitsIntoTheBuffer) {
    constexpr std::size_t kBody = FlvReader::kMaxUnreadBytes - 11;
    EXPECT_EQ(overflow(FlvWriter().header().tagHeader(9, kBody, 7).raw(Bytes{0x17, 0, 0, 0, 0}).take()), "");
    const Bytes rest(kBody - 5, 1);
    // The last slice brings more than the tag: it fits by itself, and that is all that counts.
    EXPECT_EQ(overflow(rest), "");
    ASSERT_EQ(observer_.events.size(), 2U);
    EXPECT_TRUE(consume(FlvWriter().backPointer(kBody + 11).audio(8, 0x2E, Bytes{1}).take()));
    EXPECT_EQ(observer_.events.size(), 3U);
}

TEST_F(FlvReaderTest, ThrowsForATagThatNeverFits) {
    EXPECT_TRUE(consume(FlvWriter().header().tagHeader(9, 0xFFFFFF, 0).take())); // 11 bytes unread
    const Bytes mebibyte(FlvReader::kMaxSliceBytes, 0);
    for (int i = 0; i < 4; ++i) {
        EXPECT_TRUE(consume(mebibyte));
    }
    EXPECT_EQ(overflow(mebibyte), "FlatBuffer.push gt maxSize") << "11 bytes too many";
    const Bytes fits(FlvReader::kMaxSliceBytes - 11, 0);
    EXPECT_EQ(overflow(fits), "") << "nothing of the refused piece was kept";
    EXPECT_EQ(overflow({0}), "FlatBuffer.push gt maxSize");
    EXPECT_THAT(errors_, IsEmpty());
}

TEST_F(FlvReaderTest, RefusesASliceByItsWholeLengthEvenIfItWouldCompleteTheTag) {
    constexpr std::size_t kBody = FlvReader::kMaxUnreadBytes - 11;
    EXPECT_TRUE(consume(FlvWriter().header().tagHeader(9, kBody, 0).raw(Bytes(kBody - 10, 0)).take()));
    EXPECT_EQ(overflow(Bytes(11, 0)), "FlatBuffer.push gt maxSize");
    EXPECT_EQ(overflow(Bytes(10, 0)), "");
    EXPECT_EQ(observer_.events.size(), 2U);
}

/// Throws for one tag and records all others.
class ThrowingObserver final : public Observer {
public:
    bool throws = true;
    std::vector<std::uint32_t> timestamps;

    void onHeader(bool, bool) override {}
    void onVideoTag(const VideoPacket&) override {}
    void onAudioTag(const AudioPacket& packet) override {
        if (throws && packet.timestamp == 2) {
            throw std::runtime_error("no memory");
        }
        timestamps.push_back(packet.timestamp);
    }
    void onScriptData(const NumberProperties&) override {}
    void onError(const std::string&) override {}
};

TEST(FlvReaderObserver, ThatThrowsMeetsTheSameTagAgainAndLosesNone) {
    const Bytes stream = FlvWriter()
                             .header()
                             .audio(1, 0x2E, Bytes(9, 1))
                             .audio(2, 0x2E, Bytes(9, 2))
                             .audio(3, 0x2E, Bytes(9, 3))
                             .take();
    for (std::size_t cut = 1; cut < stream.size(); ++cut) {
        ThrowingObserver observer;
        FlvReader reader(&observer);
        int thrown = 0;
        const auto feed = [&](std::size_t from, std::size_t to) {
            const ExactCopy piece(stream.data() + from, to - from);
            try {
                EXPECT_FALSE(reader.consume(piece.data(), piece.size()));
            } catch (const std::runtime_error&) {
                ++thrown;
            }
        };
        feed(0, cut);
        feed(cut, stream.size());
        EXPECT_GE(thrown, 1);
        EXPECT_THAT(observer.timestamps, ElementsAre(1)) << cut;
        observer.throws = false;
        const Bytes next = FlvWriter().audio(4, 0x2E, Bytes{1}).take();
        EXPECT_FALSE(reader.consume(next.data(), next.size()));
        EXPECT_THAT(observer.timestamps, ElementsAre(1, 2, 3, 4)) << cut;
    }
}

TEST(FlvReaderObserver, ThatThrowsMeetsTheTagAgainWithTheNextByte) {
    ThrowingObserver observer;
    FlvReader reader(&observer);
    const auto feed = [&reader](const Bytes& bytes) { return !reader.consume(bytes.data(), bytes.size()); };
    // A long tag in two pieces comes first: what it needed must not delay the short one behind it.
    const Bytes stream = FlvWriter().header().audio(1, 0x2E, Bytes(5000, 1)).take();
    EXPECT_TRUE(feed(Bytes(stream.begin(), stream.begin() + 1000)));
    EXPECT_TRUE(feed(Bytes(stream.begin() + 1000, stream.end())));
    EXPECT_THROW((void)feed(FlvWriter().audio(2, 0x2E, Bytes{1}).take()), std::runtime_error);
    observer.throws = false;
    EXPECT_TRUE(feed({8}));
    EXPECT_THAT(observer.timestamps, ElementsAre(1, 2));
}

} // namespace
} // namespace ko_player::flv
