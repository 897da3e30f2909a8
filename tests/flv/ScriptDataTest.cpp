#include "flv/ScriptData.h"

#include "RecordingObserver.h"
#include "support/FlvWriter.h"

#include <gmock/gmock.h>

#include <cmath>
#include <limits>

namespace ko_player::flv {
namespace {

using mediaworker::test::AmfValue;
using mediaworker::test::scriptBody;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

using Bytes = std::vector<std::uint8_t>;

ScriptData read(const Bytes& body) {
    const ExactCopy copy(body);
    return readScriptData(copy.span());
}

/// The numbers of a body that holds one message.
NumberProperties numbers(const AmfValue::Properties& properties) {
    const ScriptData data = read(scriptBody("onMetaData", properties));
    EXPECT_LE(data.messages.size(), 1U);
    return data.messages.empty() ? NumberProperties{} : data.messages.front();
}

Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

TEST(ScriptData, KeepsNumbersInStreamOrder) {
    EXPECT_THAT(numbers({{"width", 1920}, {"height", 1080}, {"width", 640}}),
                ElementsAre(Pair("width", 1920), Pair("height", 1080), Pair("width", 640)));
}

TEST(ScriptData, RoundsHalvesAwayFromZero) {
    EXPECT_THAT(numbers({{"a", 2.5}, {"b", -2.5}, {"c", 2.4}, {"d", -0.4}}),
                ElementsAre(Pair("a", 3), Pair("b", -3), Pair("c", 2), Pair("d", 0)));
}

TEST(ScriptData, PassesOnWhatIsNoOrdinaryNumber) {
    const auto values = numbers({{"nan", std::numeric_limits<double>::quiet_NaN()},
                                 {"inf", std::numeric_limits<double>::infinity()},
                                 {"huge", 1e300}});
    ASSERT_EQ(values.size(), 3U);
    EXPECT_TRUE(std::isnan(values[0].second));
    EXPECT_TRUE(std::isinf(values[1].second));
    EXPECT_EQ(values[2].second, 1e300);
}

TEST(ScriptData, SkipsEveryPlainTypeThatIsNoNumber) {
    const std::string longText(0x100, 'x');
    EXPECT_THAT(numbers({{"first", 1},
                         {"boolean", true},
                         {"string", longText},
                         {"empty", ""},
                         {"clip", AmfValue::movieClip("clip")},
                         {"null", AmfValue::null()},
                         {"undefined", AmfValue::undefined()},
                         {"reference", AmfValue::reference(0x0900)},
                         {"date", AmfValue::date(1.4e12, 60)},
                         {"long", AmfValue::longString(std::string(70'000, 'y'))},
                         {"", 5},
                         {"last", 2}}),
                ElementsAre(Pair("first", 1), Pair("", 5), Pair("last", 2)));
}

TEST(ScriptData, KeepsKeysThatHoldZeroBytes) {
    EXPECT_THAT(numbers({{std::string("wid\0th", 6), 1}}), ElementsAre(Pair(std::string("wid\0th", 6), 1)));
}

TEST(ScriptData, DiscardsAMessageWithAnythingNestedOrUnknown) {
    const std::vector<AmfValue> foreign{AmfValue::object({{"x", 1}}),
                                        AmfValue::object({}),
                                        AmfValue::ecmaArray({{"x", 1}}),
                                        AmfValue::strictArray({1, 2}),
                                        AmfValue::objectEnd(),
                                        AmfValue::raw(13),
                                        AmfValue::raw(17),
                                        AmfValue::raw(255)};
    for (const AmfValue& value : foreign) {
        const ScriptData data =
            read(scriptBody("onMetaData", {{"width", 1}, {"foreign", value}, {"height", 2}}));
        EXPECT_THAT(data.messages, IsEmpty()) << "type " << static_cast<int>(value.bytes().front());
        EXPECT_FALSE(data.complete);
    }
}

TEST(ScriptData, IgnoresTheElementCount) {
    for (const std::uint8_t count : Bytes{0, 1, 200}) {
        Bytes body = scriptBody("onMetaData", {{"width", 1}});
        body[13 + 1 + 3] = count; // name with marker and length, array marker, last byte of the count
        EXPECT_THAT(read(body).messages, ElementsAre(ElementsAre(Pair("width", 1))));
    }
}

TEST(ScriptData, DeliversNothingForAnArrayWithoutNumbers) {
    for (const auto& properties : {AmfValue::Properties{}, AmfValue::Properties{{"stereo", true}}}) {
        const ScriptData data = read(scriptBody("onMetaData", properties));
        EXPECT_THAT(data.messages, IsEmpty());
        EXPECT_TRUE(data.complete);
    }
}

TEST(ScriptData, ReadsTwoMessagesInOneBody) {
    const ScriptData data = read(scriptBody("onMetaData", {{"a", 1}}) + scriptBody("onMetaData", {{"b", 2}}));
    EXPECT_THAT(data.messages, ElementsAre(ElementsAre(Pair("a", 1)), ElementsAre(Pair("b", 2))));
    EXPECT_TRUE(data.complete);
}

TEST(ScriptData, KeepsTheFirstMessageWhenTheSecondIsBad) {
    const ScriptData data = read(scriptBody("onMetaData", {{"a", 1}}) +
                                 scriptBody("onMetaData", {{"b", 2}, {"c", AmfValue::object({})}}));
    EXPECT_THAT(data.messages, ElementsAre(ElementsAre(Pair("a", 1))));
    EXPECT_FALSE(data.complete);
}

TEST(ScriptData, StopsAtAnObjectEndBetweenMessages) {
    const ScriptData data =
        read(scriptBody("onMetaData", {{"a", 1}}) + Bytes{0, 0, 9} + scriptBody("onMetaData", {{"b", 2}}));
    EXPECT_THAT(data.messages, ElementsAre(ElementsAre(Pair("a", 1))));
    EXPECT_TRUE(data.complete);
}

TEST(ScriptData, DeliversAnArrayWhoseEndMarkerIsMissing) {
    Bytes body = scriptBody("onMetaData", {{"a", 1}});
    body.resize(body.size() - 3);
    const ScriptData whole = read(body);
    EXPECT_THAT(whole.messages, ElementsAre(ElementsAre(Pair("a", 1))));
    EXPECT_TRUE(whole.complete);
    for (const Bytes& rest : {Bytes{0}, Bytes{0, 0}, Bytes{0xFF, 0xFF}}) {
        EXPECT_THAT(read(body + rest).messages, ElementsAre(ElementsAre(Pair("a", 1))));
    }
}

TEST(ScriptData, TakesABodyOfLessThanThreeBytesAsDone) {
    for (const Bytes& body : {Bytes{}, Bytes{2}, Bytes{0xFF, 0xFF}}) {
        EXPECT_THAT(read(body).messages, IsEmpty());
        EXPECT_TRUE(read(body).complete);
    }
}

TEST(ScriptData, IgnoresForeignMessages) {
    const Bytes object = [] {
        Bytes body = scriptBody("onMetaData", {{"a", 1}});
        body[13] = 3; // an object in place of the ECMA array
        return body;
    }();
    for (const Bytes& body : {scriptBody("onCuePoint", {{"a", 1}}), scriptBody("onMetaDat", {{"a", 1}}),
                              scriptBody("onMetaData2", {{"a", 1}}), scriptBody("", {{"a", 1}}), object,
                              Bytes{12, 0, 0, 0, 10}, Bytes{0, 0, 8}}) {
        const ScriptData data = read(body);
        EXPECT_THAT(data.messages, IsEmpty());
        EXPECT_FALSE(data.complete);
    }
}

TEST(ScriptData, NeverReadsPastABodyThatIsCutOffAnywhere) {
    const AmfValue::Properties properties{{"number", 1},
                                          {"boolean", true},
                                          {"string", "text"},
                                          {"clip", AmfValue::movieClip("clip")},
                                          {"null", AmfValue::null()},
                                          {"reference", AmfValue::reference(1)},
                                          {"date", AmfValue::date(1)},
                                          {"long", AmfValue::longString("text")}};
    // Each value in turn stands last, so that the cut goes through it.
    for (std::size_t last = 1; last <= properties.size(); ++last) {
        const Bytes body = scriptBody(
            "onMetaData",
            AmfValue::Properties(properties.begin(), properties.begin() + static_cast<std::ptrdiff_t>(last)));
        for (std::size_t size = 0; size < body.size(); ++size) {
            const ScriptData data =
                read(Bytes(body.begin(), body.begin() + static_cast<std::ptrdiff_t>(size)));
            EXPECT_LE(data.messages.size(), 1U);
        }
    }
}

TEST(ScriptData, FailsWhereAValueIsCutOff) {
    const std::vector<std::pair<std::uint8_t, std::size_t>> shortValues{{0, 7}, {1, 0},  {2, 1}, {4, 0},
                                                                        {7, 1}, {11, 9}, {12, 3}};
    Bytes start = scriptBody("onMetaData", {{"a", 1}});
    start.resize(start.size() - 3);
    for (const auto& [type, bytesThere] : shortValues) {
        const ScriptData data = read(start + Bytes{0, 1, 'b', type} + Bytes(bytesThere, 0));
        EXPECT_THAT(data.messages, IsEmpty()) << "type " << static_cast<int>(type);
        EXPECT_FALSE(data.complete);
    }
    for (const Bytes& tooLong : {Bytes{2, 0, 4, 'x', 'y', 'z'}, Bytes{4, 0xFF, 0xFF, 'x'},
                                 Bytes{12, 0, 0, 0, 2, 'x'}, Bytes{12, 0xFF, 0xFF, 0xFF, 0xFF, 'x'}}) {
        EXPECT_THAT(read(start + Bytes{0, 1, 'b'} + tooLong).messages, IsEmpty());
    }
    EXPECT_THAT(read(start + Bytes{0, 5, 'b', 0, 0}).messages, IsEmpty()) << "key longer than the body";
    EXPECT_THAT(read(start + Bytes{0xFF, 0xFF, 'b', 0, 0}).messages, IsEmpty());
}

// --- as common programs write it

ScriptData readStandard(const Bytes& body) {
    const ExactCopy copy(body);
    return readScriptData(copy.span(), {.onlyPlainArrays = false});
}

/// The name, then a value of any type.
Bytes message(const std::string& name, const AmfValue& value) {
    return AmfValue(name).bytes() + value.bytes();
}

TEST(StandardScriptData, ReadsWhatThePlainReadingReads) {
    for (const Bytes& body :
         {scriptBody("onMetaData", {{"a", 2.5}, {"clip", AmfValue::movieClip("clip")}, {"b", -2.5}}),
          scriptBody("onMetaData", {{"a", 1}}) + scriptBody("onMetaData", {{"b", 2}}),
          scriptBody("onMetaData", {}), Bytes{}, Bytes{0, 0, 9}}) {
        EXPECT_EQ(readStandard(body).messages, read(body).messages);
        EXPECT_TRUE(readStandard(body).complete);
    }
}

TEST(StandardScriptData, ReadsObjectsAndArraysWithAndWithoutTheCommand) {
    const AmfValue::Properties properties{{"width", 640}, {"height", 480}};
    const auto expected = ElementsAre(ElementsAre(Pair("width", 640), Pair("height", 480)));
    for (const AmfValue& value : {AmfValue::object(properties), AmfValue::ecmaArray(properties)}) {
        const Bytes plain = message("onMetaData", value);
        EXPECT_THAT(readStandard(plain).messages, expected);
        EXPECT_THAT(readStandard(AmfValue("@setDataFrame").bytes() + plain).messages, expected);
        EXPECT_TRUE(readStandard(plain).complete);
    }
}

TEST(StandardScriptData, StepsOverNestedValues) {
    const AmfValue keyFrames = AmfValue::object(
        {{"filepositions", AmfValue::strictArray({1, 2, 3})}, {"times", AmfValue::strictArray({0, 2, 4})}});
    const Bytes typedObject = [] {
        Bytes bytes{0, 3, 'a', 'b', 'c'}; // class name
        const Bytes object = AmfValue::object({{"width", 1}}).bytes();
        bytes.insert(bytes.end(), object.begin() + 1, object.end());
        return bytes;
    }();
    const AmfValue::Properties properties{
        {"width", 640},
        {"keyframes", keyFrames},
        {"array", AmfValue::ecmaArray({{"width", 1}, {"deep", keyFrames}})},
        {"mixed", AmfValue::strictArray({1, "two", AmfValue::object({{"width", 3}}), AmfValue::null()})},
        {"typed", AmfValue::raw(16, typedObject)},
        {"xml", AmfValue::raw(15, Bytes{0, 0, 0, 2, 'x', 'y'})},
        {"unsupported", AmfValue::raw(13)},
        {"date", AmfValue::date(1)},
        {"height", 480}};
    for (const AmfValue& value : {AmfValue::object(properties), AmfValue::ecmaArray(properties)}) {
        const ScriptData data = readStandard(message("onMetaData", value));
        EXPECT_THAT(data.messages, ElementsAre(ElementsAre(Pair("width", 640), Pair("height", 480))));
        EXPECT_TRUE(data.complete);
    }
}

TEST(StandardScriptData, TakesBooleansAndTheNamesOfCodecsAsNumbers) {
    const Bytes body = scriptBody("onMetaData", {{"stereo", true},
                                                 {"hasVideo", false},
                                                 {"videocodecid", "avc1"},
                                                 {"audiocodecid", "mp4a"},
                                                 {"encoder", "abcd"},
                                                 {"width", "1280"}});
    EXPECT_THAT(readStandard(body).messages,
                ElementsAre(ElementsAre(Pair("stereo", 1), Pair("hasVideo", 0),
                                        Pair("videocodecid", 0x61766331), Pair("audiocodecid", 0x6D703461))));
    EXPECT_THAT(readStandard(scriptBody("onMetaData", {{"videocodecid", "H264!"}})).messages, IsEmpty());
}

TEST(StandardScriptData, KeepsWhatStoodBeforeABrokenValue) {
    const auto expected = ElementsAre(ElementsAre(Pair("width", 640)));
    for (const AmfValue& broken :
         {AmfValue::objectEnd(), AmfValue::raw(17), AmfValue::raw(255),
          AmfValue::raw(12, Bytes{0xFF, 0xFF, 0xFF, 0xFF}), AmfValue::raw(2, Bytes{0xFF, 0xFF}),
          AmfValue::raw(10, Bytes{0xFF, 0xFF, 0xFF, 0xFF})}) {
        const ScriptData data = readStandard(
            message("onMetaData", AmfValue::object({{"width", 640}, {"broken", broken}, {"height", 480}})));
        EXPECT_THAT(data.messages, expected) << "type " << static_cast<int>(broken.bytes().front());
        EXPECT_FALSE(data.complete);
    }
}

TEST(StandardScriptData, BoundsTheDepth) {
    const auto nested = [](int depth) {
        AmfValue value = 1;
        for (int i = 0; i < depth; ++i) {
            value = i % 2 == 0 ? AmfValue::strictArray({value}) : AmfValue::object({{"x", value}});
        }
        return scriptBody("onMetaData", {{"width", 640}, {"deep", value}, {"height", 480}});
    };
    EXPECT_THAT(readStandard(nested(15)).messages,
                ElementsAre(ElementsAre(Pair("width", 640), Pair("height", 480))));
    // The number in it would be the seventeenth.
    EXPECT_THAT(readStandard(nested(16)).messages, ElementsAre(ElementsAre(Pair("width", 640))));
    EXPECT_THAT(readStandard(nested(17)).messages, ElementsAre(ElementsAre(Pair("width", 640))));
    EXPECT_THAT(readStandard(nested(20'000)).messages, ElementsAre(ElementsAre(Pair("width", 640))));
}

TEST(StandardScriptData, SkipsOtherMessages) {
    EXPECT_THAT(readStandard(scriptBody("onCuePoint", {{"width", 1}})).messages, IsEmpty());
    EXPECT_THAT(readStandard(message("onMetaData", AmfValue(5)) + scriptBody("", {{"width", 1}})).messages,
                IsEmpty());
    EXPECT_THAT(readStandard(message("onTextData", AmfValue::object({{"text", "abc"}})) +
                             scriptBody("onMetaData", {{"width", 640}}))
                    .messages,
                ElementsAre(ElementsAre(Pair("width", 640))));
}

TEST(StandardScriptData, NeverReadsPastABodyThatIsCutOffAnywhere) {
    const Bytes body =
        AmfValue("@setDataFrame").bytes() +
        message("onMetaData",
                AmfValue::object({{"width", 640},
                                  {"stereo", true},
                                  {"videocodecid", "avc1"},
                                  {"keys", AmfValue::object({{"times", AmfValue::strictArray({1})}})},
                                  {"array", AmfValue::ecmaArray({{"x", AmfValue::date(1)}})}}));
    for (std::size_t size = 0; size < body.size(); ++size) {
        const ScriptData data =
            readStandard(Bytes(body.begin(), body.begin() + static_cast<std::ptrdiff_t>(size)));
        EXPECT_LE(data.messages.size(), 1U);
    }
    EXPECT_EQ(readStandard(body).messages.size(), 1U);
}

} // namespace
} // namespace ko_player::flv
