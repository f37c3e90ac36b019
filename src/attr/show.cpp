// Display of one pair.
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <span>
#include <string_view>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/dict.h>

#include "base/log.h"

namespace lanyard {
namespace {

// The longest line: name and ": ", "0x", a full value at eight digits a byte, newline, NUL.
constexpr size_t kNameBound = RAD_NAME_MAX + 2;
constexpr size_t kLineSize = kNameBound + 2 + size_t{RAD_VALUE_MAX} * 8 + 2;

// A line of output.
class Line {
  public:
    // Given: the bound counts the NUL, so the blank after a name of 32 characters is cut.
    explicit Line(const char *name) {
        const int length = std::snprintf(text_.data(), kNameBound, "%s: ", name);
        length_ = std::min(static_cast<size_t>(length), kNameBound - 1);
    }

    void add(std::string_view text) {
        std::memcpy(text_.data() + length_, text.data(), text.size());
        length_ += text.size();
    }

    const char *finish() {
        add("\n");
        text_[length_] = '\0';
        return text_.data();
    }

  private:
    std::array<char, kLineSize> text_{};
    size_t length_ = 0;
};

std::span<const char> bytesOf(const RadPair &pair) {
    return std::span(pair.strValue).first(std::min<size_t>(pair.numValue, RAD_VALUE_MAX));
}

void addText(Line &line, std::span<const char> bytes) {
    for (const char &byte : bytes) {
        // A NUL adds nothing to a line that is printed as text.
        if (byte != '\0') {
            line.add({&byte, 1});
        }
    }
}

// Given: bytes are signed, so that from 0x80 on they have eight digits.
void addHex(Line &line, std::span<const char> bytes) {
    line.add("0x");
    for (const char byte : bytes) {
        std::array<char, 9> digits{};
        // NOLINTNEXTLINE(bugprone-signed-char-misuse, cert-str34-c): the sign is what is shown.
        const int value = static_cast<signed char>(byte);
        const int length =
            std::snprintf(digits.data(), digits.size(), "%02x", static_cast<unsigned>(value));
        line.add({digits.data(), static_cast<size_t>(length)});
    }
}

void showNumber(const RadPair &pair) {
    const auto number = static_cast<int32_t>(pair.numValue);
    const RadDictValue *value = radDictGetVal(number, pair.name);
    if (value) {
        radLogAs("radPairShow", kLogDump, "%s: %s\n", pair.name, value->valueName);
    } else {
        radLogAs("radPairShow", kLogDump, "%s: %ld\n", pair.name, static_cast<long>(pair.numValue));
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
    Line line(pair->name);
    if (pair->attrNum == RAD_ATTR_REPLY_MESSAGE) {
        addText(line, bytesOf(*pair));
    } else {
        addHex(line, bytesOf(*pair));
    }
    std::printf("%s", line.finish());
    return 0;
}
