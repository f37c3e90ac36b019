// The system at work: servers that change while users log in, and many users at once.
#include <array>
#include <map>
#include <vector>

#include "tests/e2e/end_to_end.h"

namespace lanyard::test::operation_test {
namespace {

using Operation = EndToEnd;

TEST_F(Operation, ServersChange_NextLoginFollows) {
    const Account alice = md5Account("alice", "wonderland");
    device().startAuthenticator();
    EXPECT_EQ("authorized", knock(alice).at("event"));

    device().change({"set", "127.0.0.1", "--secret", "another"});
    EXPECT_EQ("failed", knock(alice).at("event"));
    device().change({"set", "127.0.0.1", "--secret", server().secret()});
    EXPECT_EQ("authorized", knock(alice).at("event"));

    device().change({"del", "127.0.0.1"});
    EXPECT_EQ("request not sent", knock(alice).at("reason"));
    addServer();
    EXPECT_EQ("authorized", knock(alice).at("event"));
}

TEST_F(Operation, FiftySupplicantsAtOnce_AllLetIn) {
    const std::array<Account, 4> accounts = {
        md5Account("alice", "wonderland"), peapAccount(server(), "alice", "wonderland"),
        ttlsAccount(server(), "alice", "wonderland"), tlsAccount(server(), "alice")};
    std::map<std::string, std::unique_ptr<Supplicant>> supplicants;
    for (const VirtualWire::Station &station : wire().stations(50)) {
        supplicants[station.address] = std::make_unique<Supplicant>(
            wire(), accounts[supplicants.size() % accounts.size()], station.interface);
    }
    for (const auto &[address, supplicant] : supplicants) {
        supplicant->awaitReady();
    }
    // Its first request goes to all of them.
    device().startAuthenticator();
    for (const auto &[address, supplicant] : supplicants) {
        ASSERT_TRUE(supplicant->succeeds()) << address;
        const std::optional<Event> event = device().firstEventOf(address);
        ASSERT_TRUE(event) << address;
        EXPECT_EQ("authorized", event->at("event")) << address;
        EXPECT_EQ(supplicant->sessionKey(),
                  event->value("recv_key", "") + event->value("send_key", ""))
            << address;
    }
}

}  // namespace
}  // namespace lanyard::test::operation_test
