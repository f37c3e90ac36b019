/**
 * @file
 * Logins with each method, and what both ends know afterwards.
 */
#include <stdexcept>

#include "tests/e2e/end_to_end.h"

namespace lanyard::test::login_test {
namespace {

class Login : public EndToEnd {
  protected:
    /** Tries to log in. @return what the authenticator says of it. */
    Event tryToLogIn(const Account &account) {
        supplicant_ = connect(account);
        const std::optional<Event> event = device().firstEventOf(VirtualWire::kUserAddress);
        if (!event) {
            throw std::runtime_error("nothing comes of it");
        }
        EXPECT_EQ(event->at("identity"), "alice");
        return *event;
    }

    Event logIn(const Account &account) {
        Event event = tryToLogIn(account);
        EXPECT_EQ(event.at("event"), "authorized");
        EXPECT_TRUE(supplicant_->succeeds());
        return event;
    }

    void expectRefusal(const Account &account) {
        const Event event = tryToLogIn(account);
        EXPECT_EQ(event.at("event"), "failed");
        EXPECT_EQ(event.at("reason"), "rejected");
        EXPECT_TRUE(supplicant_->fails());
        EXPECT_THAT(supplicant_->log(), testing::HasSubstr("EAP: Received EAP-Failure"));
    }

    /** The authenticator's keys are the halves of the supplicant's. */
    void expectKeys(const Event &event) {
        const std::string key = supplicant_->sessionKey();
        ASSERT_EQ(key.size(), 128U);
        EXPECT_EQ(event.at("recv_key"), key.substr(0, 64));
        EXPECT_EQ(event.at("send_key"), key.substr(64));
    }

    Supplicant &supplicant() { return *supplicant_; }

  private:
    std::unique_ptr<Supplicant> supplicant_;
};

TEST_F(Login, WithMd5IsWithoutKeys) {
    const Event event = logIn(md5Account("alice", "wonderland"));
    EXPECT_FALSE(event.contains("recv_key"));
    EXPECT_FALSE(event.contains("send_key"));
    // What the server grants alice.
    EXPECT_EQ(event.at("session_timeout"), 7201);
    EXPECT_EQ(event.at("then"), "terminate");
}

TEST_F(Login, WithPeapGivesBothEndsTheSameKeys) {
    expectKeys(logIn(peapAccount(server(), "alice", "wonderland")));
}

TEST_F(Login, WithTtlsGivesBothEndsTheSameKeys) {
    expectKeys(logIn(ttlsAccount(server(), "alice", "wonderland")));
}

TEST_F(Login, WithTlsGivesBothEndsTheSameKeys) {
    expectKeys(logIn(tlsAccount(server(), "alice")));
}

TEST_F(Login, WithMd5AndAWrongPasswordIsRefused) {
    expectRefusal(md5Account("alice", "looking-glass"));
}

TEST_F(Login, WithPeapAndAWrongPasswordIsRefused) {
    expectRefusal(peapAccount(server(), "alice", "looking-glass"));
}

TEST_F(Login, WithTtlsAndAWrongPasswordIsRefused) {
    expectRefusal(ttlsAccount(server(), "alice", "looking-glass"));
}

TEST_F(Login, WithTlsAndACertificateOfAnotherAuthorityIsRefused) {
    expectRefusal(tlsAccount(server(), "alice", "stranger"));
}

TEST_F(Login, EndsWithTheSupplicantsLogoff) {
    logIn(md5Account("alice", "wonderland"));
    supplicant().logOff();
    const auto event =
        device().waitForEvent([](const Event &any) { return any.at("event") == "unauthorized"; });
    ASSERT_TRUE(event);
    EXPECT_EQ(event->at("address"), VirtualWire::kUserAddress);
    EXPECT_EQ(event->at("reason"), "logoff");
}

TEST_F(Login, IsRepeatedWhenTheServerWantsThat) {
    const auto supplicant = connect(md5Account("erin", "through-the-glass"));
    const std::optional<Event> first = device().firstEventOf(VirtualWire::kUserAddress);
    ASSERT_TRUE(first);
    EXPECT_EQ(first->at("event"), "authorized");
    EXPECT_EQ(first->at("session_timeout"), 2);
    EXPECT_EQ(first->at("then"), "reauthenticate");
    EXPECT_EQ(first->at("reauthentication"), false);

    const auto second = device().waitForEvent(
        [](const Event &event) { return event.value("reauthentication", false); });
    ASSERT_TRUE(second);
    EXPECT_EQ(second->at("event"), "authorized");
    EXPECT_EQ(second->at("address"), VirtualWire::kUserAddress);
    EXPECT_EQ(second->at("identity"), "erin");
    // The session has gone on meanwhile.
    for (const Event &event : device().events()) {
        EXPECT_NE(event.at("event"), "unauthorized");
    }
}

}  // namespace
}  // namespace lanyard::test::login_test
