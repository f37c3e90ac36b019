// The module debug log: levels, the form of an entry, and where it goes.
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <sstream>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <syslog.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <palcore.h>

#include "tests/support/temporary_folder.h"
#include "tests/unit/platform/role.h"

// Stands in for the C library's: what goes to syslog is written to standard output.
extern "C" void syslog(int pri, const char *fmt, ...) {
    char text[4096];
    va_list arguments;
    va_start(arguments, fmt);
    (void)std::vsnprintf(text, sizeof text, fmt, arguments);
    va_end(arguments);
    (void)std::printf("%d %s\n", pri, text);
}

namespace lanyard::test::debug_log_test {
namespace {

namespace fs = std::filesystem;
using Arguments = std::vector<std::string>;

const Role levelsRole("log-levels", [](const Arguments & /*arguments*/) {
    for (const int level : {4, 8, 16, 128, 256}) {
        palModuleDebug(7, level, "radAuth", level, "level %d\n", level);
        palModuleDebugHex(7, level, "bytes", "\x01", 1);
    }
    return 0;
});

std::string levelEntry(const char *word, int level) {
    std::ostringstream text;
    text << word << "[7:" << level << "] radAuth: level " << level << '\n'
         << word << "[7] bytes (1 bytes)\n"
         << "  0000  01                                                |.|\n";
    return text.str();
}

const std::string kDefaultEntries =
    levelEntry("critical", 4) + levelEntry("error", 8) + levelEntry("warning", 16);

TEST(DebugLog, NoSetting_ShowsErrorsAndWarnings) {
    const RoleResult result = runRole("log-levels");
    EXPECT_EQ(kDefaultEntries, result.allErr());
    EXPECT_EQ("", result.out);
}

TEST(DebugLog, LevelsInTheEnvironment_ShowsThose) {
    EXPECT_EQ(kDefaultEntries + levelEntry("trace", 128) + levelEntry("packet", 256),
              runRole("log-levels", {"PAL_DEBUG_LEVELS=412"}).allErr());
    EXPECT_EQ(levelEntry("error", 8), runRole("log-levels", {"PAL_DEBUG_LEVELS=8"}).allErr());
    EXPECT_EQ("", runRole("log-levels", {"PAL_DEBUG_LEVELS=0"}).allErr());
}

TEST(DebugLog, NoSumOfLevels_KeepsTheDefault) {
    for (const char *value : {"", "all", "-1", "8 16", "0x1c", "99999999999999"}) {
        EXPECT_EQ(kDefaultEntries,
                  runRole("log-levels", {std::string("PAL_DEBUG_LEVELS=") + value}).allErr())
            << value;
    }
}

const Role onceRole("log-environment-once", [](const Arguments & /*arguments*/) {
    palModuleDebug(7, 128, "radAuth", 1, "not shown\n");
    setenv("PAL_DEBUG_LEVELS", "412", 1);
    palModuleDebug(7, 128, "radAuth", 2, "not shown\n");
    return 0;
});

TEST(DebugLog, EnvironmentChangedLater_NotReadAgain) {
    EXPECT_EQ("", runRole("log-environment-once").allErr());
}

const Role unformattedRole("log-unformatted", [](const Arguments & /*arguments*/) {
    // Formatting or dumping would follow these pointers.
    // NOLINTNEXTLINE(performance-no-int-to-ptr): a pointer that faults is the point.
    const auto *nowhere = reinterpret_cast<const char *>(uintptr_t{1});
    for (int i = 0; i < 2; ++i) {
        palModuleDebug(7, 128, "radAuth", 1, "%s\n", nowhere);
        palModuleDebug(7, 256, "radAuth", 1, "%s\n", nowhere);
        palModuleDebugHex(7, 256, nowhere, nowhere, 16);
    }
    return 0;
});

TEST(DebugLog, LevelNotShown_NothingFormatted) {
    const RoleResult result = runRole("log-unformatted");
    EXPECT_EQ(0, result.status);
    EXPECT_EQ("", result.allErr());
}

const Role formatRole("log-format", [](const Arguments & /*arguments*/) {
    palModuleDebug(7, 8, "radAuth", 41, "\"%s\" RADIUS Authentication failure\n", "alice");
    palModuleDebug(7, 8, "radConfigure", 5, "radConfigure: can't open %s\n", "/var/x");
    palModuleDebug(8, 16, "radConf", 6, "radConfigure is not this function\n");
    palModuleDebug(8, 4, "radPairNew", 7, "no line end");
    palModuleDebug(8, 4, "radPairNew", 8, "\n");
    palModuleDebug(8, 4, nullptr, 9, "no function\n");
    palModuleDebug(8, 12, "radAuth", 10, "two levels\n");
    errno = ENOENT;
    palModuleDebug(8, 8, "radAuth", 11, "%m\n");
    return errno == ENOENT ? 0 : 1;
});

TEST(DebugLog, Message_WrittenAsALine) {
    const RoleResult result = runRole("log-format");
    EXPECT_EQ(0, result.status);
    EXPECT_EQ(
        "error[7:41] radAuth: \"alice\" RADIUS Authentication failure\n"
        "error[7:5] radConfigure: can't open /var/x\n"
        "warning[8:6] radConf: radConfigure is not this function\n"
        "critical[8:7] radPairNew: no line end\n"
        "critical[8:8] radPairNew: \n"
        "critical[8:9] no function\n"
        "level 12[8:10] radAuth: two levels\n"
        "error[8:11] radAuth: No such file or directory\n",
        result.allErr());
}

// The harmless and the harmful, and how each is shown.
// Written with escapes throughout, so that the source itself shows what it holds.
// NOLINTBEGIN(modernize-raw-string-literal, misc-misleading-bidirectional)
const std::pair<const char *, const char *> kShownText[] = {
    {"DOM\\alice \"~\"", "DOM\\alice \"~\""},
    {"J\u00fcrgen \u20ac \U0001f600", "J\u00fcrgen \u20ac \U0001f600"},
    {"a\nerror[7:1] radAuth: forged", "a\\x0Aerror[7:1] radAuth: forged"},
    {"a\r\tb\x7f", "a\\x0D\\x09b\\x7F"},
    {"\x1b[2J", "\\x1B[2J"},
    {"\u009b2J", "\\xC2\\x9B2J"},
    {"\x9b\xff", "\\x9B\\xFF"},
    {"\u202e", "\\xE2\\x80\\xAE"},
    {"\u2067", "\\xE2\\x81\\xA7"},
    {"\xc0\x8a", "\\xC0\\x8A"},
    {"\xed\xa0\x80", "\\xED\\xA0\\x80"},
    {"\xf4\x90\x80\x80", "\\xF4\\x90\\x80\\x80"},
    {"\xe2\x82", "\\xE2\\x82"},
    {"\xe2\x82x", "\\xE2\\x82x"},
};
// NOLINTEND(modernize-raw-string-literal, misc-misleading-bidirectional)

const Role forgedRole("log-forged", [](const Arguments & /*arguments*/) {
    for (const auto &[text, shown] : kShownText) {
        palModuleDebug(7, 8, "radAuth", 1, "<%s>\n", text);
        palModuleDebugHex(7, 8, text, nullptr, 0);
    }
    return 0;
});

TEST(DebugLog, TextFromOutside_ForgesNothing) {
    std::string expected;
    for (const auto &[text, shown] : kShownText) {
        expected += std::string("error[7:1] radAuth: <") + shown + ">\n";
        expected += std::string("error[7] ") + shown + " (0 bytes)\n";
    }
    EXPECT_EQ(expected, runRole("log-forged").allErr());
}

const Role singleWriteRole("log-single-write", [](const Arguments & /*arguments*/) {
    const std::string large(5000, 'x');
    palModuleDebug(7, 8, "radAuth", 1, "%s\n", "short");
    palModuleDebug(7, 8, "radAuth", 1, "%s\n", large.c_str());
    palModuleDebugHex(7, 8, "packet", large.data(), 4096);
    return 0;
});

TEST(DebugLog, EachEntry_WrittenWithOneCall) {
    const RoleResult result = runRole("log-single-write", {}, ErrorStream::kPackets);
    ASSERT_EQ(3U, result.err.size());
    EXPECT_EQ("error[7:1] radAuth: short\n", result.err[0]);
    EXPECT_EQ("error[7:1] radAuth: " + std::string(5000, 'x') + "\n", result.err[1]);
    EXPECT_EQ(1 + 4096 / 16, std::count(result.err[2].begin(), result.err[2].end(), '\n'));
}

const Role threadsRole("log-threads", [](const Arguments & /*arguments*/) {
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < 100; ++i) {
                palModuleDebug(7, 8, "radAuth", 1, "thread %d entry %d\n", t, i);
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    return 0;
});

TEST(DebugLog, ManyThreads_LinesDoNotMix) {
    std::istringstream lines(runRole("log-threads").allErr());
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
        EXPECT_THAT(line,
                    testing::MatchesRegex(R"(error\[7:1\] radAuth: thread [0-3] entry [0-9]+)"));
    }
    EXPECT_EQ(400, count);
}

const Role dumpRole("log-dump", [](const Arguments & /*arguments*/) {
    unsigned char bytes[19];
    for (int i = 0; i < 19; ++i) {
        bytes[i] = static_cast<unsigned char>(i + 0x70);
    }
    palModuleDebugHex(7, 8, "MS-MPPE-Key", bytes, 19);
    palModuleDebugHex(7, 8, "sixteen\n", bytes, 16);
    palModuleDebugHex(7, 8, "none", bytes, 0);
    palModuleDebugHex(7, 8, "negative", bytes, -5);
    palModuleDebugHex(7, 8, "null", nullptr, 16);
    errno = EXDEV;
    palModuleDebugHex(7, 8, nullptr, nullptr, 0);
    return errno == EXDEV ? 0 : 1;
});

TEST(DebugLog, Bytes_Dumped) {
    const RoleResult result = runRole("log-dump");
    EXPECT_EQ(0, result.status);
    EXPECT_EQ(
        "error[7] MS-MPPE-Key (19 bytes)\n"
        "  0000  70 71 72 73 74 75 76 77  78 79 7a 7b 7c 7d 7e 7f  |pqrstuvwxyz{|}~.|\n"
        "  0010  80 81 82                                          |...|\n"
        "error[7] sixteen (16 bytes)\n"
        "  0000  70 71 72 73 74 75 76 77  78 79 7a 7b 7c 7d 7e 7f  |pqrstuvwxyz{|}~.|\n"
        "error[7] none (0 bytes)\n"
        "error[7] negative (0 bytes)\n"
        "error[7] null (0 bytes)\n"
        "error[7]  (0 bytes)\n",
        result.allErr());
}

const Role daemonRole("log-daemon", [](const Arguments & /*arguments*/) {
    std::strcpy(palDaemonOpt.taskName, "tRadEap");  // NOLINT(clang-analyzer-security.*)
    palModuleDebug(8, 4, "radEapInit", 1, "critical\n");
    palModuleDebug(8, 8, "radEapInit", 2, "100%%d\n");
    palModuleDebug(8, 16, "radEapInit", 3, "warning\n");
    palModuleDebugHex(8, 8, "bytes", "\x01", 1);
    return 0;
});

const std::string kDaemonEntries =
    "critical[8:1] radEapInit: critical\n"
    "error[8:2] radEapInit: 100%d\n"
    "warning[8:3] radEapInit: warning\n"
    "error[8] bytes (1 bytes)\n"
    "  0000  01                                                |.|\n";

std::string inSyslog() {
    const int priorities[] = {LOG_CRIT, LOG_ERR, LOG_WARNING, LOG_ERR, LOG_ERR};
    std::istringstream lines(kDaemonEntries);
    std::string expected;
    std::string line;
    for (const int priority : priorities) {
        std::getline(lines, line);
        expected += std::to_string(LOG_DAEMON | priority) + " " + line + "\n";
    }
    return expected;
}

TEST(DebugLog, Daemon_LogsToSyslogAsWell) {
    EXPECT_EQ(inSyslog(), runRole("log-daemon", {}, ErrorStream::kNull).out);
    const RoleResult result = runRole("log-daemon", {}, ErrorStream::kPipe);
    EXPECT_EQ(inSyslog(), result.out);
    EXPECT_EQ(kDaemonEntries, result.allErr());
}

TEST(DebugLog, TerminalOrFile_ReplacesSyslog) {
    const RoleResult file = runRole("log-daemon", {}, ErrorStream::kFile);
    EXPECT_EQ("", file.out);
    EXPECT_EQ(kDaemonEntries, file.allErr());

    const RoleResult terminal = runRole("log-daemon", {}, ErrorStream::kTerminal);
    EXPECT_EQ("", terminal.out);
    EXPECT_NE(std::string::npos, terminal.allErr().find("critical[8:1] radEapInit: critical"));
}

TEST(DebugLog, StreamToTheJournal_ReplacesSyslog) {
    struct stat null {};
    ASSERT_EQ(0, stat("/dev/null", &null));
    const auto logged = [](dev_t device, ino_t inode) {
        return runRole("log-daemon",
                       {"JOURNAL_STREAM=" + std::to_string(device) + ":" + std::to_string(inode)},
                       ErrorStream::kNull)
            .out;
    };
    EXPECT_EQ("", logged(null.st_dev, null.st_ino));
    EXPECT_EQ(inSyslog(), logged(null.st_dev, null.st_ino + 1));
    EXPECT_EQ(inSyslog(), logged(null.st_dev + 1, null.st_ino));
    EXPECT_EQ(inSyslog(), runRole("log-daemon", {"JOURNAL_STREAM=8"}, ErrorStream::kNull).out);
}

TEST(DebugLog, NoTaskName_NothingGoesToSyslog) {
    EXPECT_EQ("", runRole("log-levels", {}, ErrorStream::kNull).out);
}

class DebugLogFile : public testing::Test {
  protected:
    std::string path() const { return folder_.path() / "log"; }
    std::string variable() const { return "PAL_DEBUG_FILE=" + path(); }
    std::string content() const { return folder_.read("log"); }

