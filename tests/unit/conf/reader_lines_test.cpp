// The lines of the configuration file: what each may hold, and what becomes of a bad or a long one.
#include <string>

#include <lanyard/radius/conf.h>
#include <lanyard/radius/dict.h>

#include "tests/support/test.h"
#include "tests/unit/conf/reader_fixture.h"

namespace lanyard::test::reader_lines_test {
namespace {

using testing::HasSubstr;
using testing::Not;

TEST_F(ConfigurationFile, RefusesALineThatStartsWithABlank) {
    expectRefused(" timeout 5\n", "line 1: bogus format:  timeout 5\n");
    expectRefused("\ttimeout 5\n", "line 1: bogus format: \ttimeout 5\n");
    expectRefused(" \n", "line 1: bogus format:  \n");
    expectRefused(" # no comment\n", "line 1: bogus format:  # no comment\n");
}

TEST_F(ConfigurationFile, RefusesAnotherKeyword) {
    expectRefused("Timeout 5\n", "line 1: unrecognized keyword: Timeout\n");
    expectRefused("timeouts 5\n", "line 1: unrecognized keyword: timeouts\n");
    expectRefused("time 5\n", "line 1: unrecognized keyword: time\n");
    expectRefused("authserver,h:s\n", "line 1: unrecognized keyword: authserver,h:s\n");
    // Only a blank or a tab ends a keyword.
    expectRefused("timeout\v5\n", "line 1: unrecognized keyword: timeout\v5\n");
    expectRefused("\r\n", "line 1: unrecognized keyword: \r\n");
    // Nothing of such a line is called an option.
    EXPECT_THAT(log.texts(), Not(testing::Contains(HasSubstr("Found Option"))));
}

TEST_F(ConfigurationFile, RefusesAValueThatItsOptionRefuses) {
    expectRefused("timeout abc\n", "line 1: failed to set option : timeout with value : abc\n");
    EXPECT_FALSE(isSet(RAD_CONF_TIMEOUT));
    EXPECT_EQ(3, number(RAD_CONF_RETRIES));
    expectRefused("retries -1\n", "line 1: failed to set option : retries with value : -1\n");
    EXPECT_FALSE(isSet(RAD_CONF_RETRIES));
    expectRefused("authserver host\n",
                  "line 1: failed to set option : authserver with value : host\n");
    expectRefused("acctserver host\n",
                  "line 1: failed to set option : acctserver with value : host\n");
}

TEST_F(ConfigurationFile, RefusesABadServerListBesideItsReason) {
    EXPECT_EQ(-1, configure("authserver h:abc:s\n"));
    EXPECT_PROBLEMS(log, "error radConfSetServers: Invalid Port abc for server h: ",
                    "error radConfigure: /var/radius.conf: line 1: failed to set option : "
                    "authserver with value : h:abc:s");
}

TEST_F(ConfigurationFile, RefusesAMissingDictionaryBesideItsReason) {
    EXPECT_EQ(-1, configure("dictionary /var/missing.dict\n"));
    EXPECT_PROBLEMS(
        log,
        "error radDictLoad: couldn't open dictionary /var/missing.dict: No such file or directory",
        "error radConfigure: /var/radius.conf: line 1: failed to set option : dictionary with "
        "value : /var/missing.dict");
    EXPECT_EQ(nullptr, radDictGetAttr(1)) << "the built-in dictionary went before";
}

TEST_F(ConfigurationFile, RefusesAnEmptyValue) {
    for (const char *keyword : {"authserver", "acctserver", "timeout", "retries"}) {
        for (const char *rest : {"\n", " \n", "\t \t\n", " \v\f\r\n"}) {
            expectRefused(
                std::string(keyword) + rest,
                std::string("line 1: failed to set option : ") + keyword + " with value : \n");
            EXPECT_LOGGED(log, 128, kTag,
                          std::string("Setting Option ") + keyword + " with value \n");
        }
    }
    for (const char *line : {"dictionary\n", "dictionary \n"}) {
        EXPECT_EQ(-1, configure(line));
        EXPECT_EQ(
            "radConfigure: /var/radius.conf: line 1: failed to set option : dictionary with "
            "value : \n",
            log.problems().back().text);
        EXPECT_FALSE(isSet(RAD_CONF_DICTIONARY));
    }
}

TEST_F(ConfigurationFile, SkipsAnyWhiteSpaceBeforeAValueAndKeepsWhatIsInsideIt) {
    expectAccepted(
        "timeout \t\v\f\r 6 7\n"
        "authserver\th1:s1  h2:s2 \n");
    EXPECT_EQ(6, number(RAD_CONF_TIMEOUT));
    EXPECT_EQ(2, radConfGetNumServers(RAD_SERVER_AUTH));
}

TEST_F(ConfigurationFile, CallsARepeatedOptionADuplicate) {
    expectRefused(
        "authserver h1:s1\n"
        "authserver h2:s2\n",
        "line 2: failed to set duplicate option : authserver with value : h2:s2\n");
    EXPECT_EQ(1, radConfGetNumServers(RAD_SERVER_AUTH));
    EXPECT_STREQ("h1", slots(RAD_SERVER_AUTH)[0].host);
    expectRefused(
        "acctserver h1:s1\n"
        "acctserver h2:s2\n",
        "line 2: failed to set duplicate option : acctserver with value : h2:s2\n");
    expectRefused(
        "dictionary /var/a.dict\n"
        "dictionary /var/b.dict\n",
        "line 2: failed to set duplicate option : dictionary with value : /var/b.dict\n");
    EXPECT_NE(nullptr, radDictGetAttr(300));
    EXPECT_EQ(nullptr, radDictGetAttr(301));
}

// The option holds a value after the failed call, and that is all that is asked.
TEST_F(ConfigurationFile, CallsAListThatFailsAfterItsFirstEntryADuplicate) {
    expectRefused("authserver h1:s1,h2\n",
                  "line 1: failed to set duplicate option : authserver with value : h1:s1,h2\n");
    EXPECT_EQ(1, radConfGetNumServers(RAD_SERVER_AUTH));
    expectRefused("acctserver h1:s1,h2\n",
                  "line 1: failed to set duplicate option : acctserver with value : h1:s1,h2\n");
    EXPECT_EQ(1, radConfGetNumServers(RAD_SERVER_ACCT));
}

TEST_F(ConfigurationFile, MayRepeatTimeoutAndRetryCount) {
    expectAccepted(
        "authserver h:s\n"
        "timeout 5\n"
        "retries 1\n"
        "timeout 6\n"
        "retries 2\n");
    EXPECT_EQ(6, number(RAD_CONF_TIMEOUT));
    EXPECT_EQ(2, number(RAD_CONF_RETRIES));
}

TEST_F(ConfigurationFile, EndsAtItsFirstBadLineAndKeepsTheLinesBefore) {
    expectRefused(
        "timeout 5\n"
        "authserver h1:s1\n"
        "bad line\n"
        "retries 9\n",
        "line 3: unrecognized keyword: bad\n");
    EXPECT_EQ(5, number(RAD_CONF_TIMEOUT));
    EXPECT_EQ(3, number(RAD_CONF_RETRIES));
    EXPECT_EQ(1, radConfGetNumServers(RAD_SERVER_AUTH));
    EXPECT_NE(nullptr, radDictGetAttr(1));
}

TEST_F(ConfigurationFile, CountsEveryLine) {
    expectRefused(
        "# comment\n"
        "\n"
        "timeout 5\n"
        "\n"
        "#\n"
        "bad\n",
        "line 6: unrecognized keyword: bad\n");
    EXPECT_LOGGED(log, 128, kTag, "Found Option timeout on line 3 of file /var/radius.conf\n");
}

TEST_F(ConfigurationFile, SkipsALineThatStartsWithANul) {
    expectRefused(std::string("\0bad\n", 5) + "bad\n", "line 2: unrecognized keyword: bad\n");
}

TEST_F(ConfigurationFile, LosesTheLastCharacterOfALastLineWithoutNewline) {
    expectAccepted("authserver h:s3cr3t");
    EXPECT_THAT(slots(RAD_SERVER_AUTH)[0], Holds({"h", 1812, -1, -1, "s3cr3"}));
    expectAccepted("authserver h:s\ntimeout 45");
    EXPECT_EQ(4, number(RAD_CONF_TIMEOUT));
    expectRefused("timeout 5", "line 1: failed to set option : timeout with value : \n");
    expectRefused("timeout", "line 1: unrecognized keyword: timeou\n");
    // The last line is then a single character, of which nothing is left.
    expectRefused("authserver h:s\nx", "line 2: bogus format: \n");
}

// 511 characters a read; the rest of the line is the next one.
TEST_F(ConfigurationFile, ContinuesALongLineAsTheNext) {
    expectRefused('#' + std::string(510, '-') +
                      "timeout 77\n"
                      "bad\n",
                  "line 3: unrecognized keyword: bad\n");
    EXPECT_EQ(77, number(RAD_CONF_TIMEOUT));
    EXPECT_LOGGED(log, 128, kTag, "Found Option timeout on line 2 of file /var/radius.conf\n");
}

TEST_F(ConfigurationFile, LosesTheLastCharacterOfEachPieceOfALongLine) {
    // The first piece ends after "56".
    const std::string keyword = "timeout ";
    expectAccepted("authserver h:s\n" + keyword + std::string(511 - keyword.size() - 2, ' ') +
                   "56" + "\n");
    EXPECT_EQ(5, number(RAD_CONF_TIMEOUT));

    // A line that fills the buffer with its newline is whole.
    expectAccepted("authserver h:s\n" + keyword + std::string(510 - keyword.size() - 2, ' ') +
                   "56" + "\n");
    EXPECT_EQ(56, number(RAD_CONF_TIMEOUT));
}

}  // namespace
}  // namespace lanyard::test::reader_lines_test
