// What a change makes the service do: which notices, which file, which words.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <lanyard/radius/mgmt.h>

#include "tests/unit/tools/lanyardctl/service_fixture.h"

namespace lanyard::test {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

class ChangeService : public ServedDevice {
  protected:
    // From here on the relay is known to hold nothing.
    ChangeService() {
        EXPECT_TRUE(look());
        relay_.takeNotices();
    }
};

TEST_F(ChangeService, SendsOneNoticeForEachChange) {
    device_.change(insertion("a"));
    look();
    expectAllDone();
    device_.change("UPDATE radiusClient SET authsecret='other'");
    look();
    expectAllDone();
    device_.change("DELETE FROM radiusClient");
    look();
    expectAllDone();
    EXPECT_THAT(relay_.takeNotices(),
                ElementsAre(notice(RAD_DB_INSERT, 1),
                            notice(RAD_DB_UPDATE, 1, {"a", "1812", "secret", "10", "3"}),
                            notice(RAD_DB_DELETE, 1, {"a", "1812", "other", "10", "3"})));
}

TEST_F(ChangeService, TellsOfARenamedHostAsOfADeletedAndANewServer) {
    device_.change(insertion("a"));
    device_.change(insertion("b"));
    look();
    relay_.takeNotices();
    device_.change("UPDATE radiusClient SET authserver='c' WHERE authserver='b'");
    look();
    EXPECT_THAT(relay_.takeNotices(),
                ElementsAre(notice(RAD_DB_DELETE, 2, {"b", "1812", "secret", "10", "3"}),
                            notice(RAD_DB_INSERT, 2)));
    expectAllDone();
}

TEST_F(ChangeService, MakesOneNoticeOfSeveralChangesOfARow) {
    device_.change(insertion("a"));
    device_.change(insertion("b"));
    look();
    relay_.takeNotices();
    device_.change("UPDATE radiusClient SET authport='1645' WHERE authserver='a'");
    device_.change("UPDATE radiusClient SET authport='1646' WHERE authserver='a'");
    device_.change(insertion("c"));
    device_.change("DELETE FROM radiusClient WHERE authserver='c'");
    look();
    EXPECT_THAT(relay_.takeNotices(),
                ElementsAre(notice(RAD_DB_UPDATE, 1, {"a", "1812", "secret", "10", "3"})));
    expectAllDone();
}

TEST_F(ChangeService, SwapsTheHostsOfTwoRows) {
    device_.change(insertion("a"));
    device_.change(insertion("b"));
    look();
    device_.change(
        "UPDATE radiusClient SET authserver=CASE authserver WHEN 'a' THEN 'b' ELSE 'a' END");
    look();
    expectAllDone();
}

TEST_F(ChangeService, KeepsTheOrderOfTheTable) {
    for (const char *host : {"a", "b", "c"}) {
        device_.change(insertion(host));
    }
    look();
    device_.change("DELETE FROM radiusClient WHERE authserver='a'");
    look();
    relay_.takeNotices();
    // Row 4 alone would take the slot in front of rows 2 and 3.
    device_.change(insertion("d"));
    device_.change("UPDATE radiusClient SET authport='7' WHERE authserver='c'");
    look();
    EXPECT_THAT(relay_.takeNotices(),
                ElementsAre(notice(RAD_DB_UPDATE, 2, {"b", "1812", "secret", "10", "3"}),
                            notice(RAD_DB_UPDATE, 3, {"c", "1812", "secret", "10", "3"}),
                            notice(RAD_DB_INSERT, 4)));
    expectAllDone();
}

TEST_F(ChangeService, PutsARowBeforeOthersAfresh) {
    device_.change(
        "INSERT INTO radiusClient(rowid, authserver, authport, authsecret, authtimeout, "
        "authretries) VALUES(5, 'a', '1', 's', '2', '3')");
    look();
    device_.change(
        "INSERT INTO radiusClient(rowid, authserver, authport, authsecret, authtimeout, "
        "authretries) VALUES(2, 'b', '1', 's', '2', '3')");
    EXPECT_THAT(saidByLook(), HasSubstr("all of them afresh"));
    expectAllDone();
}

TEST_F(ChangeService, SeesWhatTheTriggersDoNot) {
    device_.change("CREATE UNIQUE INDEX hosts ON radiusClient(authserver)");
    device_.change(insertion("a"));
    device_.change(insertion("b"));
    device_.change("DELETE FROM radiusClient WHERE authserver='a'");
    look();
    device_.change("INSERT OR REPLACE INTO radiusClient VALUES('b','1','s','2','3')");
    look();
    expectAllDone();
    device_.change("VACUUM");
    look();
    expectAllDone();
}

TEST_F(ChangeService, StaysQuietWhereThereIsNothingToDo) {
    startService();
    EXPECT_TRUE(look());
    EXPECT_THAT(relay_.takeNotices(), IsEmpty()) << "the relay can hold nothing";
    device_.root().write("/var/radius.conf", "by hand\n");
    startService();
    look();
    look();
    EXPECT_EQ("by hand\n", device_.confFile());
}

TEST_F(ChangeService, LeavesOutRowsThatCannotBeUsedAndSaysSo) {
    device_.change(insertion("a"));
    look();
    const std::string before = device_.confFile();
    device_.change("INSERT INTO radiusClient(authserver) VALUES('b')");
    device_.change(insertion("c"));
    const std::string text = saidByLook();
    EXPECT_THAT(text, AllOf(HasSubstr("table: PROBLEM: row 2 is left out: secret: is empty\n"),
                            HasSubstr("file: PROBLEM: /var/radius.conf stays as it was: row 2: "
                                      "secret: is empty\n")));
    EXPECT_EQ("", saidByLook()) << "said once";
    EXPECT_THAT(device_.usable(), SizeIs(2));
    expectRelayHasTable();
    EXPECT_EQ(before, device_.confFile());
    EXPECT_NE(0, device_.db().number("SELECT count(*) FROM lanyardChange"));

    device_.change(
        "UPDATE radiusClient SET authport='1', authsecret='s', authtimeout='1', "
        "authretries='0' WHERE authserver='b'");
    EXPECT_THAT(saidByLook(),
                AllOf(HasSubstr("table: in order again"), HasSubstr("file: in order again")));
    expectAllDone();
}

TEST_F(ChangeService, TriesAgainToWriteTheFile) {
    device_.root().remove("/var");
    device_.change(insertion("a"));
    EXPECT_THAT(saidByLook(),
                HasSubstr("lanyardctl: file: PROBLEM: /var/radius.conf could not be written"));
    expectRelayHasTable();
    EXPECT_EQ(1, device_.db().number("SELECT count(*) FROM lanyardChange"));
    relay_.takeNotices();
    device_.root().makeFolder("/var");
    EXPECT_THAT(saidByLook(), HasSubstr("file: /var/radius.conf written: 1 server\n"));
    expectAllDone();
    EXPECT_THAT(relay_.takeNotices(), IsEmpty()) << "the relay has it already";
    EXPECT_EQ(0600U, device_.root().mode("/var/radius.conf"));
}

TEST_F(ChangeService, NinthServerIsLeftOutUntilThereIsRoom) {
    for (int i = 1; i < 10; ++i) {
        device_.change(insertion("h" + std::to_string(i)));
    }
    EXPECT_THAT(saidByLook(), HasSubstr("row 9 is left out: there are eight servers already"));
    expectRelayHasTable();
    EXPECT_EQ("", device_.confFile());
    device_.change("DELETE FROM radiusClient WHERE authserver='h3'");
    look();
    EXPECT_THAT(device_.usable(), SizeIs(8));
    expectAllDone();
}

TEST_F(ChangeService, SaysWhenTheRelayRefuses) {
    radiusMgmtDeInit();  // a relay without a database
    device_.change(insertion("a"));
    EXPECT_THAT(saidByLook(),
                HasSubstr("relay: PROBLEM: it refuses change notices or stopped answering; does it "
                          "read the database " +
                          device_.file()));
    EXPECT_EQ(device_.expectedFile(), device_.confFile());
    EXPECT_EQ(1, device_.db().number("SELECT count(*) FROM lanyardChange"));
    relay_.restart();
    EXPECT_THAT(saidByLook(), HasSubstr("relay: in order again"));
    expectAllDone();
}

TEST_F(ChangeService, SaysWhenTheDatabaseFails) {
    device_.change("DROP TRIGGER lanyardUpdated");
    EXPECT_THAT(saidByLook(), HasSubstr("does not record changes of radiusClient"));
    lanyardctl::prepareDatabase(device_.db(), std::nullopt);
    EXPECT_THAT(saidByLook(), HasSubstr("database: in order again"));
}

TEST_F(ChangeService, WritesTheFileThatTheLibraryReads) {
    device_.change(insertion("a", "s3cret", 1645));
    device_.change(insertion("192.0.2.7"));
    look();
    service_.reset();
    ASSERT_EQ(0, radConfigure("/var/radius.conf"));
    auto expected = device_.usable();
    for (auto &server : expected) {
        server.id = -1;
    }
    EXPECT_EQ(expected, LibraryRelay::held());
}

}  // namespace
}  // namespace lanyard::test
