// The configuration file and the check of what it makes.
#include <filesystem>
#include <iterator>
#include <string>
#include <vector>

#include <lanyard/radius/dict.h>
#include <lanyard/radius/frame.h>

#include "tests/support/test.h"
#include "tests/unit/conf/conf_fixture.h"

namespace lanyard::test::reader_test {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr const char *kPath = "/var/radius.conf";
constexpr const char *kTag = "radConfigure";

auto openFiles() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

class ConfigurationFile : public ConfTest {
  protected:
    void SetUp() override {
        ConfTest::SetUp();
        root_.write("/var/a.dict", "ATTRIBUTE Foo 300 string\n");
        root_.write("/var/b.dict", "ATTRIBUTE Bar 301 string\n");
        openFilesBefore_ = openFiles();
    }

    void TearDown() override {
        EXPECT_EQ(openFilesBefore_, openFiles()) << "a file was left open";
        ConfTest::TearDown();
    }

    int configure(const std::string &text) {
        root_.write(kPath, text);
        log.clear();
        return radConfigure(kPath);
    }

    void expectAccepted(const std::string &text) {
        EXPECT_EQ(0, configure(text));
        EXPECT_PROBLEMS(log);
        EXPECT_EQ("RADIUS Configured\n", log.texts().back());
    }

    // The message follows the place: "/var/radius.conf: line 1: ...".
    void expectRefused(const std::string &text, const std::string &message) {
        SCOPED_TRACE(testing::PrintToString(text));
        EXPECT_EQ(-1, configure(text));
        EXPECT_ONLY_PROBLEM(log, 8, kTag, "radConfigure: /var/radius.conf: " + message);
        EXPECT_THAT(log.texts(), Not(testing::Contains("RADIUS Configured\n")));
    }

    int32_t number(uint32_t option) {
        if (!isSet(option)) {
            return INT32_MIN;
        }
        return *static_cast<const int32_t *>(radConfGet(option));
    }

    const TemporaryRoot &root() const { return root_; }

