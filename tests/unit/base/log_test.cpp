// What the log macros hand to the OS layer.
#include "base/log.h"

#include "tests/support/test.h"

namespace lanyard::test::log_test {
namespace {

using testing::ElementsAre;

int speak() {
    radLog(kLogTrace, "speak: %d %s\n", 7, "times");
    return __LINE__ - 1;
}

int speakForAnother() {
    radLogAs("radLibInit", kLogMemory, "out of memory\n");
    return __LINE__ - 1;
}

TEST(Log, NamesModuleLevelFunctionAndLine) {
    const LogRecorder log;
    const int line = speak();
    ASSERT_THAT(log.lines(), ElementsAre(Logged(7, 128, "speak", "speak: 7 times\n")));
    EXPECT_EQ(line, log.lines()[0].line);
}

TEST(Log, NamesThePublicFunctionThatSharedCodeWorksFor) {
    const LogRecorder log;
    const int line = speakForAnother();
    ASSERT_THAT(log.lines(), ElementsAre(Logged(7, 4, "radLibInit", "out of memory\n")));
    EXPECT_EQ(line, log.lines()[0].line);
}

int speakAsDevice() {
    radDeviceLog(kLogWarning, "relay %d\n", 7);
    return __LINE__ - 1;
}

int speakAsDeviceForAnother() {
    radDeviceLogAs("palEapRelay", kLogError, "refused\n");
    return __LINE__ - 1;
}

TEST(Log, HasAModuleOfItsOwnForRelayAndDatabase) {
    const LogRecorder log;
    const int line = speakAsDevice();
    const int lineForAnother = speakAsDeviceForAnother();
    ASSERT_THAT(log.lines(), ElementsAre(Logged(8, 16, "speakAsDevice", "relay 7\n"),
                                         Logged(8, 8, "palEapRelay", "refused\n")));
    EXPECT_EQ(line, log.lines()[0].line);
    EXPECT_EQ(lineForAnother, log.lines()[1].line);
}

TEST(Log, HasTheLevelsOfTheDevice) {
    EXPECT_EQ(4, kLogMemory);
    EXPECT_EQ(8, kLogError);
    EXPECT_EQ(16, kLogWarning);
    EXPECT_EQ(128, kLogTrace);
    EXPECT_EQ(256, kLogDump);
    EXPECT_EQ(7, kModuleLibrary);
    EXPECT_EQ(8, kModuleDevice);
}

}  // namespace
}  // namespace lanyard::test::log_test
