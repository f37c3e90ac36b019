// CHAP logins against the real server.
#include <array>
#include <cstring>
#include <gmock/gmock.h>

#include <lanyard/radius/methods.h>

#include "tests/interop/fixture.h"

namespace lanyard::test::chap_test {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr const char *kLongPassword = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKL";
constexpr int kUntouched = 4711;

// A challenge, and the response to it that a password makes.
struct Exchange {
    explicit Exchange(const char *password) {
        for (size_t i = 0; i < challenge.size(); ++i) {
            challenge[i] = static_cast<uint8_t>(0xf0 + i);
        }
        EXPECT_EQ(RAD_CHAP_RESPONSE_SIZE,
                  radChapRespMake(response.data(), reinterpret_cast<const uint8_t *>(password),
                                  static_cast<int>(std::strlen(password)), challenge.data()));
    }

    std::array<uint8_t, RAD_CHAP_CHALLENGE_SIZE> challenge = {};
    std::array<uint8_t, RAD_CHAP_RESPONSE_SIZE> response = {};
};

class Chap : public Interop {
  protected:
    void SetUp() override {
        Interop::SetUp();
        configure("authserver " + entry(server().authPort()) + "\n");
    }

    static int login(const char *userName, const Exchange &exchange) {
        return radChapAuth(userName, exchange.response.data(), RAD_CHAP_RESPONSE_SIZE,
                           exchange.challenge.data(), RAD_CHAP_CHALLENGE_SIZE);
    }

    static int login(const char *userName, const Exchange &exchange, int *idle, int *session) {
        return radChapAuthAndGetAttributes(userName, exchange.response.data(),
                                           RAD_CHAP_RESPONSE_SIZE, exchange.challenge.data(),
                                           RAD_CHAP_CHALLENGE_SIZE, idle, session);
    }
};

TEST_F(Chap, RightPassword_AcceptedAndTheReplyShown) {
    int result = -2;
    const Written written = capture([&] { result = login("alice", Exchange("wonderland")); });
    EXPECT_EQ(0, result);
    EXPECT_EQ(
        "\"alice\" RADIUS Authentication OK\n"
        "Attributes Received: \n"
        "Reply-Message: Welcome, alice\n",
        written.out);
    EXPECT_EQ("", written.err);
}

TEST_F(Chap, WrongPassword_Refused) {
    int result = -2;
    const Written written = capture([&] { result = login("alice", Exchange("wonderlanD")); });
    EXPECT_EQ(-1, result);
    EXPECT_EQ("", written.out);
    EXPECT_THAT(written.err, HasSubstr("\"alice\" RADIUS Authentication failure"));
}

TEST_F(Chap, ResponseToAnotherChallenge_Refused) {
    Exchange exchange("wonderland");
    exchange.challenge[15] ^= 1;
    int result = -2;
    capture([&] { result = login("alice", exchange); });
    EXPECT_EQ(-1, result);
}

TEST_F(Chap, Request_ReachesTheServerAsItWasMeant) {
    capture([] { login("alice", Exchange("wonderland")); });
    const std::string request = lastRequest();
    EXPECT_THAT(request, HasSubstr("User-Name = \"alice\"\n"));
    EXPECT_THAT(request, HasSubstr("CHAP-Password = 0x"));
    EXPECT_THAT(request, HasSubstr("CHAP-Challenge = 0xf0f1f2f3f4f5f6f7f8f9fafbfcfdfeff\n"));
    EXPECT_THAT(request, HasSubstr("Service-Type = Authenticate-Only\n"));
    EXPECT_THAT(request, HasSubstr("NAS-IP-Address = "));
    EXPECT_THAT(request, HasSubstr("Message-Authenticator = 0x"));
    EXPECT_THAT(request, Not(HasSubstr("User-Password")));
}

TEST_F(Chap, PasswordOf48Characters_CountsToItsLastOne) {
    const std::string password = kLongPassword;
    int whole = -2;
    int cut = -2;
    capture([&] {
        whole = login("bob", Exchange(password.c_str()));
        cut = login("bob", Exchange(password.substr(0, password.size() - 1).c_str()));
    });
    EXPECT_EQ(0, whole);
    EXPECT_EQ(-1, cut);
}

TEST_F(Chap, Limits_ComeBackInMinutesRoundedUp) {
    int idle = kUntouched;
    int session = kUntouched;
    int result = -2;
    const Written written =
        capture([&] { result = login("alice", Exchange("wonderland"), &idle, &session); });
    EXPECT_EQ(0, result);
    EXPECT_EQ("Reply-Message: Welcome, alice\n", written.out);
    EXPECT_EQ("", written.err);
    EXPECT_EQ(10, idle);      // 600 s
    EXPECT_EQ(121, session);  // 7201 s
}

TEST_F(Chap, Refusal_LeavesTheLimitsUntouched) {
    int idle = kUntouched;
    int session = kUntouched;
    int result = -2;
    const Written written =
        capture([&] { result = login("alice", Exchange("wrong"), &idle, &session); });
    EXPECT_EQ(-1, result);
    EXPECT_EQ("", written.out + written.err);
    EXPECT_EQ(kUntouched, idle);
    EXPECT_EQ(kUntouched, session);
}

}  // namespace
}  // namespace lanyard::test::chap_test