  private:
    TemporaryRoot root_;
    std::ptrdiff_t openFilesBefore_ = 0;
};

TEST_F(ConfigurationFile, NeedsNoMoreThanOneServer) {
    expectAccepted("authserver host:s3cr3t\n");
    EXPECT_EQ(1, radConfGetNumServers(RAD_SERVER_AUTH));
    EXPECT_EQ(0, radConfGetNumServers(RAD_SERVER_ACCT));
    EXPECT_THAT(slots(RAD_SERVER_AUTH)[0], Holds({"host", 1812, -1, -1, "s3cr3t"}));
    EXPECT_EQ(10, number(RAD_CONF_TIMEOUT));
    EXPECT_EQ(3, number(RAD_CONF_RETRIES));
    EXPECT_FALSE(isSet(RAD_CONF_DICTIONARY));
    ASSERT_NE(nullptr, radDictGetAttr(1));
    EXPECT_STREQ("User-Name", radDictGetAttr(1)->name);
}

TEST_F(ConfigurationFile, IsReadStepByStep) {
    EXPECT_EQ(0, configure("# comment\n"
                           "\n"
                           "timeout\t 5\n"
                           "authserver  host:1645:2:1:s3cr3t\n"));
    EXPECT_LOG(log, "trace radDictUnload> Unloaded RADIUS Dictionary",
               "trace radDictUnload> Unloaded RADIUS Dictionary",
               "trace radDeconfigure> RADIUS Deconfigured",
               "trace radDictUnload> Unloaded RADIUS Dictionary",
               "trace radConfSetTimeout> Default Timeout Set to 10",
               "trace radConfSetRetries> Default Retry Count Set to 3",
               "trace radConfigure> Found Option timeout on line 3 of file /var/radius.conf",
               "trace radConfigure> Setting Option timeout with value 5",
               "trace radConfSetTimeout> Default Timeout Set to 5",
               "trace radConfigure> Found Option authserver on line 4 of file /var/radius.conf",
               "trace radConfigure> Setting Option authserver with value host:1645:2:1:s3cr3t",
               "trace radConfAddAuthServ> Added Server host:1645 with timeout: 2, retries: 1 and "
               "secret: s3cr3t",
               "trace radConfigure> RADIUS Configured");
}

TEST_F(ConfigurationFile, SetsEveryOption) {
    expectAccepted(
        "retries 7\n"
        "acctserver a1:s1, a2:1646:1:2:s2:ignored\n"
        "dictionary /var/a.dict\n"
        "authserver h1:1812:5:3:s1:nas,h2:s2\th3:s3 h4:s4\n"
        "timeout 4\n");
    EXPECT_EQ(4, number(RAD_CONF_TIMEOUT));
    EXPECT_EQ(7, number(RAD_CONF_RETRIES));
    EXPECT_STREQ("/var/a.dict", static_cast<const char *>(radConfGet(RAD_CONF_DICTIONARY)));
    EXPECT_NE(nullptr, radDictGetAttr(300));
    EXPECT_EQ(nullptr, radDictGetAttr(1));
    EXPECT_EQ(4, radConfGetNumServers(RAD_SERVER_AUTH));
    EXPECT_THAT(slots(RAD_SERVER_AUTH)[0], Holds({"h1", 1812, 5, 3, "s1", "nas"}));
    EXPECT_THAT(slots(RAD_SERVER_AUTH)[3], Holds({"h4", 1812, -1, -1, "s4"}));
    EXPECT_EQ(2, radConfGetNumServers(RAD_SERVER_ACCT));
    EXPECT_THAT(slots(RAD_SERVER_ACCT)[0], Holds({"a1", 1813, -1, -1, "s1"}));
    EXPECT_THAT(slots(RAD_SERVER_ACCT)[1], Holds({"a2", 1646, 1, 2, "s2"}));
}

TEST_F(ConfigurationFile, ReplacesWhatWasConfigured) {
    expectAccepted(
        "authserver h1:s1,h2:s2\n"
        "acctserver a1:s1\n"
        "dictionary /var/a.dict\n"
        "timeout 4\n"
        "retries 5\n");
    const size_t before = liveBlocks();
    expectAccepted("authserver h3:s3\n");
    EXPECT_EQ(1, radConfGetNumServers(RAD_SERVER_AUTH));
    EXPECT_STREQ("h3", slots(RAD_SERVER_AUTH)[0].host);
    EXPECT_EQ(0, radConfGetNumServers(RAD_SERVER_ACCT));
    EXPECT_FALSE(isSet(RAD_CONF_DICTIONARY));
    EXPECT_EQ(nullptr, radDictGetAttr(300));
    EXPECT_NE(nullptr, radDictGetAttr(1));
    EXPECT_EQ(10, number(RAD_CONF_TIMEOUT));
    EXPECT_EQ(3, number(RAD_CONF_RETRIES));
    EXPECT_NE(0U, before);
    const size_t after = liveBlocks();
    EXPECT_EQ(0, radDeconfigure());
    ASSERT_EQ(0, radDictLoad(nullptr));
    EXPECT_EQ(liveBlocks() + 2 + 2, after) << "dictionary, defaults and one server";
}

TEST_F(ConfigurationFile, IsNeeded) {
    addAuthServers(1);
    EXPECT_EQ(-1, radConfigure(nullptr));
    expectSilence();
    EXPECT_EQ(1, radConfGetNumServers(RAD_SERVER_AUTH));
}

TEST_F(ConfigurationFile, ThatDoesNotExistLeavesTheDefaults) {
    addAuthServers(1);
    EXPECT_EQ(-1, radConfigure("/var/missing.conf"));
    EXPECT_PROBLEMS(log,
                    "error radConfigure: can't open /var/missing.conf: No such file or directory");
    EXPECT_EQ(10, number(RAD_CONF_TIMEOUT));
    EXPECT_EQ(3, number(RAD_CONF_RETRIES));
    EXPECT_NE(nullptr, radDictGetAttr(1));
    EXPECT_EQ(0, radConfGetNumServers(RAD_SERVER_AUTH));
}

TEST_F(ConfigurationFile, MustNameAServer) {
    for (const char *text : {"", "\n", "# authserver host:s\n", "acctserver a:s\n"}) {
        SCOPED_TRACE(text);
        EXPECT_EQ(-1, configure(text));
        EXPECT_PROBLEMS(log, "error radConfAssert: No AuthServer Specified");
        EXPECT_EQ(10, number(RAD_CONF_TIMEOUT));
        EXPECT_NE(nullptr, radDictGetAttr(1));
    }
}

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

TEST_F(ConfigurationFile, ShowsASecretOnlyInTheTraceWhenAllIsWell) {
    expectAccepted(
        "authserver h1:s3cr3t,h2:1812:5:3:s3cr3t:nas\n"
        "acctserver h1:s3cr3t\n");
    EXPECT_EQ(0, radAuthServRowIdSet("h1", 0, 1, 2));
    radConfAuthServList();
    EXPECT_EQ(0, radConfDelAuthServer("h1"));
    EXPECT_EQ(0, radConfDelAuthServByRowId(1, 2));
    EXPECT_EQ(0, radDeconfigure());
    int shown = 0;
    for (const LogLine &line : log.lines()) {
        if (line.text.find("s3cr3t") != std::string::npos) {
            ++shown;
            EXPECT_EQ(128, line.level) << line.text;
        }
    }
    EXPECT_LT(0, shown);
}

// What refuses a server names its host alone.
TEST_F(ConfigurationFile, ShowsNoSecretOfARefusedServer) {
    addAuthServers(8);
    EXPECT_EQ(-1, radConfSetServers("h:1812:5:3:hidden", RAD_SERVER_AUTH));
    EXPECT_EQ(-1, radConfAddAuthServ("h", 1, 2, 3, "hidden", nullptr));
    EXPECT_EQ(0, radDeconfigure());
    EXPECT_EQ(-1, radConfSetServers("h:x:5:3:hidden", RAD_SERVER_AUTH));
    EXPECT_EQ(-1, radConfSetServers("h:1:x:3:hidden", RAD_SERVER_AUTH));
    EXPECT_EQ(-1, radConfSetServers("h:1:5:x:hidden", RAD_SERVER_AUTH));
    EXPECT_EQ(5U, log.problems().size());
    EXPECT_THAT(log.texts(), Not(testing::Contains(HasSubstr("hidden"))));
}

unsigned allocationsOfBuiltinDictionary() {
    const size_t before = allocationCount();
    EXPECT_EQ(0, radDictLoad(nullptr));
    const size_t after = allocationCount();
    EXPECT_EQ(0, radDictUnload());
    return static_cast<unsigned>(after - before);
}

// Every allocation in turn: the dictionary's do not matter to the result, all others do.
TEST_F(ConfigurationFile, IsRefusedOrServesWhicheverAllocationFails) {
    root().write(kPath, "authserver h:s3cr3t\n");
    const unsigned dictionary = allocationsOfBuiltinDictionary();
    unsigned run = 0;
    const unsigned failures = forEachFailingAllocation([&] {
        ++run;
        log.clear();
        const int status = radConfigure(kPath);
        if (run <= dictionary) {
            EXPECT_EQ(0, status);
            EXPECT_EQ("radDictLoad", log.problems().back().function);
            EXPECT_EQ(0, radDeconfigure());
            return;
        }
        switch (run - dictionary) {
            case 1:
                EXPECT_EQ(-1, status);
                EXPECT_PROBLEMS(log, "critical radConfSetTimeout: out of memory",
                                "error radConfAssert: No Default Timeout Specified");
                break;
            case 2:
                EXPECT_EQ(-1, status);
                EXPECT_PROBLEMS(log, "critical radConfSetRetries: out of memory",
                                "error radConfAssert: No Default Retry Count Specified");
                break;
            case 3:  // the list
            case 4:  // the host
                EXPECT_EQ(-1, status);
                EXPECT_PROBLEMS(log,
                                "error radConfigure: /var/radius.conf: line 1: failed to set "
                                "option : authserver with value : h:s3cr3t");
                break;
            case 5:  // the secret
                EXPECT_EQ(-1, status);
                EXPECT_PROBLEMS(log, "error radConfAssert: Server h Has No Secret");
                break;
            default:
                EXPECT_EQ(0, status);
        }
        EXPECT_EQ(0, radDeconfigure());
    });
    EXPECT_EQ(dictionary + 2 + 3, failures);
}

class ConfigurationCheck : public ConfTest {
  protected:
    void SetUp() override {
        ConfTest::SetUp();
        ASSERT_EQ(0, radConfSetTimeout("1"));
        ASSERT_EQ(0, radConfSetRetries("1"));
        log.clear();
    }

