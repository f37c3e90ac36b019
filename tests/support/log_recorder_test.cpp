// The log as tests expect it, and how a difference is shown.
#include <array>
#include <cerrno>
#include <gtest/gtest-spi.h>
#include <stdexcept>
#include <string>
#include <thread>

#include <lanyard/radius/dict.h>
#include <palcore.h>

#include "tests/support/test.h"

namespace lanyard::test::log_recorder_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

TEST(LogRecorderTest, RecordsWhatTheLibraryLogs) {
    const LogRecorder log;
    errno = EDOM;
    EXPECT_EQ(-1, radDictAddAttr("bogus"));
    EXPECT_LOGGED(log, 8, "radDictAddAttr", "radDictAddAttr: Invalid Attribute in: bogus\n");
    EXPECT_ONLY_PROBLEM(log, 8, "radDictAddAttr", StartsWith("radDictAddAttr: Invalid"));
    EXPECT_NOTHING_LOGGED(log, 16);
    EXPECT_EQ(EDOM, errno);
    ASSERT_TRUE(log.firstProblem());
    EXPECT_LT(0, log.firstProblem()->line);
}

TEST(LogRecorderTest, TellsLinesApart) {
    LogRecorder log;
    palModuleDebug(8, 16, "first", 3, "%d and %s\n", 7, "more");
    palModuleDebug(7, 128, "second", 4, "%s", std::string(5000, 'x').c_str());
    palModuleDebugHex(7, 256, "Packet", "\x01\x02", 2);
    palModuleDebugHex(7, 4, "None", nullptr, 0);
    EXPECT_THAT(log.lines(), ElementsAre(Logged(8, 16, "first", "7 and more\n"),
                                         Logged(7, 128, "second", SizeIs(5000))));
    EXPECT_THAT(log.texts(16), ElementsAre("7 and more\n"));
    EXPECT_THAT(log.problems(), SizeIs(1));
    EXPECT_THAT(log.dumps(),
                ElementsAre(Dumped(7, 256, "Packet", "0102"_hex), Dumped(7, 4, "None", {})));
    EXPECT_FALSE(log.nothingLogged(4));
    EXPECT_NONFATAL_FAILURE(EXPECT_LOGGED(log, 16, "first", "7 and more\n"), "module 8, level 16");
    EXPECT_NONFATAL_FAILURE(EXPECT_PROBLEMS(log), "device warning first> 7 and more");
    EXPECT_THROW(LogRecorder(), std::logic_error);
    log.clear();
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_TRUE(log.nothingLogged(256));
}

TEST(LogRecorderTest, ShowsLinesAsText) {
    const LogRecorder log;
    EXPECT_LOG(log);
    palModuleDebug(7, 8, "radAuth", 3, "radAuth: %s\n", "no");
    palModuleDebug(7, 128, "radAuth", 4, "Sending %d\n", 2);
    palModuleDebug(8, 4, "radAuth", 5, "radAuthentic: no\n");
    palModuleDebug(9, 64, "main", 6, "two\nlines");
    EXPECT_LOG(log, "error radAuth: no", "trace radAuth> Sending 2",
               "device critical radAuth> radAuthentic: no", "module 9 64 main> two\nlines\\");
    EXPECT_PROBLEMS(log, "error radAuth: no", "device critical radAuth> radAuthentic: no");
    palModuleDebug(7, 16, "f", 7, "\n");
    palModuleDebug(7, 256, "f", 8, "%s", "");
    EXPECT_THAT(log.log(), SizeIs(6));
    EXPECT_EQ("warning f> ", log.log()[4]);
    EXPECT_EQ("packet f> \\", log.log()[5]);
}

TEST(LogRecorderTest, ShowsWhereTheLogDiffers) {
    const LogRecorder log;
    EXPECT_NONFATAL_FAILURE(EXPECT_LOG(log, "error f: no"), "- error f: no\n  + (nothing)");
    palModuleDebug(7, 8, "f", 1, "f: no\n");
    palModuleDebug(7, 128, "g", 2, "f: no\n");
    EXPECT_NONFATAL_FAILURE(EXPECT_LOG(log), "- (nothing)\n  + error f: no\n");
    EXPECT_NONFATAL_FAILURE(EXPECT_LOG(log, "error f: no", "trace f: no"),
                            "    error f: no\n  - trace f: no\n  + trace g> f: no");
    EXPECT_NONFATAL_FAILURE(EXPECT_PROBLEMS(log, "critical f: no"), "+ error f: no");
    EXPECT_NONFATAL_FAILURE(EXPECT_PROBLEMS(log, "error f: no\\"), "+ error f: no");
    EXPECT_NONFATAL_FAILURE(EXPECT_PROBLEMS(log), "+ error f: no");
}

TEST(LogRecorderTest, TakesLinesOfManyThreads) {
    const LogRecorder log;
    std::array<std::thread, 4> threads;
    for (std::thread &thread : threads) {
        thread = std::thread([] {
            for (int i = 0; i < 100; ++i) {
                palModuleDebug(7, 8, "thread", i, "line %d\n", i);
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_THAT(log.lines(8), SizeIs(400));
}

}  // namespace
}  // namespace lanyard::test::log_recorder_test
