#include "tests/support/log_recorder.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <ostream>
#include <stdexcept>

#include <palcore.h>

namespace lanyard::test {
namespace {

// The recorder that is there, and what keeps it there while a line is on its way to it.
std::mutex activeMutex;
LogRecorder *active = nullptr;

template <typename Entry>
std::vector<Entry> ofLevel(const std::vector<Entry> &entries, int level) {
    std::vector<Entry> found;
    std::copy_if(entries.begin(), entries.end(), std::back_inserter(found),
                 [level](const Entry &entry) { return entry.level == level; });
    return found;
}

std::vector<std::string> textsOf(const std::vector<LogLine> &lines) {
    std::vector<std::string> texts;
    std::transform(lines.begin(), lines.end(), std::back_inserter(texts),
                   [](const LogLine &line) { return line.text; });
    return texts;
}

std::vector<std::string> logOf(const std::vector<LogLine> &lines) {
    std::vector<std::string> log;
    std::transform(lines.begin(), lines.end(), std::back_inserter(log), logText);
    return log;
}

std::string levelName(int level) {
    switch (level) {
        case 4:
            return "critical";
        case 8:
            return "error";
        case 16:
            return "warning";
        case 128:
            return "trace";
        case 256:
            return "packet";
        default:
            return std::to_string(level);
    }
}

std::string moduleName(int module) {
    switch (module) {
        case kLibraryModule:
            return "";
        case kDeviceModule:
            return "device ";
        default:
            return "module " + std::to_string(module) + ' ';
    }
}

[[gnu::format(printf, 1, 0)]] std::string formatted(const char *format, va_list arguments) {
    va_list measured;
    va_copy(measured, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, measured);
    va_end(measured);
    if (length < 0) {
        ADD_FAILURE() << "not a log format: " << format;
        return {};
    }
    std::string text(static_cast<size_t>(length), '\0');
    EXPECT_EQ(length, std::vsnprintf(text.data(), text.size() + 1, format, arguments));
    return text;
}

}  // namespace

LogRecorder::LogRecorder() {
    const std::lock_guard lock(activeMutex);
    if (active != nullptr) {
        throw std::logic_error("a log recorder is there already");
    }
    active = this;
}

LogRecorder::~LogRecorder() {
    const std::lock_guard lock(activeMutex);
    active = nullptr;
}

std::vector<LogLine> LogRecorder::lines() const {
    const std::lock_guard lock(mutex_);
    return lines_;
}

std::vector<LogLine> LogRecorder::lines(int level) const {
    return ofLevel(lines(), level);
}

std::vector<std::string> LogRecorder::log() const {
    return logOf(lines());
}

std::vector<std::string> LogRecorder::log(int level) const {
    return logOf(lines(level));
}

std::vector<std::string> LogRecorder::problemLog() const {
    return logOf(problems());
}

std::vector<std::string> LogRecorder::texts() const {
    return textsOf(lines());
}

std::vector<std::string> LogRecorder::texts(int level) const {
    return textsOf(lines(level));
}

std::vector<LogLine> LogRecorder::problems() const {
    std::vector<LogLine> found = lines();
    std::erase_if(found, [](const LogLine &line) { return line.level > kProblemLevelMax; });
    return found;
}

std::optional<LogLine> LogRecorder::firstProblem() const {
    const std::vector<LogLine> found = problems();
    return found.empty() ? std::nullopt : std::optional(found.front());
}

std::vector<LogDump> LogRecorder::dumps() const {
    const std::lock_guard lock(mutex_);
    return dumps_;
}

bool LogRecorder::nothingLogged(int level) const {
    return lines(level).empty() && ofLevel(dumps(), level).empty();
}

void LogRecorder::clear() {
    const std::lock_guard lock(mutex_);
    lines_.clear();
    dumps_.clear();
}

void LogRecorder::add(LogLine line) {
    const std::lock_guard lock(mutex_);
    lines_.push_back(std::move(line));
}

void LogRecorder::add(LogDump dump) {
    const std::lock_guard lock(mutex_);
    dumps_.push_back(std::move(dump));
}

testing::Matcher<const LogLine &> Logged(int module, int level,
                                         const testing::Matcher<const std::string &> &function,
                                         const testing::Matcher<const std::string &> &text) {
    using testing::Field;
    return testing::AllOf(
        Field("module", &LogLine::module, module), Field("level", &LogLine::level, level),
        Field("function", &LogLine::function, function), Field("text", &LogLine::text, text));
}

testing::Matcher<const LogDump &> Dumped(int module, int level,
                                         const testing::Matcher<const std::string &> &title,
                                         const Bytes &bytes) {
    using testing::Field;
    return testing::AllOf(
        Field("module", &LogDump::module, module), Field("level", &LogDump::level, level),
        Field("title", &LogDump::title, title), Field("bytes", &LogDump::bytes, bytes));
}

std::string logText(const LogLine &line) {
    std::string text = moduleName(line.module) + levelName(line.level) + ' ';
    if (!line.text.starts_with(line.function + ": ")) {
        text += line.function + "> ";
    }
    text += line.text;
    if (text.ends_with('\n')) {
        text.pop_back();
    } else {
        text += '\\';
    }
    return text;
}

testing::AssertionResult compareLogs(const char * /*expectedExpression*/,
                                     const char *actualExpression,
                                     const std::vector<std::string> &expected,
                                     const std::vector<std::string> &actual) {
    if (expected == actual) {
        return testing::AssertionSuccess();
    }
    auto result = testing::AssertionFailure() << actualExpression << " differs";
    for (size_t i = 0; i < std::max(expected.size(), actual.size()); ++i) {
        const std::string wanted = i < expected.size() ? expected[i] : "(nothing)";
        const std::string found = i < actual.size() ? actual[i] : "(nothing)";
        if (wanted == found) {
            result << "\n    " << found;
        } else {
            result << "\n  - " << wanted << "\n  + " << found;
        }
    }
    return result;
}

void PrintTo(const LogLine &line, std::ostream *stream) {
    *stream << "{module " << line.module << ", level " << line.level << ", " << line.function << ':'
            << line.line << ", " << testing::PrintToString(line.text) << '}';
}

void PrintTo(const LogDump &dump, std::ostream *stream) {
    *stream << "{module " << dump.module << ", level " << dump.level << ", "
            << testing::PrintToString(dump.title) << ", " << toHex(dump.bytes) << '}';
}

}  // namespace lanyard::test

using lanyard::test::active;
using lanyard::test::activeMutex;

// What the library logs through. As the OS layer's, they leave `errno` alone.
void palModuleDebug(int module, int level, const char *function, int line, const char *format,
                    ...) {
    const int savedErrno = errno;
    {
        const std::lock_guard lock(activeMutex);
        if (active != nullptr) {
            va_list arguments;
            va_start(arguments, format);
            active->add(
                {module, level, function, line, lanyard::test::formatted(format, arguments)});
            va_end(arguments);
        }
    }
    errno = savedErrno;
}

void palModuleDebugHex(int module, int level, const char *title, const void *data, int length) {
    const int savedErrno = errno;
    {
        const std::lock_guard lock(activeMutex);
        if (active != nullptr) {
            const auto *first = static_cast<const uint8_t *>(data);
            lanyard::test::Bytes bytes;
            if (first != nullptr && length > 0) {
                bytes.assign(first, first + length);
            }
            active->add(lanyard::test::LogDump{module, level, title, std::move(bytes)});
        }
    }
    errno = savedErrno;
}
