// Runs of the relay and of the service begin and end: which run of the relay gets which notices.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <lanyard/radius/mgmt.h>

#include "tests/unit/tools/lanyardctl/service_fixture.h"

namespace lanyard::test {
namespace {

using lanyardctl::Service;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

class RelayRuns : public ServedDevice {
  protected:
    // From here on the relay holds a table of three, and the service knows.
    RelayRuns() {
        for (const char *host : {"a", "b", "c"}) {
            device_.change(insertion(host));
        }
        EXPECT_TRUE(look());
        firstNotices_ = relay_.takeNotices();
    }

    // Which is more than any number of changes here takes.
    void expectAfresh() { EXPECT_THAT(relay_.takeNotices(), SizeIs(testing::Ge(20U))); }

    void expectUpdateAlone() {
        EXPECT_THAT(relay_.takeNotices(),
                    ElementsAre(notice(RAD_DB_UPDATE, 2, {"b", "1812", "secret", "10", "3"})));
        expectAllDone();
    }

    const std::vector<LibraryRelay::Notice> inserts_ = {
        notice(RAD_DB_INSERT, 1), notice(RAD_DB_INSERT, 2), notice(RAD_DB_INSERT, 3)};
    const std::string update_ = "UPDATE radiusClient SET authport='7' WHERE authserver='b'";
    std::vector<LibraryRelay::Notice> firstNotices_;
};

TEST_F(RelayRuns, NewRelayGetsAnInsertForEachRow) {
    EXPECT_EQ(inserts_, firstNotices_);
    expectAllDone();
    relay_.restart();
    EXPECT_THAT(LibraryRelay::held(), IsEmpty());
    EXPECT_THAT(saidByLook(), HasSubstr("relay: has 3 servers: 3 notices\n"));
    EXPECT_EQ(inserts_, relay_.takeNotices());
    expectAllDone();
}

TEST_F(RelayRuns, NewRelayAfterAChangeGetsTheTableAndNoUpdate) {
    relay_.restart();
    device_.change(update_);
    device_.change("DELETE FROM radiusClient WHERE authserver='a'");
    look();
    EXPECT_THAT(relay_.takeNotices(),
                ElementsAre(notice(RAD_DB_INSERT, 2), notice(RAD_DB_INSERT, 3)));
    expectAllDone();
}

TEST_F(RelayRuns, NewRelayIsServedAtOnce) {
    relay_.restart();
    service_->look(now_);
    EXPECT_EQ(inserts_, relay_.takeNotices());
    expectAllDone();
}

TEST_F(RelayRuns, RelayThatWentAwayIsNoReasonToKeepAChange) {
    relay_.stop();
    device_.change("DELETE FROM radiusClient WHERE authserver='b'");
    EXPECT_THAT(saidByLook(), HasSubstr("relay: none answers on the bus"));
    EXPECT_EQ(0, device_.db().number("SELECT count(*) FROM lanyardChange"));
    EXPECT_EQ(device_.expectedFile(), device_.confFile());
    relay_.start();
    look();
    EXPECT_THAT(relay_.takeNotices(),
                ElementsAre(notice(RAD_DB_INSERT, 1), notice(RAD_DB_INSERT, 3)));
    expectAllDone();
}

TEST_F(RelayRuns, BusyRelayGetsWhatChangedOnceItAnswers) {
    relay_.setBusy(true);
    device_.change(update_);
    look();
    startService();
    look();
    relay_.setBusy(false);
    look();
    expectUpdateAlone();
}

TEST_F(RelayRuns, NewServiceGoesOnWhereTheOneBeforeWas) {
    startService();
    look();
    EXPECT_THAT(relay_.takeNotices(), IsEmpty());
    device_.change(update_);
    look();
    expectUpdateAlone();
}

TEST_F(RelayRuns, NewServiceDeliversWhatChangedMeanwhile) {
    device_.change(update_);
    startService();
    look();
    expectUpdateAlone();
}

TEST_F(RelayRuns, NewServiceAndNewRelayStartWithInserts) {
    relay_.restart();
    startService();
    look();
    EXPECT_EQ(inserts_, relay_.takeNotices());
    expectAllDone();
}

// Nothing but the service writes it, but then anybody can.
TEST_F(RelayRuns, RecordThatCannotBeIsNotReliedOn) {
    for (const char *slot : {"8", "-1"}) {
        device_.change(std::string("INSERT INTO lanyardSlot(slot, row, host) VALUES(") + slot +
                       ", 1, 'a')");
        startService();
        look();
        expectAfresh();
        expectAllDone();
    }
}

// Killed while the n-th of three notices is on its way.
class KilledRuns : public RelayRuns,
                   public testing::WithParamInterface<std::tuple<LibraryRelay::Fault, int>> {
  protected:
    KilledRuns() { relay_.failAt(std::get<0>(GetParam()), std::get<1>(GetParam())); }
};

TEST_P(KilledRuns, NewServiceGoesAfresh) {
    device_.change("UPDATE radiusClient SET authport='7'");
    EXPECT_FALSE(look());
    relay_.takeNotices();
    startService();
    EXPECT_THAT(saidByLook(), HasSubstr("relay: has 3 servers, all of them afresh: "));
    expectAfresh();
    expectAllDone();
}

TEST_P(KilledRuns, NewServiceEmptiesTheRelay) {
    device_.change("UPDATE radiusClient SET authport='7'");
    EXPECT_FALSE(look());
    device_.change("DELETE FROM radiusClient");
    startService();
    look();
    expectAllDone();
    EXPECT_FALSE(device_.root().exists("/var/radius.conf"));
}

TEST_P(KilledRuns, NewRelayIsSparedThat) {
    device_.change("UPDATE radiusClient SET authport='7'");
    EXPECT_FALSE(look());
    relay_.takeNotices();
    relay_.restart();
    startService();
    look();
    EXPECT_EQ(inserts_, relay_.takeNotices());
    expectAllDone();
}

TEST_P(KilledRuns, NewServiceGoesAfreshForARelayThatWasNew) {
    relay_.restart();
    EXPECT_FALSE(look());
    relay_.takeNotices();
    startService();
    look();
    expectAfresh();
    expectAllDone();
}

INSTANTIATE_TEST_SUITE_P(Moments, KilledRuns,
                         testing::Combine(testing::Values(LibraryRelay::Fault::killBefore,
                                                          LibraryRelay::Fault::killAfter),
                                          testing::Range(0, 3)));

TEST_F(RelayRuns, UnansweredNoticeMakesItGoAfresh) {
    for (const auto fault : {LibraryRelay::Fault::lost, LibraryRelay::Fault::unanswered}) {
        relay_.failAt(fault, 0);
        device_.change(update_);
        EXPECT_THAT(saidByLook(), HasSubstr("relay: PROBLEM: "));
        relay_.takeNotices();
        look();
        expectAfresh();
        expectAllDone();
    }
}

TEST_F(RelayRuns, NewRelayGetsNothingThatWasMeantForTheOneBefore) {
    device_.change("UPDATE radiusClient SET authport='7'");
    relay_.takeNotices();
    relay_.failAt(LibraryRelay::Fault::restarted, 0);
    look();
    EXPECT_THAT(relay_.takeNotices(), SizeIs(1));
    EXPECT_THAT(LibraryRelay::held(), IsEmpty());
    look();
    EXPECT_EQ(inserts_, relay_.takeNotices());
    expectAllDone();
}

TEST_F(RelayRuns, ReplayGivesANewRelayInsertsAndAnyOtherEverythingAfresh) {
    relay_.restart();
    EXPECT_EQ(Service::RelayState::upToDate, service_->replay());
    EXPECT_EQ(inserts_, relay_.takeNotices());
    expectAllDone();
    EXPECT_EQ(Service::RelayState::upToDate, service_->replay());
    expectAfresh();
    expectAllDone();
    look();
    EXPECT_THAT(relay_.takeNotices(), IsEmpty()) << "what the replay did is known";
    relay_.stop();
    EXPECT_EQ(Service::RelayState::none, service_->replay());
    relay_.start();
    EXPECT_EQ(0, device_.db().number("SELECT count(*) FROM lanyardChange"));
}

TEST_F(RelayRuns, ReplayPutsRightWhatTheServiceDoesNotKnowOf) {
    // Somebody else's notice, which nobody may send.
    radConfDelAuthServer("b");
    look();
    EXPECT_THAT(LibraryRelay::held(), SizeIs(2));
    EXPECT_EQ(Service::RelayState::upToDate, service_->replay());
    expectAllDone();
}

TEST_F(RelayRuns, AnswersRequestsForAReplay) {
    const int64_t done = lanyardctl::askForReplay(device_.db());
    look();
    EXPECT_EQ(std::nullopt, lanyardctl::replayState(device_.db(), done));
    expectAfresh();
    relay_.restart();
    const int64_t doneToo = lanyardctl::askForReplay(device_.db());
    look();
    EXPECT_EQ(std::nullopt, lanyardctl::replayState(device_.db(), doneToo));
    EXPECT_EQ(inserts_, relay_.takeNotices());
    relay_.stop();
    const int64_t nobody = lanyardctl::askForReplay(device_.db());
    look();
    EXPECT_EQ(lanyardctl::kReplayNoRelay, lanyardctl::replayState(device_.db(), nobody));
    relay_.start();
    relay_.failAt(LibraryRelay::Fault::lost, 1);
    const int64_t refused = lanyardctl::askForReplay(device_.db());
    look();
    EXPECT_EQ(lanyardctl::kReplayFailed, lanyardctl::replayState(device_.db(), refused));
    startService();
    EXPECT_EQ(std::nullopt, lanyardctl::replayState(device_.db(), refused))
        << "an answer that nobody took";
}

}  // namespace
}  // namespace lanyard::test
