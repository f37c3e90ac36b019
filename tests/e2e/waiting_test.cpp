/**
 * @file
 * How pnac-wired waits: for everything at once, and where the bus has no descriptor, in turns.
 */
#include <chrono>
#include <csignal>
#include <string>
#include <thread>

#include "tests/e2e/end_to_end.h"
#include "tests/interop/wait_until.h"

namespace lanyard::test {
namespace {

class Waiting : public EndToEnd {
  protected:
    /** Waits until pnac-wired has slept for that long without waking up. */
    bool sleepsFor(std::chrono::milliseconds time) {
        return waitUntil([&] {
            const std::string before = device().authenticatorsSwitches();
            std::this_thread::sleep_for(time);
            return device().authenticatorsSwitches() == before;
        });
    }
};

TEST_F(Waiting, NothingIsDue_NeverWakesUp) {
    constexpr std::chrono::milliseconds kLong{2500};  // longer than any turn
    // Nobody answers its first requests: they are over soon.
    device().startAuthenticator({"--interval", "1", "--repeats", "1"});
    EXPECT_TRUE(sleepsFor(kLong)) << "without a session";
    EXPECT_EQ(knock(md5Account("alice", "wonderland")).at("event"), "authorized");
    EXPECT_TRUE(sleepsFor(kLong)) << "with a session";
    EXPECT_EQ(knock(md5Account("alice", "wonderland")).at("event"), "authorized") << "it is awake";
}

#ifdef LANYARD_VENDOR_FOLDER
TEST_F(Waiting, BusWithoutDescriptor_LogsInAndAnswersSignals) {
    // It sends nothing again while this test runs.
    device().startAuthenticator({"--interval", "3600"},
                                {std::string("LD_LIBRARY_PATH=") + LANYARD_VENDOR_FOLDER});
    EXPECT_EQ(knock(md5Account("alice", "wonderland")).at("event"), "authorized");
    EXPECT_EQ(knock(peapAccount(server(), "alice", "wonderland")).at("event"), "authorized");
    device().signalAuthenticator(SIGUSR1);
    EXPECT_TRUE(
        device().waitForEvent([](const Event &event) { return event.at("event") == "counters"; }));
    for (int turn = 0; turn < 3; ++turn) {
        const std::string before = device().authenticatorsSwitches();
        EXPECT_TRUE(waitUntil([&] { return device().authenticatorsSwitches() != before; }))
            << "this bus has to be looked at";
    }
}
#endif

}  // namespace
}  // namespace lanyard::test
