// The check of a configuration: what must be there before a request can be made.
#include <string>

#include <lanyard/radius/conf.h>

#include "tests/support/test.h"
#include "tests/unit/conf/conf_fixture.h"

namespace lanyard::test::configuration_check_test {
namespace {

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
}  // namespace lanyard::test::configuration_check_test
