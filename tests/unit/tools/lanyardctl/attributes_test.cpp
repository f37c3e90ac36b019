// What people and programs are shown of attributes.
#include "tools/lanyardctl/attributes.h"

#include <nlohmann/json.hpp>
#include <string>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/dict.h>
#include <lanyard/radius/frame.h>

#include "tests/support/test.h"
#include "tools/lanyardctl/table.h"

namespace lanyard::test::attributes_test {
namespace {

using lanyardctl::shown;
using lanyardctl::ShownAttribute;
using lanyardctl::shownAttributes;

class Shown : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(0, radLibInit(nullptr));
        load(nullptr);
    }
    void TearDown() override { radLibExit(); }

    static void load(const char *dictionary) { ASSERT_EQ(0, radDictLoad(dictionary)); }

    static ShownAttribute attribute(uint8_t number, const std::string &value) {
        const auto *bytes = reinterpret_cast<const uint8_t *>(value.data());
        return shownAttributes({{number, {bytes, value.size()}}}).at(0);
    }
};

TEST(ShownText, HarmfulCharacters_AreQuestionMarks) {
    EXPECT_EQ("caf\u00e9 \u2603", shown("caf\u00e9 \u2603"));
    EXPECT_EQ("a?[31mb??", shown("a\033[31mb\r\n"));
    EXPECT_EQ("a??31mb", shown("a\xc2\x9b"
                               "31mb"));                             // CSI in one character
    EXPECT_EQ("a???z", shown("a\xe2\x80\xaez"));                     // right to left from here on
    EXPECT_EQ("??, ?, ???", shown("\xc0\x80, \xe9, \xed\xa0\x80"));  // no UTF-8
    EXPECT_EQ("(none)", shown(std::nullopt));
}

TEST_F(Shown, TextIsQuoted_WhatIsNoneIsHexadecimal) {
    EXPECT_EQ("\"caf\u00e9\"", attribute(RAD_ATTR_REPLY_MESSAGE, "caf\u00e9").value);
    EXPECT_EQ("caf\u00e9", attribute(RAD_ATTR_REPLY_MESSAGE, "caf\u00e9").json.at("value"));
    for (const char *text : {"\033[31m", "\xc2\x9b", "\xe2\x80\xae", "\xc0\x80", "\xc3", "\xff"}) {
        const ShownAttribute shown = attribute(RAD_ATTR_REPLY_MESSAGE, text);
        EXPECT_EQ("0x", shown.value.substr(0, 2)) << text;
        EXPECT_FALSE(shown.json.contains("value")) << text;
        EXPECT_NO_THROW((void)shown.json.dump()) << text;
    }
}

TEST_F(Shown, AttributeOfAVendor_HasTheNameOfTheDictionary) {
    const auto ofVendor = [](const std::string &vendor, char number, const std::string &data) {
        return attribute(RAD_ATTR_VENDOR_SPECIFIC, std::string(1, '\0') + vendor + number +
                                                       static_cast<char>(data.size() + 2) + data);
    };
    const std::string cisco("\0\0\x09", 3);
    const std::string microsoft("\0\x01\x37", 3);
    const std::string stranger("\0\0\x63", 3);
    EXPECT_EQ("Cisco-AVPair", ofVendor(cisco, 1, "a=b").name);
    EXPECT_EQ("Cisco-250", ofVendor(cisco, '\xfa', "Aservice").name);
    EXPECT_EQ("Vendor-99-7", ofVendor(stranger, 7, "x").name);
    EXPECT_EQ("(hidden, 3 bytes)", ofVendor(microsoft, 17, "key").value);
    load(LANYARD_DICTIONARY);
    EXPECT_EQ("Cisco-AVPair", ofVendor(cisco, 1, "a=b").name);
    EXPECT_EQ("Cisco-Account-Info", ofVendor(cisco, '\xfa', "Aservice").name);
    EXPECT_EQ("Vendor-99-7", ofVendor(stranger, 7, "x").name);
    EXPECT_EQ("MS-MPPE-Recv-Key", ofVendor(microsoft, 17, "key").name);
    EXPECT_EQ("(hidden, 3 bytes)", ofVendor(microsoft, 17, "key").value);
    ASSERT_EQ(0, radDictAddValue("Vendor-Specific Acme 99"));
    ASSERT_EQ(0, radDictAddValue("Acme Acme-Door 7"));
    EXPECT_EQ("Acme-Door", ofVendor(stranger, 7, "x").name);
    EXPECT_EQ("Acme-8", ofVendor(stranger, 8, "x").name);
}

}  // namespace
}  // namespace lanyard::test::attributes_test
