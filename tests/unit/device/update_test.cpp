// Change notices: what is refused, what is read, and to whom it goes.
#include <algorithm>
#include <cerrno>
#include <cstring>

#include "tests/support/test.h"
#include "tests/unit/device/fixture.h"
#include "tests/unit/device/system_calls.h"

namespace lanyard::test::update_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class MgmtUpdate : public MgmtTest {
  protected:
    void SetUp() override {
        MgmtTest::SetUp();
        open();
    }

    // What is told of a notice of opCode `opCode` for "radiusClient", row 1, that ends with one
    // message.
    void expectToldAfterTheNotice(int opCode, const std::string &text) {
        EXPECT_THAT(told(), ElementsAre("device trace radiusMgmtDBUpdateHandler> DBUpdate event: "
                                        "Table: radiusClient opCode:" +
                                            std::to_string(opCode) + " rowId:1",
                                        "device error radiusMgmtDBUpdateHandler> " + text));
    }
};

TEST(MgmtRecord, Is80Bytes) {
    EXPECT_EQ(80U, sizeof(RadDbUpdateInfo));
    EXPECT_EQ(64U, offsetof(RadDbUpdateInfo, rowKey));
    EXPECT_EQ(68U, offsetof(RadDbUpdateInfo, rowId));
    EXPECT_EQ(72U, offsetof(RadDbUpdateInfo, opCode));
    EXPECT_EQ(76U, offsetof(RadDbUpdateInfo, reserved));
}

TEST(MgmtTables, AreOne) {
    EXPECT_STREQ("radiusClient", handlers[0].name);
    EXPECT_EQ(radiusAuthServerHandler, handlers[0].handler);
    EXPECT_EQ(nullptr, handlers[1].name);
}

TEST_F(MgmtUpdate, RefusesARecordOfAnotherSize) {
    // But for its size, each is a notice as it should be.
    const RadDbUpdateInfo whole = notice("radiusClient", RAD_DB_DELETE);
    for (const size_t size : {0U, 1U, 64U, 79U, 81U, 160U}) {
        SCOPED_TRACE(size);
        log.clear();
        Bytes bytes(size, 0);
        std::copy_n(reinterpret_cast<const uint8_t *>(&whole), std::min(size, sizeof(whole)),
                    bytes.begin());
        const GuardedBuffer record(bytes);
        EXPECT_EQ(
            -1, radiusMgmtDBUpdateHandler(record.data(), static_cast<uint32_t>(size), nullptr, 0));
        EXPECT_LOG(
            log,
            "device error radiusMgmtDBUpdateHandler> ERROR: incomplete DB update information.");
    }
}

TEST_F(MgmtUpdate, RefusesAMissingRecord) {
    EXPECT_EQ(-1, radiusMgmtDBUpdateHandler(nullptr, sizeof(RadDbUpdateInfo), nullptr, 0));
    EXPECT_LOG(log,
               "device error radiusMgmtDBUpdateHandler> ERROR: incomplete DB update information.");
}

TEST_F(MgmtUpdate, RefusesATableNameWithoutEnd) {
    EXPECT_EQ(-1, deliver(notice(std::string(64, 'x'), RAD_DB_DELETE)));
    EXPECT_LOG(log,
               "device error radiusMgmtDBUpdateHandler> ERROR: incomplete DB update information.");
}

TEST_F(MgmtUpdate, TakesATableNameThatFillsItsField) {
    const std::string name(63, 'x');
    EXPECT_EQ(0, deliver(notice(name, RAD_DB_DELETE)));
    EXPECT_THAT(told(),
                ElementsAre("device trace radiusMgmtDBUpdateHandler> DBUpdate event: Table: " +
                            name + " opCode:9 rowId:0"));
}

TEST_F(MgmtUpdate, TakesARecordOfAnyAlignment) {
    const RadDbUpdateInfo info = notice("networkInterface", RAD_DB_DELETE, 1, 2);
    GuardedBuffer room(sizeof(info) + 1, GuardedBuffer::Edge::start);
    std::memcpy(room.data() + 1, &info, sizeof(info));
    EXPECT_EQ(0, radiusMgmtDBUpdateHandler(room.data() + 1, sizeof(info), nullptr, 0));
}

