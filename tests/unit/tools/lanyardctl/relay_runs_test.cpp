// Runs of the relay and of the service begin and end: which run of the relay gets which notices, and
// which is told to end.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <lanyard/radius/mgmt.h>

#include "tests/unit/tools/lanyardctl/service_fixture.h"

namespace lanyard::test::relay_runs_test {
namespace {

using lanyardctl::Service;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using Fault = LibraryRelay::Fault;

class RelayRuns : public ServedDevice {
  protected:
    // From here on a relay holds a table of three, and the service knows. It has met no other.
    RelayRuns() {
        relay_.stop();
        startService();
        for (const char *host : {"a", "b", "c"}) {
            device_.change(insertion(host));
        }
        look();
        relay_.start();
        look();
        firstNotices_ = relay_.takeNotices();
    }

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
    EXPECT_EQ("relay: has 3 servers: 3 notices\n", saidByLook());
    EXPECT_EQ(inserts_, relay_.takeNotices());
    expectAllDone();
    EXPECT_EQ(0, relay_.ends());
}

TEST_F(RelayRuns, NewRelayGetsTheFileToo) {
    device_.root().remove("/var/radius.conf");
    relay_.restart();
    look();
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

TEST_F(RelayRuns, ChangeWithoutARelayGoesToTheFileAndToTheNextOne) {
    relay_.stop();
    device_.change("DELETE FROM radiusClient WHERE authserver='b'");
    EXPECT_THAT(saidByLook(), HasSubstr("relay: none answers on the bus"));
    EXPECT_EQ(device_.expectedFile(), device_.confFile());
    relay_.start();
    look();
    EXPECT_THAT(relay_.takeNotices(),
                ElementsAre(notice(RAD_DB_INSERT, 1), notice(RAD_DB_INSERT, 3)));
    expectAllDone();
}

TEST_F(RelayRuns, BusyRelayGetsWhatChangedOnceItListens) {
    relay_.setBusy(true);
    device_.change(update_);
    settle();
    EXPECT_EQ(device_.expectedFile(), device_.confFile());
    EXPECT_THAT(relay_.takeNotices(), IsEmpty());
    relay_.setBusy(false);
    look();
    expectUpdateAlone();
    EXPECT_EQ(0, relay_.ends());
}

TEST_F(RelayRuns, NewServiceHasARelayThatRunsRestarted) {
    startService();
    EXPECT_EQ(
        "relay: told to end, for it is not known what it holds; it gets all servers once it is "
        "started again\n",
        saidByLook());
    EXPECT_EQ(Service::State::restarting, service_->state());
    EXPECT_THAT(relay_.takeNotices(), IsEmpty());
    look();
    EXPECT_EQ(inserts_, relay_.takeNotices());
    EXPECT_EQ(1, relay_.ends());
    expectAllDone();
}

TEST_F(RelayRuns, RelayThatNobodyStartsAgainIsWaitedFor) {
    relay_.setSupervised(false);
    startService();
    settle();
    EXPECT_EQ(Service::State::restarting, service_->state());
    relay_.start();
    look();
    EXPECT_EQ(inserts_, relay_.takeNotices());
    EXPECT_EQ(1, relay_.ends());
    expectAllDone();
}

TEST_F(RelayRuns, NewServiceLeavesANewRelayAlone) {
    relay_.stop();
    startService();
    look();
    relay_.start();
    device_.change(update_);
    look();
    EXPECT_EQ(inserts_, relay_.takeNotices());
    EXPECT_EQ(0, relay_.ends());
    expectAllDone();
}

TEST_F(RelayRuns, UnansweredNoticeHasTheRelayRestarted) {
    int ends = 0;
    for (const Fault fault : {Fault::lost, Fault::unanswered}) {
        relay_.failAt(fault, 0);
        device_.change("UPDATE radiusClient SET authsecret=authsecret || 'x'");
        look();
        EXPECT_THAT(relay_.takeNotices(), SizeIs(1)) << "and no other one";
        settle();
        EXPECT_EQ(inserts_, relay_.takeNotices());
        EXPECT_EQ(++ends, relay_.ends());
        expectAllDone();
    }
}

TEST_F(RelayRuns, RefusedInsertIsTriedAgain) {
    device_.change(insertion("d"));
    relay_.failAt(Fault::refused, 0);
    EXPECT_THAT(saidByLook(), HasSubstr("relay: PROBLEM: it refuses change notices"));
    EXPECT_THAT(saidByLook(), HasSubstr("relay: in order again"));
    EXPECT_THAT(relay_.takeNotices(),
                ElementsAre(notice(RAD_DB_INSERT, 4), notice(RAD_DB_INSERT, 4)));
    EXPECT_EQ(0, relay_.ends());
    expectAllDone();
}

TEST_F(RelayRuns, RefusedUpdateHasTheRelayRestarted) {
    device_.change(update_);
    relay_.failAt(Fault::refused, 0);
    settle();
    EXPECT_EQ(1, relay_.ends());
    expectAllDone();
}

TEST_F(RelayRuns, NewRelayGetsNothingThatWasMeantForTheOneBefore) {
    device_.change("UPDATE radiusClient SET authport='7'");
    relay_.failAt(Fault::restarted, 0);
    look();
    EXPECT_THAT(relay_.takeNotices(), SizeIs(1));
    EXPECT_THAT(LibraryRelay::held(), IsEmpty());
    settle();
    expectAllDone();
}

// It starts between the question which run it is and the notice.
TEST_F(RelayRuns, NewRelayThatGotWhatWasMeantForTheOneBeforeIsRestarted) {
    device_.change(insertion("d"));
    relay_.failAt(Fault::restartedBefore, 0);
    look();
    EXPECT_THAT(LibraryRelay::held(), SizeIs(1)) << "a row of four";
    settle();
    EXPECT_EQ(1, relay_.ends());
    EXPECT_THAT(LibraryRelay::held(), SizeIs(4));
    expectAllDone();
}

TEST_F(RelayRuns, ReplayHasTheRelayRestartedUnlessItIsNew) {
    service_->replay();
    look();
    EXPECT_EQ(Service::State::restarting, service_->state());
    look();
    EXPECT_EQ(Service::State::upToDate, service_->state());
    EXPECT_EQ(inserts_, relay_.takeNotices());
    EXPECT_EQ(1, relay_.ends());
    expectAllDone();

    relay_.restart();
    relay_.setBusy(true);
    look();
    relay_.setBusy(false);
    service_->replay();
    look();
    EXPECT_EQ(Service::State::upToDate, service_->state());
    EXPECT_EQ(1, relay_.ends());
    expectAllDone();

    relay_.stop();
    service_->replay();
    look();
    EXPECT_EQ(Service::State::none, service_->state());
    relay_.start();
}

TEST_F(RelayRuns, ReplayPutsRightWhatTheServiceDoesNotKnowOf) {
    // Somebody else's notice, which nobody may send.
    radConfDelAuthServer("b");
    look();
    EXPECT_THAT(LibraryRelay::held(), SizeIs(2));
    service_->replay();
    settle();
    expectAllDone();
}

}  // namespace
}  // namespace lanyard::test::relay_runs_test
