// The files that are shipped beside the library load, and say what they promise.
#include <algorithm>
#include <cctype>
#include <fstream>
#include <gmock/gmock.h>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/conf.h>
#include <lanyard/radius/dict.h>
#include <lanyard/radius/frame.h>
#include <palroot.h>

#include "tests/support/temporary_folder.h"

namespace lanyard::test::shipped_files_test {
namespace {

using testing::SizeIs;
using testing::StrEq;

constexpr int32_t kLargestNumber = 255;

// Number of an attribute to its name and type; attribute and number of a value to its name.
struct Dictionary {
    std::map<int32_t, std::pair<std::string, int32_t>> attributes;
    std::map<std::pair<std::string, int32_t>, std::string> values;
};

Dictionary loadedDictionary() {
    Dictionary dictionary;
    for (int32_t number = 0; number <= kLargestNumber; ++number) {
        const RadDictAttr *attribute = radDictGetAttr(number);
        if (attribute == nullptr) {
            continue;
        }
        dictionary.attributes[number] = {attribute->name, attribute->type};
        for (int32_t value = 0; value <= kLargestNumber; ++value) {
            if (const RadDictValue *named = radDictGetVal(value, attribute->name)) {
                dictionary.values[{attribute->name, value}] = named->valueName;
            }
        }
    }
    return dictionary;
}

class ShippedFiles : public testing::Test {
  protected:
    void SetUp() override {
        palRootSet(nullptr);
        ASSERT_EQ(0, radMemInit(RAD_PARTITION_SIZE));
    }
    void TearDown() override {
        radLibExit();
        palRootSet(nullptr);
    }