TEST_F(MgmtUpdate, TellsTheNotice) {
    EXPECT_EQ(0, deliver(notice("environment", RAD_DB_INSERT, 7, 1)));
    EXPECT_THAT(told(), ElementsAre("device trace radiusMgmtDBUpdateHandler> DBUpdate event: "
                                    "Table: environment opCode:18 rowId:1"));
}

TEST_F(MgmtUpdate, PassesOverOtherTables) {
    addAuthServers(1);
    const std::string old = laidOut({"name", "value", "RADIUS_DICTIONARY", "/etc/dict"});
    for (const int opCode : std::vector<int>{RAD_DB_INSERT, RAD_DB_UPDATE, RAD_DB_DELETE, 7}) {
        SCOPED_TRACE(opCode);
        log.clear();
        EXPECT_EQ(0, deliver(notice("environment", opCode, 0, 1), old));
        EXPECT_THAT(problems(), IsEmpty());
    }
    EXPECT_THAT(slots(RAD_SERVER_AUTH)[0], Holds({"h0", 1000, -1, -1, "s3cr3t"}));
    EXPECT_EQ(1, radConfGetNumServers(RAD_SERVER_AUTH));
}

TEST_F(MgmtUpdate, ComparesTableNamesExactly) {
    const int rowId = database.addServer("'a', '1812', 's1', '5', '3'");
    for (const char *table : {"RADIUSCLIENT", "radiusclient", "main.radiusClient"}) {
        EXPECT_EQ(0, deliver(notice(table, RAD_DB_INSERT, 1, rowId))) << table;
    }
    EXPECT_EQ(0, radConfGetNumServers(RAD_SERVER_AUTH));
}

TEST_F(MgmtUpdate, TellsThatTheTableCannotBeRead) {
    database.run("DROP TABLE radiusClient");
    EXPECT_EQ(-1, deliver(notice("radiusClient", RAD_DB_INSERT, 1, 1)));
    expectToldAfterTheNotice(18, "sqlite3QueryResGet failed");
}

TEST_F(MgmtUpdate, TellsThatThereIsNoConnection) {
    EXPECT_EQ(0, radiusMgmtDeInit());
    EXPECT_EQ(-1, deliver(notice("radiusClient", RAD_DB_UPDATE, 1, 1)));
    expectToldAfterTheNotice(23, "sqlite3QueryResGet failed");
}

TEST_F(MgmtUpdate, RunsNoStatementOfATableName) {
    (void)database.addServer("'a', '1812', 's1', '5', '3'");
    for (const char *table :
         {"radiusClient; DROP TABLE radiusClient; --",
          "radiusClient; DELETE FROM radiusClient WHERE 1 OR", "", "'", "%s%n"}) {
        EXPECT_EQ(-1, deliver(notice(table, RAD_DB_INSERT, 1, 1))) << table;
    }
    log.clear();
    EXPECT_EQ(0, deliver(notice("radiusClient", RAD_DB_INSERT, 1, 1)));
    EXPECT_EQ(1, radConfGetNumServers(RAD_SERVER_AUTH));
}

// Whatever such a name makes of the query, it is read and goes to no handler.
TEST_F(MgmtUpdate, HandlesNoTableUnderAnotherSpelling) {
    (void)database.addServer("'a', '1812', 's1', '5', '3'");
    for (const char *table : {"\"radiusClient\"", "[radiusClient] AS r", " radiusClient ",
                              "radiusClient --", "radiusClient, environment AS e --"}) {
        log.clear();
        EXPECT_EQ(0, deliver(notice(table, RAD_DB_INSERT, 1, 1))) << table;
        EXPECT_THAT(problems(), IsEmpty()) << table;
    }
    EXPECT_EQ(0, radConfGetNumServers(RAD_SERVER_AUTH));
}

