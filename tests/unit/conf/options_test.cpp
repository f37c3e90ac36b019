// The option table and the three plain options: dictionary, time-out and retry count.
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include <lanyard/radius/dict.h>

#include "tests/support/test.h"
#include "tests/unit/conf/conf_fixture.h"

namespace lanyard::test::options_test {
namespace {

class Options : public ConfTest {};

TEST_F(Options, AreUnsetAtFirstAndSaySoByTheirKeywords) {
    const std::vector<std::string> keywords = {"authserver", "acctserver", "dictionary", "timeout",
                                               "retries"};
    for (uint32_t option = 0; option < keywords.size(); ++option) {
        log.clear();
        EXPECT_EQ(nullptr, radConfGet(option));
        EXPECT_LOG(log,
                   "trace radConfGet: failed to get value of config option : " + keywords[option]);
    }
}

TEST_F(Options, AreFive) {
    EXPECT_EQ(nullptr, radConfGet(5));
    EXPECT_EQ(nullptr, radConfGet(6));
    EXPECT_EQ(nullptr, radConfGet(UINT32_MAX));
    expectSilence();
}

TEST_F(Options, AreReadInSilenceWhenSet) {
    ASSERT_EQ(0, radConfSetTimeout("7"));
    log.clear();
    EXPECT_NE(nullptr, radConfGet(RAD_CONF_TIMEOUT));
    expectSilence();
}

TEST_F(Options, CountServersOfTwoKinds) {
    EXPECT_EQ(0, radConfGetNumServers(RAD_SERVER_AUTH));
    EXPECT_EQ(0, radConfGetNumServers(RAD_SERVER_ACCT));
    EXPECT_EQ(-1, radConfGetNumServers(2));
    EXPECT_EQ(-1, radConfGetNumServers(-1));
    ASSERT_EQ(0, radConfSetServers("a:s b:s", RAD_SERVER_AUTH));
    ASSERT_EQ(0, radConfSetServers("c:s", RAD_SERVER_ACCT));
    EXPECT_EQ(2, radConfGetNumServers(RAD_SERVER_AUTH));
    EXPECT_EQ(1, radConfGetNumServers(RAD_SERVER_ACCT));
    EXPECT_EQ(-1, radConfGetNumServers(2));
}

// Time-out and retry count behave alike but for their names.
struct Number {
    const char *name;
    uint32_t option;
    int (*set)(const char *text);
    int (*del)();
    const char *function;
    const char *message;
};

void PrintTo(const Number &number, std::ostream *stream) {
    *stream << number.name;
}

class NumberOption : public ConfTest, public testing::WithParamInterface<Number> {
  protected:
    static int set(const char *text) { return GetParam().set(text); }

    static int32_t value() {
        const auto *number = static_cast<const int32_t *>(radConfGet(GetParam().option));
        EXPECT_NE(nullptr, number);
        return number != nullptr ? *number : INT32_MIN;
    }

