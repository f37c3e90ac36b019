// Somebody writes while a notice is under way: the relay reads the row when it handles the notice.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/inotify.h>

#include <lanyard/radius/mgmt.h>

#include "tests/support/failing_call.h"
#include "tests/unit/tools/lanyardctl/service_fixture.h"
#include "tools/lanyardctl/bus.h"

namespace lanyard::test::under_way_test {
namespace {

using lanyardctl::Service;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

const auto portOfA = [](int port) {
    return "UPDATE radiusClient SET authport='" + std::to_string(port) + "' WHERE authserver='a'";
};

class UnderWay : public ServedDevice {
  protected:
    // A relay that holds a and b.
    UnderWay() {
        settle();
        for (const char *host : {"a", "b"}) {
            device_.change(insertion(host));
        }
        look();
        ends_ = relay_.ends();
        relay_.takeNotices();
    }

    // A change of which the relay gets the notice with the next look.
    void changeWhileBusy(const std::string &sql) {
        relay_.setBusy(true);
        device_.change(sql);
        look();
        relay_.setBusy(false);
    }

    // Once, while a notice is under way.
    std::function<void()> once(const std::string &sql) {
        return [this, sql, done = false]() mutable {
            if (!std::exchange(done, true)) {
                device_.change(sql);
            }
        };
    }

    void expectAllDoneAfter(int ends) {
        settle();
        expectAllDone();
        EXPECT_EQ(ends_ + ends, relay_.ends());
    }

    int ends_ = 0;
};

TEST_F(UnderWay, OtherFieldsChange_RelayIsUpdatedAgain) {
    relay_.beforeReading = once(portOfA(8));
    changeWhileBusy(portOfA(7));
    look();
    expectRelayHasTable();
    relay_.afterReading = once(portOfA(10));
    changeWhileBusy(portOfA(9));
    look();
    expectRelayHasTable();
    EXPECT_THAT(relay_.takeNotices(), SizeIs(4)) << "each change again";
    expectAllDoneAfter(0);
}

TEST_F(UnderWay, OtherRowsChange_RelayIsNotRestarted) {
    relay_.beforeReading = once(insertion("d"));
    relay_.afterReading = once(insertion("e"));
    changeWhileBusy(insertion("c"));
    look();
    expectRelayHasTable();
    expectAllDoneAfter(0);
}

TEST_F(UnderWay, InsertedRowIsDeleted_NothingIsWrong) {
    relay_.beforeReading = once("DELETE FROM radiusClient WHERE authserver='c'");
    changeWhileBusy(insertion("c"));
    EXPECT_THAT(saidByLook(), Not(HasSubstr("PROBLEM")));
    expectAllDoneAfter(0);
    relay_.afterReading = once("DELETE FROM radiusClient WHERE authserver='d'");
    changeWhileBusy(insertion("d"));
    expectAllDoneAfter(1);
}

TEST_F(UnderWay, DeletedRowIsInserted_IsInserted) {
    relay_.beforeReading = once(insertion("c"));
    changeWhileBusy("DELETE FROM radiusClient WHERE authserver='b'");
    expectAllDoneAfter(0);
}

TEST_F(UnderWay, HostChanges_RelayIsRestarted) {
    const std::string rename = "UPDATE radiusClient SET authserver='x' WHERE authserver='a'";
    relay_.beforeReading = once(rename);
    changeWhileBusy(portOfA(7));
    expectAllDoneAfter(1);
    relay_.beforeReading = {};
    device_.change("UPDATE radiusClient SET authserver='a' WHERE authserver='x'");
    settle();
    relay_.afterReading = once(rename);
    changeWhileBusy(portOfA(8));
    expectAllDoneAfter(2);
}

// It is a row of another server, with the same number.
TEST_F(UnderWay, RowIsReplaced_RelayIsRestarted) {
    relay_.beforeReading = once("UPDATE radiusClient SET authserver='b2' WHERE authserver='b'");
    changeWhileBusy("UPDATE radiusClient SET authport='7' WHERE authserver='b'");
    expectAllDoneAfter(1);
}

TEST_F(UnderWay, BusyRelay_GetsWhatTheTableHasInTheEnd) {
    relay_.setBusy(true);
    for (const int port : {7, 8, 9}) {
        device_.change(portOfA(port));
        settle();
        EXPECT_EQ(device_.expectedFile(), device_.confFile());
    }
    EXPECT_EQ(Service::State::waiting, service_->state());
    EXPECT_THAT(relay_.takeNotices(), IsEmpty());
    relay_.setBusy(false);
    look();
    EXPECT_THAT(
        relay_.takeNotices(),
        ElementsAre(notice(RAD_DB_UPDATE, 1, {"a", "1812", "secret", "10", "3"}), testing::_));
    expectAllDoneAfter(0);
}

TEST_F(UnderWay, BusyRelayAndAHostThatComesBack_RelayIsRestarted) {
    relay_.setBusy(true);
    device_.change(portOfA(7));
    look();
    device_.change("UPDATE radiusClient SET authserver='x' WHERE authserver='a'");
    look();
    device_.change("UPDATE radiusClient SET authserver='a' WHERE authserver='x'");
    look();
    relay_.setBusy(false);
    expectAllDoneAfter(1);
}

TEST_F(UnderWay, BusyRelayThatEnds_NextOneGetsNothingOfIt) {
    relay_.setBusy(true);
    device_.change("DELETE FROM radiusClient WHERE authserver='a'");
    look();
    relay_.restart();
    relay_.setBusy(false);
    look();
    EXPECT_THAT(relay_.takeNotices(), ElementsAre(notice(RAD_DB_INSERT, 2)));
    expectAllDoneAfter(0);
}

TEST_F(UnderWay, BusyRelayOnce_IsToldOnce) {
    relay_.setBusy(true);
    device_.change(portOfA(7));
    said_.str("");
    settle();
    settle();
    EXPECT_EQ(
        "file: /var/radius.conf written: 2 servers\n"
        "relay: does not listen; it gets what it lacks once it does\n",
        said_.str());
    relay_.setBusy(false);
    EXPECT_EQ("relay: has 2 servers: 1 notice\n", saidByLook());
}

TEST(FolderWatch, SystemWithoutOneToGive_WaitsAllTheSame) {
    const TemporaryRoot root;
    const FailingCall failure("inotify_init1", EMFILE);
    const lanyardctl::FolderWatch watch(root.path("/config.db"));
    EXPECT_TRUE(failure.happened());
    EXPECT_EQ(-1, watch.descriptor());
    EXPECT_FALSE(watch.drain());
}

TEST(FolderWatch, FileMade_Readable) {
    const TemporaryRoot root;
    const lanyardctl::FolderWatch watch(root.path("/config.db"));
    EXPECT_FALSE(watch.drain());
    root.write("/config.db", "");
    EXPECT_TRUE(watch.drain());
    EXPECT_FALSE(watch.drain());
}

}  // namespace
}  // namespace lanyard::test::under_way_test

using lanyard::test::following;
using lanyard::test::strikes;

int inotify_init1(int flags) noexcept {
    static auto *const real = following<decltype(inotify_init1)>("inotify_init1");
    return strikes("inotify_init1") ? -1 : real(flags);
}
