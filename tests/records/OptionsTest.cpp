#include "records/Options.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace ko_player {
namespace {

using ::testing::ElementsAreArray;

constexpr Options kEverything{FlvReading::Standard,
                              BufferingPolicy::Never,
                              SyncPolicy::ByTimeStamps,
                              LengthPolicy::Exact,
                              SandboxPolicy::Required,
                              Mp4Policy::Safe,
                              true};

struct OptionsCase {
    const char* name;
    std::string text;
    Options options;
    std::vector<std::string> complaints;
};

class ParseOptions : public ::testing::TestWithParam<OptionsCase> {};

TEST_P(ParseOptions, ReadsWhatItKnowsAndNamesTheRest) {
    const OptionsCase& row = GetParam();
    const ParsedOptions parsed = parseOptions(row.text);
    EXPECT_EQ(parsed.options, row.options);
    EXPECT_THAT(parsed.complaints, ElementsAreArray(row.complaints));
}

std::string key(const std::string& part) {
    return "MEDIAWORKER_OPTIONS: unknown key is ignored: " + part;
}

std::string value(const std::string& part) {
    return "MEDIAWORKER_OPTIONS: unknown value is ignored: " + part;
}

INSTANTIATE_TEST_SUITE_P(
    Rows, ParseOptions,
    ::testing::Values(
        OptionsCase{"Empty", "", {}, {}}, OptionsCase{"OnlyCommasAndBlanks", " ,,\t, ", {}, {}},
        OptionsCase{"Defaults",
                    "flv=strict,buffering=on,sync=off,length=expected,sandbox=off,mp4=plain",
                    {.explains = true},
                    {}},
        OptionsCase{"All",
                    "flv=standard,buffering=off,sync=on,length=exact,sandbox=required,mp4=safe",
                    kEverything,
                    {}},
        OptionsCase{"AnyOrderAndBlanks",
                    " sync=on , mp4 = safe, sandbox=required,flv = standard,length=exact,buffering=off,",
                    kEverything,
                    {}},
        OptionsCase{"LastOneCounts", "flv=standard,flv=strict", {.explains = true}, {}},
        OptionsCase{"Sandbox", "sandbox=on", {.sandbox = SandboxPolicy::On, .explains = true}, {}},
        OptionsCase{"Mp4", "mp4=safe", {.mp4 = Mp4Policy::Safe, .explains = true}, {}},
        OptionsCase{"Mp4Unknown", "mp4=fragmented", {}, {value("mp4=fragmented")}},
        OptionsCase{"UnknownKey",
                    "color=red,sync=on",
                    {.sync = SyncPolicy::ByTimeStamps, .explains = true},
                    {key("color=red")}},
        OptionsCase{"UnknownValue",
                    "flv=modern,flv=standard",
                    {.flv = FlvReading::Standard, .explains = true},
                    {value("flv=modern")}},
        OptionsCase{"UnknownValueKeepsTheFormer",
                    "flv=standard,flv=modern",
                    {.flv = FlvReading::Standard, .explains = true},
                    {value("flv=modern")}},
        OptionsCase{"NoValue", "flv,flv=,=standard", {}, {value("flv"), value("flv="), key("=standard")}},
        OptionsCase{
            "CaseCounts", "FLV=standard,flv=Standard", {}, {key("FLV=standard"), value("flv=Standard")}},
        OptionsCase{"SecondEqualsSign", "flv=standard=1", {}, {value("flv=standard=1")}},
        OptionsCase{"OneLineEach", std::string("a\nb=\x01", 5), {}, {key("a?b=?")}},
        OptionsCase{"LongNonsense", std::string(100'000, 'x'), {}, {key(std::string(80, 'x'))}}),
    [](const auto& row) { return row.param.name; });

} // namespace
} // namespace ko_player
