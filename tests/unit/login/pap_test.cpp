// What PAP logins have alone: the password, and the results of every server.
#include <array>

#include <lanyard/radius/methods.h>

#include "tests/unit/login/methods.h"

namespace lanyard::test::pap_test {
namespace {

using testing::ElementsAre;

class PapLogin : public testing::TestWithParam<Method> {};

INSTANTIATE_TEST_SUITE_P(Methods, PapLogin,
                         testing::Values(methods()[0], methods()[1], methods()[2]), nameOf<Method>);

TEST_P(PapLogin, PasswordOf48CharactersIsSentAndOf49Refused) {
    const std::string name(64, 'n');
    const std::string password = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKL";
    ASSERT_EQ(48U, password.size());
    const OneAuthServer far({accept()});
    EXPECT_EQ(0, logIn(GetParam(), name.c_str(), password.c_str()).result);
    const ReceivedRequest sent = far.server.request(0);
    expectLogin(pap(), sent, name, password);
    EXPECT_EQ(48U, attributeValue(sent, 2).size());

    const std::string tooLong = kPassword + std::string(39, 'p');
    ASSERT_EQ(49U, tooLong.size());
    const char *none = nullptr;
    using Inputs = std::pair<const char *, const char *>;
    for (const auto &[userName, refused] :
         {Inputs{"nemo", tooLong.c_str()}, Inputs{"nemo", none}, Inputs{none, none}}) {
        const Outcome run = logIn(GetParam(), userName, refused);
        EXPECT_THAT(run, Refused(GetParam()));
        expectSecrecy(run, kPassword);
    }
    EXPECT_EQ(1U, far.server.requestCount());
}

TEST_P(PapLogin, EmptyPasswordIsSentWithoutABlock) {
    const OneAuthServer far({accept()});
    EXPECT_EQ(0, logIn(GetParam(), "nemo", "").result);
    expectLogin(pap(), far.server.request(0), "nemo", "");
    EXPECT_EQ(Bytes(), attributeValue(far.server.request(0), 2));
}

// --- radAuthCheckAllServer ------------------------------------------------------------------------

constexpr int32_t kNoResult = kUntouched;
constexpr const char *kFailed =
    "trace radAuthCheckAllServer> \"nemo\" RADIUS Authentication failure";

Outcome authenticateEverywhere(int32_t *results) {
    return runAs("radAuthCheckAllServer",
                 [results] { return radAuthCheckAllServer("nemo", kPassword, results); });
}

TEST(RadAuthCheckAllServer, EveryServerHasItsSlotAndTheLastOneDecides) {
    const ScriptedServer first(kSecret, {accept(Attributes().addText(18, "first"))});
    const SilentPort second;
    const ScriptedServer third("third secret", {reject(Attributes().addText(18, "third"))});
    const ScriptedServer fourth(kSecret, {challenge(Attributes().addText(18, "fourth"))});
    const ScriptedServer fifth(kSecret, {accept(Attributes().addText(18, "fifth"))});
    ServerEntry thirdEntry = serverEntry(third, kPatience);
    thirdEntry.extra = "gateway-7";
    const ConfiguredLibrary library(
        {.authServers = {serverEntry(first, kPatience), serverEntry(second, 0), thirdEntry,
                         serverEntry(fourth, kPatience), serverEntry(fifth, kPatience)}});

    std::array<int32_t, 8> results{};
    results.fill(kNoResult);
    const Outcome accepted = authenticateEverywhere(results.data());
    EXPECT_THAT(results, ElementsAre(2, -1, 3, 11, 2, kNoResult, kNoResult, kNoResult));
    EXPECT_THAT(accepted, Ended(0, "Reply-Message: fifth\n",
                                {"trace radAuthCheckAllServer> \"nemo\" RADIUS Authentication OK",
                                 "trace radAuthCheckAllServer> Attributes Received: "}));

    expectLogin(pap(), first.request(0), "nemo", kPassword);
    expectAccessRequest(third.request(0), "third secret",
                        pap().attributes({}, "nemo", kPassword).addText(32, "gateway-7"));
    expectLogin(pap(), fourth.request(0), "nemo", kPassword);
    expectLogin(pap(), fifth.request(0), "nemo", kPassword);
    const auto identifierAfter = [&](unsigned tries) {
        return static_cast<uint8_t>(first.request(0).identifier() + tries);
    };
    EXPECT_EQ(identifierAfter(2), third.request(0).identifier());
    EXPECT_EQ(identifierAfter(3), fourth.request(0).identifier());
    EXPECT_EQ(identifierAfter(4), fifth.request(0).identifier());
}

TEST(RadAuthCheckAllServer, LastServerMayRefuseWhatOthersAccepted) {
    const ScriptedServer first(kSecret, {accept()});
    const ScriptedServer last(kSecret, {reject()});
    const ConfiguredLibrary library(
        {.authServers = {serverEntry(first, kPatience), serverEntry(last, kPatience)}});
    std::array<int32_t, 2> results{};
    const Outcome run = authenticateEverywhere(results.data());
    EXPECT_THAT(results, ElementsAre(2, 3));
    EXPECT_THAT(run, Ended(-1, "", {kFailed}));
    EXPECT_PROBLEMS(run);
}

TEST(RadAuthCheckAllServer, ReplyOfAnEarlierServerIsNotShown) {
    const ScriptedServer first(kSecret, {accept(grant())});
    const SilentPort last;
    const ConfiguredLibrary library(
        {.authServers = {serverEntry(first, kPatience), serverEntry(last, 0)}});
    std::array<int32_t, 2> results{};
    const Outcome run = authenticateEverywhere(results.data());
    EXPECT_THAT(results, ElementsAre(2, -1));
    EXPECT_THAT(run, Ended(-1, "", {kFailed}));
}

TEST(RadAuthCheckAllServer, MissingResultsAreAFailure) {
    const OneAuthServer far({accept()});
    EXPECT_THAT(authenticateEverywhere(nullptr), Ended(-1, "", {kFailed}));
}

TEST(RadAuthCheckAllServer, RefusedInputsLeaveTheResultsAlone) {
    const OneAuthServer far({accept()});
    int32_t result = kNoResult;
    EXPECT_EQ(-1, radAuthCheckAllServer(nullptr, kPassword, &result));
    EXPECT_EQ(kNoResult, result);
}

}  // namespace
}  // namespace lanyard::test::pap_test
