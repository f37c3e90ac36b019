// Servers and the rows of the database that they come from: marked, shown and deleted by them.
#include <string>
#include <vector>

#include <lanyard/radius/conf.h>

#include "tests/support/test.h"
#include "tests/unit/base/fresh_process.h"
#include "tests/unit/conf/servers_fixture.h"

namespace lanyard::test::server_rows_test {
namespace {

using testing::ElementsAre;

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
}  // namespace lanyard::test::server_rows_test