    bool isSet() { return ConfTest::isSet(GetParam().option); }
};

TEST_P(NumberOption, IsTheNumberThatItsTextStartsWith) {
    const std::vector<std::pair<const char *, int>> cases = {
        {"7", 7}, {"0", 0}, {"007", 7}, {"12 seconds", 12}, {"5x", 5}, {"2147483647", 2147483647}};
    for (const auto &[text, number] : cases) {
        SCOPED_TRACE(text);
        log.clear();
        EXPECT_EQ(0, set(text));
        EXPECT_LOG(log, std::string("trace ") + GetParam().function + "> " + GetParam().message +
                            std::to_string(number));
        EXPECT_EQ(number, value());
    }
    EXPECT_EQ(1U, liveBlocks()) << "the earlier values are released";
}

TEST_P(NumberOption, IsUnsetByATextThatStartsWithNoDigit) {
    for (const char *text : {"abc", "", "-1", "+1", " 5", "\xb2"}) {
        SCOPED_TRACE(text);
        ASSERT_EQ(0, set("9"));
        log.clear();
        EXPECT_EQ(-1, set(text));
        expectSilence();
        EXPECT_FALSE(isSet());
        EXPECT_EQ(0U, liveBlocks());
    }
}

TEST_P(NumberOption, StaysWhenNoTextIsGiven) {
    EXPECT_EQ(-1, set(nullptr));
    ASSERT_EQ(0, set("9"));
    log.clear();
    EXPECT_EQ(-1, set(nullptr));
    expectSilence();
    EXPECT_EQ(9, value());
}

TEST_P(NumberOption, IsUnsetWhenMemoryIsExhausted) {
    ASSERT_EQ(0, set("9"));
    log.clear();
    failAllocation(1);
    EXPECT_EQ(-1, set("8"));
    EXPECT_LOG(log, std::string("critical ") + GetParam().function + ": out of memory");
    EXPECT_FALSE(isSet());

    failAllocation(2);
    EXPECT_EQ(0, set("8"));
    EXPECT_FALSE(allocationFailed());
    EXPECT_EQ(8, value());
}

TEST_P(NumberOption, IsDeleted) {
    EXPECT_EQ(0, GetParam().del());
    ASSERT_EQ(0, set("9"));
    log.clear();
    EXPECT_EQ(0, GetParam().del());
    expectSilence();
    EXPECT_FALSE(isSet());
    EXPECT_EQ(0U, liveBlocks());
}

INSTANTIATE_TEST_SUITE_P(
    All, NumberOption,
    testing::Values(Number{"Timeout", RAD_CONF_TIMEOUT, radConfSetTimeout, radConfDelTimeout,
                           "radConfSetTimeout", "Default Timeout Set to "},
                    Number{"Retries", RAD_CONF_RETRIES, radConfSetRetries, radConfDelRetries,
                           "radConfSetRetries", "Default Retry Count Set to "}),
    [](const auto &number) { return number.param.name; });

class DictionaryOption : public ConfTest {
  protected:
    void SetUp() override {
        ConfTest::SetUp();
        root_.write("/var/a.dict", "ATTRIBUTE Foo 5 string\n");
        root_.write("/var/b.dict", "ATTRIBUTE Bar 6 string\n");
        root_.write("/var/bad.dict", "ATTRIBUTE Baz 7 string\nATTRIBUTE Qux x string\n");
    }