TEST_F(MgmtUpdate, TellsThatTheRowIsNotThere) {
    for (const int opCode : std::vector<int>{RAD_DB_INSERT, RAD_DB_UPDATE, 7}) {
        log.clear();
        EXPECT_EQ(-1, deliver(notice("radiusClient", opCode, 1, 1)));
        expectToldAfterTheNotice(opCode, "empty update. nRows=0 nCols=0");
    }
}

TEST_F(MgmtUpdate, ReadsTheRowByItsSignedNumber) {
    database.run(
        "INSERT INTO radiusClient (rowid, authserver, authport, authsecret, authtimeout,"
        " authretries) VALUES (-5, 'a', '1812', 's1', '5', '3')");
    EXPECT_EQ(0, deliver(notice("radiusClient", RAD_DB_INSERT, 1, -5)));
    EXPECT_THAT(slots(RAD_SERVER_AUTH)[0], Holds({"a", 1812, 5, 3, "s1", nullptr, 1, -5}));
}

TEST_F(MgmtUpdate, TellsThatTheHandlerFailed) {
    (void)database.addServer("'a', '1812', NULL, '5', '3'");
    EXPECT_EQ(-1, deliver(notice("radiusClient", RAD_DB_INSERT, 1, 1)));
    EXPECT_THAT(
        told(),
        ElementsAre(
            "device trace radiusMgmtDBUpdateHandler> DBUpdate event: Table: radiusClient opCode:18 "
            "rowId:1",
            "device error radiusAuthServerHandler> returning : -1",
            "device error radiusMgmtDBUpdateHandler> Error in executing DB update handler"));
}

TEST_F(MgmtUpdate, RefusesADeleteWhoseOldValuesAreNoTwoRows) {
    addAuthServers(1);
    for (const auto &texts : std::vector<std::vector<std::string>>{
             {"authserver"}, {"a", "b", "c"}, {"", "", ""}, {"a", "", "b", "", "c"}}) {
        log.clear();
        EXPECT_EQ(-1, deliver(notice("radiusClient", RAD_DB_DELETE, 1, 1), laidOut(texts)));
        expectToldAfterTheNotice(9, "old values result does not contain 2 rows");
    }
    EXPECT_EQ(1, radConfGetNumServers(RAD_SERVER_AUTH));
}

TEST_F(MgmtUpdate, RefusesOldValuesWithoutEnd) {
    (void)database.addServer("'a', '1812', 's1', '5', '3'");
    addAuthServers(1);
    for (const int opCode : {RAD_DB_DELETE, RAD_DB_UPDATE, RAD_DB_INSERT}) {
        for (const std::string &old :
             {std::string("a"), laidOut({"authserver"}) + "h0", laidOut({"a", "b"}) + "c",
              std::string("authserver") + '\0' + std::string(100, 'x')}) {
            log.clear();
            EXPECT_EQ(-1, deliver(notice("radiusClient", opCode, 1, 1), old));
            expectToldAfterTheNotice(opCode, "old values result does not contain 2 rows");
        }
    }
    EXPECT_THAT(hosts(), ElementsAre("h0", "", "", "", "", "", "", ""));
}

TEST_F(MgmtUpdate, ReadsNoDatabaseForADelete) {
    addAuthServers(1);
    ASSERT_EQ(0, radAuthServRowIdSet("h0", 0, 1, 1));
    EXPECT_EQ(0, radiusMgmtDeInit());
    EXPECT_EQ(0,
              deliver(notice("radiusClient", RAD_DB_DELETE, 1, 1), laidOut({"authserver", "h0"})));
    EXPECT_THAT(problems(), IsEmpty());
    EXPECT_EQ(0, radConfGetNumServers(RAD_SERVER_AUTH));
}

