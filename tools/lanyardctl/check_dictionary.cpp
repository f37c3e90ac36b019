// The check of a dictionary file.
#include <algorithm>
#include <array>
#include <cctype>
#include <sstream>
#include <string>
#include <vector>

#include <lanyard/radius/dict.h>
#include <lanyard/radius/frame.h>

#include "check.h"
#include "configuration.h"
#include "library_lines.h"

namespace lanyardctl {

namespace {

constexpr int kNumberMax = 255;
constexpr size_t kValueNameMax = sizeof(RadDictValue::valueName) - 1;

std::vector<std::string> wordsOf(const std::string &text) {
    std::istringstream stream(text);
    std::vector<std::string> words;
    for (std::string word; stream >> word;) {
        words.push_back(word);
    }
    return words;
}

bool startsWithDigit(const std::string &text) {
    return std::isdigit(static_cast<unsigned char>(text[0])) != 0;
}

bool isDigits(const std::string &text) {
    return std::all_of(text.begin(), text.end(),
                       [](unsigned char c) { return std::isdigit(c) != 0; });
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
    return "'" + words[2] + "' is no number";
}

void checkAttribute(LineFinding &line, const std::string &text) {
    const std::vector<std::string> words = wordsOf(text);
    const bool hasNumber = words.size() > 1 && startsWithDigit(words[1]) && words[1].size() < 9;
    const RadDictAttr *earlier = hasNumber ? radDictGetAttr(std::stoi(words[1])) : nullptr;
    const std::string hidden = earlier ? earlier->name : "";
    if (radDictAddAttr(text.c_str()) != 0) {
        return line.refuse(attributeRefusal(words));
    }
    if (!isDigits(words[1])) {
        line.doubt("the number '" + words[1] + "' is read as " +
                   std::to_string(std::stoi(words[1])));
    } else if (!hasNumber || std::stoi(words[1]) > kNumberMax || std::stoi(words[1]) == 0) {
        line.doubt("no packet can carry the number " + words[1]);
    }
    if (earlier) {
        line.doubt(words[0] + " hides " + hidden + ", which has the same number");
    }
}

void checkValue(LineFinding &line, const std::string &text) {
    const std::vector<std::string> words = wordsOf(text);
    if (radDictAddValue(text.c_str()) != 0) {
        return line.refuse(valueRefusal(words));
    }
    bool isKnown = false;
    for (int number = 0; number <= kNumberMax && !isKnown; ++number) {
        const RadDictAttr *attribute = radDictGetAttr(number);
        isKnown = attribute && words[0] == attribute->name;
    }
    if (!isKnown) {
        line.doubt("no attribute above is called '" + words[0] + "'");
    }
    if (!isDigits(words[2])) {
        line.doubt("the number '" + words[2] + "' is read up to its first letter");
    }
}

struct Definition {
    std::string_view word;
    void (*check)(LineFinding &line, const std::string &text);
};
constexpr std::array<Definition, 2> kDefinitions = {
    {{"ATTRIBUTE", checkAttribute}, {"VALUE", checkValue}}};

void checkLine(LineFinding &line, const std::string &text) {
    for (const Definition &definition : kDefinitions) {
        if (text.starts_with(definition.word)) {
            return definition.check(line, text.substr(definition.word.size()));
        }
    }
    if (text.find_first_not_of(" \t\r") != std::string::npos) {
        line.doubt("ignored: it begins with neither ATTRIBUTE nor VALUE");
    }
}

}  // namespace

FileFindings checkDictionary(const std::string &file) {
    quietenLibrary();
    radLibInit(nullptr);
    FileFindings findings{file};
    findings.isAccepted = radDictLoad(file.c_str()) == 0;
    radDictUnload();
    forEachLine(findings, kDictionaryBuffer, checkLine);
    radLibExit();
    return findings;
}

}  // namespace lanyardctl
