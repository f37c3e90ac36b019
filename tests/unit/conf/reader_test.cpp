// The configuration file as a whole: what it sets, replaces and shows, and what its reader needs.
#include <string>

#include <lanyard/radius/conf.h>
#include <lanyard/radius/dict.h>
#include <lanyard/radius/frame.h>

#include "tests/support/test.h"
#include "tests/unit/conf/reader_fixture.h"

namespace lanyard::test::reader_test {
namespace {

using testing::HasSubstr;
using testing::Not;

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

}  // namespace
}  // namespace lanyard::test::reader_test