TEST_F(MgmtUpdate, TakesADeleteWithoutOldValues) {
    addAuthServers(1);
    ASSERT_EQ(0, radAuthServRowIdSet("h0", 0, 1, 1));
    EXPECT_EQ(0, deliver(notice("radiusClient", RAD_DB_DELETE, 1, 1)));
    EXPECT_THAT(problems(), IsEmpty());
    EXPECT_EQ(0, radConfGetNumServers(RAD_SERVER_AUTH));
}

TEST_F(MgmtUpdate, TakesADeleteWithTheLargestOldValuesOfTheBus) {
    EXPECT_EQ(0, deliver(notice("environment", RAD_DB_DELETE), std::string(65536, '\0')));
    EXPECT_EQ(-1, deliver(notice("environment", RAD_DB_DELETE), std::string(65535, '\0')));
}

TEST_F(MgmtUpdate, EndsWithoutMemoryForTheOldValues) {
    const int rowId = database.addServer("'a', '1812', 's1', '5', '3'");
    const std::string old = laidOut({"authserver", "a"});
    for (const int opCode : {RAD_DB_DELETE, RAD_DB_UPDATE}) {
        log.clear();
        const RadDbUpdateInfo info = notice("radiusClient", opCode, 1, rowId);
        const FailingCall failure("calloc", ENOMEM);
        const int result = radiusMgmtDBUpdateHandler(&info, sizeof(info), std::string(old).data(),
                                                     static_cast<uint32_t>(old.size()));
        EXPECT_TRUE(failure.happened());
        EXPECT_EQ(-1, result);
        EXPECT_THAT(problems(), IsEmpty());
    }
    EXPECT_EQ(0, radConfGetNumServers(RAD_SERVER_AUTH));
}

// Old values count as given only with both a pointer and a length.
TEST_F(MgmtUpdate, TakesOldValuesOfNoLengthForNone) {
    const int rowId = database.addServer("'a', '1812', 's1', '5', '3'");
    EXPECT_EQ(-1, deliver(notice("radiusClient", RAD_DB_UPDATE, 1, rowId), std::string()));
    EXPECT_EQ(0, deliver(notice("radiusClient", RAD_DB_INSERT, 1, rowId), std::string()));
    const RadDbUpdateInfo info = notice("radiusClient", RAD_DB_DELETE, 1, rowId);
    EXPECT_EQ(0, radiusMgmtDBUpdateHandler(&info, sizeof(info), nullptr, 17));
}

TEST_F(MgmtUpdate, TakesMissingOldValuesForNull) {
    addAuthServers(1);
    const int rowId = database.addServer("'a', '1812', 's1', '5', '3'");
    // The names alone, four of the five names, and all but the last value, which does not matter.
    const RadDbUpdateInfo info = notice("radiusClient", RAD_DB_UPDATE, 1, rowId);
    EXPECT_EQ(-1, deliver(info, laidOut({"authserver", "authport", "authsecret", "authtimeout",
                                         "authretries"})));
    EXPECT_EQ(-1, deliver(info, laidOut({"authserver", "authport", "authsecret", "authtimeout"})));
    EXPECT_THAT(hosts(), ElementsAre("h0", "", "", "", "", "", "", ""));
    EXPECT_EQ(0, deliver(info, laidOut({"authserver", "authport", "authsecret", "authtimeout",
                                        "authretries", "h0", "1000", "s3cr3t", "-1"})));
    EXPECT_THAT(hosts(), ElementsAre("a", "", "", "", "", "", "", ""));
}

TEST_F(MgmtUpdate, LooksAtNoMoreOldValuesThanTwiceTheColumns) {
    addAuthServers(1);
    const int rowId = database.addServer("'a', '1812', 's1', '5', '3'");
    EXPECT_EQ(-1, deliver(notice("radiusClient", RAD_DB_UPDATE, 1, rowId),
                          laidOut({"c1", "c2", "c3", "c4", "c5", "v1", "v2", "v3", "v4", "v5",
                                   "authserver", "h0"})));
    EXPECT_THAT(hosts(), ElementsAre("h0", "", "", "", "", "", "", ""));
}

}  // namespace
}  // namespace lanyard::test::update_test
