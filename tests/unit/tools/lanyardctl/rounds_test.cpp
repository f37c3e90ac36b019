// Whatever is changed and whoever dies meanwhile: at the end the relay holds the table's servers, in
// the table's order, each under its row's identity, with a count that is right; and the file has them.
#include <array>
#include <gtest/gtest.h>
#include <iostream>
#include <random>

#include "tests/unit/tools/lanyardctl/service_fixture.h"

namespace lanyard::test::rounds_test {
namespace {

class Rounds : public ServedDevice, public testing::WithParamInterface<unsigned> {
  protected:
    // Nothing is learned by waiting for the disk.
    Rounds() { device_.db().run("PRAGMA synchronous=OFF"); }

    int pick(int count) { return std::uniform_int_distribution<int>(0, count - 1)(random_); }

    std::string host() { return "h" + std::to_string(pick(10)); }
    std::string row() { return std::to_string(1 + pick(10)); }

    // A change that some program makes; those that a rule forbids fail.
    void changeSomething() {
        switch (pick(12)) {
            case 0:
            case 1:
            case 2:
                device_.tryChange(insertion(host(), "s" + std::to_string(pick(100))));
                break;
            case 3:
            case 4:
                device_.tryChange("UPDATE radiusClient SET authsecret='t" +
                                  std::to_string(pick(100)) + "' WHERE rowid=" + row());
                break;
            case 5:
                device_.tryChange("UPDATE radiusClient SET authserver='" + host() +
                                  "' WHERE rowid=" + row());
                break;
            case 6:
                device_.tryChange("UPDATE radiusClient SET rowid=" + row() +
                                  " WHERE rowid=" + row());
                break;
            case 7:
                device_.tryChange("DELETE FROM radiusClient WHERE rowid>=" + row());
                break;
            case 8:
                device_.tryChange(
                    "INSERT OR REPLACE INTO radiusClient(rowid, authserver, authport, authsecret, "
                    "authtimeout, authretries) VALUES(" +
                    row() + ", '" + host() + "', '1', 's', '2', '3')");
                break;
            case 9:
                device_.tryChange(
                    "UPDATE radiusClient SET authserver=(SELECT authserver FROM radiusClient AS o "
                    "WHERE o.rowid<>radiusClient.rowid ORDER BY rowid LIMIT 1) WHERE "
                    "(SELECT count(*) FROM radiusClient)=2");
                break;
            case 10:
                device_.tryChange("INSERT INTO radiusClient(authserver) VALUES('" + host() + "')");
                break;
            default:
                device_.tryChange("DELETE FROM radiusClient WHERE rowid=" + row());
                break;
        }
    }

    void changeSomeThings() {
        device_.change("BEGIN");
        for (int i = pick(4); i >= 0; --i) {
            changeSomething();
        }
        device_.change("COMMIT");
    }

    void meetSomething() {
        using Fault = LibraryRelay::Fault;
        constexpr std::array kFaults = {Fault::lost, Fault::unanswered, Fault::refused,
                                        Fault::restarted, Fault::restartedBefore};
        switch (pick(8)) {
            case 0:
                relay_.restart();
                break;
            case 1:
                startService();
                break;
            case 2:
                service_->replay();
                break;
            case 3:
            case 4:
                relay_.failAt(kFaults.at(static_cast<size_t>(pick(5))), pick(3));
                break;
            default:
                break;
        }
    }

    // All that the library can carry in one file: rows that are usable, eight at most.
    void tidyUp() {
        device_.change(
            "DELETE FROM radiusClient WHERE authserver || authport || authsecret || authtimeout || "
            "authretries IS NULL");
        device_.change(
            "DELETE FROM radiusClient WHERE rowid NOT IN "
            "(SELECT min(rowid) FROM radiusClient GROUP BY authserver)");
        device_.change(
            "DELETE FROM radiusClient WHERE rowid NOT IN "
            "(SELECT rowid FROM radiusClient ORDER BY rowid LIMIT 8)");
    }

    std::mt19937 random_{GetParam()};
};

TEST_P(Rounds, OfChangesEndWithTheTable) {
    settle();
    const int ends = relay_.ends();
    size_t notices = 0;
    for (int round = 0; round < 500 && !HasFailure(); ++round) {
        changeSomeThings();
        look();
        expectRelayHasTable();
        notices += relay_.takeNotices().size();
    }
    EXPECT_EQ(ends, relay_.ends());
    EXPECT_GT(notices, 500U);
    tidyUp();
    look();
    expectAllDone();
    if (HasFailure()) {
        std::cerr << said_.str();
    }
}

TEST_P(Rounds, WithFaultsEndWithTheTable) {
    for (int round = 0; round < 100 && !HasFailure(); ++round) {
        changeSomeThings();
        meetSomething();
        look();
        // The count never leaves the slots, not even between two attempts.
        EXPECT_EQ(LibraryRelay::held().size(),
                  static_cast<size_t>(radConfGetNumServers(RAD_SERVER_AUTH)))
            << "round " << round;
        if (round % 5 == 4) {
            relay_.failAt(LibraryRelay::Fault::none, -1);
            tidyUp();
            settle();
            expectAllDone();
        }
    }
    if (HasFailure()) {
        std::cerr << said_.str();
    }
}

TEST_P(Rounds, WithChangesUnderWayEndWithTheTable) {
    int left = 0;
    const auto sometimes = [&] {
        if (left > 0 && pick(3) == 0) {
            --left;
            changeSomeThings();
        }
    };
    relay_.beforeReading = sometimes;
    relay_.afterReading = sometimes;
    for (int round = 0; round < 100 && !HasFailure(); ++round) {
        left = pick(4);
        relay_.setBusy(true);
        for (int looks = pick(3); looks >= 0; --looks) {
            changeSomeThings();
            look();
        }
        relay_.setBusy(false);
        look();
        if (round % 5 == 4) {
            left = 0;
            tidyUp();
            settle();
            expectAllDone();
        }
    }
    if (HasFailure()) {
        std::cerr << said_.str();
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, Rounds, testing::Range(1U, 7U));

}  // namespace
}  // namespace lanyard::test::rounds_test
