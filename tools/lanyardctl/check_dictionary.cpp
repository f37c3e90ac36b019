// The check of a dictionary file.
#include <array>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/dict.h>
#include <lanyard/radius/frame.h>

#include "check.h"
#include "configuration.h"
#include "dictionary.h"
#include "library_lines.h"
#include "words.h"

namespace lanyardctl {

namespace {

constexpr size_t kValueNameMax = sizeof(RadDictValue::valueName) - 1;

// Vendors that the file names: their attributes are values of their names.
using Vendors = std::set<std::string>;

// As the library takes a line apart.
std::vector<std::string> wordsOf(const std::string &text) {
    return split(text, " \t\n");
}

std::string attributeRefusal(const std::vector<std::string> &words) {
    if (words.size() < 3) {
        return "an attribute needs name, number and type";
    }
    if (words[0].size() > RAD_NAME_MAX) {
        return "the name has more than " + std::to_string(RAD_NAME_MAX) + " characters";
    }
    return startsWithDigit(words[1]) ? "the type is none of string, integer, ipaddr and date"
                                     : "'" + words[1] + "' is no number";
}

std::string valueRefusal(const std::vector<std::string> &words) {
    if (words.size() < 3) {
        return "a value needs the attribute's name, its own name and a number";
    }
    if (words[0].size() > RAD_NAME_MAX || words[1].size() > kValueNameMax) {
        return "a name is too long: " + std::to_string(RAD_NAME_MAX) +
               " characters for attributes, " + std::to_string(kValueNameMax) + " for values";
    }
    return words[2].size() > RAD_NAME_MAX
               ? "the number has more than " + std::to_string(RAD_NAME_MAX) + " digits"
               : "'" + words[2] + "' is no number";
}

void checkAttribute(LineFinding &line, const std::string &text, Vendors & /*vendors*/) {
    const std::vector<std::string> words = wordsOf(text);
    const auto number = toNumber<int32_t>(words.size() > 1 ? words[1] : "");
    const RadDictAttr *earlier = number ? radDictGetAttr(*number) : nullptr;
    const std::string hidden = earlier ? earlier->name : "";
    if (radDictAddAttr(text.c_str()) != 0) {
        return line.refuse(attributeRefusal(words));
    }
    if (!number) {
        line.doubt("the number '" + words[1] + "' is not read as it is written");
    } else if (*number > kAttributeMax || *number == 0) {
        line.doubt("no packet can carry the number " + words[1]);
    }
    if (earlier) {
        line.doubt(words[0] + " hides " + hidden + ", which has the same number");
    }
}

bool isAttribute(const std::string &name) {
    bool isKnown = false;
    for (int number = 0; number <= kAttributeMax && !isKnown; ++number) {
        const RadDictAttr *attribute = radDictGetAttr(number);
        isKnown = attribute && name == attribute->name;
    }
    return isKnown;
}

void checkValue(LineFinding &line, const std::string &text, Vendors &vendors) {
    const std::vector<std::string> words = wordsOf(text);
    if (radDictAddValue(text.c_str()) != 0) {
        return line.refuse(valueRefusal(words));
    }
    const RadDictAttr *ofVendors = radDictGetAttr(RAD_ATTR_VENDOR_SPECIFIC);
    if (ofVendors && words[0] == ofVendors->name) {
        vendors.insert(words[1]);
    }
    if (!isAttribute(words[0]) && !vendors.contains(words[0])) {
        line.doubt("no attribute or vendor above is called '" + words[0] + "'");
    }
    if (!toNumber<int32_t>(words[2])) {
        line.doubt("the number '" + words[2] + "' is not read as it is written");
    }
}

struct DefinitionKind {
    std::string_view word;
    void (*check)(LineFinding &line, const std::string &text, Vendors &vendors);
};
constexpr std::array<DefinitionKind, 2> kDefinitionKinds = {
    {{"ATTRIBUTE", checkAttribute}, {"VALUE", checkValue}}};

void checkDefinition(LineFinding &line, const std::string &text, Vendors &vendors) {
    for (const DefinitionKind &kind : kDefinitionKinds) {
        if (text.starts_with(kind.word)) {
            return kind.check(line, text.substr(kind.word.size()), vendors);
        }
    }
    if (text.find_first_not_of(" \t\r") != std::string::npos) {
        line.doubt("ignored: it begins with neither ATTRIBUTE nor VALUE");
    }
}

}  // namespace

FileFindings checkDictionary(const std::string &file) {
    const Library library;
    radLibInit(nullptr);
    FileFindings findings{file};
    findings.isAccepted = radDictLoad(file.c_str()) == 0;
    radDictUnload();
    Vendors vendors;
    forEachLine(findings, kDictionaryBuffer,
                [&vendors](LineFinding &line, const std::string &text) {
                    checkDefinition(line, text, vendors);
                });
    return findings;
}

}  // namespace lanyardctl
