// The two server lists: adding, deleting, database rows, and the slots that servers take.
#include <string>
#include <vector>

#include <lanyard/radius/dict.h>
#include <lanyard/radius/frame.h>

#include "tests/support/test.h"
#include "tests/unit/base/fresh_process.h"
#include "tests/unit/conf/conf_fixture.h"

namespace lanyard::test::servers_test {
namespace {

using testing::Each;
using testing::ElementsAre;

class Servers : public ConfTest {
  protected:
    // The hosts in the eight authentication slots, "" for a free one.
    static std::vector<std::string> hosts() {
        std::vector<std::string> all;
        for (const RadServer &server : slots(RAD_SERVER_AUTH)) {
            all.emplace_back(server.host != nullptr ? server.host : "");
        }
        return all;
    }
};

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

TEST_F(Servers, AreDeletedAllAtOnce) {
    addAuthServers(3);
    ASSERT_EQ(0, radConfAddAuthServ("x", 1, 2, 3, "s", "extra"));
    ASSERT_EQ(0, radAuthServRowIdSet("h1", 0, 4, 5));
    ASSERT_EQ(0, radConfAddAcctServ("a", 1, 2, 3, "s"));
    log.clear();
    EXPECT_EQ(0, radConfDelAuthServ());
    EXPECT_EQ(2U, liveBlocks()) << "what is left is the accounting server's";
    EXPECT_EQ(0, radConfGetNumServers(RAD_SERVER_AUTH));
    EXPECT_EQ(1, radConfGetNumServers(RAD_SERVER_ACCT));
    EXPECT_EQ(0, radConfDelAcctServ());
    EXPECT_EQ(0U, liveBlocks());
    EXPECT_EQ(0, radConfGetNumServers(RAD_SERVER_ACCT));
    expectSilence();
    EXPECT_FALSE(isSet(RAD_CONF_AUTH_SERVERS));
    EXPECT_FALSE(isSet(RAD_CONF_ACCT_SERVERS));

    EXPECT_EQ(0, radConfDelAuthServ());
    EXPECT_EQ(0, radConfDelAcctServ());
    expectSilence();
}

// A list that is built anew must not find the slots of the old one taken.
TEST_F(Servers, StartAtTheFirstSlotAgainAfterAllEightWereUsed) {
    for (int round = 0; round < 3; ++round) {
        SCOPED_TRACE(round);
        for (int index = 0; index < 8; ++index) {
            ASSERT_EQ(0, radConfAddAuthServ("old", 1, 2, 3, "s", "x"));
            ASSERT_EQ(0, radConfAddAcctServ("old", 1, 2, 3, "s"));
        }
        ASSERT_EQ(0, radAuthServRowIdSet("old", 0, 7, 8));
        EXPECT_EQ(0, radDeconfigure());
        EXPECT_EQ(0U, liveBlocks());

        EXPECT_EQ(0, radConfAddAuthServ("new", 9, -1, -1, "t", nullptr));
        EXPECT_EQ(0, radConfAddAcctServ("new", 9, -1, -1, "t"));
        for (const uint32_t type : {RAD_SERVER_AUTH, RAD_SERVER_ACCT}) {
            EXPECT_EQ(1, radConfGetNumServers(static_cast<int>(type)));
            EXPECT_THAT(slots(type),
                        ElementsAre(Holds({"new", 9, -1, -1, "t"}), Holds(kFreeSlot),
                                    Holds(kFreeSlot), Holds(kFreeSlot), Holds(kFreeSlot),
                                    Holds(kFreeSlot), Holds(kFreeSlot), Holds(kFreeSlot)));
        }
        EXPECT_EQ(0, radDeconfigure());
    }
}

TEST_F(Servers, AreDeletedByHost) {
    addAuthServers(2);
    ASSERT_EQ(0, radConfAddAuthServ("host", 1645, 5, 3, "s3cr3t", "nas"));
    ASSERT_EQ(0, radAuthServRowIdSet("host", 0, 7, 8));
    log.clear();
    EXPECT_EQ(0, radConfDelAuthServer("host"));
    EXPECT_LOG(log,
               "trace radConfDelAuthServer> Deleting Server host:1645 with timeout: 5, retries: 3 "
               "and secret: s3cr3t");
    EXPECT_EQ(2, radConfGetNumServers(RAD_SERVER_AUTH));
    EXPECT_THAT(slots(RAD_SERVER_AUTH)[2], Holds(kFreeSlot));
    EXPECT_THAT(hosts(), ElementsAre("h0", "h1", "", "", "", "", "", ""));
    EXPECT_EQ(4U, liveBlocks());
}

TEST_F(Servers, LeaveHolesThatTheNextOnesTakeFromTheLowestOn) {
    addAuthServers(5);
    EXPECT_EQ(0, radConfDelAuthServer("h3"));
    EXPECT_EQ(0, radConfDelAuthServer("h1"));
    EXPECT_THAT(hosts(), ElementsAre("h0", "", "h2", "", "h4", "", "", ""));
    EXPECT_EQ(3, radConfGetNumServers(RAD_SERVER_AUTH));
    ASSERT_EQ(0, radConfAddAuthServ("a", 1, -1, -1, "s", nullptr));
    EXPECT_THAT(hosts(), ElementsAre("h0", "a", "h2", "", "h4", "", "", ""));
    ASSERT_EQ(0, radConfAddAuthServ("b", 1, -1, -1, "s", nullptr));
    ASSERT_EQ(0, radConfAddAuthServ("c", 1, -1, -1, "s", nullptr));
    EXPECT_THAT(hosts(), ElementsAre("h0", "a", "h2", "b", "h4", "c", "", ""));
    EXPECT_EQ(6, radConfGetNumServers(RAD_SERVER_AUTH));
}

TEST_F(Servers, AreDeletedOneByOneUntilTheListIsUnset) {
    addAuthServers(2);
    EXPECT_EQ(0, radConfDelAuthServer("h0"));
    EXPECT_TRUE(isSet(RAD_CONF_AUTH_SERVERS));
    EXPECT_EQ(1, radConfGetNumServers(RAD_SERVER_AUTH));
    EXPECT_EQ(0, radConfDelAuthServer("h1"));
    EXPECT_FALSE(isSet(RAD_CONF_AUTH_SERVERS));
    EXPECT_EQ(0, radConfGetNumServers(RAD_SERVER_AUTH));
    EXPECT_EQ(0U, liveBlocks());

    EXPECT_EQ(0, radConfSetAuthServ("a:s")) << "the option may be set again";
    EXPECT_THAT(hosts(), ElementsAre("a", "", "", "", "", "", "", ""));
}

TEST_F(Servers, OfTheSameHostAreDeletedFromTheFirstOn) {
    ASSERT_EQ(0, radConfSetServers("h:1:s h:2:s h:3:s", RAD_SERVER_AUTH));
    EXPECT_EQ(0, radConfDelAuthServer("h"));
    EXPECT_THAT(slots(RAD_SERVER_AUTH)[0], Holds(kFreeSlot));
    EXPECT_EQ(2, slots(RAD_SERVER_AUTH)[1].port);
    EXPECT_EQ(0, radConfDelAuthServer("h"));
    EXPECT_THAT(slots(RAD_SERVER_AUTH)[1], Holds(kFreeSlot));
    EXPECT_EQ(3, slots(RAD_SERVER_AUTH)[2].port);
}

// Devices depend on it: a delete that matches no server takes the last slot.
TEST_F(Servers, InTheLastSlotAreDeletedForAnUnknownHost) {
    addAuthServers(8);
    EXPECT_EQ(0, radConfDelAuthServer("H0"));  // the case counts
    EXPECT_LOG(log,
               "trace radConfDelAuthServer> Deleting Server h7:1007 with timeout: -1, retries: -1 "
               "and secret: s3cr3t");
    EXPECT_EQ(7, radConfGetNumServers(RAD_SERVER_AUTH));
    EXPECT_THAT(hosts(), ElementsAre("h0", "h1", "h2", "h3", "h4", "h5", "h6", ""));
    EXPECT_THAT(slots(RAD_SERVER_AUTH)[7], Holds(kFreeSlot));
}

TEST_F(Servers, AreOneFewerByTheCountWhenTheLastSlotWasFree) {
    addAuthServers(3);
    EXPECT_EQ(0, radConfDelAuthServer("unknown"));
    EXPECT_LOG(log,
               "trace radConfDelAuthServer> Deleting Server (null):65535 with timeout: -1, "
               "retries: -1 and secret: NO");
    EXPECT_EQ(2, radConfGetNumServers(RAD_SERVER_AUTH));
    EXPECT_THAT(hosts(), ElementsAre("h0", "h1", "h2", "", "", "", "", ""));

    // The slots may then run out before the count does.
    for (int index = 3; index < 8; ++index) {
        ASSERT_EQ(0, radConfAddAuthServ("h", 1, -1, -1, "s", nullptr));
    }
    EXPECT_EQ(7, radConfGetNumServers(RAD_SERVER_AUTH));
    log.clear();
    EXPECT_EQ(-1, radConfAddAuthServ("ninth", 1, -1, -1, "s", nullptr));
    EXPECT_PROBLEMS(log, "error radConfAddAuthServ: Cannot Add Server ninth: Too Many Servers");
    EXPECT_EQ(7, radConfGetNumServers(RAD_SERVER_AUTH));

    EXPECT_EQ(0, radDeconfigure());
    EXPECT_EQ(0U, liveBlocks()) << "every slot is released, whatever the count says";
}

TEST_F(Servers, AreNoListAfterAnUnknownHostTookTheCountToZero) {
    addAuthServers(1);
    EXPECT_EQ(0, radConfDelAuthServer("unknown"));
    EXPECT_EQ(0, radConfGetNumServers(RAD_SERVER_AUTH));
    EXPECT_FALSE(isSet(RAD_CONF_AUTH_SERVERS));
    log.clear();
    EXPECT_EQ(-1, radConfAssert());
    EXPECT_PROBLEMS(log, "error radConfAssert: No AuthServer Specified");

    // Nothing more to delete or to mark.
    log.clear();
    EXPECT_EQ(0, radConfDelAuthServer("h0"));
    EXPECT_EQ(0, radConfDelAuthServByRowId(0, 0));
    EXPECT_EQ(0, radAuthServRowIdSet("h0", 0, 1, 2));
    radConfAuthServList();
    expectSilence();
    EXPECT_EQ(0, radConfGetNumServers(RAD_SERVER_AUTH));

    EXPECT_EQ(0, radDeconfigure());
    EXPECT_EQ(0U, liveBlocks());
}

TEST_F(Servers, LeaveNothingToShutdownAfterAnUnknownHostTookTheCountToZero) {
    addAuthServers(1);
    EXPECT_EQ(0, radConfDelAuthServer("unknown"));
    EXPECT_EQ(0, radLibExit());
    EXPECT_TRUE(partitions().back().destroyed);
    EXPECT_EQ(0U, partitions().back().blocksAtDestroy);

    // Nor does the next start find anything of it.
    ASSERT_EQ(0, radLibInit(nullptr));
    ASSERT_EQ(0, radConfAddAuthServ("a", 1, -1, -1, "s", nullptr));
    EXPECT_THAT(hosts(), ElementsAre("a", "", "", "", "", "", "", ""));
}

TEST_F(Servers, MayBeAddedToSlotsThatNoCountCovers) {
    addAuthServers(1);
    EXPECT_EQ(0, radConfDelAuthServer("unknown"));
    EXPECT_EQ(0, radConfAddAuthServ("a", 1, -1, -1, "s", nullptr));
    EXPECT_EQ(1, radConfGetNumServers(RAD_SERVER_AUTH));
    EXPECT_THAT(hosts(), ElementsAre("h0", "a", "", "", "", "", "", ""));
    EXPECT_EQ(0, radConfDelAuthServ());
    EXPECT_EQ(0U, liveBlocks());
}

TEST_F(Servers, AreNotDeletedByNoHost) {
    EXPECT_EQ(-1, radConfDelAuthServer(nullptr));
    EXPECT_EQ(0, radConfDelAuthServer("h0"));  // there is no list
    addAuthServers(1);
    EXPECT_EQ(-1, radConfDelAuthServer(nullptr));
    expectSilence();
    EXPECT_THAT(hosts(), ElementsAre("h0", "", "", "", "", "", "", ""));
    EXPECT_EQ(1, radConfGetNumServers(RAD_SERVER_AUTH));
}

TEST_F(Servers, TakeTheirDatabaseRow) {
    addAuthServers(3);
    EXPECT_EQ(0, radAuthServRowIdSet("h1", 99, 70, 80));
    EXPECT_LOG(log,
               "trace radAuthServRowIdSet> Adding RowId:80 to Server h1:1001 with timeout: -1, "
               "retries: -1 and secret: s3cr3t");
    EXPECT_THAT(
        slots(RAD_SERVER_AUTH),
        ElementsAre(Holds({"h0", 1000, -1, -1, "s3cr3t"}),
                    Holds({"h1", 1001, -1, -1, "s3cr3t", nullptr, 70, 80}),
                    Holds({"h2", 1002, -1, -1, "s3cr3t"}), Holds(kFreeSlot), Holds(kFreeSlot),
                    Holds(kFreeSlot), Holds(kFreeSlot), Holds(kFreeSlot)));
    EXPECT_EQ(3, radConfGetNumServers(RAD_SERVER_AUTH));
}

TEST_F(Servers, InTheLastSlotTakeTheDatabaseRowOfAnUnknownHost) {
    addAuthServers(2);
    EXPECT_EQ(0, radAuthServRowIdSet("unknown", 0, 70, 80));
    EXPECT_LOG(log,
               "trace radAuthServRowIdSet> Adding RowId:80 to Server (null):65535 with timeout: "
               "-1, retries: -1 and secret: NO");
    EXPECT_THAT(slots(RAD_SERVER_AUTH)[7],
                Holds({nullptr, 65535, -1, -1, nullptr, nullptr, 70, 80}));
    EXPECT_EQ(2, radConfGetNumServers(RAD_SERVER_AUTH));

    // A server that comes there has no row of its own yet.
    for (int index = 2; index < 8; ++index) {
        ASSERT_EQ(0, radConfAddAuthServ("late", 1, -1, -1, "s", nullptr));
    }
    EXPECT_THAT(slots(RAD_SERVER_AUTH)[7], Holds({"late", 1, -1, -1, "s"}));
    EXPECT_EQ(0, radAuthServRowIdSet("unknown", 0, 71, 81));
    EXPECT_THAT(slots(RAD_SERVER_AUTH)[7], Holds({"late", 1, -1, -1, "s", nullptr, 71, 81}));
}

TEST_F(Servers, TakeNoDatabaseRowWithoutAHost) {
    EXPECT_EQ(-1, radAuthServRowIdSet(nullptr, 0, 1, 2));
    EXPECT_EQ(0, radAuthServRowIdSet("h0", 0, 1, 2));  // there is no list
    addAuthServers(1);
    EXPECT_EQ(-1, radAuthServRowIdSet(nullptr, 0, 1, 2));
    expectSilence();
    EXPECT_THAT(slots(RAD_SERVER_AUTH)[0], Holds({"h0", 1000, -1, -1, "s3cr3t"}));
}

// A slot that never held a server has no row either, so row 0 - 0 is not found in it.
TEST(ServersAtStart, HaveFreeSlots) {
    EXPECT_PASSES_IN_FRESH_PROCESS({
        EXPECT_EQ(0, radConfAddAuthServ("a", 1, 2, 3, "s", nullptr));
        EXPECT_EQ(0, radConfAddAcctServ("a", 1, 2, 3, "s"));
        for (const uint32_t option : {RAD_CONF_AUTH_SERVERS, RAD_CONF_ACCT_SERVERS}) {
            const auto *servers = static_cast<const RadServer *>(radConfGet(option));
            EXPECT_THAT(servers[0], Holds({"a", 1, 2, 3, "s"}));
            for (size_t index = 1; index < RAD_SERVERS_MAX; ++index) {
                EXPECT_THAT(servers[index], Holds(kFreeSlot)) << index;
            }
        }
        EXPECT_EQ(0, radDeconfigure());
    });
}

TEST_F(Servers, AreDeletedByDatabaseRow) {
    addAuthServers(4);
    ASSERT_EQ(0, radAuthServRowIdSet("h0", 0, 1, 11));
    ASSERT_EQ(0, radAuthServRowIdSet("h1", 0, 2, 10));
    ASSERT_EQ(0, radAuthServRowIdSet("h2", 0, 1, 10));
    ASSERT_EQ(0, radAuthServRowIdSet("h3", 0, 1, 10));
    log.clear();
    EXPECT_EQ(0, radConfDelAuthServByRowId(1, 10));
    EXPECT_LOG(log, "trace radConfDelAuthServByRowId> rowIds: 1 - 11",
               "trace radConfDelAuthServByRowId> rowIds: 2 - 10",
               "trace radConfDelAuthServByRowId> rowIds: 1 - 10",
               "trace radConfDelAuthServByRowId> Deleting Server h2:1002 with timeout: -1, "
               "retries: -1 and secret: s3cr3t rowId: 10");
    EXPECT_THAT(hosts(), ElementsAre("h0", "h1", "", "h3", "", "", "", ""));
    EXPECT_THAT(slots(RAD_SERVER_AUTH)[2], Holds(kFreeSlot));
    EXPECT_EQ(3, radConfGetNumServers(RAD_SERVER_AUTH));
}

TEST_F(Servers, InTheLastSlotAreDeletedForAnUnknownDatabaseRow) {
    addAuthServers(8);
    ASSERT_EQ(0, radAuthServRowIdSet("h7", 0, 5, 6));
    log.clear();
    EXPECT_EQ(0, radConfDelAuthServByRowId(0, 0));
    std::vector<std::string> expected(7, "trace radConfDelAuthServByRowId> rowIds: -1 - -1");
    expected.insert(expected.end(),
                    {"trace radConfDelAuthServByRowId> rowIds: 5 - 6",
                     "trace radConfDelAuthServByRowId> Deleting Server h7:1007 with "
                     "timeout: -1, retries: -1 and secret: s3cr3t rowId: 6"});
    EXPECT_EQ(expected, log.log());
    EXPECT_THAT(hosts(), ElementsAre("h0", "h1", "h2", "h3", "h4", "h5", "h6", ""));
    EXPECT_EQ(7, radConfGetNumServers(RAD_SERVER_AUTH));
}

TEST_F(Servers, AreNoListAfterAnUnknownDatabaseRowTookTheCountToZero) {
    addAuthServers(1);
    EXPECT_EQ(0, radConfDelAuthServByRowId(1, 2));
    EXPECT_EQ(
        "Deleting Server (null):65535 with timeout: -1, retries: -1 and secret: NO "
        "rowId: -1\n",
        log.texts().back());
    EXPECT_EQ(9U, log.lines().size());
    EXPECT_FALSE(isSet(RAD_CONF_AUTH_SERVERS));
    EXPECT_EQ(0, radConfGetNumServers(RAD_SERVER_AUTH));
    EXPECT_EQ(0, radDeconfigure());
    EXPECT_EQ(0U, liveBlocks());
}

TEST_F(Servers, AreNotDeletedByANegativeDatabaseRow) {
    EXPECT_EQ(-1, radConfDelAuthServByRowId(-1, -1));
    EXPECT_EQ(0, radConfDelAuthServByRowId(0, -1));  // there is no list
    addAuthServers(1);
    EXPECT_EQ(-1, radConfDelAuthServByRowId(-1, -1));
    EXPECT_EQ(-1, radConfDelAuthServByRowId(INT32_MIN, 5));
    expectSilence();
    EXPECT_THAT(hosts(), ElementsAre("h0", "", "", "", "", "", "", ""));

    // The other half may be negative.
    ASSERT_EQ(0, radAuthServRowIdSet("h0", 0, 0, -4));
    EXPECT_EQ(0, radConfDelAuthServByRowId(0, -4));
    EXPECT_EQ(0U, liveBlocks());
}

TEST_F(Servers, AreShownForDebugging) {
    radConfAuthServList();
    expectSilence();
    addAuthServers(3);
    ASSERT_EQ(0, radConfAddAuthServ("x", 9, 5, 3, "other", "nas"));
    ASSERT_EQ(0, radAuthServRowIdSet("h2", 0, 4, 44));
    ASSERT_EQ(0, radConfDelAuthServer("h1"));
    ASSERT_EQ(0, radConfAddAcctServ("unseen", 1, -1, -1, "s"));
    log.clear();
    radConfAuthServList();
    EXPECT_LOG(
        log,
        "trace radConfAuthServList> -1 : Server h0:1000 with timeout: -1, retries: -1 and secret: "
        "s3cr3t",
        "trace radConfAuthServList> 44 : Server h2:1002 with timeout: -1, retries: -1 and secret: "
        "s3cr3t",
        "trace radConfAuthServList> -1 : Server x:9 with timeout: 5, retries: 3 and secret: other");
}

}  // namespace
}  // namespace lanyard::test::servers_test
