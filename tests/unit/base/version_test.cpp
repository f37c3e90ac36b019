// What the library says of itself.
#include <lanyard/radius/frame.h>

#include "tests/support/test.h"

namespace lanyard::test::version_test {
namespace {

TEST(Version, IsOneLineOnStandardOutput) {
    const LogRecorder log;
    StdoutCapture output;
    const int status = radLibVersion();
    EXPECT_EQ("Lanyard RADIUS 2.0.0\n", output.finish());
    EXPECT_EQ(0, status);
    EXPECT_LOG(log);
}

TEST(DefaultConfigurationFile, IsAConstant) {
    const char *path = radLibDefConf();
    EXPECT_STREQ("/var/radius.conf", path);
    EXPECT_EQ(path, radLibDefConf());
}

}  // namespace
}  // namespace lanyard::test::version_test
