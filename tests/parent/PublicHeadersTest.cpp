#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <string>

namespace {

// Every header of this folder is installed.
TEST(PublicHeaders, DescribeEveryTypeAndFunctionOfTheirNamespace) {
    const std::regex type("^(class|struct|enum class) \\w+.*\\{");
    const std::regex function("^\\[\\[nodiscard\\]\\] .*\\(");
    int described = 0;
    for (const auto& entry : std::filesystem::directory_iterator(PARENT_FOLDER)) {
        if (entry.path().extension() != ".h") {
            continue;
        }
        std::ifstream file(entry.path());
        std::string before;
        for (std::string line; std::getline(file, line);) {
            if (std::regex_search(line, type) || std::regex_search(line, function)) {
                EXPECT_EQ(before.rfind("///", 0), 0U) << entry.path().filename() << ": " << line;
                ++described;
            }
            before = line;
        }
    }
    EXPECT_GT(described, 15);
}

} // namespace
