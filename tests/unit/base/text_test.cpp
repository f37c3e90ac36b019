// The helpers over C text.
#include "base/text.h"

#include <cerrno>

#include "tests/support/test.h"

namespace lanyard::test::text_test {
namespace {

TEST(DecimalValue, IsTheNumberThatATextStartsWith) {
    EXPECT_EQ(0, decimalValue("0"));
    EXPECT_EQ(1812, decimalValue("1812"));
    EXPECT_EQ(2, decimalValue("0002"));
    EXPECT_EQ(12, decimalValue("12abc"));
    EXPECT_EQ(-1, decimalValue("-1"));
    EXPECT_EQ(5, decimalValue(" \t+5"));
    EXPECT_EQ(2147483647, decimalValue("2147483647"));
}

TEST(DecimalValue, IsZeroWhereThereIsNone) {
    EXPECT_EQ(0, decimalValue(""));
    EXPECT_EQ(0, decimalValue("abc"));
    EXPECT_EQ(0, decimalValue("0x10"));
}

TEST(StartsWithDigit, LooksAtTheFirstCharacterAlone) {
    EXPECT_TRUE(startsWithDigit("0"));
    EXPECT_TRUE(startsWithDigit("9x"));
    EXPECT_FALSE(startsWithDigit("x9"));
    EXPECT_FALSE(startsWithDigit("-1"));
    EXPECT_FALSE(startsWithDigit(" 1"));
    EXPECT_FALSE(startsWithDigit(""));
    EXPECT_FALSE(startsWithDigit("\xb2"));
    EXPECT_FALSE(startsWithDigit("\xff"));
}

TEST(ShownText, StandsInForAbsentText) {
    EXPECT_STREQ("nemo", shownText("nemo"));
    EXPECT_STREQ("", shownText(""));
    EXPECT_STREQ("(null)", shownText(nullptr));
    EXPECT_STREQ("s3cr3t", shownSecret("s3cr3t"));
    EXPECT_STREQ("", shownSecret(""));
    EXPECT_STREQ("NO", shownSecret(nullptr));
}

TEST(ErrorTextOfTheSystem, IsTheSystemsOwn) {
    EXPECT_STREQ("No such file or directory", ErrorText(ENOENT).text());
    EXPECT_STREQ("Permission denied", ErrorText(EACCES).text());
    EXPECT_STREQ("Unknown error 99999", ErrorText(99999).text());
}

}  // namespace
}  // namespace lanyard::test::text_test
