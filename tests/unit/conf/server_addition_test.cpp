// Adding servers: what they hold, what they take by default, and how many there may be.
#include <string>
#include <vector>

#include <lanyard/radius/conf.h>

#include "tests/support/test.h"
#include "tests/unit/conf/servers_fixture.h"

namespace lanyard::test::server_addition_test {
namespace {

using testing::Each;
using testing::ElementsAre;

TEST_F(Servers, AreAddedForAuthentication) {
    EXPECT_EQ(0, radConfAddAuthServ("host", 1645, 5, 3, "s3cr3t", "nas"));
    EXPECT_LOG(log,
               "trace radConfAddAuthServ> Added Server host:1645 with timeout: 5, retries: 3 and "
               "secret: s3cr3t");
    EXPECT_THAT(slots(RAD_SERVER_AUTH)[0], Holds({"host", 1645, 5, 3, "s3cr3t", "nas"}));
    EXPECT_EQ(1, radConfGetNumServers(RAD_SERVER_AUTH));
    EXPECT_EQ(0, radConfGetNumServers(RAD_SERVER_ACCT));
    EXPECT_FALSE(isSet(RAD_CONF_ACCT_SERVERS));
}

TEST_F(Servers, AreAddedForAccounting) {
    EXPECT_EQ(0, radConfAddAcctServ("host", 1646, 5, 3, "s3cr3t"));
    EXPECT_LOG(log,
               "trace radConfAddAcctServ> Added Server host:1646 with timeout: 5, retries: 3 and "
               "secret: s3cr3t");
    EXPECT_THAT(slots(RAD_SERVER_ACCT)[0], Holds({"host", 1646, 5, 3, "s3cr3t"}));
    EXPECT_EQ(1, radConfGetNumServers(RAD_SERVER_ACCT));
    EXPECT_EQ(0, radConfGetNumServers(RAD_SERVER_AUTH));
    EXPECT_FALSE(isSet(RAD_CONF_AUTH_SERVERS));
}

TEST_F(Servers, HaveTextsOfTheirOwn) {
    std::string host = "host";
    std::string secret = "s3cr3t";
    std::string extra = "nas";
    ASSERT_EQ(0, radConfAddAuthServ(host.c_str(), 1, 2, 3, secret.c_str(), extra.c_str()));
    ASSERT_EQ(0, radConfAddAcctServ(host.c_str(), 1, 2, 3, secret.c_str()));
    for (std::string *text : {&host, &secret, &extra}) {
        text->assign(text->size(), '-');
    }
    EXPECT_THAT(slots(RAD_SERVER_AUTH)[0], Holds({"host", 1, 2, 3, "s3cr3t", "nas"}));
    EXPECT_THAT(slots(RAD_SERVER_ACCT)[0], Holds({"host", 1, 2, 3, "s3cr3t"}));
}

TEST_F(Servers, NeedHostAndSecret) {
    EXPECT_EQ(-1, radConfAddAuthServ(nullptr, 1, 2, 3, "s", "x"));
    EXPECT_EQ(-1, radConfAddAuthServ("h", 1, 2, 3, nullptr, "x"));
    EXPECT_EQ(-1, radConfAddAcctServ(nullptr, 1, 2, 3, "s"));
    EXPECT_EQ(-1, radConfAddAcctServ("h", 1, 2, 3, nullptr));
    expectSilence();
    EXPECT_EQ(0, radConfGetNumServers(RAD_SERVER_AUTH));
    EXPECT_EQ(0, radConfGetNumServers(RAD_SERVER_ACCT));
    EXPECT_EQ(0U, liveBlocks());
}

struct PortCase {
    int argument;
    int authPort;
    int acctPort;
};

TEST_F(Servers, HaveTheDefaultPortUnlessOneIsGiven) {
    const std::vector<PortCase> cases = {
        {0, 1812, 1813},       {-1, 1812, 1813}, {INT32_MIN, 1812, 1813}, {1, 1, 1},
        {65535, 65535, 65535}, {65536, 0, 0},    {70000, 4464, 4464}};
    for (const auto &[argument, authPort, acctPort] : cases) {
        SCOPED_TRACE(argument);
        ASSERT_EQ(0, radConfAddAuthServ("h", argument, -1, -1, "s", nullptr));
        ASSERT_EQ(0, radConfAddAcctServ("h", argument, -1, -1, "s"));
        EXPECT_EQ(authPort, slots(RAD_SERVER_AUTH)[0].port);
        EXPECT_EQ(acctPort, slots(RAD_SERVER_ACCT)[0].port);
        EXPECT_EQ(0, radConfDelAuthServ());
        EXPECT_EQ(0, radConfDelAcctServ());
    }
}

TEST_F(Servers, HaveThePortOfTheServicesDatabaseWhereItKnowsOne) {
    addService("radius", 1645);
    ASSERT_EQ(0, radConfAddAuthServ("a", 0, -1, -1, "s", nullptr));
    ASSERT_EQ(0, radConfAddAcctServ("a", 0, -1, -1, "s"));
    addService("radacct", 1646);
    ASSERT_EQ(0, radConfAddAcctServ("b", -5, -1, -1, "s"));
    ASSERT_EQ(0, radConfAddAuthServ("b", 1700, -1, -1, "s", nullptr));
    ASSERT_EQ(0, radConfAddAcctServ("c", 1701, -1, -1, "s"));
    EXPECT_EQ(1645, slots(RAD_SERVER_AUTH)[0].port);
    EXPECT_EQ(1700, slots(RAD_SERVER_AUTH)[1].port);
    EXPECT_EQ(1813, slots(RAD_SERVER_ACCT)[0].port);
    EXPECT_EQ(1646, slots(RAD_SERVER_ACCT)[1].port);
    EXPECT_EQ(1701, slots(RAD_SERVER_ACCT)[2].port);
}

TEST_F(Servers, HaveTheDefaultTimeoutAndRetryCountForAnyNegativeOne) {
    ASSERT_EQ(0, radConfAddAuthServ("a", 1, -7, INT32_MIN, "s", nullptr));
    ASSERT_EQ(0, radConfAddAuthServ("b", 1, 0, 0, "s", nullptr));
    ASSERT_EQ(0, radConfAddAcctServ("a", 1, INT32_MIN, -2, "s"));
    ASSERT_EQ(0, radConfAddAcctServ("b", 1, 0, 0, "s"));
    for (const uint32_t type : {RAD_SERVER_AUTH, RAD_SERVER_ACCT}) {
        EXPECT_THAT(slots(type)[0], Holds({"a", 1, -1, -1, "s"}));
        EXPECT_THAT(slots(type)[1], Holds({"b", 1, 0, 0, "s"}));
    }
}

TEST_F(Servers, AreAtMostEightForAuthentication) {
    addAuthServers(8);
    const size_t allocations = allocationCount();
    EXPECT_EQ(-1, radConfAddAuthServ("ninth", 1, 2, 3, "s3cr3t", nullptr));
    EXPECT_LOG(log, "error radConfAddAuthServ: Cannot Add Server ninth: Too Many Servers");
    EXPECT_EQ(allocations, allocationCount());
    EXPECT_EQ(8, radConfGetNumServers(RAD_SERVER_AUTH));
    EXPECT_THAT(hosts(), ElementsAre("h0", "h1", "h2", "h3", "h4", "h5", "h6", "h7"));
    EXPECT_EQ(0, radConfAddAcctServ("other", 1, 2, 3, "s")) << "each kind has its own eight";
}

TEST_F(Servers, AreAtMostEightForAccounting) {
    for (int index = 0; index < 8; ++index) {
        ASSERT_EQ(0, radConfAddAcctServ("h", 1000 + index, -1, -1, "s3cr3t"));
    }
    log.clear();
    EXPECT_EQ(-1, radConfAddAcctServ("ninth", 1, 2, 3, "s3cr3t"));
    EXPECT_LOG(log, "error radConfAddAcctServ: Cannot Add Server ninth: Too Many Servers");
    EXPECT_EQ(8, radConfGetNumServers(RAD_SERVER_ACCT));
    const std::vector<RadServer> found = slots(RAD_SERVER_ACCT);
    for (size_t index = 0; index < found.size(); ++index) {
        EXPECT_THAT(found[index], Holds({"h", 1000 + static_cast<int>(index), -1, -1, "s3cr3t"}));
    }
}

// Host, secret and extra field are copied in this order; only the host cannot be done without.
TEST_F(Servers, AreNotAddedWhenTheHostCannotBeCopied) {
    failAllocation(1);
    EXPECT_EQ(-1, radConfAddAuthServ("h", 1, 2, 3, "s", "x"));
    failAllocation(1);
    EXPECT_EQ(-1, radConfAddAcctServ("h", 1, 2, 3, "s"));
    stopFailing();
    expectSilence();
    EXPECT_EQ(0, radConfGetNumServers(RAD_SERVER_AUTH));
    EXPECT_EQ(0, radConfGetNumServers(RAD_SERVER_ACCT));
    EXPECT_FALSE(isSet(RAD_CONF_AUTH_SERVERS));
    EXPECT_FALSE(isSet(RAD_CONF_ACCT_SERVERS));
    EXPECT_EQ(0U, liveBlocks());

    EXPECT_EQ(0, radConfAddAuthServ("h", 1, 2, 3, "s", "x"));
    EXPECT_THAT(slots(RAD_SERVER_AUTH)[0], Holds({"h", 1, 2, 3, "s", "x"}));
}

TEST_F(Servers, HaveNoSecretWhenItCannotBeCopied) {
    failAllocation(2);
    EXPECT_EQ(0, radConfAddAuthServ("h", 1, 2, 3, "s3cr3t", "x"));
    failAllocation(2);
    EXPECT_EQ(0, radConfAddAcctServ("h", 1, 2, 3, "s3cr3t"));
    stopFailing();
    EXPECT_LOG(
        log,
        "trace radConfAddAuthServ> Added Server h:1 with timeout: 2, retries: 3 and secret: NO",
        "trace radConfAddAcctServ> Added Server h:1 with timeout: 2, retries: 3 and secret: NO");
    EXPECT_THAT(slots(RAD_SERVER_AUTH)[0], Holds({"h", 1, 2, 3, nullptr, "x"}));
    EXPECT_THAT(slots(RAD_SERVER_ACCT)[0], Holds({"h", 1, 2, 3, nullptr}));

    // Wherever a server is shown, so is this.
    log.clear();
    EXPECT_EQ(0, radAuthServRowIdSet("h", 0, 4, 5));
    radConfAuthServList();
    EXPECT_EQ(0, radConfDelAuthServer("h"));
    EXPECT_THAT(log.texts(), Each(testing::HasSubstr("secret: NO\n")));
    EXPECT_EQ(3U, log.lines().size());
}

TEST_F(Servers, HaveNoExtraFieldWhenItCannotBeCopied) {
    failAllocation(3);
    EXPECT_EQ(0, radConfAddAuthServ("h", 1, 2, 3, "s", "x"));
    EXPECT_TRUE(allocationFailed());
    EXPECT_THAT(slots(RAD_SERVER_AUTH)[0], Holds({"h", 1, 2, 3, "s"}));
}

}  // namespace
}  // namespace lanyard::test::server_addition_test
