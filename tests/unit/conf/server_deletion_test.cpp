// Deleting servers: all at once or by host, the holes that they leave, and hosts that nobody has.
#include <lanyard/radius/conf.h>
#include <lanyard/radius/frame.h>

#include "tests/support/test.h"
#include "tests/unit/conf/servers_fixture.h"

namespace lanyard::test::server_deletion_test {
namespace {

using testing::ElementsAre;

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

}  // namespace
}  // namespace lanyard::test::server_deletion_test
