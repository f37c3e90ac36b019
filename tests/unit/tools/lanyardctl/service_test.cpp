// What a change makes the service do: which notices, which file, which words.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <lanyard/radius/mgmt.h>

#include "tests/unit/tools/lanyardctl/service_fixture.h"

namespace lanyard::test::service_test {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

class ChangeService : public ServedDevice {
  protected:
    // From here on the relay is known to hold nothing.
    ChangeService() {
        settle();
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

TEST_F(ChangeService, DeletesFromTheEndAndInsertsAgainFromTheFirstOtherRow) {
    for (const char *host : {"a", "b", "c", "d"}) {
        device_.change(insertion(host));
    }
    look();
    relay_.takeNotices();
    device_.change("UPDATE radiusClient SET authport='7' WHERE authserver IN ('a', 'd')");
    device_.change("DELETE FROM radiusClient WHERE authserver='b'");
    EXPECT_EQ("file: /var/radius.conf written: 3 servers\nrelay: has 3 servers: 6 notices\n",
              saidByLook());
    EXPECT_THAT(relay_.takeNotices(),
                ElementsAre(notice(RAD_DB_UPDATE, 1, {"a", "1812", "secret", "10", "3"}),
                            notice(RAD_DB_DELETE, 4, {"d", "1812", "secret", "10", "3"}),
                            notice(RAD_DB_DELETE, 3, {"c", "1812", "secret", "10", "3"}),
                            notice(RAD_DB_DELETE, 2, {"b", "1812", "secret", "10", "3"}),
                            notice(RAD_DB_INSERT, 3), notice(RAD_DB_INSERT, 4)));
    expectAllDone();
}

TEST_F(ChangeService, PutsARowBeforeOthers) {
    device_.change(
        "INSERT INTO radiusClient(rowid, authserver, authport, authsecret, authtimeout, "
        "authretries) VALUES(5, 'a', '1', 's', '2', '3')");
    look();
    device_.change(
        "INSERT INTO radiusClient(rowid, authserver, authport, authsecret, authtimeout, "
        "authretries) VALUES(2, 'b', '1', 's', '2', '3')");
    look();
    expectAllDone();
}

TEST_F(ChangeService, TellsOfColumnsThatItDoesNotKnow) {
    device_.change(insertion("a"));
    look();
    device_.change("ALTER TABLE radiusClient ADD COLUMN note TEXT DEFAULT 'n'");
    device_.change("UPDATE radiusClient SET authport='7'");
    relay_.takeNotices();
    look();
    const auto notices = relay_.takeNotices();
    ASSERT_THAT(notices, SizeIs(1));
    const std::string last = "authretries";
    EXPECT_THAT(notices[0].oldValues, HasSubstr(last + '\0' + "note" + '\0' + "a" + '\0'));
    expectAllDone();
}

TEST_F(ChangeService, SeesChangesOfEveryKind) {
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
    device_.change(insertion("a"));
    look();
    relay_.takeNotices();
    EXPECT_EQ("", saidByLook());
    device_.change("UPDATE environment SET value=value");
    EXPECT_EQ("", saidByLook());
    EXPECT_THAT(relay_.takeNotices(), IsEmpty());
}

TEST_F(ChangeService, MakesTheFileWhenItStarts) {
    device_.change(insertion("a"));
    look();
    const std::string whole = device_.confFile();
    for (const char *text : {"by hand\n", ""}) {
        device_.root().write("/var/radius.conf", text, 0600);
        startService();
        look();
        EXPECT_EQ(whole, device_.confFile());
    }
    device_.root().remove("/var/radius.conf");
    startService();
    EXPECT_THAT(saidByLook(), HasSubstr("file: /var/radius.conf written: 1 server\n"));
    EXPECT_EQ(whole, device_.confFile());

    startService();
    EXPECT_THAT(saidByLook(), Not(HasSubstr("file:"))) << "as it has to be";
    device_.root().write("/var/radius.conf", whole, 0644);
    startService();
    look();
    EXPECT_EQ(0600U, device_.root().mode("/var/radius.conf"));
    EXPECT_EQ(whole, device_.confFile());

    device_.change("DELETE FROM radiusClient");
    startService();
    EXPECT_THAT(saidByLook(), HasSubstr("file: /var/radius.conf removed: no servers\n"));
    EXPECT_FALSE(device_.root().exists("/var/radius.conf"));
}

TEST_F(ChangeService, LeavesAFileOfSomebodyElseWhereTheTableIsEmpty) {
    const std::string other = "authserver        192.0.2.1:secret\n";
    device_.root().write("/var/radius.conf", other);
    startService();
    look();
    EXPECT_EQ(other, device_.confFile());
    device_.change(insertion("a"));
    look();
    expectAllDone();
}

TEST_F(ChangeService, LooksAgainWhenItIsTold) {
    device_.change(insertion("a"));
    look();
    device_.root().remove("/var/radius.conf");
    look();
    EXPECT_EQ("", device_.confFile());
    service_->lookAgain();
    look();
    expectAllDone();
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
    relay_.restart();
    EXPECT_THAT(saidByLook(), HasSubstr("relay: in order again"));
    expectAllDone();
}

TEST_F(ChangeService, SaysWhenTheDatabaseFails) {
    device_.change("ALTER TABLE radiusClient RENAME TO elsewhere");
    EXPECT_THAT(saidByLook(),
                HasSubstr("database: PROBLEM: database: no such table: radiusClient"));
    device_.change("ALTER TABLE elsewhere RENAME TO radiusClient");
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
}  // namespace lanyard::test::service_test
