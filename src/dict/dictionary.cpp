// The attribute dictionary: two lists, newest definition first, so that a later one hides an earlier
// one of the same number; and an index by number for those that fit the type of an attribute, which
// are all that requests look up.
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

namespace lanyard {
namespace {

RadDictAttr *attributes = nullptr;
RadDictValue *values = nullptr;
std::array<RadDictAttr *, 256> attributeByNumber{};

constexpr std::array<const char *, 4> kTypeNames = {"string", "integer", "ipaddr", "date"};

// The first three words of a line. Splitting ends the copy after its first word. Given: so this is
// what messages show.
struct Words {
    explicit Words(const char *line) : copy(copyText(line)) {
        constexpr const char *kSeparators = " \t\n";
        char *position = nullptr;
        if (copy) {
            word[0] = strtok_r(copy.get(), kSeparators, &position);
            word[1] = strtok_r(nullptr, kSeparators, &position);
            word[2] = strtok_r(nullptr, kSeparators, &position);
        }
    }

    bool complete() const { return word.back() != nullptr; }

    PartitionPtr<char> copy;
    std::array<char *, 3> word{};
};

bool fits(const char *name, size_t size) {
    return std::strlen(name) < size;
}

// Copies a name that fits its field.
template <size_t size>
void copyName(char (&field)[size], const char *name) {
    std::memcpy(field, name, std::strlen(name) + 1);
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

template <typename Entry>
void freeList(Entry *&head) {
    while (head) {
        const PartitionPtr<Entry> entry(head);
        head = entry->next;
    }
}

int loadBuiltin() {
    for (const char *line : kBuiltinAttributes) {
        if (radDictAddAttr(line) != 0) {
            radLogAs("radDictLoad", kLogError, "radDictLoad: Invalid Attribute '%s'\n", line);
            return -1;
        }
    }
    for (const char *line : kBuiltinValues) {
        if (radDictAddValue(line) != 0) {
            radLogAs("radDictLoad", kLogError,
                     "radDictLoad: Invalid Attribute Translation Value '%s'\n", line);
            return -1;
        }
    }
    return 0;
}

// Takes one line of a dictionary file. Ignores what is no definition.
int loadLine(const char *line, int lineNumber, const char *path) {
    constexpr std::string_view kAttribute = "ATTRIBUTE";
    constexpr std::string_view kValue = "VALUE";
    const std::string_view text = line;
    if (text.starts_with(kAttribute)) {
        if (radDictAddAttr(line + kAttribute.size()) != 0) {
            radLogAs("radDictLoad", kLogError,
                     "radDictLoad: Invalid Attribute on line %d of dictionary %s\n", lineNumber,
                     path);
            return -1;
        }
    } else if (text.starts_with(kValue)) {
        if (radDictAddValue(line + kValue.size()) != 0) {
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
    std::array<char, 256> line{};
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
    if (!line) {
        return -1;
    }
    const Words words(line);
    if (!words.copy) {
        return -1;
    }
    const char *shown = words.copy.get();
    if (!words.complete()) {
        radLog(kLogError, "radDictAddAttr: Invalid Attribute in: %s\n", shown);
        return -1;
    }
    const auto [name, number, type] = words.word;
    if (!fits(name, sizeof(RadDictAttr::name))) {
        radLog(kLogError, "radDictAddAttr: Attribute Name Too Long in: %s\n", shown);
        return -1;
    }
    if (!startsWithDigit(number)) {
        radLog(kLogError, "radDictAddAttr: Invalid Attribute Number in: %s\n", shown);
        return -1;
    }
    const int32_t typeCode = typeNumber(type);
    if (typeCode < 0) {
        radLog(kLogError, "radDictAddAttr: Invalid Attribute Type in: %s\n", shown);
        return -1;
    }
    auto entry = allocateRecord<RadDictAttr>();
    if (!entry) {
        radLog(kLogMemory, "radDictAddAttr: out of memory\n");
        return -1;
    }
    copyName(entry->name, name);
    entry->attrNum = decimalValue(number);
    entry->type = typeCode;
    entry->next = attributes;
    attributes = entry.release();
    if (attributes->attrNum >= 0 && attributes->attrNum <= 255) {
        attributeByNumber[static_cast<size_t>(attributes->attrNum)] = attributes;
    }
    return 0;
}

int radDictAddValue(const char *line) {
    if (!line) {
        return -1;
    }
    const Words words(line);
    if (!words.copy) {
        return -1;
    }
    const char *shown = words.copy.get();
    if (!words.complete()) {
        radLog(kLogError, "radDictAddValue: Invalid Value in: %s\n", shown);
        return -1;
    }
    const auto [attrName, valueName, number] = words.word;
    if (!fits(attrName, sizeof(RadDictValue::attrName))) {
        radLog(kLogError, "radDictAddValue: Attribute Name Too Long in: %s\n", shown);
        return -1;
    }
    // Given: the number has the limit of a name, and the message of one.
    if (!fits(number, RAD_NAME_MAX + 1) || !fits(valueName, sizeof(RadDictValue::valueName))) {
        radLog(kLogError, "radDictAddValue: Value Name Too Long in: %s\n", shown);
        return -1;
    }
    if (!startsWithDigit(number)) {
        radLog(kLogError, "radDictAddValue: Invalid Value Number in: %s\n", shown);
        return -1;
    }
    auto entry = allocateRecord<RadDictValue>();
    if (!entry) {
        radLog(kLogMemory, "radDictAddValue: out of memory\n");
        return -1;
    }
    copyName(entry->attrName, attrName);
    copyName(entry->valueName, valueName);
    entry->value = decimalValue(number);
    entry->next = values;
    values = entry.release();
    return 0;
}

int radDictLoad(const char *path) {
    radDictUnload();
    return path ? loadFile(path) : loadBuiltin();
}

int radDictUnload(void) {
    attributeByNumber.fill(nullptr);
    freeList(attributes);
    freeList(values);
    radLog(kLogTrace, "Unloaded RADIUS Dictionary\n");
    return 0;
}

const RadDictAttr *radDictGetAttr(int32_t attrNum) {
    if (attrNum >= 0 && attrNum <= 255) {
        return attributeByNumber[static_cast<size_t>(attrNum)];
    }
    const RadDictAttr *entry = attributes;
    while (entry && entry->attrNum != attrNum) {
        entry = entry->next;
    }
    return entry;
}

const RadDictValue *radDictGetVal(int32_t value, const char *attrName) {
    if (!attrName) {
        return nullptr;
    }
    const RadDictValue *entry = values;
    while (entry && (entry->value != value || std::strcmp(entry->attrName, attrName) != 0)) {
        entry = entry->next;
    }
    return entry;
}
