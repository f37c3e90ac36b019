// The module debug log.
//
// An entry is one line, `<level>[<module>:<line>] <function>: <message>`, or a title and a dump;
// see docs/porting.md. It is put together first and written with one call.
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <sys/syslog.h>
#include <system_error>
#include <unistd.h>

#include <palcore.h>

#include "platform/export.h"
#include "platform/log_text.h"

namespace lanyard::port {
namespace {

constexpr int kDefaultLevels = 4 | 8 | 16;

struct Settings {
    int levels = kDefaultLevels;
    int file = -1;  // -1: standard error, and syslog for a daemon
};

// All bits are set until the settings are read, so that the first call reads them.
constinit std::atomic<int> shownLevels{-1};

// Set when a write to the file failed for the first time.
constinit std::atomic<bool> fileFailed{false};
// The last entry in the file has lost its end.
constinit std::atomic<bool> fileEndsWithinLine{false};

// Returns how much was written; less than all of it with `errno` set.
size_t writeAll(int fd, std::string_view text) {
    size_t done = 0;
    while (done < text.size()) {
        const ssize_t written = write(fd, text.data() + done, text.size() - done);
        if (written >= 0) {
            done += static_cast<size_t>(written);
        } else if (errno != EINTR) {
            break;
        }
    }
    return done;
}

int levelsFrom(const char *text) {
    int levels = 0;
    const char *end = text + std::strlen(text);
    const auto [rest, error] = std::from_chars(text, end, levels);
    return error == std::errc() && rest == end && levels >= 0 ? levels : kDefaultLevels;
}

int openLogFile(const char *path) {
    // The log may show secrets: it is the owner's alone, and no link leads it elsewhere.
    const int flags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NOFOLLOW;
    const int fd = open(path, flags, S_IRUSR | S_IWUSR);
    if (fd == -1) {
        const int error = errno;
        LogText text;
        text.append("warning: can't open PAL_DEBUG_FILE ");
        text.appendPrintable(path);
        text.appendFormat(": %s\n", std::strerror(error));
        writeAll(STDERR_FILENO, text.view());
    }
    return fd;
}

Settings readSettings() {
    Settings read;
    if (const char *levels = secure_getenv("PAL_DEBUG_LEVELS"); levels != nullptr) {
        read.levels = levelsFrom(levels);
    }
    if (const char *path = secure_getenv("PAL_DEBUG_FILE"); path != nullptr && path[0] != '\0') {
        read.file = openLogFile(path);
    }
    shownLevels.store(read.levels, std::memory_order_relaxed);
    return read;
}

const Settings &settings() {
    static const Settings once = readSettings();
    return once;
}

// The one test that a call costs whose level is not shown.
bool maybeShown(int level) {
    return (shownLevels.load(std::memory_order_relaxed) & level) != 0;
}

void appendLevel(LogText &text, int level) {
    switch (level) {
        case 4:
            return text.append("critical");
        case 8:
            return text.append("error");
        case 16:
            return text.append("warning");
        case 128:
            return text.append("trace");
        case 256:
            return text.append("packet");
        default:
            return text.appendFormat("level %d", level);
    }
}

int syslogPriority(int level) {
    switch (level) {
        case 4:
            return LOG_DAEMON | LOG_CRIT;
        case 8:
            return LOG_DAEMON | LOG_ERR;
        case 16:
            return LOG_DAEMON | LOG_WARNING;
        default:
            return LOG_DAEMON | LOG_DEBUG;
    }
}

// Whether a file is the stream to the journal that the service manager names (systemd.exec(5)). What
// goes there has process id and time, and is where syslog leads to.
bool isJournal(const struct stat &file) {
    const char *named = secure_getenv("JOURNAL_STREAM");
    char own[48];
    (void)std::snprintf(own, sizeof own, "%llu:%llu", static_cast<unsigned long long>(file.st_dev),
                        static_cast<unsigned long long>(file.st_ino));
    return named != nullptr && std::strcmp(named, own) == 0;
}

bool goesToSyslog() {
    if (palDaemonOpt.taskName[0] == '\0' || isatty(STDERR_FILENO) != 0) {
        return false;
    }
    struct stat standardError {};
    return fstat(STDERR_FILENO, &standardError) != 0 ||
           (!S_ISREG(standardError.st_mode) && !isJournal(standardError));
}

void writeToStandardError(int level, std::string_view entry) {
    writeAll(STDERR_FILENO, entry);
    if (!goesToSyslog()) {
        return;
    }
    while (!entry.empty()) {
        const size_t end = std::min(entry.find('\n'), entry.size());
        syslog(syslogPriority(level), "%.*s", static_cast<int>(end), entry.data());
        entry.remove_prefix(std::min(end + 1, entry.size()));
    }
}

// A file outlives the process and may be shared: its entries tell when and from whom.
// Returns 0, or what kept the entry from the file.
int writeToFile(int fd, std::string_view entry) {
    timespec now{};
    tm utc{};
    char when[32] = "";
    if (clock_gettime(CLOCK_REALTIME, &now) == 0 && gmtime_r(&now.tv_sec, &utc) != nullptr) {
        (void)std::strftime(when, sizeof when, "%Y-%m-%dT%H:%M:%S", &utc);
    }
    LogText stamped;
    const bool withinLine = fileEndsWithinLine.exchange(false);
    if (withinLine) {
        stamped.append("\n");
    }
    stamped.appendFormat("%s.%03dZ %d ", when, static_cast<int>(now.tv_nsec / 1'000'000),
                         static_cast<int>(getpid()));
    stamped.append(entry);
    const size_t written = writeAll(fd, stamped.view());
    if (written == stamped.view().size()) {
        return 0;
    }
    const int error = errno;
    fileEndsWithinLine = written == 0 ? withinLine : stamped.view()[written - 1] != '\n';
    return error;
}

void writeEntry(int level, std::string_view entry) {
    if (settings().file == -1) {
        writeToStandardError(level, entry);
        return;
    }
    const int error = writeToFile(settings().file, entry);
    if (error == 0) {
        return;
    }
    if (!fileFailed.exchange(true)) {
        LogText reason;
        reason.appendFormat("warning: can't write to PAL_DEBUG_FILE: %s\n", std::strerror(error));
        writeToStandardError(16, reason.view());
    }
    writeToStandardError(level, entry);
}

bool isNamedAtStart(std::string_view message, std::string_view function) {
    return message.starts_with(function) && message.substr(function.size()).starts_with(':');
}

constexpr int kPerLine = 16;

void appendDumpLine(LogText &text, const unsigned char *bytes, int offset, int count) {
    text.appendFormat("  %04x ", static_cast<unsigned>(offset));
    for (int i = 0; i < kPerLine; ++i) {
        text.append(i == kPerLine / 2 ? "  " : " ");
        if (i < count) {
            text.appendFormat("%02x", static_cast<unsigned>(bytes[i]));
        } else {
            text.append("  ");
        }
    }
    text.append("  |");
    for (int i = 0; i < count; ++i) {
        const char shown = bytes[i] >= 0x20 && bytes[i] < 0x7f ? static_cast<char>(bytes[i]) : '.';
        text.append({&shown, 1});
    }
    text.append("|\n");
}

void appendDump(LogText &text, const unsigned char *bytes, int length) {
    for (int offset = 0; offset < length;) {
        const int count = std::min(kPerLine, length - offset);
        appendDumpLine(text, bytes + offset, offset, count);
        offset += count;
    }
}

// What follows is apart from the exported functions, so that a call whose level is not shown returns before it
// needs registers and room for an entry.

[[gnu::noinline, gnu::format(printf, 5, 0)]] void writeMessage(int module, int level,
                                                               const char *function, int line,
                                                               const char *format,
                                                               va_list arguments) {
    const int error = errno;
    if ((settings().levels & level) != 0) {
        LogText message;
        errno = error;
        message.appendFormatList(format, arguments);
        std::string_view body = message.view();
        if (body.ends_with('\n')) {
            body.remove_suffix(1);
        }
        LogText entry;
        appendLevel(entry, level);
        entry.appendFormat("[%d:%d] ", module, line);
        // Many messages name their function themselves.
        if (function != nullptr && !isNamedAtStart(body, function)) {
            entry.appendFormat("%s: ", function);
        }
        entry.appendPrintable(body);
        entry.append("\n");
        writeEntry(level, entry.view());
    }
    errno = error;
}

[[gnu::noinline]] void writeDump(int module, int level, const char *title, const void *data,
                                 int length) {
    const int error = errno;
    if ((settings().levels & level) != 0) {
        const int count = data == nullptr ? 0 : std::max(length, 0);
        LogText entry;
        appendLevel(entry, level);
        entry.appendFormat("[%d] ", module);
        std::string_view shownTitle = title == nullptr ? "" : title;
        if (shownTitle.ends_with('\n')) {
            shownTitle.remove_suffix(1);
        }
        entry.appendPrintable(shownTitle);
        entry.appendFormat(" (%d bytes)\n", count);
        appendDump(entry, static_cast<const unsigned char *>(data), count);
        writeEntry(level, entry.view());
    }
    errno = error;
}

}  // namespace
}  // namespace lanyard::port

using namespace lanyard::port;

PAL_EXPORT void palModuleDebug(int module, int level, const char *function, int line,
                               const char *format, ...) {
    if (maybeShown(level)) {
        va_list arguments;
        va_start(arguments, format);
        writeMessage(module, level, function, line, format, arguments);
        va_end(arguments);
    }
}

PAL_EXPORT void palModuleDebugHex(int module, int level, const char *title, const void *data,
                                  int length) {
    if (maybeShown(level)) {
        writeDump(module, level, title, data, length);
    }
}
