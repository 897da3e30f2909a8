#include "flv/FlvParser.h"

#include "RecordingObserver.h"
#include "support/FlvWriter.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <stdexcept>

namespace ko_player::flv {
namespace {

using mediaworker::test::AmfValue;
using mediaworker::test::FlvWriter;
using mediaworker::test::VideoCodec;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

using Bytes = std::vector<std::uint8_t>;

/// A parser with a plain vector in front of it, which keeps what the parser leaves.
class FlvParserTest : public testing::Test {
protected:
    /// Returns the error's message, "" without one.
    std::string feed(const Bytes& bytes) {
        pending_.insert(pending_.end(), bytes.begin(), bytes.end());
        const ExactCopy copy(pending_);
        auto unread = copy.span();
        const auto outcome = parser_.parse(unread);
        pending_.assign(unread.begin(), unread.end());
        needed_ = outcome.bytesNeeded;
        if (!outcome.error) {
            EXPECT_GT(needed_, pending_.size());
            return "";
        }
        EXPECT_EQ(outcome.error->code, std::make_error_code(std::errc::invalid_argument));
        EXPECT_EQ(outcome.error->code.value(), 22);
        EXPECT_EQ(outcome.error->code.category(), std::generic_category());
        return outcome.error->message;
    }

    [[nodiscard]] const std::vector<std::string>& events() const { return observer_.events; }

