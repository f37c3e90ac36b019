// Authentication servers come, change and go with the rows of the table "radiusClient".
#include <array>
#include <cerrno>
#include <tuple>

#include "tests/support/test.h"
#include "tests/unit/device/fixture.h"
#include "tests/unit/device/system_calls.h"

namespace lanyard::test::auth_server_test {
namespace {

using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::Not;

constexpr const char *kTable = "radiusClient";

class AuthServerRows : public MgmtTest {
  protected:
    void SetUp() override {
        MgmtTest::SetUp();
        open();
    }

    // A row and its notice. The row key is always 4.
    int insert(const std::string &values) {
        return deliver(notice(kTable, RAD_DB_INSERT, 4, database.addServer(values)));
    }

    static int update(int rowId, const std::string &oldHost) {
        return deliver(notice(kTable, RAD_DB_UPDATE, 4, rowId),
                       laidOut({"authserver", "authport", "authsecret", "authtimeout",
                                "authretries", oldHost, "1", "2", "3", "4"}));
    }

    void expectReturning(int result) {
        EXPECT_THAT(log.log(), Contains("device error radiusAuthServerHandler> returning : " +
                                        std::to_string(result)));
    }
};

TEST_F(AuthServerRows, AnInsertAddsAServerWithTheIdentityOfItsRow) {
    EXPECT_EQ(0, insert("'127.0.0.1', '1645', 's3cr3t', '5', '2'"));
    EXPECT_EQ(1, radConfGetNumServers(RAD_SERVER_AUTH));
    EXPECT_THAT(slots(RAD_SERVER_AUTH)[0],
                Holds({"127.0.0.1", 1645, 5, 2, "s3cr3t", nullptr, 4, 1}));
    EXPECT_EQ(0, radConfGetNumServers(RAD_SERVER_ACCT));
}

TEST_F(AuthServerRows, AnInsertTellsItsStepsInOrder) {
    EXPECT_EQ(0, insert("'a', '1645', 's1', '5', '2'"));
    EXPECT_LOG(
        log,
        "device trace radiusMgmtDBUpdateHandler> DBUpdate event: Table: radiusClient opCode:18 "
        "rowId:1",
        "trace radConfAddAuthServ> Added Server a:1645 with timeout: 5, retries: 2 and secret: s1",
        "trace radAuthServRowIdSet> Adding RowId:1 to Server a:1645 with timeout: 5, retries: 2 "
        "and secret: s1",
        "device error radiusAuthServerHandler> returning : 0",
        "trace radConfAuthServList> 1 : Server a:1645 with timeout: 5, retries: 2 and secret: s1");
}

TEST_F(AuthServerRows, AnInsertAddsToTheServersThatAreThere) {
    addAuthServers(2);
    EXPECT_EQ(0, insert("'a', '1', 's1', '5', '2'"));
    EXPECT_EQ(0, insert("'b', '2', 's2', '5', '2'"));
    EXPECT_THAT(hosts(), ElementsAre("h0", "h1", "a", "b", "", "", "", ""));
    EXPECT_THAT(slots(RAD_SERVER_AUTH)[3], Holds({"b", 2, 5, 2, "s2", nullptr, 4, 2}));
}

TEST_F(AuthServerRows, ColumnsAreFoundByNameAndMayBeNumbers) {
    database.run(
        "DROP TABLE radiusClient;"
        "CREATE TABLE radiusClient (id INTEGER, authretries INTEGER, Authserver TEXT,"
        " authsecret TEXT, authport INTEGER, note TEXT, authtimeout INTEGER, authserver2 TEXT);"
        "ALTER TABLE radiusClient RENAME COLUMN Authserver TO authserver;"
        "INSERT INTO radiusClient VALUES (77, 2, 'a', 's1', 1645, NULL, 5, 'b')");
    EXPECT_EQ(0, deliver(notice(kTable, RAD_DB_INSERT, 4, 1)));
    EXPECT_THAT(slots(RAD_SERVER_AUTH)[0], Holds({"a", 1645, 5, 2, "s1", nullptr, 4, 1}));
}

TEST_F(AuthServerRows, ASecretThatLooksLikeAFormatIsKept) {
    EXPECT_EQ(0, insert("'a', '1645', '%s%n%d', '5', '2'"));
    EXPECT_THAT(slots(RAD_SERVER_AUTH)[0], Holds({"a", 1645, 5, 2, "%s%n%d", nullptr, 4, 1}));
}

TEST_F(AuthServerRows, AnInsertWithAMissingColumnAddsNothing) {
    for (const char *column :
         {"authserver", "authport", "authsecret", "authtimeout", "authretries"}) {
        SCOPED_TRACE(column);
        const std::string renamed = "ALTER TABLE radiusClient RENAME COLUMN ";
        database.run(renamed + column + " TO elsewhere");
        log.clear();
        EXPECT_EQ(-1, insert("'a', '1645', 's1', '5', '2'"));
        expectReturning(-1);
        EXPECT_EQ(0, radConfGetNumServers(RAD_SERVER_AUTH));
        database.run(renamed + "elsewhere TO " + column);
    }
}

TEST_F(AuthServerRows, AnInsertWithANullAddsNothing) {
    const std::array<std::string, 5> values = {"'a'", "'1645'", "'s1'", "'5'", "'2'"};
    for (size_t missing = 0; missing < values.size(); ++missing) {
        SCOPED_TRACE(missing);
        std::string row;
        for (size_t index = 0; index < values.size(); ++index) {
            row += (index > 0 ? ", " : "") + (index == missing ? "NULL" : values.at(index));
        }
        log.clear();
        EXPECT_EQ(-1, insert(row));
        expectReturning(-1);
        EXPECT_EQ(0, radConfGetNumServers(RAD_SERVER_AUTH));
    }
}

// Without a host or a secret the fields after it would move up and be taken for them.
TEST_F(AuthServerRows, AnInsertWithAnEmptyHostOrSecretAddsNothing) {
    EXPECT_EQ(-1, insert("'', '1645', 's1', '5', '2'"));
    expectReturning(-1);
    log.clear();
    EXPECT_EQ(-1, insert("'a', '1645', '', '5', '2'"));
    expectReturning(-1);
    EXPECT_EQ(0, radConfGetNumServers(RAD_SERVER_AUTH));
}

TEST_F(AuthServerRows, AnInsertThatTheServerSyntaxRefusesAddsNothing) {
    EXPECT_EQ(-1, insert("'a', 'radius', 's1', '5', '2'"));
    EXPECT_LOGGED(log, 8, "radConfSetServers",
                  "radConfSetServers: Invalid Port radius for server a: \n");
    expectReturning(-1);
    EXPECT_EQ(0, radConfGetNumServers(RAD_SERVER_AUTH));
}

TEST_F(AuthServerRows, ANinthServerIsRefused) {
    addAuthServers(8);
    EXPECT_EQ(-1, insert("'a', '1645', 's1', '5', '2'"));
    expectReturning(-1);
    EXPECT_THAT(hosts(), Not(Contains("a")));
    EXPECT_THAT(slots(RAD_SERVER_AUTH), Each(testing::Field(&RadServer::rowId, -1)));
}

TEST_F(AuthServerRows, ADeleteRemovesTheServerOfTheRow) {
    ASSERT_EQ(0, insert("'a', '1', 's1', '5', '2'"));
    ASSERT_EQ(0, insert("'b', '2', 's2', '5', '2'"));
    log.clear();
    EXPECT_EQ(0, deliver(notice(kTable, RAD_DB_DELETE, 4, 1)));
    EXPECT_THAT(hosts(), ElementsAre("", "b", "", "", "", "", "", ""));
    EXPECT_LOG(
        log,
        "device trace radiusMgmtDBUpdateHandler> DBUpdate event: Table: radiusClient opCode:9 "
        "rowId:1",
        "trace radConfDelAuthServByRowId> rowIds: 4 - 1",
        "trace radConfDelAuthServByRowId> Deleting Server a:1 with timeout: 5, retries: 2 and "
        "secret: s1 rowId: 1",
        "trace radConfAuthServList> 2 : Server b:2 with timeout: 5, retries: 2 and secret: s2");
}

TEST_F(AuthServerRows, ADeleteLooksAtBothHalvesOfTheIdentity) {
    ASSERT_EQ(0, insert("'a', '1', 's1', '5', '2'"));
    ASSERT_EQ(0, deliver(notice(kTable, RAD_DB_INSERT, 5, 1)));
    ASSERT_EQ(0, insert("'b', '2', 's2', '5', '2'"));
    // The second notice has tagged the first server of that name once more.
    EXPECT_THAT(slots(RAD_SERVER_AUTH)[0], Holds({"a", 1, 5, 2, "s1", nullptr, 5, 1}));
    EXPECT_THAT(slots(RAD_SERVER_AUTH)[1], Holds({"a", 1, 5, 2, "s1", nullptr, -1, -1}));
    EXPECT_EQ(0, deliver(notice(kTable, RAD_DB_DELETE, 4, 2)));
    EXPECT_THAT(hosts(), ElementsAre("a", "a", "", "", "", "", "", ""));
    EXPECT_EQ(0, deliver(notice(kTable, RAD_DB_DELETE, 5, 1)));
    EXPECT_THAT(hosts(), ElementsAre("", "a", "", "", "", "", "", ""));
}

TEST_F(AuthServerRows, ADeleteThatIsRefusedIsTold) {
    ASSERT_EQ(0, insert("'a', '1', 's1', '5', '2'"));
    log.clear();
    EXPECT_EQ(-1, deliver(notice(kTable, RAD_DB_DELETE, -1, 1)));
    EXPECT_THAT(
        told(),
        ElementsAre(
            "device trace radiusMgmtDBUpdateHandler> DBUpdate event: Table: radiusClient opCode:9 "
            "rowId:1",
            "device error radiusMgmtDBUpdateHandler> Error in executing DB update handler"));
    EXPECT_EQ(1, radConfGetNumServers(RAD_SERVER_AUTH));
}

TEST_F(AuthServerRows, AnUpdateReplacesTheServer) {
    ASSERT_EQ(0, insert("'a', '1', 's1', '5', '2'"));
    database.run("UPDATE radiusClient SET authport='2', authsecret='new', authtimeout='6'");
    log.clear();
    EXPECT_EQ(0, update(1, "a"));
    EXPECT_THAT(hosts(), ElementsAre("a", "", "", "", "", "", "", ""));
    EXPECT_THAT(slots(RAD_SERVER_AUTH)[0], Holds({"a", 2, 6, 2, "new", nullptr, 4, 1}));
    EXPECT_LOG(
        log,
        "device trace radiusMgmtDBUpdateHandler> DBUpdate event: Table: radiusClient opCode:23 "
        "rowId:1",
        "trace radConfDelAuthServer> Deleting Server a:1 with timeout: 5, retries: 2 and secret: "
        "s1",
        "trace radConfAddAuthServ> Added Server a:2 with timeout: 6, retries: 2 and secret: new",
        "trace radAuthServRowIdSet> Adding RowId:1 to Server a:2 with timeout: 6, retries: 2 and "
        "secret: new",
        "device error radiusAuthServerHandler> returning : 0",
        "trace radConfAuthServList> 1 : Server a:2 with timeout: 6, retries: 2 and secret: new");
}

// The identity goes to the server with the old name; when none has it, to the last slot.
TEST_F(AuthServerRows, AnUpdateThatRenamesTheHostTagsTheLastSlot) {
    ASSERT_EQ(0, insert("'a', '1', 's1', '5', '2'"));
    database.run("UPDATE radiusClient SET authserver='b'");
    EXPECT_EQ(0, update(1, "a"));
    EXPECT_THAT(hosts(), ElementsAre("b", "", "", "", "", "", "", ""));
    EXPECT_THAT(slots(RAD_SERVER_AUTH)[0], Holds({"b", 1, 5, 2, "s1", nullptr, -1, -1}));
    EXPECT_THAT(slots(RAD_SERVER_AUTH)[7],
                Holds({.host = nullptr, .port = 65535, .rowKey = 4, .rowId = 1}));
}

TEST_F(AuthServerRows, AnUpdateThatRenamesTheHostTagsAnotherServerOfTheOldName) {
    ASSERT_EQ(0, insert("'a', '1', 's1', '5', '2'"));
    ASSERT_EQ(0, radConfAddAuthServ("a", 9, -1, -1, "s9", nullptr));
    database.run("UPDATE radiusClient SET authserver='b'");
    EXPECT_EQ(0, update(1, "a"));
    EXPECT_THAT(hosts(), ElementsAre("b", "a", "", "", "", "", "", ""));
    EXPECT_THAT(slots(RAD_SERVER_AUTH)[0], Holds({"b", 1, 5, 2, "s1", nullptr, -1, -1}));
    EXPECT_THAT(slots(RAD_SERVER_AUTH)[1], Holds({"a", 9, -1, -1, "s9", nullptr, 4, 1}));
}

TEST_F(AuthServerRows, TheOldHostIsFoundByItsName) {
    ASSERT_EQ(0, insert("'a', '1', 's1', '5', '2'"));
    database.run("UPDATE radiusClient SET authserver='b'");
    EXPECT_EQ(0, deliver(notice(kTable, RAD_DB_UPDATE, 4, 1),
                         laidOut({"authport", "authsecret", "x", "authserver", "y", "1", "s1", "z",
                                  "a", "w"})));
    EXPECT_THAT(hosts(), ElementsAre("b", "", "", "", "", "", "", ""));
}

TEST_F(AuthServerRows, AnUpdateWithoutTheOldHostChangesNothing) {
    ASSERT_EQ(0, insert("'a', '1', 's1', '5', '2'"));
    database.run("UPDATE radiusClient SET authserver='b'");
    const RadDbUpdateInfo info = notice(kTable, RAD_DB_UPDATE, 4, 1);
    for (const auto &old : std::vector<std::optional<std::string>>{
             std::nullopt, laidOut({"Authserver", "c2", "c3", "c4", "c5", "a", "", "", "", ""}),
             laidOut({"authserver", "c2", "c3", "c4", "c5"})}) {
        log.clear();
        EXPECT_EQ(-1, deliver(info, old));
        expectReturning(-1);
        EXPECT_THAT(slots(RAD_SERVER_AUTH)[0], Holds({"a", 1, 5, 2, "s1", nullptr, 4, 1}));
        EXPECT_EQ(1, radConfGetNumServers(RAD_SERVER_AUTH));
    }
}

TEST_F(AuthServerRows, AnUpdateWhoseNewServerIsRefusedLeavesTheOldOneDeleted) {
    ASSERT_EQ(0, insert("'a', '1', 's1', '5', '2'"));
    database.run("UPDATE radiusClient SET authport='radius'");
    log.clear();
    EXPECT_EQ(-1, update(1, "a"));
    expectReturning(-1);
    EXPECT_EQ(0, radConfGetNumServers(RAD_SERVER_AUTH));
}

TEST_F(AuthServerRows, AnUpdateOfARowThatIsNoServerLeavesTheOldOne) {
    ASSERT_EQ(0, insert("'a', '1', 's1', '5', '2'"));
    database.run("UPDATE radiusClient SET authsecret=NULL");
    EXPECT_EQ(-1, update(1, "a"));
    EXPECT_THAT(hosts(), ElementsAre("a", "", "", "", "", "", "", ""));
}

TEST_F(AuthServerRows, AnUnknownChangeIsRefused) {
    addAuthServers(1);
    (void)database.addServer("'a', '1', 's1', '5', '2'");
    EXPECT_EQ(-1, deliver(notice(kTable, 7, 4, 1)));
    EXPECT_LOG(log,
               "device trace radiusMgmtDBUpdateHandler> DBUpdate event: Table: radiusClient "
               "opCode:7 rowId:1",
               "device error radiusAuthServerHandler> Invalid SQLITE operation code - 7",
               "device error radiusAuthServerHandler> returning : -1",
               "trace radConfAuthServList> -1 : Server h0:1000 with timeout: -1, retries: -1 and "
               "secret: s3cr3t",
               "device error radiusMgmtDBUpdateHandler> Error in executing DB update handler");
}

TEST_F(AuthServerRows, TheRowIsReadBeforeTheChangeIsLookedAt) {
    (void)database.addServer("'a', '1', NULL, '5', '2'");
    EXPECT_EQ(-1, deliver(notice(kTable, 7, 4, 1)));
    EXPECT_THAT(log.texts(8),
                ElementsAre("returning : -1\n", "Error in executing DB update handler\n"));
}

TEST_F(AuthServerRows, WithoutMemoryForTheEntryTheHandlerEndsAtOnce) {
    addAuthServers(1);
    const FailingCall failure("asprintf", ENOMEM);
    EXPECT_EQ(-1, insert("'a', '1', 's1', '5', '2'"));
    EXPECT_TRUE(failure.happened());
    EXPECT_LOG(log,
               "device trace radiusMgmtDBUpdateHandler> DBUpdate event: Table: radiusClient "
               "opCode:18 rowId:1",
               "device error radiusAuthServerHandler> Failed to allocate memory for authentication "
               "server string.",
               "device error radiusMgmtDBUpdateHandler> Error in executing DB update handler");
    EXPECT_THAT(hosts(), ElementsAre("h0", "", "", "", "", "", "", ""));
}

TEST_F(AuthServerRows, EveryAllocationMayFail) {
    const int rowId = database.addServer("'a', '1', 's1', '5', '2'");
    const unsigned failures = forEachFailingAllocation([rowId] {
        const int result = deliver(notice(kTable, RAD_DB_INSERT, 4, rowId));
        EXPECT_EQ(result == 0 ? 1 : 0, radConfGetNumServers(RAD_SERVER_AUTH));
        EXPECT_EQ(0, radConfDelAuthServ());
    });
    EXPECT_EQ(3U, failures) << "the entry, the host and the secret";
}

TEST_F(AuthServerRows, TheHandlerTakesARowOfNothing) {
    EXPECT_EQ(-1, radiusAuthServerHandler(nullptr, RAD_DB_INSERT, 4, 1, nullptr, 0, 0, nullptr));
    std::array<char *, 1> noValues = {nullptr};
    EXPECT_EQ(
        -1, radiusAuthServerHandler(nullptr, RAD_DB_INSERT, 4, 1, noValues.data(), 1, 0, nullptr));
    EXPECT_THAT(log.texts(8), ElementsAre("returning : -1\n", "returning : -1\n"));
}

}  // namespace
}  // namespace lanyard::test::auth_server_test