    static constexpr const char *kDictionary = LANYARD_ETC "/radius.dict";
};

TEST_F(ShippedFiles, Dictionary_HoldsTheWholeBuiltInTable) {
    ASSERT_EQ(0, radDictLoad(nullptr));
    const Dictionary builtIn = loadedDictionary();
    ASSERT_THAT(builtIn.attributes, SizeIs(43));
    ASSERT_THAT(builtIn.values, SizeIs(51));

    ASSERT_EQ(0, radDictLoad(kDictionary));
    const Dictionary file = loadedDictionary();
    for (const auto &[number, definition] : builtIn.attributes) {
        const auto found = file.attributes.find(number);
        ASSERT_NE(file.attributes.end(), found) << definition.first;
        EXPECT_EQ(definition, found->second);
    }
    for (const auto &[key, name] : builtIn.values) {
        const auto found = file.values.find(key);
        ASSERT_NE(file.values.end(), found) << key.first << " " << key.second;
        EXPECT_EQ(name, found->second);
    }
}

TEST_F(ShippedFiles, Dictionary_AddsWhatServersSend) {
    ASSERT_EQ(0, radDictLoad(kDictionary));
    const Dictionary file = loadedDictionary();
    EXPECT_THAT(file.attributes, SizeIs(126));
    EXPECT_THAT(file.values, SizeIs(123));
    for (const auto &[number, name, type] :
         {std::tuple{25, "Class", RAD_TYPE_STRING}, std::tuple{33, "Proxy-State", RAD_TYPE_STRING},
          std::tuple{47, "Acct-Input-Packets", RAD_TYPE_INTEGER},
          std::tuple{55, "Event-Timestamp", RAD_TYPE_DATE},
          std::tuple{64, "Tunnel-Type", RAD_TYPE_INTEGER},
          std::tuple{65, "Tunnel-Medium-Type", RAD_TYPE_INTEGER},
          std::tuple{81, "Tunnel-Private-Group-ID", RAD_TYPE_STRING},
          std::tuple{85, "Acct-Interim-Interval", RAD_TYPE_INTEGER},
          std::tuple{88, "Framed-Pool", RAD_TYPE_STRING},
          std::tuple{89, "Chargeable-User-Identity", RAD_TYPE_STRING},
          std::tuple{97, "Framed-IPv6-Prefix", RAD_TYPE_STRING},
          std::tuple{101, "Error-Cause", RAD_TYPE_INTEGER},
          std::tuple{126, "Operator-Name", RAD_TYPE_STRING},
          std::tuple{188, "WLAN-AKM-Suite", RAD_TYPE_INTEGER}}) {
        const RadDictAttr *attribute = radDictGetAttr(number);
        ASSERT_NE(nullptr, attribute) << name;
        EXPECT_STREQ(name, attribute->name);
        EXPECT_EQ(type, attribute->type);
    }
    for (const auto &[attribute, value, name] :
         {std::tuple{"Service-Type", 8, "Authenticate-Only"},
          std::tuple{"Service-Type", 10, "Call-Check"},
          std::tuple{"Acct-Status-Type", 3, "Interim-Update"},
          std::tuple{"Tunnel-Type", 13, "VLAN"}, std::tuple{"Tunnel-Medium-Type", 6, "IEEE-802"},
          std::tuple{"NAS-Port-Type", 19, "Wireless-802.11"}, std::tuple{"Prompt", 0, "No-Echo"},
          std::tuple{"Error-Cause", 503, "Session-Not-Found"},
          std::tuple{"Vendor-Specific", RAD_VENDOR_MICROSOFT, "Microsoft"},
          std::tuple{"Microsoft", int{RAD_MS_MPPE_RECV_KEY}, "MS-MPPE-Recv-Key"},
          std::tuple{"Cisco", 1, "Cisco-AVPair"},
          std::tuple{"WISPr", 8, "WISPr-Bandwidth-Max-Down"}}) {
        const RadDictValue *named = radDictGetVal(value, attribute);
        ASSERT_NE(nullptr, named) << name;
        EXPECT_STREQ(name, named->valueName);
    }
}

TEST_F(ShippedFiles, Dictionary_DefinesNothingTwiceAndNoLineIsTooLong) {
    std::ifstream stream(kDictionary);
    std::map<std::string, int> definitions;
    std::string line;
    while (std::getline(stream, line)) {
        EXPECT_FALSE(stream.eof()) << "no newline after: " << line;
        EXPECT_LE(line.size(), 254U);
        std::istringstream fields(line);
        std::string keyword;
        std::string first;
        std::string second;
        std::string third;
        if (!(fields >> keyword) || keyword.front() == '#') {
            continue;
        }
        ASSERT_TRUE(fields >> first >> second >> third) << line;
        if (keyword == "ATTRIBUTE") {
            ++definitions["attribute " + second];
            ++definitions["name " + first];
            EXPECT_LE(first.size(), size_t{RAD_NAME_MAX}) << line;
        } else {
            ASSERT_EQ("VALUE", keyword) << line;
            ++definitions[std::string("value ").append(first).append(" ").append(third)];
            EXPECT_LT(second.size(), sizeof RadDictValue{}.valueName) << line;
            if (first == "Vendor-Specific") {
                ++definitions["name " + second];  // its attributes are values of that name
            }
            EXPECT_EQ(1U, definitions.count("name " + first)) << "no such attribute: " << line;
        }
    }
    EXPECT_THAT(definitions, SizeIs(126 * 2 + 3 + 189));
    for (const auto &[definition, count] : definitions) {
        EXPECT_EQ(1, count) << definition;
    }
}

// The constants of attr.h are those of the dictionary.
TEST_F(ShippedFiles, Dictionary_HasTheNumbersOfTheHeader) {
    ASSERT_EQ(0, radDictLoad(kDictionary));
    std::ifstream header(LANYARD_INCLUDE "/lanyard/radius/attr.h");
    const std::regex constant("    RAD_ATTR_([A-Z0-9_]+) = ([0-9]+),?");
    const std::set<int> renamed = {2, 5, 87};  // the dictionary has older names for them
    size_t found = 0;
    for (std::string line; std::getline(header, line);) {
        std::smatch match;
        if (!std::regex_match(line, match, constant)) {
            continue;
        }
        ++found;
        const RadDictAttr *attribute = radDictGetAttr(std::stoi(match[2]));
        ASSERT_NE(nullptr, attribute) << line;
        std::string name(attribute->name);
        std::transform(name.begin(), name.end(), name.begin(),
                       [](unsigned char c) { return c == '-' ? '_' : std::toupper(c); });
        EXPECT_EQ(renamed.count(attribute->attrNum) == 0, name == match[1]) << line;
    }
    EXPECT_EQ(126U, found);
}

TEST_F(ShippedFiles, SampleConfiguration_UsableAsItStands) {
    ASSERT_EQ(0, radConfigure(LANYARD_ETC "/radius.conf.sample"));
    ASSERT_EQ(2, radConfGetNumServers(RAD_SERVER_AUTH));
    EXPECT_EQ(0, radConfGetNumServers(RAD_SERVER_ACCT));
    const auto *servers = static_cast<const RadServer *>(radConfGet(RAD_CONF_AUTH_SERVERS));
    EXPECT_STREQ("192.0.2.10", servers[0].host);
    EXPECT_EQ(1812, servers[0].port);
    EXPECT_EQ(3, servers[0].timeout);
    EXPECT_EQ(2, servers[0].retries);
    EXPECT_STREQ("192.0.2.11", servers[1].host);
    EXPECT_EQ(5, *static_cast<const int32_t *>(radConfGet(RAD_CONF_TIMEOUT)));
    EXPECT_EQ(2, *static_cast<const int32_t *>(radConfGet(RAD_CONF_RETRIES)));
}

// Every option that the sample shows commented out is right as well.
TEST_F(ShippedFiles, SampleConfigurationWithEveryOptionTurnedOn_Usable) {
    const TemporaryFolder root;
    std::ifstream stream(LANYARD_ETC "/radius.conf.sample");
    std::string text;
    std::string line;
    int turnedOn = 0;
    while (std::getline(stream, line)) {
        EXPECT_LE(line.size(), 510U);
        if (line.size() > 1 && line[0] == '#' && line[1] != ' ') {
            line.erase(0, 1);
            ++turnedOn;
        }
        text.append(line).append("\n");
    }
    EXPECT_EQ(2, turnedOn);
    root.write("var/radius.conf", text);
    std::ifstream dictionary(kDictionary);
    root.write("nexa2.0/etc/radius.dict",
               std::string(std::istreambuf_iterator<char>(dictionary), {}));

    palRootSet(root.path().c_str());
    ASSERT_EQ(0, radLibInit(radLibDefConf()));
    EXPECT_EQ(2, radConfGetNumServers(RAD_SERVER_AUTH));
    EXPECT_EQ(1, radConfGetNumServers(RAD_SERVER_ACCT));
    EXPECT_THAT(static_cast<const char *>(radConfGet(RAD_CONF_DICTIONARY)),
                StrEq("/nexa2.0/etc/radius.dict"));
    EXPECT_NE(nullptr, radDictGetAttr(25));
}

}  // namespace
}  // namespace lanyard::test::shipped_files_test