    RecordingObserver observer_;
    FlvParser parser_{&observer_};
    Bytes pending_;
    std::size_t needed_ = 0;
};

Bytes fileHeader(std::uint8_t flags, std::uint32_t dataOffset = 9, std::uint8_t version = 1) {
    Bytes bytes = FlvWriter().header(flags, dataOffset, version).take();
    bytes.resize(bytes.size() - 4); // without the back-pointer
    return bytes;
}

TEST_F(FlvParserTest, ReportsAHeaderOnceItIsWhole) {
    const Bytes header = fileHeader(0x05, 12);
    EXPECT_EQ(feed(Bytes(header.begin(), header.begin() + 5)), "");
    EXPECT_EQ(needed_, 9U);
    EXPECT_EQ(feed(Bytes(header.begin() + 5, header.begin() + 9)), "");
    EXPECT_EQ(needed_, 12U);
    EXPECT_THAT(events(), IsEmpty());
    EXPECT_EQ(feed(Bytes(header.begin() + 9, header.end())), "");
    EXPECT_THAT(events(), ElementsAre("header audio=1 video=1"));
    EXPECT_THAT(pending_, IsEmpty());
}

TEST_F(FlvParserTest, ReportsAudioByTheVideoBit) {
    const std::vector<std::pair<std::uint8_t, const char*>> rows{{0x00, "header audio=0 video=0"},
                                                                 {0x01, "header audio=1 video=1"},
                                                                 {0x04, "header audio=0 video=0"},
                                                                 {0x05, "header audio=1 video=1"}};
    for (const auto& [flags, event] : rows) {
        RecordingObserver observer;
        FlvParser parser(&observer);
        const ExactCopy header(fileHeader(flags));
        auto unread = header.span();
        EXPECT_FALSE(parser.parse(unread).error);
        EXPECT_THAT(observer.events, ElementsAre(event));
    }
}

TEST_F(FlvParserTest, RefusesABadHeader) {
    std::vector<Bytes> headers{fileHeader(0x02),    fileHeader(0x08),       fileHeader(0x80),
                               fileHeader(0x07),    fileHeader(0x05, 8),    fileHeader(0x05, 65),
                               fileHeader(0x05, 0), fileHeader(0x05, 9, 0), fileHeader(0x05, 9, 2)};
    Bytes hugeOffset = fileHeader(0x05);
    hugeOffset[5] = 0xFF;
    headers.push_back(hugeOffset);
    for (std::size_t i = 0; i < 3; ++i) {
        Bytes signature = fileHeader(0x05);
        signature[i] ^= 0x20U;
        headers.push_back(signature);
    }
    for (const Bytes& header : headers) {
        RecordingObserver observer;
        FlvParser parser(&observer);
        const ExactCopy copy(header);
        auto unread = copy.span();
        const auto outcome = parser.parse(unread);
        ASSERT_TRUE(outcome.error);
        EXPECT_EQ(outcome.error->message, "invalid header");
        EXPECT_EQ(unread.size(), header.size()) << "nothing is consumed";
        EXPECT_THAT(observer.events, IsEmpty());
    }
}

TEST_F(FlvParserTest, JudgesAHeaderBeforeItsExtensionArrives) {
    Bytes header = fileHeader(0x02, 64);
    header.resize(9);
    EXPECT_EQ(feed(header), "invalid header");
}

TEST_F(FlvParserTest, SkipsHeaderExtensions) {
    for (const std::uint32_t dataOffset : {9U, 20U, 64U}) {
        RecordingObserver observer;
        FlvParser parser(&observer);
        const ExactCopy copy(FlvWriter().header(0x05, dataOffset).audio(5, 0x2E, Bytes{1}).take());
        auto unread = copy.span();
        EXPECT_FALSE(parser.parse(unread).error);
        EXPECT_EQ(observer.events.size(), 2U) << dataOffset;
        EXPECT_TRUE(unread.empty());
    }
}

TEST_F(FlvParserTest, WantsTheFirstBackPointerToBeZero) {
    EXPECT_EQ(feed(fileHeader(0x05)), "");
    EXPECT_EQ(needed_, 4U);
    EXPECT_EQ(feed({0, 0, 0}), "");
    EXPECT_EQ(feed({7}), "prevTagSize: read: 7 must be: 0");
    EXPECT_EQ(pending_.size(), 4U);
    EXPECT_EQ(feed({}), "prevTagSize: read: 7 must be: 0") << "the same bytes give the same error";
}

TEST_F(FlvParserTest, WantsEachBackPointerToFitItsTag) {
    EXPECT_EQ(feed(FlvWriter().header().tagHeader(8, 3, 0).raw(Bytes{0x2E, 1, 2}).backPointer(14).take()),
              "");
    EXPECT_EQ(feed(FlvWriter().tagHeader(8, 2, 0).raw(Bytes{0x2E, 1}).backPointer(0xFFFFFFFF).take()),
              "prevTagSize: read: 4294967295 must be: 13");
    EXPECT_EQ(events().size(), 3U) << "header and both tags";
}

TEST_F(FlvParserTest, DeliversATagWithItsLastByte) {
    const Bytes payload(300, 0x55);
    const Bytes bytes = FlvWriter().header().audio(1, 0x2E, payload).take();
    const std::size_t tagEnd = bytes.size() - 4;
    EXPECT_EQ(feed(Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(tagEnd - 1))), "");
    EXPECT_EQ(events().size(), 1U);
    EXPECT_EQ(needed_, 11U + 301U);
    EXPECT_EQ(feed({bytes[tagEnd - 1]}), "");
    EXPECT_EQ(events().size(), 2U);
    EXPECT_EQ(feed({0, 0, 1, 0x39}), "prevTagSize: read: 313 must be: 312");
}

TEST_F(FlvParserTest, ReadsTheExtendedTimestamp) {
    EXPECT_EQ(
        feed(FlvWriter().header().audio(16'777'217, 0x2E, Bytes{1}).audio(0xFFFFFFFF, 0x2E, Bytes{1}).take()),
        "");
    ASSERT_EQ(events().size(), 3U);
    EXPECT_THAT(events()[1], StartsWith("audio 16777217 "));
    EXPECT_THAT(events()[2], StartsWith("audio 4294967295 "));
    // Timestamp 00 00 01, TimestampExtended 01
    EXPECT_EQ(feed({8, 0, 0, 2, 0, 0, 1, 1, 0, 0, 0, 0x2E, 1}), "");
    EXPECT_THAT(events().back(), StartsWith("audio 16777217 "));
}

TEST_F(FlvParserTest, RefusesAStreamId) {
    EXPECT_EQ(feed(FlvWriter().header().tag(8, 0, Bytes{0x2E, 1}, 0x010203).take()), "streamId: 66051");
    EXPECT_EQ(feed({}), "streamId: 66051");
    EXPECT_EQ(events().size(), 1U);
}

TEST_F(FlvParserTest, JudgesTheStreamIdBeforeTheTagArrives) {
    EXPECT_EQ(feed(FlvWriter().header().tagHeader(8, 1000, 0, 1).take()), "streamId: 1");
}

TEST_F(FlvParserTest, RefusesUnknownTagTypesOnceTheTagIsWhole) {
    for (const std::uint8_t type : Bytes{0, 0x28, 7, 10, 15, 255}) {
        RecordingObserver observer;
        FlvParser parser(&observer);
        const Bytes bytes = FlvWriter().header().tag(type, 0, Bytes{0x2E, 1}).take();
        const ExactCopy tooShort(bytes.data(), bytes.size() - 5);
        auto unread = tooShort.span();
        EXPECT_FALSE(parser.parse(unread).error) << "the tag waits whole, whatever it is";
        Bytes rest(unread.begin(), unread.end());
        rest.push_back(1);
        const ExactCopy whole(rest);
        unread = whole.span();
        const auto outcome = parser.parse(unread);
        ASSERT_TRUE(outcome.error);
        EXPECT_EQ(outcome.error->message, "undef tag type:" + std::to_string(type));
        EXPECT_EQ(unread.size(), 13U) << "the tag is not consumed";
    }
}

TEST_F(FlvParserTest, ReportsBadBodiesAndGoesOn) {
    EXPECT_EQ(feed(FlvWriter()
                       .header()
                       .tag(8, 0, Bytes{0xB2, 1, 2})
                       .tag(8, 0, Bytes{0xAF})
                       .tag(8, 0, Bytes{0xAF, 1})
                       .tag(8, 0, Bytes{})
                       .tag(9, 0, Bytes{0x17})
                       .tag(9, 0, Bytes{0x37, 1, 0, 0, 0, 0})
                       .tag(9, 0, Bytes{0x12, 1, 0, 0, 0, 0})
                       .tag(9, 0, Bytes{0x17, 1, 0, 0, 0})
                       .tag(9, 0, Bytes{0x17, 1, 0, 0, 0, 0, 0, 0, 11, 1})
                       .tag(18, 0, Bytes{0xFF, 0xFF, 0xFF})
                       .tag(18, 0, Bytes{})
                       .audio(9, 0x2E, Bytes{1})
                       .take()),
              "");
    EXPECT_THAT(events(),
                ElementsAre("header audio=1 video=1", "error flv_tag_audio:unsupported fmt: 11",
                            "error flv_tag_audio:size is less than header size: 1",
                            "error flv_tag_audio:data size is 0",
                            "error flv_tag_audio:size is less than header size: 0",
                            "error flv_tag_video: size <= headerSize", "error flv_tag_video: undef frameType",
                            "error flv_tag_video: invalid video codec",
                            "error flv_tag_video:", "error flv_tag_video:",
                            "audio 9 fmt=2 rate=44000 s16=1 ch=1 seq=0 size=1 data=1."));
}

TEST_F(FlvParserTest, DeliversVideoAudioAndScriptData) {
    EXPECT_EQ(feed(FlvWriter()
                       .header()
                       .metadata(0, {{"width", 640}, {"duration", 2.5}})
                       .metadata(0, {{"width", 640}, {"nested", AmfValue::object({})}})
                       .video(40, VideoCodec::Hevc, true, 1, Bytes{0, 0, 0, 1, 0x26})
                       .video(80, VideoCodec::Avc, false, 1, Bytes{0, 0, 0, 1, 0x41}, 40)
                       .aac(81, 0, Bytes{0x12, 0x10})
                       .take()),
              "");
    EXPECT_THAT(events(), ElementsAre("header audio=1 video=1", "script width=640 duration=3",
                                      "video 40 key=1 seq=0 size=5 data=0.0.0.1.26.",
                                      "video 80 key=0 seq=0 size=5 data=0.0.0.1.41.",
                                      "audio 81 fmt=10 rate=44000 s16=1 ch=2 seq=1 size=2 data=12.10."));
}

TEST(FlvParserWithoutObserver, StillFindsErrors) {
    FlvParser parser(nullptr);
    const ExactCopy copy(FlvWriter()
                             .header()
                             .metadata(0, {{"width", 640}})
                             .audio(0, 0x2E, Bytes{1})
                             .tag(9, 0, Bytes{0x17})
                             .tag(0, 0, Bytes{})
                             .take());
    auto unread = copy.span();
    const auto outcome = parser.parse(unread);
    ASSERT_TRUE(outcome.error);
    EXPECT_EQ(outcome.error->message, "undef tag type:0");
}

// --- the standard reading

/// The events of a whole stream, and the error's message as the last of them.
std::vector<std::string> readStandard(const Bytes& stream) {
    RecordingObserver observer;
    FlvParser parser(&observer, FlvReading::Standard);
    const ExactCopy copy(stream);
    auto unread = copy.span();
    const auto outcome = parser.parse(unread);
    if (outcome.error) {
        observer.events.push_back(outcome.error->message);
    }
    return observer.events;
}

TEST(FlvParserStandard, TakesAnyFlagsAndReportsTheirMeaning) {
    EXPECT_THAT(readStandard(fileHeader(0x04)), ElementsAre("header audio=1 video=0"));
    EXPECT_THAT(readStandard(fileHeader(0x01)), ElementsAre("header audio=0 video=1"));
    EXPECT_THAT(readStandard(fileHeader(0x05)), ElementsAre("header audio=1 video=1"));
    EXPECT_THAT(readStandard(fileHeader(0xFA)), ElementsAre("header audio=0 video=0"));
}

TEST(FlvParserStandard, StillRefusesWhatIsNoFlv) {
    EXPECT_THAT(readStandard(fileHeader(0x05, 9, 2)), ElementsAre("invalid header"));
    EXPECT_THAT(readStandard(fileHeader(0x05, 8)), ElementsAre("invalid header"));
    EXPECT_THAT(readStandard(Bytes(20, '<')), ElementsAre("invalid header"));
}

TEST(FlvParserStandard, DoesNotMindBackPointersAndStreamIds) {
    Bytes stream = fileHeader(0x05);
    FlvWriter writer;
    writer.backPointer(77);
    writer.tagHeader(8, 2, 1).raw(Bytes{0x2E, 1}).backPointer(0);
    writer.tagHeader(8, 2, 2, 0x010203).raw(Bytes{0x2E, 2}).backPointer(0xFFFFFFFF);
    writer.tagHeader(8, 2, 3).raw(Bytes{0x2E, 3});
    const Bytes rest = writer.take();
    stream.insert(stream.end(), rest.begin(), rest.end());
    const auto events = readStandard(stream);
    ASSERT_EQ(events.size(), 4U);
    EXPECT_THAT(events[3], StartsWith("audio 3 "));
}

TEST(FlvParserStandard, SkipsUnknownAndEncryptedTags) {
    FlvWriter writer;
    writer.header();
    for (const std::uint8_t type : Bytes{0, 7, 10, 15, 0x28, 0x29, 0x32, 0xFF}) {
        writer.tag(type, 0, Bytes{0x2E, 1, 2, 3});
    }
    writer.tag(0x48, 5, Bytes{0x2E, 1}); // a reserved bit
    const auto events = readStandard(writer.take());
    ASSERT_EQ(events.size(), 2U);
    EXPECT_THAT(events[1], StartsWith("audio 5 fmt=2 "));
}

TEST(FlvParserStandard, ReportsBrokenTagsAndLeavesOutEmptyOnes) {
    EXPECT_THAT(readStandard(FlvWriter()
                                 .header()
                                 .tag(8, 0, Bytes{})
                                 .tag(9, 0, Bytes{})
                                 .tag(9, 0, Bytes{0x17, 2, 0, 0, 0})
                                 .tag(9, 0, Bytes{0x17, 1, 0})
                                 .tag(9, 0, Bytes{0x57, 1})
                                 .tag(9, 0, Bytes{0x91, 'a', 'v'})
                                 .tag(8, 0, Bytes{0x91, 'O'})
                                 .take()),
                ElementsAre("header audio=1 video=1", "error flv_tag_video: header is cut off",
                            "error flv_tag_video: enhanced header is cut off",
                            "error flv_tag_audio:enhanced header is cut off"));
}

TEST(FlvParserStandard, SaysOnceThatFurtherTracksAreSkipped) {
    const auto track = [](std::uint8_t id) { return Bytes{0x95, 0x01, 'O', 'p', 'u', 's', id, 5}; };
    FlvWriter writer;
    writer.header();
    for (int i = 0; i < 3; ++i) {
        writer.tag(8, 0, track(0)).tag(8, 0, track(1));
    }
    const auto events = readStandard(writer.take());
    EXPECT_EQ(events.size(), 1U + 3U + 1U);
    EXPECT_EQ(std::count(events.begin(), events.end(), "error flv_tag_audio: further tracks are skipped"), 1);
}

TEST(FlvParserStandard, DeliversObjectsOfAPublisher) {
    Bytes body = AmfValue("@setDataFrame").bytes();
    const Bytes name = AmfValue("onMetaData").bytes();
    const Bytes object = AmfValue::object({{"width", 640}}).bytes();
    body.insert(body.end(), name.begin(), name.end());
    body.insert(body.end(), object.begin(), object.end());
    EXPECT_THAT(readStandard(FlvWriter().header().tag(18, 0, body).take()),
                ElementsAre("header audio=1 video=1", "script width=640"));
}

} // namespace
} // namespace ko_player::flv
