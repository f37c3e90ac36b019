// What a change makes the service do: which notices, which file, which words.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <lanyard/radius/mgmt.h>

#include "tests/unit/lanyardctl/service_fixture.h"

namespace lanyard::test {
namespace {

using lanyardctl::Service;
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
        EXPECT_TRUE(look());
        relay_.takeNotices();
    }

    static LibraryRelay::Notice notice(int operation, int row,
                                       const std::vector<std::string> &old = {}) {
        return {operation, row,
                old.empty() ? ""
                            : lanyardctl::layOut({"authserver", "authport", "authsecret",
                                                  "authtimeout", "authretries"},
                                                 old)};
    }

    // What the service says during its next look.
    std::string saidByLook() {
        said_.str("");
        EXPECT_TRUE(look());
        return said_.str();
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
    // Row 4 alone would take the slot in front of rows 2 and 3.
    device_.change(insertion("d"));
    look();
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

TEST_F(ChangeService, GivesARelayThatStartedAgainEverything) {
    for (const char *host : {"a", "b", "c"}) {
        device_.change(insertion(host));
    }
    look();
    relay_.restart();
    EXPECT_THAT(LibraryRelay::held(), IsEmpty());
    look();
    expectAllDone();
    relay_.stop();
    look();
    device_.change("DELETE FROM radiusClient WHERE authserver='b'");
    EXPECT_THAT(saidByLook(), HasSubstr("relay: none answers on the bus"));
    EXPECT_EQ(0, device_.db().number("SELECT count(*) FROM lanyardChange"))
        << "no relay is no reason to keep a change";
    EXPECT_EQ(device_.expectedFile(), device_.confFile());
    relay_.start();
    look();
    expectAllDone();
}

TEST_F(ChangeService, ReplayEndsWithTheTableWhateverTheRelayHas) {
    for (const char *host : {"a", "b", "c"}) {
        device_.change(insertion(host));
    }
    look();
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(Service::RelayState::upToDate, service_->replay());
        expectAllDone();
    }
    relay_.restart();
    EXPECT_EQ(Service::RelayState::upToDate, service_->replay());
    expectAllDone();
    relay_.stop();
    EXPECT_EQ(Service::RelayState::none, service_->replay());
    relay_.start();
}

TEST_F(ChangeService, AnswersRequestsForAReplay) {
    device_.change(insertion("a"));
    look();
    relay_.takeNotices();
    const int64_t done = lanyardctl::askForReplay(device_.db());
    look();
    EXPECT_EQ(std::nullopt, lanyardctl::replayState(device_.db(), done));
    EXPECT_THAT(relay_.takeNotices(), Not(IsEmpty()));
    relay_.stop();
    const int64_t nobody = lanyardctl::askForReplay(device_.db());
    look();
    EXPECT_EQ(lanyardctl::kReplayNoRelay, lanyardctl::replayState(device_.db(), nobody));
    relay_.start();
    relay_.failAt(LibraryRelay::Fault::lost, 12);
    const int64_t refused = lanyardctl::askForReplay(device_.db());
    look();
    EXPECT_EQ(lanyardctl::kReplayFailed, lanyardctl::replayState(device_.db(), refused));
    startService();
    EXPECT_EQ(std::nullopt, lanyardctl::replayState(device_.db(), refused))
        << "an answer that nobody took";
}

TEST_F(ChangeService, EmptiesARelayOfWhichItKnowsNothing) {
    for (const char *host : {"a", "b", "c"}) {
        device_.change(insertion(host));
    }
    look();
    startService();
    device_.change("DELETE FROM radiusClient");
    look();
    expectAllDone();
    EXPECT_FALSE(device_.root().exists("/var/radius.conf"));
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
