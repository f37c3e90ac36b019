// What is printed, whichever way.
#include <cstdio>
#include <unistd.h>

#include <lanyard/radius/frame.h>

#include "tests/support/test.h"

namespace lanyard::test::stdout_capture_test {
namespace {

TEST(StdoutCaptureTest, TakesWhatIsPrinted) {
    StdoutCapture output;
    radLibVersion();
    EXPECT_EQ("Lanyard RADIUS 2.0.0\n", output.text());
    EXPECT_LE(0, std::puts("more"));
    EXPECT_EQ(0, std::fflush(stdout));
    EXPECT_EQ(3, write(STDOUT_FILENO, "raw", 3));
    EXPECT_EQ("Lanyard RADIUS 2.0.0\nmore\nraw", output.finish());
    EXPECT_EQ("Lanyard RADIUS 2.0.0\nmore\nraw", output.text());
}

}  // namespace
}  // namespace lanyard::test::stdout_capture_test
