// lanyardctl probe: every configured server in turn.
#include "tests/interop/lanyardctl.h"
#include "tests/support/scripted_server.h"

namespace lanyard::test::lanyardctl_probe_test {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;
using testing::MatchesRegex;

constexpr uint8_t kAccessRequest = 1;
constexpr uint8_t kStatusServer = 12;

class Probe : public Ctl {};

TEST_F(Probe, RealServer_AnswersAndTellsWhetherItSigns) {
    writeConfiguration("authserver " + entry(server().authPort()) + ", " +
                       entry(server().signedPort()) + "\n");
    const json answer = document({"probe", "--wait", "1"}, 0);
    EXPECT_EQ(true, answer.at("ok"));
    ASSERT_EQ(2U, answer.at("servers").size());
    const json &plain = answer.at("servers")[0];
    EXPECT_EQ(at(server().authPort()), plain.at("server"));
    EXPECT_EQ("127.0.0.1", plain.at("address"));
    EXPECT_EQ("answers", plain.at("state"));
    EXPECT_EQ("Access-Request", plain.at("question"));
    EXPECT_EQ("Access-Reject", plain.at("answer"));
    EXPECT_EQ(false, plain.at("signed"));
    EXPECT_EQ(false, plain.at("status_server"));
    EXPECT_GT(plain.at("milliseconds"), 0);
    EXPECT_EQ(true, answer.at("servers")[1].at("signed"));
}

TEST_F(Probe, StatusServer_IsTheOnlyQuestionWhereItIsAnswered) {
    ScriptedServer auth("s", {accept(Attributes().addMessageAuthenticator())});
    ScriptedServer acct("s", {accountingResponse()});
    writeConfiguration("authserver " + entry(auth.port(), "s") + "\nacctserver " +
                       entry(acct.port(), "s") + "\n");
    const ProgramResult result = run({"probe"});
    EXPECT_EQ(0, result.status) << result.err;
    EXPECT_THAT(
        result.out,
        MatchesRegex(
            "KIND  SERVER +ADDRESS +STATE +TIME +ANSWER +SIGNED +STATUS-SERVER\n"
            "auth  127.0.0.1:[0-9]+ +127.0.0.1  answers  [0-9.]+ ms +Access-Accept +yes +yes\n"
            "acct  127.0.0.1:[0-9]+ +127.0.0.1  answers  [0-9.]+ ms +Accounting-Response  "
            "no +yes\n"));
    ASSERT_EQ(1U, auth.requestCount());
    EXPECT_EQ(kStatusServer, auth.request(0).code());
    ASSERT_EQ(1U, acct.requestCount());
    EXPECT_EQ(kStatusServer, acct.request(0).code());
}

TEST_F(Probe, SilentServers_AreAskedTwicePerQuestion) {
    ScriptedServer auth("s");
    ScriptedServer acct("s");
    writeConfiguration("authserver " + entry(auth.port(), "s") + "\nacctserver " +
                       entry(acct.port(), "s") + "\n");
    const ProgramResult result = run({"probe", "--wait", "1"});
    EXPECT_EQ(5, result.status);
    EXPECT_THAT(result.out,
                AllOf(HasSubstr("  silent "), HasSubstr(": nothing came back: is the server up"),
                      HasSubstr("it may work all the same")));
    ASSERT_EQ(6U, auth.requestCount());
    EXPECT_EQ(kStatusServer, auth.request(1).code());
    EXPECT_EQ(kAccessRequest, auth.request(2).code());
    EXPECT_EQ(2U, acct.requestCount());
}

TEST_F(Probe, LongNasIdentifier_IsCut) {
    ScriptedServer auth("s", {accept(Attributes().addMessageAuthenticator())});
    writeConfiguration("authserver 127.0.0.1:" + std::to_string(auth.port()) +
                       ":1:0:s:" + std::string(300, 'n') + "\n");
    EXPECT_EQ("answers", document({"probe"}, 0).at("servers")[0].at("state"));
    EXPECT_EQ(std::string(253, 'n'), toText(attributeValue(auth.request(0).bytes, 32)));
}

TEST_F(Probe, EveryCause_HasItsState) {
    const RefusedPort refused;
    ScriptedServer other("another");
    other.otherwise(accept());
    writeConfiguration("authserver " + entry(refused.port()) + ", " + entry(other.port(), "ours") +
                       ", no-such-host.invalid:1812:1:0:s\n");
    const json answer = document({"probe", "--wait", "1"}, 5);
    EXPECT_EQ(false, answer.at("ok"));
    EXPECT_EQ("port closed", answer.at("servers")[0].at("state"));
    EXPECT_EQ("wrong secret", answer.at("servers")[1].at("state"));
    EXPECT_EQ("name not found", answer.at("servers")[2].at("state"));
    EXPECT_EQ(nullptr, answer.at("servers")[2].at("address"));
}

TEST_F(Probe, WrongInput_IsRefused) {
    EXPECT_EQ(2, run({"probe", "--wait", "0"}).status);
    EXPECT_EQ(2, run({"probe", "extra"}).status);
    writeConfiguration("authserver nonsense\n");
    const ProgramResult result = run({"probe"});
    EXPECT_EQ(1, result.status);
    EXPECT_THAT(result.err, HasSubstr("/var/radius.conf is refused"));
}

}  // namespace
}  // namespace lanyard::test::lanyardctl_probe_test
