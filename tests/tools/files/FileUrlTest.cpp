#include "tools/files/FileUrl.h"

#include "support/Platform.h"

#include <gtest/gtest.h>

#include <vector>

namespace mediaworker {
namespace {

struct Row {
    const char* path;
    const char* url;
};

std::vector<Row> rows() {
    if (test::platform::kIsWindows) {
        return {{"D:\\films\\a b.mp4", "file:///D:/films/a b.mp4"},
                {"D:/films/../a.mp4", "file:///D:/a.mp4"},
                {"\\films\\a.mp4", "file:///C:/films/a.mp4"},
                {"\\\\server\\films\\a.mp4", "file://///server/films/a.mp4"},
                {"films\\a.mp4", "file:///C:/home/me/films/a.mp4"}};
    }
    return {{"/films/a b.mp4", "file:///films/a b.mp4"},
            {"/films/%20#?.mp4", "file:///films/%20#?.mp4"},
            {"/films/../a.mp4", "file:///a.mp4"},
            {"//films/a.mp4", "file:///films/a.mp4"},
            {"films/a\\b.mp4", "file:///home/me/films/a\\b.mp4"},
            {"../a.mp4", "file:///home/a.mp4"}};
}

TEST(FileUrl, IsThePathLetterByLetter) {
    const QString folder = QString::fromUtf8(test::platform::kIsWindows ? "C:/home/me" : "/home/me");
    for (const Row& row : rows()) {
        EXPECT_EQ(fileUrl(QString::fromUtf8(row.path), folder), QString::fromUtf8(row.url)) << row.path;
    }
}

TEST(FileUrl, IsWhatAWorkerTakesForAFile) {
    EXPECT_TRUE(isFileUrl(QStringLiteral("file:///films/a.mp4")));
    EXPECT_FALSE(isFileUrl(QStringLiteral("http://files/a.mp4")));
    EXPECT_FALSE(isFileUrl(QString()));
}

} // namespace
} // namespace mediaworker