  private:
    TemporaryFolder folder_;
};

TEST_F(DebugLogFile, FileNamed_ReplacesStandardErrorAndSyslog) {
    const RoleResult result = runRole("log-daemon", {variable()}, ErrorStream::kPipe);
    EXPECT_EQ("", result.allErr());
    EXPECT_EQ("", result.out);
    const std::string first = content().substr(0, content().find('\n'));
    EXPECT_THAT(first, testing::MatchesRegex(
                           "[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}Z "
                           "[0-9]+ critical\\[8:1\\] radEapInit: critical"));
}

TEST_F(DebugLogFile, FileThatIsThere_AppendedTo) {
    std::ofstream(path()) << "before\n";
    runRole("log-daemon", {variable()});
    EXPECT_EQ("before\n", content().substr(0, 7));
    EXPECT_NE(std::string::npos, content().find("radEapInit"));
}

TEST_F(DebugLogFile, NewFile_IsTheOwnersAlone) {
    const mode_t mask = umask(0);
    runRole("log-daemon", {variable()});
    umask(mask);
    struct stat status {};
    ASSERT_EQ(0, stat(path().c_str(), &status));
    EXPECT_EQ(0600U, status.st_mode & 07777U);
}

TEST_F(DebugLogFile, Link_NotFollowed) {
    const std::string target = path() + ".target";
    fs::create_symlink(target, path());
    const RoleResult result = runRole("log-format", {variable()});
    EXPECT_FALSE(fs::exists(target));
    EXPECT_EQ(0U, result.allErr().find("warning: can't open PAL_DEBUG_FILE " + path() + ": "));
    EXPECT_NE(std::string::npos, result.allErr().find("\nerror[7:41] radAuth: "));
}

TEST(DebugLog, FullDisk_EntriesGoToStandardErrorWithTheReasonOnce) {
    const RoleResult result = runRole("log-levels", {"PAL_DEBUG_FILE=/dev/full"});
    EXPECT_EQ("warning: can't write to PAL_DEBUG_FILE: No space left on device\n" + kDefaultEntries,
              result.allErr());
}

TEST(DebugLog, DaemonWithAFullDisk_LogsToSyslog) {
    const RoleResult result =
        runRole("log-daemon", {"PAL_DEBUG_FILE=/dev/full"}, ErrorStream::kNull);
    EXPECT_EQ(std::to_string(LOG_DAEMON | LOG_WARNING) +
                  " warning: can't write to PAL_DEBUG_FILE: No space left on device\n" + inSyslog(),
              result.out);
}

const Role limitedRole("log-limited", [](const Arguments & /*arguments*/) {
    // A limit on file sizes stands for a disk that fills up and is cleared.
    rlimit limit{};
    if (std::signal(SIGXFSZ, SIG_IGN) == SIG_ERR || getrlimit(RLIMIT_FSIZE, &limit) != 0) {
        return 1;
    }
    const rlimit roomForHalfAnEntry{20, limit.rlim_max};
    palModuleDebug(7, 8, "radAuth", 1, "before\n");
    if (truncate(std::getenv("PAL_DEBUG_FILE"), 0) != 0 ||
        setrlimit(RLIMIT_FSIZE, &roomForHalfAnEntry) != 0) {
        return 1;
    }
    palModuleDebug(7, 8, "radAuth", 2, "cut\n");
    palModuleDebug(7, 8, "radAuth", 3, "no room\n");
    if (setrlimit(RLIMIT_FSIZE, &limit) != 0) {
        return 1;
    }
    palModuleDebug(7, 8, "radAuth", 4, "room again\n");
    return 0;
});

TEST_F(DebugLogFile, EntryAfterOneThatWasCut_BeginsALine) {
    const RoleResult result = runRole("log-limited", {variable()});
    EXPECT_EQ(0, result.status);
    EXPECT_EQ(
        "warning: can't write to PAL_DEBUG_FILE: File too large\n"
        "error[7:2] radAuth: cut\n"
        "error[7:3] radAuth: no room\n",
        result.allErr());
    EXPECT_THAT(content(),
                testing::MatchesRegex(
                    "[-0-9T:.]{20}\n[-0-9T:.]+Z [0-9]+ error\\[7:4\\] radAuth: room again\n"));
}

TEST_F(DebugLogFile, EmptyName_MeansNoFile) {
    EXPECT_EQ(kDefaultEntries, runRole("log-levels", {"PAL_DEBUG_FILE="}).allErr());
}

}  // namespace
}  // namespace lanyard::test::debug_log_test
