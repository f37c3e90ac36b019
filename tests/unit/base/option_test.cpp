// The options of the library as a whole.
#include <lanyard/radius/frame.h>

#include "tests/support/test.h"
#include "tests/unit/base/fresh_process.h"

namespace lanyard::test::option_test {
namespace {

TEST(OptionsAtStart, AreAllZero) {
    EXPECT_PASSES_IN_FRESH_PROCESS({
        for (int option = 0; option < RAD_OPTION_COUNT; ++option) {
            EXPECT_EQ(0, radOptionGet(option)) << option;
        }
    });
}

TEST(Options, HoldWhatTheyWereSetTo) {
    const LogRecorder log;
    for (int option = 0; option < RAD_OPTION_COUNT; ++option) {
        SCOPED_TRACE(option);
        for (const int value : {1, -1, INT32_MAX, INT32_MIN, 0}) {
            EXPECT_EQ(0, radOptionSet(option, value));
            EXPECT_EQ(value, radOptionGet(option));
        }
    }
    EXPECT_LOG(log);
}

TEST(Options, AreKeptAcrossStartAndStop) {
    EXPECT_EQ(0, radOptionSet(RAD_OPTION_STANDARD_SHA1, 1));
    EXPECT_EQ(0, radLibInit(nullptr));
    EXPECT_EQ(1, radOptionGet(RAD_OPTION_STANDARD_SHA1));
    EXPECT_EQ(0, radLibExit());
    EXPECT_EQ(1, radOptionGet(RAD_OPTION_STANDARD_SHA1));
    EXPECT_EQ(0, radOptionSet(RAD_OPTION_STANDARD_SHA1, 0));
}

TEST(Options, AreNoOthers) {
    for (const int option : {-1, INT32_MIN, static_cast<int>(RAD_OPTION_COUNT), INT32_MAX}) {
        SCOPED_TRACE(option);
        EXPECT_EQ(-1, radOptionSet(option, 1));
        EXPECT_EQ(-1, radOptionGet(option));
    }
    EXPECT_EQ(0, radOptionGet(RAD_OPTION_STANDARD_SHA1));
}

}  // namespace
}  // namespace lanyard::test::option_test
