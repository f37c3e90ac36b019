// PAP logins against the real server.
#include <chrono>
#include <filesystem>
#include <gmock/gmock.h>

#include <lanyard/radius/methods.h>

#include "tests/interop/fixture.h"

namespace lanyard::test::pap_test {
namespace {

using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

constexpr const char *kLongPassword = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKL";
constexpr uint32_t kUntouched = 4711;

class Pap : public Interop {
  protected:
    void configureWith(uint16_t port, const std::string &more = "") const {
        configure("authserver " + entry(port) + "\n" + more);
    }
};

TEST_F(Pap, RightPassword_AcceptedAndTheReplyShown) {
    configureWith(server().authPort());
    int result = -2;
    const Written written = capture([&] { result = radAuth("alice", "wonderland"); });
    EXPECT_EQ(0, result);
    EXPECT_EQ(
        "\"alice\" RADIUS Authentication OK\n"
        "Attributes Received: \n"
        "Reply-Message: Welcome, alice\n",
        written.out);
    EXPECT_EQ("", written.err);
}

TEST_F(Pap, WrongPassword_Refused) {
    configureWith(server().authPort());
    int result = -2;
    const Written written = capture([&] { result = radAuth("alice", "wonderlanD"); });
    EXPECT_EQ(-1, result);
    EXPECT_EQ("", written.out);
    EXPECT_THAT(written.err, HasSubstr("\"alice\" RADIUS Authentication failure"));
}

TEST_F(Pap, Request_ReachesTheServerAsItWasMeant) {
    configureWith(server().authPort());
    capture([] { radAuth("alice", "wonderland"); });
    const std::string request = lastRequest();
    EXPECT_THAT(request, HasSubstr("User-Name = \"alice\"\n"));
    EXPECT_THAT(request, HasSubstr("User-Password = \"wonderland\"\n"));
    EXPECT_THAT(request, HasSubstr("Service-Type = Authenticate-Only\n"));
    EXPECT_THAT(request, HasSubstr("NAS-IP-Address = "));
    EXPECT_THAT(request, HasSubstr("Message-Authenticator = 0x"));
    EXPECT_THAT(request, Not(HasSubstr("NAS-Identifier")));
}

TEST_F(Pap, NasIdentifierInTheServerEntry_TakesThePlaceOfTheAddress) {
    configure("authserver " + entry(server().authPort()) + ":gateway-7\n");
    int result = -2;
    capture([&] { result = radAuth("alice", "wonderland"); });
    EXPECT_EQ(0, result);
    EXPECT_THAT(lastRequest(), HasSubstr("NAS-Identifier = \"gateway-7\"\n"));
    EXPECT_THAT(lastRequest(), Not(HasSubstr("NAS-IP-Address")));
}

TEST_F(Pap, PasswordOf48Characters_ArrivesWhole) {
    configureWith(server().authPort());
    const std::string password = kLongPassword;
    ASSERT_EQ(size_t{RAD_PASSWORD_MAX}, password.size());
    int whole = -2;
    int cut = -2;
    capture([&] {
        whole = radAuth("bob", password.c_str());
        cut = radAuth("bob", password.substr(0, password.size() - 1).c_str());
    });
    EXPECT_EQ(0, whole);
    EXPECT_EQ(-1, cut);
}

TEST_F(Pap, Limits_ComeBackInMinutesRoundedUp) {
    configureWith(server().authPort());
    uint32_t idle = kUntouched;
    uint32_t session = kUntouched;
    int result = -2;
    capture([&] { result = radAuthAndGetAttributes("alice", "wonderland", &idle, &session); });
    EXPECT_EQ(0, result);
    EXPECT_EQ(10U, idle);      // 600 s
    EXPECT_EQ(121U, session);  // 7201 s
}

TEST_F(Pap, LimitsThatTheReplyLacks_StayUntouched) {
    configureWith(server().authPort());
    uint32_t idle = kUntouched;
    uint32_t session = kUntouched;
    int carol = -2;
    capture([&] { carol = radAuthAndGetAttributes("carol", "looking-glass", &idle, &session); });
    EXPECT_EQ(0, carol);
    EXPECT_EQ(kUntouched, idle);
    EXPECT_EQ(1U, session);  // 60 s

    session = kUntouched;
    int bob = -2;
    capture([&] { bob = radAuthAndGetAttributes("bob", kLongPassword, &idle, &session); });
    EXPECT_EQ(0, bob);
    EXPECT_EQ(kUntouched, idle);
    EXPECT_EQ(kUntouched, session);
}

TEST_F(Pap, AttributeThatTheBuiltInDictionaryLacks_SkippedWithAWarning) {
    configureWith(server().authPort());
    int result = -2;
    const Written written = capture([&] { result = radAuth("carol", "looking-glass"); });
    EXPECT_EQ(0, result);
    EXPECT_EQ(
        "\"carol\" RADIUS Authentication OK\n"
        "Attributes Received: \n"
        "Filter-Id: 0x677565737473\n",
        written.out);
    EXPECT_THAT(written.err, HasSubstr("radPairGen: received unknown attribute 25 of length 3"));
}

TEST_F(Pap, AttributeOfTheShippedDictionary_Shown) {
    std::filesystem::create_directories(root().path() / "etc");
    std::filesystem::copy_file(LANYARD_DICTIONARY, root().path() / "etc/radius.dict");
    configureWith(server().authPort(), "dictionary /etc/radius.dict\n");
    int result = -2;
    const Written written = capture([&] { result = radAuth("carol", "looking-glass"); });
    EXPECT_EQ(0, result);
    EXPECT_THAT(written.out, HasSubstr("Class: 0x0102fffffffe\n"));
    EXPECT_EQ("", written.err);
}

TEST_F(Pap, RepliesWithAMessageAuthenticator_TakenOnceItIsVerified) {
    configureWith(server().signedPort());
    int accepted = -2;
    const Written accept = capture([&] { accepted = radAuth("alice", "wonderland"); });
    EXPECT_EQ(0, accepted);
    EXPECT_THAT(accept.out, MatchesRegex("\"alice\" RADIUS Authentication OK\n"
                                         "Attributes Received: \n"
                                         "Reply-Message: Welcome, alice\n"
                                         "Message-Authenticator: 0x[0-9a-f]+\n"));
    EXPECT_EQ("", accept.err);

    int refused = -2;
    const Written reject = capture([&] { refused = radAuth("alice", "wrong"); });
    EXPECT_EQ(-1, refused);
    EXPECT_THAT(reject.out,
                MatchesRegex("Attributes Received: \nMessage-Authenticator: 0x[0-9a-f]+\n"));
    EXPECT_EQ(1, occurrences(reject.err, "\n")) << reject.err;
    EXPECT_THAT(reject.err, HasSubstr("\"alice\" RADIUS Authentication failure"));
}

TEST_F(Pap, WrongSharedSecret_MeetsSilence) {
    configure("authserver " + entry(server().authPort(), "not-the-secret") + "\n");
    int result = -2;
    const auto start = std::chrono::steady_clock::now();
    const Written written = capture([&] { result = radAuth("alice", "wonderland"); });
    const auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(-1, result);
    EXPECT_EQ("", written.out);
    EXPECT_THAT(written.err, HasSubstr("radSendtoServer: No reply from RADIUS server 127.0.0.1:" +
                                       std::to_string(server().authPort())));
    EXPECT_GE(waited, std::chrono::milliseconds(990));
    EXPECT_LT(waited, std::chrono::seconds(5));
    // The server tells by the Message-Authenticator of the request.
    EXPECT_THAT(server().log(), HasSubstr("invalid Message-Authenticator"));
}

}  // namespace
}  // namespace lanyard::test::pap_test
