// The attribute dictionary as text: lines, files and the built-in table.
#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>

#include <lanyard/radius/dict.h>
#include <palcore.h>

#include "base/log.h"
#include "base/partition.h"
#include "base/text.h"
#include "dict/builtin.h"
#include "dict/definitions.h"

namespace lanyard {
namespace {

constexpr std::array<const char *, 4> kTypeNames = {"string", "integer", "ipaddr", "date"};

// A line of a file, and of the built-in table.
using Line = std::array<char, 256>;

// Splits the first three words off a line; the last is null when there are fewer. The line ends
// after its first word then. Given: so this is what messages show.
std::array<const char *, 3> split(char *line) {
    constexpr const char *kSeparators = " \t\n";
    char *position = nullptr;
    const char *first = strtok_r(line, kSeparators, &position);
    const char *second = strtok_r(nullptr, kSeparators, &position);
    return {first, second, strtok_r(nullptr, kSeparators, &position)};
}

bool fits(const char *name, size_t size) {
    return std::strlen(name) < size;
}

// The number of a type; -1 for another word.
int32_t typeNumber(std::string_view word) {
    for (size_t type = 0; type < kTypeNames.size(); ++type) {
        if (word == kTypeNames[type]) {
            return static_cast<int32_t>(type);
        }
    }
    return -1;
}

// Adds the attribute of a line, which it splits.
int addAttribute(char *line) {
    constexpr const char *kTag = "radDictAddAttr";
    const auto [name, number, type] = split(line);
    if (!type) {
        radLogAs(kTag, kLogError, "radDictAddAttr: Invalid Attribute in: %s\n", line);
        return -1;
    }
    if (!fits(name, sizeof(RadDictAttr::name))) {
        radLogAs(kTag, kLogError, "radDictAddAttr: Attribute Name Too Long in: %s\n", line);
        return -1;
    }
    if (!startsWithDigit(number)) {
        radLogAs(kTag, kLogError, "radDictAddAttr: Invalid Attribute Number in: %s\n", line);
        return -1;
    }
    const int32_t typeCode = typeNumber(type);
    if (typeCode < 0) {
        radLogAs(kTag, kLogError, "radDictAddAttr: Invalid Attribute Type in: %s\n", line);
        return -1;
    }
    if (!defineAttribute(name, decimalValue(number), typeCode)) {
        radLogAs(kTag, kLogMemory, "radDictAddAttr: out of memory\n");
        return -1;
    }
    return 0;
}

// Adds the named value of a line, which it splits.
int addValue(char *line) {
    constexpr const char *kTag = "radDictAddValue";
    const auto [attrName, valueName, number] = split(line);
    if (!number) {
        radLogAs(kTag, kLogError, "radDictAddValue: Invalid Value in: %s\n", line);
        return -1;
    }
    if (!fits(attrName, sizeof(RadDictValue::attrName))) {
        radLogAs(kTag, kLogError, "radDictAddValue: Attribute Name Too Long in: %s\n", line);
        return -1;
    }
    // Given: the number has the limit of a name, and the message of one.
    if (!fits(number, RAD_NAME_MAX + 1) || !fits(valueName, sizeof(RadDictValue::valueName))) {
        radLogAs(kTag, kLogError, "radDictAddValue: Value Name Too Long in: %s\n", line);
        return -1;
    }
    if (!startsWithDigit(number)) {
        radLogAs(kTag, kLogError, "radDictAddValue: Invalid Value Number in: %s\n", line);
        return -1;
    }
    if (!defineValue(attrName, valueName, decimalValue(number))) {
        radLogAs(kTag, kLogMemory, "radDictAddValue: out of memory\n");
        return -1;
    }
    return 0;
}

// A built-in line where it can be split. Each is shorter than what is read of a file at a time.
char *copyOf(const char *text, Line &line) {
    return static_cast<char *>(std::memcpy(line.data(), text, std::strlen(text) + 1));
}

int loadBuiltin() {
    Line line{};
    for (const char *text : kBuiltinAttributes) {
        if (addAttribute(copyOf(text, line)) != 0) {
            radLogAs("radDictLoad", kLogError, "radDictLoad: Invalid Attribute '%s'\n", text);
            return -1;
        }
    }
    for (const char *text : kBuiltinValues) {
        if (addValue(copyOf(text, line)) != 0) {
            radLogAs("radDictLoad", kLogError,
                     "radDictLoad: Invalid Attribute Translation Value '%s'\n", text);
            return -1;
        }
    }
    return 0;
}

// Takes one line of a dictionary file. Ignores what is no definition.
int loadLine(char *line, int lineNumber, const char *path) {
    constexpr std::string_view kAttribute = "ATTRIBUTE";
    constexpr std::string_view kValue = "VALUE";
    const std::string_view text = line;
    if (text.starts_with(kAttribute)) {
        if (addAttribute(line + kAttribute.size()) != 0) {
            radLogAs("radDictLoad", kLogError,
                     "radDictLoad: Invalid Attribute on line %d of dictionary %s\n", lineNumber,
                     path);
            return -1;
        }
    } else if (text.starts_with(kValue)) {
        if (addValue(line + kValue.size()) != 0) {
            radLogAs("radDictLoad", kLogError,
                     "radDictLoad: Invalid Value on line %d of dictionary %s\n", lineNumber, path);
            return -1;
        }
    }
    return 0;
}

int loadFile(const char *path) {
    FILE *file = palFileOpen(path, "r");
    if (!file) {
        radLogAs("radDictLoad", kLogError, "radDictLoad: couldn't open dictionary %s: %s\n", path,
                 ErrorText(errno).text());
        return -1;
    }
    Line line{};
    int lineNumber = 0;
    int status = 0;
    while (status == 0 && palFileGets(line.data(), static_cast<int>(line.size()), file)) {
        ++lineNumber;
        if (line[0] == '#' || line[0] == '\n' || line[0] == '\0') {
            continue;
        }
        // Given: cuts the last character without looking at it. A last line without a newline loses
        // a real one, and so does each piece of a line longer than the buffer.
        line[std::strlen(line.data()) - 1] = '\0';
        status = loadLine(line.data(), lineNumber, path);
    }
    palFileClose(file);
    if (status == 0) {
        radLogAs("radDictLoad", kLogTrace, "Loaded Dictionary %s\n", path);
    }
    return status;
}

}  // namespace
}  // namespace lanyard

using namespace lanyard;

int radDictAddAttr(const char *line) {
    const auto copy = copyText(line);
    return copy ? addAttribute(copy.get()) : -1;
}

int radDictAddValue(const char *line) {
    const auto copy = copyText(line);
    return copy ? addValue(copy.get()) : -1;
}

int radDictLoad(const char *path) {
    radDictUnload();
    return path ? loadFile(path) : loadBuiltin();
}

int radDictUnload(void) {
    forgetDefinitions();
    radLog(kLogTrace, "Unloaded RADIUS Dictionary\n");
    return 0;
}
