// Logins with each method, and what both ends know afterwards.
#include <stdexcept>

#include "tests/e2e/end_to_end.h"

namespace lanyard::test::login_test {
namespace {

class Login : public EndToEnd {
  protected:
    // Tries to log in. Returns what the authenticator says of it.
    Event tryToLogIn(const Account &account) {
        supplicant_ = connect(account);
        const std::optional<Event> event = device().firstEventOf(VirtualWire::kUserAddress);
        if (!event) {
            throw std::runtime_error("nothing comes of it");
        }
        EXPECT_EQ("alice", event->at("identity"));
        return *event;
    }

    Event logIn(const Account &account) {
        Event event = tryToLogIn(account);
        EXPECT_EQ("authorized", event.at("event"));
        EXPECT_TRUE(supplicant_->succeeds());
        return event;
    }

    void expectRefusal(const Account &account) {
        const Event event = tryToLogIn(account);
        EXPECT_EQ("failed", event.at("event"));
        EXPECT_EQ("rejected", event.at("reason"));
        EXPECT_TRUE(supplicant_->fails());
        EXPECT_THAT(supplicant_->log(), testing::HasSubstr("EAP: Received EAP-Failure"));
    }

    // The authenticator's keys are the halves of the supplicant's.
    void expectKeys(const Event &event) {
        const std::string key = supplicant_->sessionKey();
        ASSERT_EQ(128U, key.size());
        EXPECT_EQ(key.substr(0, 64), event.at("recv_key"));
        EXPECT_EQ(key.substr(64), event.at("send_key"));
    }

    Supplicant &supplicant() { return *supplicant_; }

  private:
    std::unique_ptr<Supplicant> supplicant_;
};

TEST_F(Login, Md5_AcceptedWithoutKeys) {
    const Event event = logIn(md5Account("alice", "wonderland"));
    EXPECT_FALSE(event.contains("recv_key"));
    EXPECT_FALSE(event.contains("send_key"));
    // What the server grants alice.
    EXPECT_EQ(7201, event.at("session_timeout"));
    EXPECT_EQ("terminate", event.at("then"));
}

TEST_F(Login, Peap_GivesBothEndsTheSameKeys) {
    expectKeys(logIn(peapAccount(server(), "alice", "wonderland")));
}

TEST_F(Login, Ttls_GivesBothEndsTheSameKeys) {
    expectKeys(logIn(ttlsAccount(server(), "alice", "wonderland")));
}

TEST_F(Login, Tls_GivesBothEndsTheSameKeys) {
    expectKeys(logIn(tlsAccount(server(), "alice")));
}

TEST_F(Login, Md5WithAWrongPassword_Refused) {
    expectRefusal(md5Account("alice", "looking-glass"));
}

TEST_F(Login, PeapWithAWrongPassword_Refused) {
    expectRefusal(peapAccount(server(), "alice", "looking-glass"));
}

TEST_F(Login, TtlsWithAWrongPassword_Refused) {
    expectRefusal(ttlsAccount(server(), "alice", "looking-glass"));
}

TEST_F(Login, TlsWithACertificateOfAnotherAuthority_Refused) {
    expectRefusal(tlsAccount(server(), "alice", "stranger"));
}

TEST_F(Login, Logoff_EndsTheSession) {
    logIn(md5Account("alice", "wonderland"));
    supplicant().logOff();
    const auto event =
        device().waitForEvent([](const Event &any) { return any.at("event") == "unauthorized"; });
    ASSERT_TRUE(event);
    EXPECT_EQ(VirtualWire::kUserAddress, event->at("address"));
    EXPECT_EQ("logoff", event->at("reason"));
}

TEST_F(Login, ServerWantsReauthentication_LoginRepeated) {
    const auto supplicant = connect(md5Account("erin", "through-the-glass"));
    const std::optional<Event> first = device().firstEventOf(VirtualWire::kUserAddress);
    ASSERT_TRUE(first);
    EXPECT_EQ("authorized", first->at("event"));
    EXPECT_EQ(2, first->at("session_timeout"));
    EXPECT_EQ("reauthenticate", first->at("then"));
    EXPECT_EQ(false, first->at("reauthentication"));

    const auto second = device().waitForEvent(
        [](const Event &event) { return event.value("reauthentication", false); });
    ASSERT_TRUE(second);
    EXPECT_EQ("authorized", second->at("event"));
    EXPECT_EQ(VirtualWire::kUserAddress, second->at("address"));
    EXPECT_EQ("erin", second->at("identity"));
    // The session has gone on meanwhile.
    for (const Event &event : device().events()) {
        EXPECT_NE("unauthorized", event.at("event"));
    }
}

}  // namespace
}  // namespace lanyard::test::login_test