  private:
    TemporaryRoot root_;
};

TEST_F(DictionaryOption, LoadsTheFileAndKeepsACopyOfItsPath) {
    std::string path = "/var/a.dict";
    EXPECT_EQ(0, radConfSetDict(path.c_str()));
    EXPECT_LOG(log, "trace radDictUnload> Unloaded RADIUS Dictionary",
               "trace radDictLoad> Loaded Dictionary /var/a.dict");
    path.assign(path.size(), 'x');
    EXPECT_STREQ("/var/a.dict", static_cast<const char *>(radConfGet(RAD_CONF_DICTIONARY)));
    EXPECT_NE(nullptr, radDictGetAttr(5));
}

TEST_F(DictionaryOption, IsSetOnce) {
    ASSERT_EQ(0, radConfSetDict("/var/a.dict"));
    log.clear();
    EXPECT_EQ(-1, radConfSetDict("/var/b.dict"));
    EXPECT_EQ(-1, radConfSetDict("/var/a.dict"));
    EXPECT_EQ(-1, radConfSetDict(nullptr));
    expectSilence();
    EXPECT_STREQ("/var/a.dict", static_cast<const char *>(radConfGet(RAD_CONF_DICTIONARY)));
    EXPECT_NE(nullptr, radDictGetAttr(5));
    EXPECT_EQ(nullptr, radDictGetAttr(6));

    EXPECT_EQ(0, radConfDelDict());
    EXPECT_EQ(0, radConfSetDict("/var/b.dict"));
    EXPECT_NE(nullptr, radDictGetAttr(6));
}

TEST_F(DictionaryOption, IsNotSetWithoutAPath) {
    ASSERT_EQ(0, radDictLoad(nullptr));
    log.clear();
    EXPECT_EQ(-1, radConfSetDict(nullptr));
    expectSilence();
    EXPECT_NE(nullptr, radDictGetAttr(1));
}

TEST_F(DictionaryOption, StaysUnsetWhenTheFileDoesNotLoad) {
    EXPECT_EQ(-1, radConfSetDict("/var/bad.dict"));
    EXPECT_LOGGED(log, 8, "radDictLoad",
                  "radDictLoad: Invalid Attribute on line 2 of dictionary /var/bad.dict\n");
    EXPECT_FALSE(isSet(RAD_CONF_DICTIONARY));
    EXPECT_NE(nullptr, radDictGetAttr(7)) << "what was loaded stays";
    EXPECT_EQ(1U, liveBlocks());

    EXPECT_EQ(-1, radConfSetDict("/var/missing.dict"));
    EXPECT_FALSE(isSet(RAD_CONF_DICTIONARY));
    EXPECT_EQ(nullptr, radDictGetAttr(7));
    EXPECT_EQ(0, radConfSetDict("/var/a.dict"));
}

TEST_F(DictionaryOption, StaysUnsetWhenMemoryIsExhausted) {
    const unsigned failures = forEachFailingAllocation([] {
        const int status = radConfSetDict("/var/a.dict");
        EXPECT_EQ(allocationFailed() ? -1 : 0, status);
        EXPECT_EQ(!allocationFailed(), radConfGet(RAD_CONF_DICTIONARY) != nullptr);
        EXPECT_EQ(0, radConfDelDict());
    });
    EXPECT_EQ(2U, failures) << "path and record";
}

TEST_F(DictionaryOption, TakesTheDictionaryAlongWhenItIsDeleted) {
    ASSERT_EQ(0, radConfSetDict("/var/a.dict"));
    log.clear();
    EXPECT_EQ(0, radConfDelDict());
    EXPECT_LOG(log, "trace radDictUnload> Unloaded RADIUS Dictionary");
    EXPECT_FALSE(isSet(RAD_CONF_DICTIONARY));
    EXPECT_EQ(nullptr, radDictGetAttr(5));
    EXPECT_EQ(0U, liveBlocks());

    // The same for a dictionary that is no option's.
    ASSERT_EQ(0, radDictLoad(nullptr));
    EXPECT_EQ(0, radConfDelDict());
    EXPECT_EQ(0U, liveBlocks());
}

TEST_F(Options, AreAllUnsetTogether) {
    const TemporaryRoot root;
    root.write("/var/a.dict", "ATTRIBUTE Foo 5 string\n");
    ASSERT_EQ(0, radConfSetTimeout("7"));
    ASSERT_EQ(0, radConfSetRetries("2"));
    ASSERT_EQ(0, radConfSetDict("/var/a.dict"));
    ASSERT_EQ(0, radConfSetAuthServ("a:1:2:3:s:x"));
    ASSERT_EQ(0, radConfSetAcctServ("b:s"));
    log.clear();
    EXPECT_EQ(0, radDeconfigure());
    // The dictionary goes with its option, and once more at the end.
    EXPECT_LOG(log, "trace radDictUnload> Unloaded RADIUS Dictionary",
               "trace radDictUnload> Unloaded RADIUS Dictionary",
               "trace radDeconfigure> RADIUS Deconfigured");
    for (uint32_t option = 0; option < 5; ++option) {
        EXPECT_FALSE(isSet(option)) << option;
    }
    EXPECT_EQ(0, radConfGetNumServers(RAD_SERVER_AUTH));
    EXPECT_EQ(0, radConfGetNumServers(RAD_SERVER_ACCT));
    EXPECT_EQ(nullptr, radDictGetAttr(5));
    EXPECT_EQ(0U, liveBlocks());
}

TEST_F(Options, MayBeUnsetWhenNoneIsSet) {
    EXPECT_EQ(0, radDeconfigure());
    EXPECT_LOG(log, "trace radDictUnload> Unloaded RADIUS Dictionary",
               "trace radDictUnload> Unloaded RADIUS Dictionary",
               "trace radDeconfigure> RADIUS Deconfigured");
}

}  // namespace
}  // namespace lanyard::test::options_test
