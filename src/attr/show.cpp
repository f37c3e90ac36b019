// Display of one pair.
#include <algorithm>
#include <array>
#include <span>
#include <string_view>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/dict.h>

#include "base/log.h"
#include "base/output.h"

namespace lanyard {
namespace {

// The longest line: name and ": ", "0x", a full value at eight digits a byte, newline.
using Line = OutputLine<RAD_NAME_MAX + 4 + size_t{RAD_VALUE_MAX} * 8 + 1>;

// Given: a name of 32 characters has no blank after its colon.
void addName(Line &line, std::string_view name) {
    line.add(name);
    line.add(name.size() < RAD_NAME_MAX ? ": " : ":");
}

std::span<const char> bytesOf(const RadPair &pair) {
    return std::span(pair.strValue).first(std::min<size_t>(pair.numValue, RAD_VALUE_MAX));
}

void addText(Line &line, std::span<const char> bytes) {
    for (const char byte : bytes) {
        // A NUL adds nothing to a line that is printed as text.
        if (byte != '\0') {
            line.add(byte);
        }
    }
}

// Given: bytes are signed, so that from 0x80 on they have eight digits.
void addHex(Line &line, std::span<const char> bytes) {
    line.add("0x");
    for (const char byte : bytes) {
        if (static_cast<signed char>(byte) < 0) {
            line.add(std::array{'f', 'f', 'f', 'f', 'f', 'f'});
        }
        line.add(hexOf(static_cast<uint8_t>(byte)));
    }
}

void showNumber(const RadPair &pair) {
    const auto number = static_cast<int32_t>(pair.numValue);
    const RadDictValue *value = radDictGetVal(number, pair.name);
    if (value) {
        radLogAs("radPairShow", kLogDump, "%s: %s\n", pair.name, value->valueName);
    } else {
        radLogAs("radPairShow", kLogDump, "%s: %u\n", pair.name, pair.numValue);
    }
}

}  // namespace
}  // namespace lanyard

using namespace lanyard;

int radPairShow(const RadPair *pair) {
    if (!pair) {
        return -1;
    }
    if (!radDictGetAttr(pair->attrNum)) {
        radLog(kLogError, "Unknown-Attribute[%d]:\n", pair->attrNum);
        return 0;
    }
    if (pair->type >= RAD_TYPE_INTEGER && pair->type <= RAD_TYPE_DATE) {
        showNumber(*pair);
        return 0;
    }
    Line line;
    addName(line, pair->name);
    if (pair->attrNum == RAD_ATTR_REPLY_MESSAGE) {
        addText(line, bytesOf(*pair));
    } else {
        addHex(line, bytesOf(*pair));
    }
    line.add('\n');
    line.print();
    return 0;
}