    void expectMissing(const std::string &message) {
        log.clear();
        EXPECT_EQ(-1, radConfAssert());
        EXPECT_ONLY_PROBLEM(log, 8, "radConfAssert", message);
    }

    // The server's secret is lost to a failing allocation.
    static void addWithoutSecret(const char *host, uint32_t type) {
        failAllocation(2);
        EXPECT_EQ(0, type == RAD_SERVER_AUTH ? radConfAddAuthServ(host, 1, -1, -1, "s", nullptr)
                                             : radConfAddAcctServ(host, 1, -1, -1, "s"));
        EXPECT_TRUE(allocationFailed());
        stopFailing();
    }
};

TEST_F(ConfigurationCheck, PassesInSilence) {
    addAuthServers(1);
    EXPECT_EQ(0, radConfAssert());
    expectSilence();
    addAuthServers(7);
    ASSERT_EQ(0, radConfSetAcctServ("a:s b:s"));
    log.clear();
    EXPECT_EQ(0, radConfAssert());
    expectSilence();
}

TEST_F(ConfigurationCheck, StopsAtTheFirstThingMissing) {
    ASSERT_EQ(0, radConfDelTimeout());
    ASSERT_EQ(0, radConfDelRetries());
    expectMissing("radConfAssert: No AuthServer Specified\n");
    addWithoutSecret("h", RAD_SERVER_AUTH);
    expectMissing("radConfAssert: No Default Timeout Specified\n");
    EXPECT_LOGGED(log, 128, "radConfGet",
                  "radConfGet: failed to get value of config option : timeout\n");
    ASSERT_EQ(0, radConfSetTimeout("1"));
    expectMissing("radConfAssert: No Default Retry Count Specified\n");
    EXPECT_LOGGED(log, 128, "radConfGet",
                  "radConfGet: failed to get value of config option : retries\n");
    ASSERT_EQ(0, radConfSetRetries("1"));
    expectMissing("radConfAssert: Server h Has No Secret\n");
}

TEST_F(ConfigurationCheck, NeedsNoAccountingServerButItsSecret) {
    addAuthServers(1);
    ASSERT_EQ(0, radConfSetAcctServ("a0:s"));
    addWithoutSecret("a1", RAD_SERVER_ACCT);
    addWithoutSecret("a2", RAD_SERVER_ACCT);
    expectMissing("radConfAssert: Server a1 Has No Secret\n");
    // Authentication servers are looked at before.
    addWithoutSecret("h1", RAD_SERVER_AUTH);
    expectMissing("radConfAssert: Server h1 Has No Secret\n");
}

TEST_F(ConfigurationCheck, PassesOverFreeSlots) {
    addAuthServers(3);
    ASSERT_EQ(0, radConfDelAuthServer("h0"));
    log.clear();
    EXPECT_EQ(0, radConfAssert());
    expectSilence();

    ASSERT_EQ(0, radConfDelAuthServer("h1"));
    addWithoutSecret("x", RAD_SERVER_AUTH);  // in the first slot
    expectMissing("radConfAssert: Server x Has No Secret\n");
    ASSERT_EQ(0, radConfAddAuthServ("y", 1, -1, -1, "s", nullptr));
    addWithoutSecret("z", RAD_SERVER_AUTH);  // in the fourth
    ASSERT_EQ(0, radConfDelAuthServer("x"));
    ASSERT_EQ(0, radConfDelAuthServer("y"));
    expectMissing("radConfAssert: Server z Has No Secret\n");
}

}  // namespace
}  // namespace lanyard::test::reader_test
