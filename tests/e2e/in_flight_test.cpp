// Nobody waits for somebody else's server.
#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <string>

#include "tests/e2e/end_to_end.h"
#include "tests/interop/silent_server.h"
#include "tests/interop/wait_until.h"

namespace lanyard::test::in_flight_test {
namespace {

class InFlight : public EndToEnd {
  protected:
    void expectLogin() {
        EXPECT_EQ("authorized", knock(md5Account("alice", "wonderland")).at("event"));
    }

    size_t countOf(const std::string &event) {
        const auto all = device().events();
        return static_cast<size_t>(std::count_if(
            all.begin(), all.end(), [&](const Event &any) { return any.at("event") == event; }));
    }
};

TEST_F(InFlight, IdentityThatIsNeverAnswered_OthersLogInMeanwhileAndStay) {
    device().change({"set", "127.0.0.1", "--timeout", "30", "--retries", "4"});
    device().startAuthenticator({"--relay-timeout", "8"});
    const VirtualWire::Station station = wire().stations(5).back();
    Supplicant mute(wire(), md5Account("mute", "silence"), station.interface);
    mute.awaitReady();
    mute.start();
    ASSERT_TRUE(
        waitUntil([] { return server().accessRequests().find("\"mute\"") != std::string::npos; }));
    for (int login = 0; login < 4; ++login) {
        expectLogin();
    }
    EXPECT_EQ(4U, countOf("authorized"));
    EXPECT_EQ(0U, countOf("failed")) << "the first one still waits";
    ASSERT_TRUE(device().firstEventOf(station.address));
    EXPECT_EQ("failed", device().firstEventOf(station.address)->at("event"));
    EXPECT_EQ(0U, countOf("unauthorized"));
}

TEST_F(InFlight, FirstServerDead_SecondAnswersAndIsAskedFirstThen) {
    const SilentServer silent("127.0.0.2");
    device().change({"del", "127.0.0.1"});
    // With the time-out and the retries that a server has by itself.
    device().change({"add", "127.0.0.2", "--port", std::to_string(silent.port()), "--secret", "s"});
    device().change({"add", "127.0.0.1", "--port", std::to_string(server().eapPort()), "--secret",
                     server().secret()});
    device().startAuthenticator();
    expectLogin();
    EXPECT_EQ(2, silent.packets()) << "the request and one more";
    expectLogin();
    EXPECT_EQ("authorized", knock(peapAccount(server(), "alice", "wonderland")).at("event"));
    EXPECT_EQ(0, silent.packets());
}

TEST_F(InFlight, StormOfLogins_AllSucceed) {
    constexpr size_t kUsers = 20;
    device().startAuthenticator();
    std::vector<std::unique_ptr<Supplicant>> supplicants;
    for (const VirtualWire::Station &station : wire().stations(kUsers)) {
        supplicants.push_back(std::make_unique<Supplicant>(
            wire(), peapAccount(server(), "alice", "wonderland"), station.interface));
    }
    for (const auto &supplicant : supplicants) {
        supplicant->awaitReady();
    }
    for (const auto &supplicant : supplicants) {
        supplicant->start();
    }
    for (const auto &supplicant : supplicants) {
        EXPECT_TRUE(supplicant->succeeds()) << supplicant->log();
    }
    EXPECT_TRUE(waitUntil([&] { return countOf("authorized") >= kUsers; }));
    EXPECT_EQ(0U, countOf("failed"));
}

#ifdef LANYARD_VENDOR_FOLDER
TEST_F(InFlight, BusWithoutDescriptor_LogsInAndEnds) {
    device().endRelay(SIGTERM);
    ASSERT_EQ(0, setenv("LD_LIBRARY_PATH", LANYARD_VENDOR_FOLDER, 1));
    device().startRelay();
    ASSERT_EQ(0, unsetenv("LD_LIBRARY_PATH"));
    device().db({"replay"});
    device().startAuthenticator();
    expectLogin();
    EXPECT_EQ("authorized", knock(peapAccount(server(), "alice", "wonderland")).at("event"));
}
#endif

}  // namespace
}  // namespace lanyard::test::in_flight_test
