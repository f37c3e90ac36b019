// Records what the library logs, of every level.
//
//     LogRecorder log;
//     EXPECT_EQ(-1, radConfAssert());
//     EXPECT_LOG(log, "error radConfAssert: No AuthServer Specified");
//
// EXPECT_LOG asks for these lines and no other, in order; EXPECT_PROBLEMS for these of the levels 4, 8
// and 16. A line is its level (critical, error, warning, trace, packet for 4, 8, 16, 128, 256), the
// function that it names, and its text without the newline:
//
//     "error radPairNew: out of memory"       function "radPairNew", text "radPairNew: out of memory\n"
//     "trace radPairGen> Receiving State"     function "radPairGen", text "Receiving State\n"
//     "device trace radeapd> up\\"             module 8, text "up" without a newline
//
// Where a line's text is not known to the letter there are matchers. EXPECT_LOGGED asks for one such
// line among others; EXPECT_ONLY_PROBLEM for that line and no other of the levels 4, 8 and 16;
// EXPECT_NOTHING_LOGGED for none of one level. Function and text may be matchers (StartsWith("...")),
// and lines() and log() go well with EXPECT_THAT:
//
//     EXPECT_THAT(log.log(8), ElementsAre(StartsWith("error radDictLoad: couldn't open")));
//
// The test program itself defines palModuleDebug() and palModuleDebugHex(), in front of the OS
// layer's; linking the target lanyard-test-support brings them in. While no recorder is there,
// messages are dropped. One recorder may be there at a time; it may be filled by any number of
// threads.
#ifndef LANYARD_TESTS_SUPPORT_LOG_RECORDER_H
#define LANYARD_TESTS_SUPPORT_LOG_RECORDER_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iosfwd>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/bytes.h"

namespace lanyard::test {

// The module of the library proper.
inline constexpr int kLibraryModule = 7;
// That of the EAP relay and the database.
inline constexpr int kDeviceModule = 8;

// The highest of the levels that the OS layer shows by default: 4, 8 and 16.
inline constexpr int kProblemLevelMax = 16;

struct LogLine {
    int module = 0;
    int level = 0;
    std::string function;
    int line = 0;
    std::string text;
};

struct LogDump {
    int module = 0;
    int level = 0;
    std::string title;
    Bytes bytes;
};

class LogRecorder {
  public:
    // Starts recording, empty. Throws std::logic_error while another recorder is there.
    LogRecorder();
    LogRecorder(const LogRecorder &) = delete;
    LogRecorder &operator=(const LogRecorder &) = delete;
    ~LogRecorder();

    // All lines, or those of one level, in the order in which they were logged.
    [[nodiscard]] std::vector<LogLine> lines() const;
    [[nodiscard]] std::vector<LogLine> lines(int level) const;

    // The lines as EXPECT_LOG takes them: all, those of one level, or those of 4, 8 and 16.
    [[nodiscard]] std::vector<std::string> log() const;
    [[nodiscard]] std::vector<std::string> log(int level) const;
    [[nodiscard]] std::vector<std::string> problemLog() const;

    // Their texts alone.
    [[nodiscard]] std::vector<std::string> texts() const;
    [[nodiscard]] std::vector<std::string> texts(int level) const;

    // The lines of the levels 4, 8 and 16, and the first of them.
    [[nodiscard]] std::vector<LogLine> problems() const;
    [[nodiscard]] std::optional<LogLine> firstProblem() const;

    // Dumps of bytes, in order.
    [[nodiscard]] std::vector<LogDump> dumps() const;

    // Neither a line nor a dump of that level.
    [[nodiscard]] bool nothingLogged(int level) const;

    // Forgets all that was recorded.
    void clear();

    // Called by the functions that stand in for the OS layer's.
    void add(LogLine line);
    void add(LogDump dump);

  private:
    mutable std::mutex mutex_;
    std::vector<LogLine> lines_;
    std::vector<LogDump> dumps_;
};

// Matches one line; its place in the source is left open.
testing::Matcher<const LogLine &> Logged(int module, int level,
                                         const testing::Matcher<const std::string &> &function,
                                         const testing::Matcher<const std::string &> &text);

// Matches one dump.
testing::Matcher<const LogDump &> Dumped(int module, int level,
                                         const testing::Matcher<const std::string &> &title,
                                         const Bytes &bytes);

// A line as EXPECT_LOG takes it.
std::string logText(const LogLine &line);

// For EXPECT_LOG: the lines beside each other on failure.
testing::AssertionResult compareLogs(const char *expectedExpression, const char *actualExpression,
                                     const std::vector<std::string> &expected,
                                     const std::vector<std::string> &actual);

// How failures show them.
void PrintTo(const LogLine &line, std::ostream *stream);
void PrintTo(const LogDump &dump, std::ostream *stream);

}  // namespace lanyard::test

#define EXPECT_LOG(recorder, ...)                                                              \
    EXPECT_PRED_FORMAT2(::lanyard::test::compareLogs, (std::vector<std::string>{__VA_ARGS__}), \
                        (recorder).log())

#define EXPECT_PROBLEMS(recorder, ...)                                                         \
    EXPECT_PRED_FORMAT2(::lanyard::test::compareLogs, (std::vector<std::string>{__VA_ARGS__}), \
                        (recorder).problemLog())

#define EXPECT_LOGGED(recorder, level, function, text)                           \
    EXPECT_THAT((recorder).lines(), ::testing::Contains(::lanyard::test::Logged( \
                                        ::lanyard::test::kLibraryModule, level, function, text)))

#define EXPECT_ONLY_PROBLEM(recorder, level, function, text)                                    \
    EXPECT_THAT((recorder).problems(),                                                          \
                ::testing::ElementsAre(::lanyard::test::Logged(::lanyard::test::kLibraryModule, \
                                                               level, function, text)))

#define EXPECT_NOTHING_LOGGED(recorder, level)   \
    EXPECT_TRUE((recorder).nothingLogged(level)) \
        << ::testing::PrintToString((recorder).lines(level))

#endif
