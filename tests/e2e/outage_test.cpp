// Servers and relays that fall silent, die and come back.
#include <chrono>
#include <csignal>
#include <string>

#include "tests/e2e/end_to_end.h"
#include "tests/interop/silent_server.h"
#include "tests/interop/wait_until.h"

namespace lanyard::test::outage_test {
namespace {

using namespace std::chrono_literals;

// In what time a relay promises to end, and what a busy machine may add to that.
constexpr auto kPromise = 1000ms;
constexpr auto kSlack = 1000ms;

class Outage : public EndToEnd {
  protected:
    void expectLogin() {
        const Event event = knock(md5Account("alice", "wonderland"));
        EXPECT_EQ("authorized", event.at("event"));
        EXPECT_EQ("alice", event.at("identity"));
    }
};

TEST_F(Outage, FirstServerSilent_SecondIsAsked) {
    const SilentServer silent("127.0.0.2");
    device().change({"del", "127.0.0.1"});
    device().addServer("127.0.0.2", silent.port(), "unheard");
    addServer();
    device().db({"replay"});
    device().startAuthenticator();
    expectLogin();
    EXPECT_GT(silent.packets(), 0);
}

TEST_F(Outage, ServerDiesInAConversation_EndsThatConversationOnly) {
    const auto supplicant = connect(peapAccount(server(), "alice"));
    // The tunnel stands, and the server waits for what comes out of it.
    ASSERT_TRUE(supplicant->asksForPassword());
    server().kill();
    supplicant->givePassword("wonderland");
    EXPECT_TRUE(supplicant->fails());
    const std::optional<Event> event = device().firstEventOf(VirtualWire::kUserAddress);
    server().startAgain();
    ASSERT_TRUE(event);
    EXPECT_EQ("failed", event->at("event"));
    EXPECT_EQ("no server answered", event->at("reason"));
    EXPECT_EQ("alice", event->at("identity"));
    expectLogin();
}

TEST_F(Outage, RelayRestartedWithItsServers_LogsInAgain) {
    const auto supplicant = connect(md5Account("alice", "wonderland"));
    ASSERT_TRUE(supplicant->succeeds());
    device().endRelay(SIGKILL);
    device().startRelay();
    device().db({"replay"});
    expectLogin();
}

TEST_F(Outage, RelayRestartedWithoutTheService_LogsInAgain) {
    device().endService();
    device().endRelay(SIGKILL);
    device().startRelay();
    device().db({"replay"});
    device().startAuthenticator();
    expectLogin();
}

TEST_F(Outage, RelayDead_TheSupplicantIsTold) {
    device().endRelay(SIGKILL);
    device().startAuthenticator({"--relay-timeout", "0.2"});
    const Event event = knock(md5Account("alice", "wonderland"));
    EXPECT_EQ("failed", event.at("event"));
    EXPECT_EQ("relay not running", event.at("reason"));
    device().startAuthenticator();
    device().startRelay();
    device().db({"replay"});
    expectLogin();
}

// For longer than a call on the bus waits.
TEST_F(Outage, FirstServerSilent_AChangeMadeMeanwhileArrives) {
    const SilentServer silent;
    device().change(
        {"set", "127.0.0.1", "--port", std::to_string(silent.port()), "--timeout", "7"});
    {
        const auto supplicant = connect(md5Account("alice", "wonderland"));
        ASSERT_TRUE(waitUntil([&] { return silent.packets() > 0; }));
        device().change({"set", "127.0.0.1", "--port", std::to_string(server().eapPort())});
    }
    EXPECT_THAT(device().logs(), testing::Not(testing::HasSubstr("told to end")));
    expectLogin();
}

TEST_F(Outage, RelayAskedToEnd_EndsWithinASecond) {
    device().startAuthenticator();
    expectLogin();
    EXPECT_LT(device().endRelay(SIGTERM), kPromise + kSlack);
}

TEST_F(Outage, RelayAskedToEndWhileItWaitsForAServer_EndsWithinASecond) {
    const SilentServer silent;
    device().change(
        {"set", "127.0.0.1", "--port", std::to_string(silent.port()), "--timeout", "30"});
    const auto supplicant = connect(md5Account("alice", "wonderland"));
    ASSERT_TRUE(waitUntil([&] { return silent.packets() > 0; }));
    EXPECT_LT(device().endRelay(SIGTERM), kPromise + kSlack);
}

}  // namespace
}  // namespace lanyard::test::outage_test
