// Lines of the programs' output.
#include "base/output.h"

#include "tests/support/test.h"

namespace lanyard::test::output_test {
namespace {

// What a line prints after that text and that digit pair.
template <size_t size>
std::string printed(std::string_view text) {
    testing::internal::CaptureStdout();
    OutputLine<size> line;
    line.add(text);
    line.add(hexOf(0x1f));
    line.print();
    std::fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

TEST(OutputLine, TextAndDigits_FillItToTheEnd) {
    EXPECT_EQ("abc1f", printed<5>("abc"));
}

TEST(OutputLine, DigitsThatDoNotFit_LeftOut) {
    EXPECT_EQ("abcd", printed<5>("abcd"));
}

TEST(OutputLine, TextThatDoesNotFit_IsCut) {
    EXPECT_EQ("abcde", printed<5>("abcdefgh"));
}

}  // namespace
}  // namespace lanyard::test::output_test
