#include "tools/playlist/PlainText.h"

#include <gtest/gtest.h>

namespace mediaworker {
namespace {

TEST(PlainText, LeavesOutWhatCannotBeSeenOrMovesOtherText) {
    const std::pair<const char*, const char*> cases[] = {
        {"Entrance", "Entrance"},
        {"  Tür  2\t(Süd) ", "Tür 2 (Süd)"},
        {"two\nlines\r\n", "two lines"},
        {"<b>bold</b> &amp;", "<b>bold</b> &amp;"},
        {"a\x01\x1b[31mb\x7f", "a[31mb"},
        {"left\xe2\x80\xaetxt.exe", "lefttxt.exe"},                 // U+202E
        {"\xe2\x81\xa6x\xe2\x81\xa9\xe2\x80\x8f\xe2\x80\x8e", "x"}, // isolates and marks
        {"zero\xe2\x80\x8bwidth\xef\xbb\xbf", "zerowidth"},         // U+200B, U+FEFF
        {"a\xe2\x80\xa8"
         "b\xe2\x80\xa9"
         "c",
         "a b c"},                                                    // line, paragraph separator
        {"\xf0\x9f\x8e\xa5 camera", "\xf0\x9f\x8e\xa5 camera"},       // beyond 16 bits
        {"\xee\x80\x80\xef\xbf\xbf", ""},                             // private, no character
        {"\xd7\xa9\xd7\xa2\xd7\xa8 1", "\xd7\xa9\xd7\xa2\xd7\xa8 1"}, // Hebrew is text
        {"", ""},
    };
    for (const auto& [text, expected] : cases) {
        EXPECT_EQ(plainText(QString::fromUtf8(text)).toStdString(), expected) << text;
    }
    const QString unpaired = QStringLiteral("a") + QChar(0xd800) + QStringLiteral("b");
    EXPECT_FALSE(plainText(unpaired).contains(QChar(0xd800)));
}

TEST(PlainText, IsShortenedBetweenCharacters) {
    const QString longest(kLongestPlainText, QLatin1Char('x'));
    EXPECT_EQ(plainText(longest), longest);
    const QString cut = plainText(longest + QLatin1Char('x'));
    EXPECT_EQ(cut.size(), kLongestPlainText);
    EXPECT_TRUE(cut.endsWith(QChar(0x2026)));
    const QString camera = QString::fromUtf8("\xf0\x9f\x8e\xa5");
    const QString pairs = plainText(longest.left(kLongestPlainText - 2) + camera + camera);
    EXPECT_FALSE(pairs.at(pairs.size() - 2).isHighSurrogate());
    EXPECT_LE(plainText(QString(1'000'000, QChar(0x202e))).size(), kLongestPlainText);
}

} // namespace
} // namespace mediaworker
