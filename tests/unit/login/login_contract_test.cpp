// What the nine login functions share: the request, what is refused, what is said of the outcome, and
// the limits that a server grants.
#include <array>

#include <lanyard/radius/dict.h>
#include <lanyard/radius/engine.h>
#include <lanyard/radius/error.h>
#include <lanyard/radius/methods.h>

#include "tests/unit/login/methods.h"

namespace lanyard::test::login_contract_test {
namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr const char *kOddName = "100%s \"n\"\xc3\xa9";

class LoginContract : public testing::TestWithParam<Method> {
  protected:
    static const Method &method() { return GetParam(); }
    static const Family &family() { return GetParam().family(); }

    static Outcome login(const char *userName = "nemo") { return logIn(GetParam(), userName); }

    static auto failed() { return Verdict(GetParam(), false); }
};

INSTANTIATE_TEST_SUITE_P(Methods, LoginContract, testing::ValuesIn(methods()), nameOf<Method>);

// --- The request ----------------------------------------------------------------------------------

TEST_P(LoginContract, RequestCarriesItsAttributesInOrderAndNoPassword) {
    const FarEnd far({accept()});
    EXPECT_EQ(0, login().result);
    ASSERT_EQ(1U, far.server.requestCount());
    expectLogin(family(), far.server.request(0), "nemo", kPassword);
    EXPECT_THAT(toText(far.server.request(0)), Not(HasSubstr(kPassword)));
    EXPECT_EQ(family().runsProgram ? 1U : 0U, far.program.callCount());
}

TEST_P(LoginContract, NasIdentifierOfTheServerTakesThePlaceOfTheAddress) {
    const ScriptedServer server(kSecret, {accept()});
    ServerEntry entry = serverEntry(server, kPatience);
    entry.extra = "gateway-7";
    const ConfiguredLibrary library({.authServers = {entry}});
    const StandInProgram program(library.root(), answering(ntResponse()));
    EXPECT_EQ(0, login().result);
    expectLogin(family(), server.request(0), "nemo", kPassword, "gateway-7");
}

TEST_P(LoginContract, NameOf64CharactersIsSentAndOf65Refused) {
    const FarEnd far({accept()});
    const std::string name(64, 'n');
    EXPECT_EQ(0, login(name.c_str()).result);
    expectLogin(family(), far.server.request(0), name, kPassword);

    const std::string tooLong(65, 'n');
    for (const char *refused : {tooLong.c_str(), static_cast<const char *>(nullptr)}) {
        Limits limits;
        const Outcome run = logIn(method(), refused, kPassword, &limits);
        EXPECT_THAT(run, Refused(method()));
        expectSecrecy(run, kPassword);
        EXPECT_EQ(Limits(), limits);
    }
    EXPECT_EQ(1U, far.server.requestCount());
    EXPECT_EQ(family().runsProgram ? 1U : 0U, far.program.callCount());
}

TEST_P(LoginContract, RefusedBeforeItsRequest_LeavesNoRecordOfAnEarlierOne) {
    const ConfiguredLibrary library;
    RadPair *pairs = nullptr;
    ASSERT_NE(nullptr, radPairAdd(&pairs, RAD_ATTR_USER_NAME, "nemo", 0));
    RadPair *reply = nullptr;
    EXPECT_EQ(-1, radBuildAndSendReq(RAD_CODE_ACCESS_REQUEST, pairs, &reply));
    radPairListFree(pairs);
    ASSERT_NE(nullptr, radLastError());
    EXPECT_THAT(login(std::string(RAD_USER_NAME_MAX + 1, 'n').c_str()), Refused(method()));
    EXPECT_EQ(nullptr, radLastError());
}

TEST_P(LoginContract, AccountingServersAreNotAsked) {
    const OneAcctServer far({accept()});
    EXPECT_EQ(-1, login().result);
    EXPECT_EQ(0U, far.server.requestCount());
}

TEST_P(LoginContract, NextServerDecidesWhenOneIsSilent) {
    const SilentPort silent;
    const ScriptedServer server(kSecret, {accept()});
    const ConfiguredLibrary library(
        {.authServers = {serverEntry(silent, 0), serverEntry(server, kPatience)}});
    const StandInProgram program(library.root(), answering(ntResponse()));
    EXPECT_EQ(0, login().result);
    expectLogin(family(), server.request(0), "nemo", kPassword);
    const std::vector<Bytes> received = silent.received();
    ASSERT_EQ(1U, received.size());
    EXPECT_NE(received[0].at(1), server.request(0).identifier());
}

TEST_P(LoginContract, RejectOfTheFirstServerIsFinalUnlessEveryOneIsAsked) {
    const ScriptedServer first(kSecret, {reject()});
    const ScriptedServer second(kSecret, {accept()});
    const ConfiguredLibrary library(
        {.authServers = {serverEntry(first, kPatience), serverEntry(second, kPatience)}});
    EXPECT_EQ(method().asksEveryServer ? 0 : -1, login().result);
    EXPECT_EQ(1U, first.requestCount());
    EXPECT_EQ(method().asksEveryServer ? 1U : 0U, second.requestCount());
}

// --- What is said ---------------------------------------------------------------------------------

TEST_P(LoginContract, AcceptIsToldAndNothingElse) {
    const OneAuthServer far({accept()});
    Limits limits;
    const Outcome run = logIn(method(), "nemo", kPassword, &limits);
    EXPECT_THAT(run, Verdict(method(), true));
    EXPECT_PROBLEMS(run);
    EXPECT_EQ(Limits(), limits);
}

TEST_P(LoginContract, NameIsToldAsItIs) {
    const OneAuthServer far({accept(), reject()});
    EXPECT_THAT(login(kOddName), Verdict(method(), true, kOddName));
    EXPECT_THAT(login(kOddName), Verdict(method(), false, kOddName));
}

TEST_P(LoginContract, AttributesOfAnAcceptAreShownInOrder) {
    const OneAuthServer far({accept(grant())});
    Limits limits;
    EXPECT_THAT(logIn(method(), "nemo", kPassword, &limits), VerdictWithGrant(method(), true));
    EXPECT_EQ((Limits{.session = method().handsOutLimits ? 121 : kUntouched}), limits);
}

TEST_P(LoginContract, RefusalFailsAndItsAttributesAreShownByPapAndChap) {
    OneAuthServer far({});
    for (const uint8_t code : Bytes{3, 5, 11}) {
        SCOPED_TRACE(int{code});
        far.server.then(answer(code, grant().addInteger(28, 61)));
        Limits limits;
        EXPECT_THAT(logIn(method(), "nemo", kPassword, &limits),
                    VerdictWithGrant(method(), false, "packet radPairShow> Idle-Timeout: 61"));
        const bool taken = method().handsOutLimits && method().shown == Shown::kAlways;
        EXPECT_EQ(taken ? (Limits{2, 121}) : Limits(), limits);
    }
    EXPECT_EQ(0U, far.server.unusedActions());
}

TEST_P(LoginContract, OnlyAnAcceptIsASuccess) {
    for (const uint8_t code : Bytes{1, 3, 4, 5, 11, 12}) {
        SCOPED_TRACE(int{code});
        const OneAuthServer far({answer(code)});
        EXPECT_THAT(login(), failed());
    }
}

TEST_P(LoginContract, SilentServerIsAFailure) {
    const SilentPort silent;
    const ConfiguredLibrary library({.authServers = {serverEntry(silent, 0, 1)}});
    const Outcome run = login();
    EXPECT_THAT(run, failed());
    EXPECT_THAT(run.log(),
                Contains("error radSendtoServer: No reply from RADIUS server 127.0.0.1:" +
                         std::to_string(silent.port())));
    EXPECT_EQ(2U, silent.received().size());
}

TEST_P(LoginContract, ForgedAcceptIsAFailureAndNeitherShownNorTaken) {
    const OneAuthServer far({accept(grant().addInteger(28, 600)).withWrongAuthenticator()});
    Limits limits;
    EXPECT_THAT(logIn(method(), "nemo", kPassword, &limits), failed());
    EXPECT_EQ(Limits(), limits);
}

TEST_P(LoginContract, FailsWithoutServers) {
    const ConfiguredLibrary library;
    EXPECT_THAT(login(), failed());
}

TEST_P(LoginContract, NeitherPasswordNorSecretGetsIntoTheLog) {
    FarEnd far(
        {accept(grant()), reject(grant()), challenge(grant()), accept().withWrongAuthenticator()});
    for (int calls = 0; calls < 4; ++calls) {
        const Outcome run = login();
        EXPECT_THAT(run.lines, Not(IsEmpty()));
        expectSecrecy(run, kPassword);
    }
    EXPECT_EQ(0U, far.server.unusedActions());
}

// --- Without memory -------------------------------------------------------------------------------

TEST_P(LoginContract, RequestThatCannotBeMadeFailsWithoutAMessageOfItsOwn) {
    const FarEnd far({});
    for (unsigned pair = 1; pair <= family().ownPairs; ++pair) {
        failAllocation(pair);
        const Outcome run = login();
        stopFailing();
        EXPECT_THAT(run, EndedWithLog(-1, "", {"critical radPairNew: out of memory"}));
    }
    EXPECT_EQ(0U, far.server.requestCount());
    EXPECT_EQ(family().runsProgram ? 2U : 0U, far.program.callCount())
        << "it is asked once name and challenge are in the request";
}

TEST_P(LoginContract, EveryAllocationMayFail) {
    FarEnd far({});
    far.server.otherwise(accept(grant().addMessageAuthenticator()));
    unsigned runs = 0;
    const unsigned failures = forEachFailingAllocation([&runs] {
        const Outcome run = login();
        if (!allocationFailed()) {
            EXPECT_EQ(0, run.result);
        } else if (++runs > family().ownPairs) {
            EXPECT_THAT(run, failed());
        } else {
            EXPECT_THAT(run, Ended(-1));
        }
    });
    // Its own pairs and two more, the request, the reply and its four pairs.
    EXPECT_GE(failures, family().ownPairs + 8);
}

// --- Limits ---------------------------------------------------------------------------------------

class LoginForLimits : public testing::TestWithParam<Method> {
  protected:
    // The limits that a login hands out for the next reply.
    Limits limitsOf(const Attributes &attributes, Limits limits = {}) {
        far_.server.then(accept(attributes));
        EXPECT_EQ(0, logIn(GetParam(), "nemo", kPassword, &limits).result);
        return limits;
    }

