// The built-in dictionary: all of it, and nothing else.
#include <algorithm>
#include <array>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <string>

#include "tests/unit/dict/dict_fixture.h"

namespace lanyard::test::builtin_test {
namespace {

using testing::ElementsAre;

struct Attribute {
    const char *name;
    int32_t number;
    int32_t type;
};

struct NamedValue {
    const char *attribute;
    const char *name;
    int32_t value;
};

// clang-format off
constexpr std::array<Attribute, 43> kAttributes = {{
    {"User-Name", 1, RAD_TYPE_STRING},
    {"Password", 2, RAD_TYPE_STRING},
    {"CHAP-Password", 3, RAD_TYPE_STRING},
    {"NAS-IP-Address", 4, RAD_TYPE_IPADDR},
    {"NAS-Port-Id", 5, RAD_TYPE_INTEGER},
    {"Service-Type", 6, RAD_TYPE_INTEGER},
    {"Framed-Protocol", 7, RAD_TYPE_INTEGER},
    {"Framed-IP-Address", 8, RAD_TYPE_IPADDR},
    {"Framed-IP-Netmask", 9, RAD_TYPE_IPADDR},
    {"Framed-Routing", 10, RAD_TYPE_INTEGER},
    {"Filter-Id", 11, RAD_TYPE_STRING},
    {"Framed-MTU", 12, RAD_TYPE_INTEGER},
    {"Framed-Compression", 13, RAD_TYPE_INTEGER},
    {"Login-IP-Host", 14, RAD_TYPE_IPADDR},
    {"Login-Service", 15, RAD_TYPE_INTEGER},
    {"Login-TCP-Port", 16, RAD_TYPE_INTEGER},
    {"Reply-Message", 18, RAD_TYPE_STRING},
    {"Callback-Number", 19, RAD_TYPE_STRING},
    {"Callback-Id", 20, RAD_TYPE_STRING},
    {"Framed-Route", 22, RAD_TYPE_STRING},
    {"Framed-IPX-Network", 23, RAD_TYPE_IPADDR},
    {"State", 24, RAD_TYPE_STRING},
    {"Vendor-Specific", 26, RAD_TYPE_STRING},
    {"Session-Timeout", 27, RAD_TYPE_INTEGER},
    {"Idle-Timeout", 28, RAD_TYPE_INTEGER},
    {"Termination-Action", 29, RAD_TYPE_INTEGER},
    {"Called-Station-Id", 30, RAD_TYPE_STRING},
    {"Calling-Station-Id", 31, RAD_TYPE_STRING},
    {"NAS-Identifier", 32, RAD_TYPE_STRING},
    {"Acct-Status-Type", 40, RAD_TYPE_INTEGER},
    {"Acct-Delay-Time", 41, RAD_TYPE_INTEGER},
    {"Acct-Input-Octets", 42, RAD_TYPE_INTEGER},
    {"Acct-Output-Octets", 43, RAD_TYPE_INTEGER},
    {"Acct-Session-Id", 44, RAD_TYPE_STRING},
    {"Acct-Authentic", 45, RAD_TYPE_INTEGER},
    {"Acct-Session-Time", 46, RAD_TYPE_INTEGER},
    {"Acct-Terminate-Cause", 49, RAD_TYPE_INTEGER},
    {"CHAP-Challenge", 60, RAD_TYPE_STRING},
    {"NAS-Port-Type", 61, RAD_TYPE_INTEGER},
    {"Port-Limit", 62, RAD_TYPE_INTEGER},
    {"Connect-Info", 77, RAD_TYPE_STRING},
    {"EAP-Message", 79, RAD_TYPE_STRING},
    {"Message-Authenticator", 80, RAD_TYPE_STRING},
}};

constexpr std::array<NamedValue, 51> kValues = {{
    {"Service-Type", "Login-User", 1},
    {"Service-Type", "Framed-User", 2},
    {"Service-Type", "Callback-Login-User", 3},
    {"Service-Type", "Callback-Framed-User", 4},
    {"Service-Type", "Outbound-User", 5},
    {"Service-Type", "Administrative-User", 6},
    {"Service-Type", "NAS-Prompt-User", 7},
    {"Framed-Protocol", "PPP", 1},
    {"Framed-Protocol", "SLIP", 2},
    {"Framed-Routing", "None", 0},
    {"Framed-Routing", "Broadcast", 1},
    {"Framed-Routing", "Listen", 2},
    {"Framed-Routing", "Broadcast-Listen", 3},
    {"Framed-Compression", "None", 0},
    {"Framed-Compression", "Van-Jacobson-TCP-IP", 1},
    {"Login-Service", "Telnet", 0},
    {"Login-Service", "Rlogin", 1},
    {"Login-Service", "TCP-Clear", 2},
    {"Login-Service", "PortMaster", 3},
    {"Acct-Status-Type", "Start", 1},
    {"Acct-Status-Type", "Stop", 2},
    {"Acct-Status-Type", "Accounting-On", 7},
    {"Acct-Status-Type", "Accounting-Off", 8},
    {"Acct-Authentic", "RADIUS", 1},
    {"Acct-Authentic", "Local", 2},
    {"Acct-Authentic", "PowerLink128", 100},
    {"Termination-Action", "Default", 0},
    {"Termination-Action", "RADIUS-Request", 1},
    {"NAS-Port-Type", "Async", 0},
    {"NAS-Port-Type", "Sync", 1},
    {"NAS-Port-Type", "ISDN", 2},
    {"NAS-Port-Type", "ISDN-V120", 3},
    {"NAS-Port-Type", "ISDN-V110", 4},
    {"Acct-Terminate-Cause", "User-Request", 1},
    {"Acct-Terminate-Cause", "Lost-Carrier", 2},
    {"Acct-Terminate-Cause", "Lost-Service", 3},
    {"Acct-Terminate-Cause", "Idle-Timeout", 4},
    {"Acct-Terminate-Cause", "Session-Timeout", 5},
    {"Acct-Terminate-Cause", "Admin-Reset", 6},
    {"Acct-Terminate-Cause", "Admin-Reboot", 7},
    {"Acct-Terminate-Cause", "Port-Error", 8},
    {"Acct-Terminate-Cause", "NAS-Error", 9},
    {"Acct-Terminate-Cause", "NAS-Request", 10},
    {"Acct-Terminate-Cause", "NAS-Reboot", 11},
    {"Acct-Terminate-Cause", "Port-Unneeded", 12},
    {"Acct-Terminate-Cause", "Port-Preempted", 13},
    {"Acct-Terminate-Cause", "Port-Suspended", 14},
    {"Acct-Terminate-Cause", "Service-Unavailable", 15},
    {"Acct-Terminate-Cause", "Callback", 16},
    {"Acct-Terminate-Cause", "User-Error", 17},
    {"Acct-Terminate-Cause", "Host-Request", 18},
}};
// clang-format on

bool isBuiltin(int32_t number) {
    return std::any_of(kAttributes.begin(), kAttributes.end(),
                       [number](const Attribute &known) { return known.number == number; });
}

const NamedValue *findBuiltin(int32_t value, const std::string &attribute) {
    const auto *found = std::find_if(kValues.begin(), kValues.end(), [&](const NamedValue &known) {
        return known.value == value && known.attribute == attribute;
    });
    return found == kValues.end() ? nullptr : found;
}

// A definition with one blank between its fields, however the table pads them.
std::string squeezed(const std::string &text) {
    std::istringstream words(text);
    std::string result;
    for (std::string word; words >> word;) {
        result += (result.empty() ? "" : " ") + word;
    }
    return result;
}

class BuiltinDictionary : public DictTest {
  protected:
    void SetUp() override {
        DictTest::SetUp();
        ASSERT_EQ(0, radDictLoad(nullptr));
    }
};

TEST_F(BuiltinDictionary, LoadsWithoutAMessageOfItsOwn) {
    EXPECT_THAT(log.lines(),
                ElementsAre(Logged(7, 128, "radDictUnload", "Unloaded RADIUS Dictionary\n")));
}

TEST_F(BuiltinDictionary, KnowsItsAttributes) {
    for (const Attribute &known : kAttributes) {
        SCOPED_TRACE(known.name);
        const RadDictAttr *attribute = radDictGetAttr(known.number);
        ASSERT_NE(nullptr, attribute);
        EXPECT_STREQ(known.name, attribute->name);
        EXPECT_EQ(known.number, attribute->attrNum);
        EXPECT_EQ(known.type, attribute->type);
    }
}

TEST_F(BuiltinDictionary, KnowsNoOtherAttribute) {
    for (int32_t number = -2; number < 600; ++number) {
        EXPECT_EQ(isBuiltin(number), radDictGetAttr(number) != nullptr) << number;
    }
    EXPECT_EQ(nullptr, radDictGetAttr(INT32_MAX));
    EXPECT_EQ(nullptr, radDictGetAttr(INT32_MIN));
}

TEST_F(BuiltinDictionary, KnowsItsValues) {
    for (const NamedValue &known : kValues) {
        SCOPED_TRACE(std::string(known.attribute) + ' ' + known.name);
        const RadDictValue *value = radDictGetVal(known.value, known.attribute);
        ASSERT_NE(nullptr, value);
        EXPECT_STREQ(known.attribute, value->attrName);
        EXPECT_STREQ(known.name, value->valueName);
        EXPECT_EQ(known.value, value->value);
    }
}

TEST_F(BuiltinDictionary, KnowsNoOtherValue) {
    for (const Attribute &attribute : kAttributes) {
        for (int32_t number = -1; number < 130; ++number) {
            EXPECT_EQ(findBuiltin(number, attribute.name) != nullptr,
                      radDictGetVal(number, attribute.name) != nullptr)
                << attribute.name << ' ' << number;
        }
    }
}

TEST_F(BuiltinDictionary, ComparesNamesExactly) {
    const RadDictValue *value = radDictGetVal(2, "Service-Type");
    ASSERT_NE(nullptr, value);
    EXPECT_STREQ("Framed-User", value->valueName);
    EXPECT_EQ(nullptr, radDictGetVal(2, nullptr));
    EXPECT_EQ(nullptr, radDictGetVal(2, ""));
    EXPECT_EQ(nullptr, radDictGetVal(2, "service-type"));
    EXPECT_EQ(nullptr, radDictGetVal(2, "Service-Typ"));
    EXPECT_EQ(nullptr, radDictGetVal(2, "Service-Type "));
    EXPECT_EQ(nullptr, radDictGetVal(2, "Service-Types"));
}

// The lists run from the newest entry to the oldest, so they show the table from its end.
TEST_F(BuiltinDictionary, HoldsItsTableInOrder) {
    const RadDictAttr *attribute = radDictGetAttr(kAttributes.back().number);
    for (auto known = kAttributes.rbegin(); known != kAttributes.rend(); ++known) {
        ASSERT_NE(nullptr, attribute) << known->name;
        EXPECT_STREQ(known->name, attribute->name);
        attribute = attribute->next;
    }
    EXPECT_EQ(nullptr, attribute);

    const RadDictValue *value = radDictGetVal(kValues.back().value, kValues.back().attribute);
    for (auto known = kValues.rbegin(); known != kValues.rend(); ++known) {
        ASSERT_NE(nullptr, value) << known->name;
        EXPECT_STREQ(known->attribute, value->attrName);
        EXPECT_STREQ(known->name, value->valueName);
        value = value->next;
    }
    EXPECT_EQ(nullptr, value);
}

TEST_F(BuiltinDictionary, IsThereOnceHoweverOftenItIsLoaded) {
    const size_t blocks = liveBlocks();
    EXPECT_EQ(kAttributes.size() + kValues.size(), blocks);
    EXPECT_EQ(0, radDictLoad(nullptr));
    EXPECT_EQ(blocks, liveBlocks());
}

TEST_F(BuiltinDictionary, IsGoneAfterUnloading) {
    log.clear();
    EXPECT_EQ(0, radDictUnload());
    EXPECT_THAT(log.lines(),
                ElementsAre(Logged(7, 128, "radDictUnload", "Unloaded RADIUS Dictionary\n")));
    EXPECT_EQ(0U, liveBlocks());
    for (const Attribute &known : kAttributes) {
        EXPECT_EQ(nullptr, radDictGetAttr(known.number)) << known.name;
    }
    for (const NamedValue &known : kValues) {
        EXPECT_EQ(nullptr, radDictGetVal(known.value, known.attribute)) << known.name;
    }
    EXPECT_EQ(0, radDictUnload());
}

// Every entry takes two allocations: a copy of its line, whose failure only the loader reports, and
// its record.
TEST_F(BuiltinDictionary, StopsAtTheEntryThatFindsNoMemory) {
    EXPECT_EQ(0, radDictUnload());
    unsigned run = 0;
    const unsigned failures = forEachFailingAllocation([&] {
        const unsigned entry = run / 2;
        const bool recordFails = run % 2 == 1;
        ++run;
        log.clear();
        const int status = radDictLoad(nullptr);
        if (!allocationFailed()) {
            EXPECT_EQ(0, status);
            EXPECT_NO_PROBLEM(log);
            EXPECT_EQ(0, radDictUnload());
            return;
        }
        EXPECT_EQ(-1, status);
        EXPECT_EQ(entry, liveBlocks()) << "what came before stays loaded";
        EXPECT_EQ(0, radDictUnload());

        const bool isAttribute = entry < kAttributes.size();
        const std::vector<LogLine> problems = log.problems();
        ASSERT_EQ(recordFails ? 2U : 1U, problems.size());
        if (recordFails) {
            EXPECT_THAT(problems[0],
                        isAttribute
                            ? Logged(7, 4, "radDictAddAttr", "radDictAddAttr: out of memory\n")
                            : Logged(7, 4, "radDictAddValue", "radDictAddValue: out of memory\n"));
        }
        const LogLine &last = problems.back();
        EXPECT_EQ(7, last.module);
        EXPECT_EQ(8, last.level);
        EXPECT_EQ("radDictLoad", last.function);
        std::ostringstream expected;
        if (isAttribute) {
            constexpr std::array<const char *, 4> kTypes = {"string", "integer", "ipaddr", "date"};
            const Attribute &known = kAttributes.at(entry);
            expected << "radDictLoad: Invalid Attribute '" << known.name << ' ' << known.number
                     << ' ' << kTypes.at(static_cast<size_t>(known.type)) << '\'';
        } else {
            const NamedValue &known = kValues.at(entry - kAttributes.size());
            expected << "radDictLoad: Invalid Attribute Translation Value '" << known.attribute
                     << ' ' << known.name << ' ' << known.value << '\'';
        }
        EXPECT_EQ(expected.str(), squeezed(last.text));
        EXPECT_EQ('\n', last.text.back());
    });
    EXPECT_EQ(2 * (kAttributes.size() + kValues.size()), failures);
}

}  // namespace
}  // namespace lanyard::test::builtin_test