    OneAuthServer far_{std::vector<Action>{}};
};

INSTANTIATE_TEST_SUITE_P(Methods, LoginForLimits, testing::ValuesIn(methodsWithLimits()),
                         nameOf<Method>);

TEST_P(LoginForLimits, EachHasItsOwnPlace) {
    const Limits idle = limitsOf(Attributes().addInteger(28, 600));
    EXPECT_EQ((Limits{.idle = 10}), idle);
    EXPECT_EQ((Limits{1, 60}),
              limitsOf(Attributes().addInteger(28, 60).addInteger(27, 3600), idle));
}

TEST_P(LoginForLimits, SecondsBecomeWholeMinutesInSinglePrecision) {
    struct Case {
        uint32_t seconds;
        uint32_t minutes;
    };
    // The last group is where single precision shows: exact division would give 279622, 1118485,
    // 35791395 and 71582789.
    constexpr auto kCases = std::to_array<Case>({{0, 0},
                                                 {1, 1},
                                                 {59, 1},
                                                 {60, 1},
                                                 {61, 2},
                                                 {119, 2},
                                                 {120, 2},
                                                 {121, 3},
                                                 {3600, 60},
                                                 {3601, 61},
                                                 {7200, 120},
                                                 {7201, 121},
                                                 {16777215, 279621},
                                                 {16777217, 279621},
                                                 {16777261, 279621},
                                                 {67109100, 1118486},
                                                 {2147483648, 35791396},
                                                 {4294967295, 71582792}});
    for (const auto &[seconds, minutes] : kCases) {
        EXPECT_EQ((Limits{minutes, minutes}),
                  limitsOf(Attributes().addInteger(27, seconds).addInteger(28, seconds)))
            << seconds;
    }
}

TEST_P(LoginForLimits, LaterOneOfTheSameNameWins) {
    const Attributes first = Attributes().addInteger(27, 600).addInteger(28, 1200);
    EXPECT_EQ((Limits{2, 1}), limitsOf(Attributes(first).addInteger(27, 60).addInteger(28, 120)));
}

TEST_P(LoginForLimits, AreKnownByTheirNamesInTheDictionary) {
    ASSERT_EQ(0, radDictAddAttr("Idle-Timeout 100 integer"));
    ASSERT_EQ(0, radDictAddAttr("Session-Timeout 101 integer"));
    ASSERT_EQ(0, radDictAddAttr("Session-Timeout-2 27 integer"));
    ASSERT_EQ(0, radDictAddAttr("idle-timeout 28 integer"));
    const Attributes renamed = Attributes().addInteger(27, 60).addInteger(28, 120);
    EXPECT_EQ((Limits{3, 4}),
              limitsOf(Attributes(renamed).addInteger(100, 180).addInteger(101, 240)));
}

TEST_P(LoginForLimits, NamesThatOnlyResembleThemAreNone) {
    ASSERT_EQ(0, radDictAddAttr("Session-Timeouts 27 integer"));
    ASSERT_EQ(0, radDictAddAttr("idle-timeout 28 integer"));
    ASSERT_EQ(0, radDictAddAttr("Idle-Time 100 integer"));
    EXPECT_EQ(Limits(),
              limitsOf(Attributes().addInteger(27, 60).addInteger(28, 120).addInteger(100, 180)));
}

TEST_P(LoginForLimits, PlacesMayBeMissing) {
    far_.server.otherwise(accept(Attributes().addInteger(28, 600).addInteger(27, 7201)));
    Limits limits;
    const auto login = [](uint32_t *idle, uint32_t *session) {
        return runAs(GetParam().name,
                     [=] { return GetParam().login("nemo", kPassword, idle, session); })
            .result;
    };
    EXPECT_EQ(0, login(nullptr, nullptr));
    EXPECT_EQ(0, login(nullptr, &limits.session));
    EXPECT_EQ(0, login(&limits.idle, nullptr));
    EXPECT_EQ((Limits{10, 121}), limits);
}

}  // namespace
}  // namespace lanyard::test::login_contract_test
