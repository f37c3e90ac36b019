// PAP logins: what goes out, what is said of the outcome, and the limits that a server grants.
#include <array>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ostream>

#include <lanyard/radius/dict.h>
#include <lanyard/radius/methods.h>

#include "tests/support/failing_partition.h"
#include "tests/unit/login/outcome.h"

namespace lanyard::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr const char *kOk = "\"nemo\" RADIUS Authentication OK\n";
constexpr const char *kFailure = "\"nemo\" RADIUS Authentication failure\n";
constexpr const char *kRefusal = "Invalid username or password\n";
constexpr const char *kPassword = "arctangent";

constexpr uint32_t kUntouched = 4711;

// The request of every PAP login, up to Message-Authenticator.
Attributes request(std::string_view userName, std::string_view password) {
    return Attributes()
        .addText(1, userName)
        .add(2, padded(password))
        .addInteger(6, 8)
        .addAddress(4, kDeviceAddress);
}

// One of each kind that is shown differently.
Attributes grant() {
    return Attributes().addText(18, "Hello").addInteger(27, 7201).addText(24, "ab");
}

constexpr const char *kShownGrant = "Reply-Message: Hello\nState: 0x6162\n";

// --- What the three entry points have in common -----------------------------------------------

struct EntryPoint {
    const char *name;
    int (*login)(const char *userName, const char *password);
    int refusalLevel;
    int failureLevel;
};

void PrintTo(const EntryPoint &entryPoint, std::ostream *stream) {
    *stream << entryPoint.name;
}

int loginEverywhere(const char *userName, const char *password) {
    std::array<int32_t, 8> results{};
    return radAuthCheckAllServer(userName, password, results.data());
}

int loginForLimits(const char *userName, const char *password) {
    uint32_t idle = 0;
    uint32_t session = 0;
    return radAuthAndGetAttributes(userName, password, &idle, &session);
}

class PapLogin : public testing::TestWithParam<EntryPoint> {
  protected:
    static Outcome login(const char *userName = "nemo", const char *password = kPassword) {
        return runAs(GetParam().name, [=] { return GetParam().login(userName, password); });
    }

    static auto failureLine() {
        return Logged(7, GetParam().failureLevel, GetParam().name, kFailure);
    }
};

INSTANTIATE_TEST_SUITE_P(
    EntryPoints, PapLogin,
    testing::Values(EntryPoint{"radAuth", radAuth, kError, kError},
                    EntryPoint{"radAuthCheckAllServer", loginEverywhere, kTrace, kTrace},
                    EntryPoint{"radAuthAndGetAttributes", loginForLimits, kError, kTrace}),
    [](const auto &instance) { return std::string(instance.param.name); });

TEST_P(PapLogin, RequestCarriesNamePasswordAndServiceType) {
    const OneAuthServer far({accept()});
    EXPECT_EQ(0, login().result);
    ASSERT_EQ(1U, far.server.requestCount());
    expectAccessRequest(far.server.request(0), kSecret, request("nemo", kPassword));
}

TEST_P(PapLogin, PasswordTravelsHidden) {
    const OneAuthServer far({accept()});
    EXPECT_EQ(0, login().result);
    EXPECT_THAT(toText(far.server.request(0)), Not(HasSubstr(kPassword)));
}

TEST_P(PapLogin, NasIdentifierOfTheServerTakesThePlaceOfTheAddress) {
    const ScriptedServer server(kSecret, {accept()});
    ServerEntry entry = serverEntry(server, kPatience);
    entry.extra = "gateway-7";
    const ConfiguredLibrary library({.authServers = {entry}});
    EXPECT_EQ(0, login().result);
    expectAccessRequest(server.request(0), kSecret,
                        Attributes()
                            .addText(1, "nemo")
                            .add(2, padded(kPassword))
                            .addInteger(6, 8)
                            .addText(32, "gateway-7"));
}

TEST_P(PapLogin, LongestNameAndPasswordAreSent) {
    const std::string name(64, 'n');
    const std::string password = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKL";
    ASSERT_EQ(48U, password.size());
    const OneAuthServer far({accept()});
    EXPECT_EQ(0, login(name.c_str(), password.c_str()).result);
    const ReceivedRequest sent = far.server.request(0);
    expectAccessRequest(sent, kSecret, request(name, password));
    EXPECT_EQ(48U, attributeValue(sent, 2).size());
}

TEST_P(PapLogin, EmptyPasswordIsSentWithoutABlock) {
    const OneAuthServer far({accept()});
    EXPECT_EQ(0, login("nemo", "").result);
    expectAccessRequest(far.server.request(0), kSecret, request("nemo", ""));
}

TEST_P(PapLogin, InputsOutOfBoundsAreRefusedAndNothingIsSent) {
    const std::string longName(65, 'n');
    const std::string longPassword(49, 'p');
    const OneAuthServer far({});
    using Login = std::pair<const char *, const char *>;
    for (const auto &[name, password] :
         {Login{longName.c_str(), kPassword}, Login{"nemo", longPassword.c_str()},
          Login{nullptr, kPassword}, Login{"nemo", nullptr}, Login{nullptr, nullptr}}) {
        const Outcome run = login(name, password);
        EXPECT_EQ(-1, run.result);
        EXPECT_EQ("", run.output);
        EXPECT_THAT(run.lines,
                    ElementsAre(Logged(7, GetParam().refusalLevel, GetParam().name, kRefusal)));
    }
    EXPECT_EQ(0U, far.server.requestCount());
}

TEST_P(PapLogin, OnlyAnAcceptIsASuccess) {
    for (const uint8_t code : Bytes{1, 3, 4, 5, 11, 12}) {
        const OneAuthServer far({answer(code)});
        const Outcome run = login();
        EXPECT_EQ(-1, run.result) << int{code};
        EXPECT_EQ("", run.output);
        EXPECT_THAT(run.told, ElementsAre(failureLine()));
    }
}

TEST_P(PapLogin, SilentServerIsAFailure) {
    const SilentPort silent;
    const ConfiguredLibrary library({.authServers = {serverEntry(silent, 0, 1)}});
    const Outcome run = login();
    EXPECT_EQ(-1, run.result);
    EXPECT_EQ("", run.output);
    EXPECT_THAT(run.told, ElementsAre(failureLine()));
    EXPECT_THAT(run.lines,
                Contains(Logged(7, kError, "radSendtoServer",
                                "radSendtoServer: No reply from RADIUS server 127.0.0.1:" +
                                    std::to_string(silent.port()) + "\n")));
    EXPECT_EQ(2U, silent.received().size());
}

TEST_P(PapLogin, ForgedAcceptIsAFailureAndNotShown) {
    const OneAuthServer far({accept(grant()).withWrongAuthenticator()});
    const Outcome run = login();
    EXPECT_EQ(-1, run.result);
    EXPECT_EQ("", run.output);
    EXPECT_THAT(run.told, ElementsAre(failureLine()));
}

TEST_P(PapLogin, FailsWithoutServers) {
    const ConfiguredLibrary library;
    const Outcome run = login();
    EXPECT_EQ(-1, run.result);
    EXPECT_EQ("", run.output);
    EXPECT_THAT(run.told, ElementsAre(failureLine()));
}

TEST_P(PapLogin, AccountingServersAreNotAsked) {
    const OneAcctServer far({accept()});
    EXPECT_EQ(-1, login().result);
    EXPECT_EQ(0U, far.server.requestCount());
}

TEST_P(PapLogin, NextServerDecidesWhenOneIsSilent) {
    const SilentPort silent;
    const ScriptedServer server(kSecret, {accept()});
    const ConfiguredLibrary library(
        {.authServers = {serverEntry(silent, 0), serverEntry(server, kPatience)}});
    EXPECT_EQ(0, login().result);
    expectAccessRequest(server.request(0), kSecret, request("nemo", kPassword));
    const std::vector<Bytes> received = silent.received();
    ASSERT_EQ(1U, received.size());
    EXPECT_NE(received[0].at(1), server.request(0).identifier());
}

TEST_P(PapLogin, NeitherPasswordNorSecretGetsIntoTheLog) {
    OneAuthServer far(
        {accept(grant()), reject(grant()), challenge(grant()), accept().withWrongAuthenticator()});
    for (int calls = 0; calls < 4; ++calls) {
        const Outcome run = login();
        EXPECT_THAT(run.lines, Not(IsEmpty()));
        expectSecrecy(run, kPassword);
    }
    EXPECT_EQ(0U, far.server.unusedActions());
    const std::string longName = "nemo" + std::string(61, 'n');
    expectSecrecy(login(longName.c_str(), kPassword), kPassword);
    const std::string longPassword = kPassword + std::string(39, 'p');
    expectSecrecy(login("nemo", longPassword.c_str()), kPassword);
}

TEST_P(PapLogin, RequestThatCannotBeMadeFailsWithoutAMessageOfItsOwn) {
    const OneAuthServer far({});
    for (const unsigned pair : {1U, 2U, 3U}) {
        failAllocation(pair);
        const Outcome run = login();
        stopFailing();
        EXPECT_EQ(-1, run.result);
        EXPECT_EQ("", run.output);
        EXPECT_THAT(run.lines,
                    ElementsAre(Logged(7, kMemory, "radPairNew", "radPairNew: out of memory\n")));
    }
    EXPECT_EQ(0U, far.server.requestCount());
}

TEST_P(PapLogin, EveryAllocationMayFail) {
    OneAuthServer far({});
    far.server.otherwise(accept(grant().addMessageAuthenticator()));
    unsigned runs = 0;
    const unsigned failed = forEachFailingAllocation([&runs] {
        constexpr unsigned kOwnPairs = 3;
        const Outcome run = login();
        EXPECT_EQ(allocationFailed() ? -1 : 0, run.result);
        if (allocationFailed()) {
            EXPECT_EQ("", run.output);
            if (++runs <= kOwnPairs) {
                EXPECT_THAT(run.told, IsEmpty());
            } else {
                EXPECT_THAT(run.told, ElementsAre(failureLine()));
            }
        }
    });
    // Five pairs of the request, the request, the reply and its four pairs.
    EXPECT_GE(failed, 11U);
}

// --- radAuth ----------------------------------------------------------------------------------

Outcome authenticate() {
    return runAs("radAuth", [] { return radAuth("nemo", kPassword); });
}

TEST(RadAuth, AcceptIsPrinted) {
    const OneAuthServer far({accept()});
    const Outcome run = authenticate();
    EXPECT_EQ(0, run.result);
    EXPECT_EQ("\"nemo\" RADIUS Authentication OK\n", run.output);
    EXPECT_THAT(run.told, IsEmpty());
    EXPECT_THAT(run.problems, IsEmpty());
}

TEST(RadAuth, NameIsPrintedAsItIs) {
    const OneAuthServer far({accept(), reject()});
    const auto login = [] { return radAuth("100%s \"n\"\xc3\xa9", kPassword); };
    EXPECT_EQ("\"100%s \"n\"\xc3\xa9\" RADIUS Authentication OK\n", runAs("radAuth", login).output);
    EXPECT_THAT(runAs("radAuth", login).problems,
                ElementsAre(Logged(7, kError, "radAuth",
                                   "\"100%s \"n\"\xc3\xa9\" RADIUS Authentication failure\n")));
}

TEST(RadAuth, AttributesOfAnAcceptAreShownInOrder) {
    const OneAuthServer far({accept(grant())});
    const Outcome run = authenticate();
    EXPECT_EQ(0, run.result);
    EXPECT_EQ(
        "\"nemo\" RADIUS Authentication OK\n"
        "Attributes Received: \n"
        "Reply-Message: Hello\n"
        "State: 0x6162\n",
        run.output);
    EXPECT_THAT(run.told, ElementsAre(Logged(7, kDump, "radPairShow", "Session-Timeout: 7201\n")));
    EXPECT_THAT(run.problems, IsEmpty());
}

TEST(RadAuth, RejectAndChallengeFailAndTheirAttributesAreShown) {
    OneAuthServer far({reject(grant()), challenge(grant())});
    for (int calls = 0; calls < 2; ++calls) {
        const Outcome run = authenticate();
        EXPECT_EQ(-1, run.result);
        EXPECT_EQ(
            "Attributes Received: \n"
            "Reply-Message: Hello\n"
            "State: 0x6162\n",
            run.output);
        EXPECT_THAT(run.told,
                    ElementsAre(Logged(7, kError, "radAuth", kFailure),
                                Logged(7, kDump, "radPairShow", "Session-Timeout: 7201\n")));
        EXPECT_EQ(1U, run.problems.size());
    }
    EXPECT_EQ(0U, far.server.unusedActions());
}

TEST(RadAuth, AccountingResponseFailsAndItsAttributesAreShown) {
    const OneAuthServer far({accountingResponse(grant())});
    const Outcome run = authenticate();
    EXPECT_EQ(-1, run.result);
    EXPECT_EQ(std::string("Attributes Received: \n") + kShownGrant, run.output);
    EXPECT_THAT(run.problems, ElementsAre(Logged(7, kError, "radAuth", kFailure)));
}

TEST(RadAuth, RejectOfTheFirstServerIsFinal) {
    const ScriptedServer first(kSecret, {reject()});
    const ScriptedServer second(kSecret, {accept()});
    const ConfiguredLibrary library(
        {.authServers = {serverEntry(first, kPatience), serverEntry(second, kPatience)}});
    EXPECT_EQ(-1, authenticate().result);
    EXPECT_EQ(1U, first.requestCount());
    EXPECT_EQ(0U, second.requestCount());
}

// --- radAuthCheckAllServer --------------------------------------------------------------------

Outcome authenticateEverywhere(int32_t *results) {
    return runAs("radAuthCheckAllServer",
                 [results] { return radAuthCheckAllServer("nemo", kPassword, results); });
}

TEST(RadAuthCheckAllServer, AcceptIsTracedAndItsAttributesAreShown) {
    const OneAuthServer far({accept(grant())});
    int32_t result = 0;
    const Outcome run = authenticateEverywhere(&result);
    EXPECT_EQ(0, run.result);
    EXPECT_EQ(2, result);
    EXPECT_EQ(kShownGrant, run.output);
    EXPECT_THAT(run.told,
                ElementsAre(Logged(7, kTrace, "radAuthCheckAllServer", kOk),
                            Logged(7, kTrace, "radAuthCheckAllServer", "Attributes Received: \n"),
                            Logged(7, kDump, "radPairShow", "Session-Timeout: 7201\n")));
    EXPECT_THAT(run.problems, IsEmpty());
}

TEST(RadAuthCheckAllServer, RejectAndChallengeAreTracedAndTheirAttributesAreShown) {
    OneAuthServer far({reject(grant()), challenge(grant())});
    for (const int32_t code : {3, 11}) {
        int32_t result = 0;
        const Outcome run = authenticateEverywhere(&result);
        EXPECT_EQ(-1, run.result);
        EXPECT_EQ(code, result);
        EXPECT_EQ(kShownGrant, run.output);
        EXPECT_THAT(
            run.told,
            ElementsAre(Logged(7, kTrace, "radAuthCheckAllServer", kFailure),
                        Logged(7, kTrace, "radAuthCheckAllServer", "Attributes Received: \n"),
                        Logged(7, kDump, "radPairShow", "Session-Timeout: 7201\n")));
        EXPECT_THAT(run.problems, IsEmpty());
    }
    EXPECT_EQ(0U, far.server.unusedActions());
}

TEST(RadAuthCheckAllServer, EveryServerHasItsSlotAndTheLastOneDecides) {
    const ScriptedServer first(kSecret, {accept(Attributes().addText(18, "first"))});
    const SilentPort second;
    const ScriptedServer third("third secret", {reject(Attributes().addText(18, "third"))});
    const ScriptedServer fourth(kSecret, {challenge(Attributes().addText(18, "fourth"))});
    ScriptedServer fifth(kSecret, {accept(Attributes().addText(18, "fifth"))});
    ServerEntry thirdEntry = serverEntry(third, kPatience);
    thirdEntry.extra = "gateway-7";
    const ConfiguredLibrary library(
        {.authServers = {serverEntry(first, kPatience), serverEntry(second, 0), thirdEntry,
                         serverEntry(fourth, kPatience), serverEntry(fifth, kPatience)}});

    std::array<int32_t, 8> results{};
    results.fill(kUntouched);
    const Outcome accepted = authenticateEverywhere(results.data());
    EXPECT_EQ(0, accepted.result);
    EXPECT_THAT(results, ElementsAre(2, -1, 3, 11, 2, kUntouched, kUntouched, kUntouched));
    EXPECT_EQ("Reply-Message: fifth\n", accepted.output);
    EXPECT_THAT(accepted.told,
                ElementsAre(Logged(7, kTrace, "radAuthCheckAllServer", kOk),
                            Logged(7, kTrace, "radAuthCheckAllServer", "Attributes Received: \n")));

    expectAccessRequest(first.request(0), kSecret, request("nemo", kPassword));
    expectAccessRequest(third.request(0), "third secret",
                        Attributes()
                            .addText(1, "nemo")
                            .add(2, padded(kPassword))
                            .addInteger(6, 8)
                            .addText(32, "gateway-7"));
    expectAccessRequest(fourth.request(0), kSecret, request("nemo", kPassword));
    expectAccessRequest(fifth.request(0), kSecret, request("nemo", kPassword));
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
    EXPECT_EQ(-1, run.result);
    EXPECT_THAT(results, ElementsAre(2, 3));
    EXPECT_THAT(run.told, ElementsAre(Logged(7, kTrace, "radAuthCheckAllServer", kFailure)));
    EXPECT_THAT(run.problems, IsEmpty());
}

TEST(RadAuthCheckAllServer, ReplyOfAnEarlierServerIsNotShown) {
    const ScriptedServer first(kSecret, {accept(grant())});
    const SilentPort last;
    const ConfiguredLibrary library(
        {.authServers = {serverEntry(first, kPatience), serverEntry(last, 0)}});
    std::array<int32_t, 2> results{};
    const Outcome run = authenticateEverywhere(results.data());
    EXPECT_EQ(-1, run.result);
    EXPECT_THAT(results, ElementsAre(2, -1));
    EXPECT_EQ("", run.output);
    EXPECT_THAT(run.told, ElementsAre(Logged(7, kTrace, "radAuthCheckAllServer", kFailure)));
}

TEST(RadAuthCheckAllServer, MissingResultsAreAFailure) {
    const OneAuthServer far({accept()});
    const Outcome run = authenticateEverywhere(nullptr);
    EXPECT_EQ(-1, run.result);
    EXPECT_THAT(run.told, ElementsAre(Logged(7, kTrace, "radAuthCheckAllServer", kFailure)));
}

TEST(RadAuthCheckAllServer, RefusedInputsLeaveTheResultsAlone) {
    const OneAuthServer far({accept()});
    auto result = static_cast<int32_t>(kUntouched);
    EXPECT_EQ(-1, radAuthCheckAllServer(nullptr, kPassword, &result));
    EXPECT_EQ(kUntouched, result);
}

// --- radAuthAndGetAttributes ------------------------------------------------------------------

struct Limits {
    uint32_t idle = kUntouched;
    uint32_t session = kUntouched;
};

Outcome authenticateForLimits(Limits &limits) {
    return runAs("radAuthAndGetAttributes", [&limits] {
        return radAuthAndGetAttributes("nemo", kPassword, &limits.idle, &limits.session);
    });
}

TEST(RadAuthAndGetAttributes, AcceptIsTracedAndItsAttributesArePrinted) {
    const OneAuthServer far({accept(grant())});
    Limits limits;
    const Outcome run = authenticateForLimits(limits);
    EXPECT_EQ(0, run.result);
    EXPECT_EQ(std::string("Attributes Received: \n") + kShownGrant, run.output);
    EXPECT_THAT(run.told, ElementsAre(Logged(7, kTrace, "radAuthAndGetAttributes", kOk),
                                      Logged(7, kDump, "radPairShow", "Session-Timeout: 7201\n")));
    EXPECT_THAT(run.problems, IsEmpty());
    EXPECT_EQ(121U, limits.session);
    EXPECT_EQ(kUntouched, limits.idle);
}

TEST(RadAuthAndGetAttributes, EachLimitHasItsOwnOutput) {
    const OneAuthServer far({accept(Attributes().addInteger(28, 600)),
                             accept(Attributes().addInteger(28, 60).addInteger(27, 3600))});
    Limits limits;
    EXPECT_EQ(0, authenticateForLimits(limits).result);
    EXPECT_EQ(10U, limits.idle);
    EXPECT_EQ(kUntouched, limits.session);
    EXPECT_EQ(0, authenticateForLimits(limits).result);
    EXPECT_EQ(1U, limits.idle);
    EXPECT_EQ(60U, limits.session);
}

TEST(RadAuthAndGetAttributes, LimitsOfARejectAndOfAChallengeAreTakenAsWell) {
    OneAuthServer far({reject(Attributes().addInteger(28, 600).addInteger(27, 7201)),
                       challenge(Attributes().addInteger(28, 600).addInteger(27, 7201))});
    for (int calls = 0; calls < 2; ++calls) {
        Limits limits;
        const Outcome run = authenticateForLimits(limits);
        EXPECT_EQ(-1, run.result);
        EXPECT_EQ("Attributes Received: \n", run.output);
        EXPECT_THAT(run.told,
                    ElementsAre(Logged(7, kTrace, "radAuthAndGetAttributes", kFailure),
                                Logged(7, kDump, "radPairShow", "Idle-Timeout: 600\n"),
                                Logged(7, kDump, "radPairShow", "Session-Timeout: 7201\n")));
        EXPECT_THAT(run.problems, IsEmpty());
        EXPECT_EQ(10U, limits.idle);
        EXPECT_EQ(121U, limits.session);
    }
    EXPECT_EQ(0U, far.server.unusedActions());
}

TEST(RadAuthAndGetAttributes, WithoutAReplyTheLimitsStay) {
    const OneAuthServer far(
        {accept(Attributes().addInteger(28, 600).addInteger(27, 600)).withWrongAuthenticator()});
    Limits limits;
    EXPECT_EQ(-1, authenticateForLimits(limits).result);
    EXPECT_EQ(kUntouched, limits.idle);
    EXPECT_EQ(kUntouched, limits.session);
}

TEST(RadAuthAndGetAttributes, SecondsBecomeWholeMinutesInSinglePrecision) {
    struct Case {
        uint32_t seconds;
        uint32_t minutes;
    };
    // The last group is where single precision shows: exact division would give 279622, 1118485,
    // 35791395 and 71582789.
    constexpr std::array kCases{
        Case{0, 0},
        Case{1, 1},
        Case{59, 1},
        Case{60, 1},
        Case{61, 2},
        Case{119, 2},
        Case{120, 2},
        Case{121, 3},
        Case{3600, 60},
        Case{7200, 120},
        Case{7201, 121},
        Case{16777215, 279621},
        Case{16777217, 279621},
        Case{16777261, 279621},
        Case{67109100, 1118486},
        Case{2147483648, 35791396},
        Case{4294967295, 71582792},
    };
    OneAuthServer far({});
    for (const Case &entry : kCases) {
        SCOPED_TRACE(entry.seconds);
        far.server.then(
            accept(Attributes().addInteger(27, entry.seconds).addInteger(28, entry.seconds)));
        Limits limits;
        EXPECT_EQ(0, authenticateForLimits(limits).result);
        EXPECT_EQ(entry.minutes, limits.idle);
        EXPECT_EQ(entry.minutes, limits.session);
    }
}

TEST(RadAuthAndGetAttributes, LaterLimitOfTheSameNameWins) {
    const OneAuthServer far(
        {accept(Attributes().addInteger(27, 600).addInteger(28, 1200).addInteger(27, 60).addInteger(
            28, 120))});
    Limits limits;
    EXPECT_EQ(0, authenticateForLimits(limits).result);
    EXPECT_EQ(1U, limits.session);
    EXPECT_EQ(2U, limits.idle);
}

TEST(RadAuthAndGetAttributes, LimitsAreKnownByTheirNamesInTheDictionary) {
    const OneAuthServer far(
        {accept(Attributes().addInteger(27, 60).addInteger(28, 120).addInteger(100, 180).addInteger(
            101, 240))});
    ASSERT_EQ(0, radDictAddAttr("Idle-Timeout 100 integer"));
    ASSERT_EQ(0, radDictAddAttr("Session-Timeout 101 integer"));
    ASSERT_EQ(0, radDictAddAttr("Session-Timeout-2 27 integer"));
    ASSERT_EQ(0, radDictAddAttr("idle-timeout 28 integer"));
    Limits limits;
    EXPECT_EQ(0, authenticateForLimits(limits).result);
    EXPECT_EQ(3U, limits.idle);
    EXPECT_EQ(4U, limits.session);
}

TEST(RadAuthAndGetAttributes, NamesThatOnlyResembleTheLimitsAreNone) {
    const OneAuthServer far(
        {accept(Attributes().addInteger(27, 60).addInteger(28, 120).addInteger(100, 180))});
    ASSERT_EQ(0, radDictAddAttr("Session-Timeouts 27 integer"));
    ASSERT_EQ(0, radDictAddAttr("idle-timeout 28 integer"));
    ASSERT_EQ(0, radDictAddAttr("Idle-Time 100 integer"));
    Limits limits;
    EXPECT_EQ(0, authenticateForLimits(limits).result);
    EXPECT_EQ(kUntouched, limits.idle);
    EXPECT_EQ(kUntouched, limits.session);
}

TEST(RadAuthAndGetAttributes, OutputsMayBeMissing) {
    OneAuthServer far({});
    far.server.otherwise(accept(Attributes().addInteger(28, 600).addInteger(27, 7201)));
    Limits limits;
    EXPECT_EQ(0, runAs("radAuthAndGetAttributes", [] {
                     return radAuthAndGetAttributes("nemo", kPassword, nullptr, nullptr);
                 }).result);
    EXPECT_EQ(0, runAs("radAuthAndGetAttributes", [&limits] {
                     return radAuthAndGetAttributes("nemo", kPassword, nullptr, &limits.session);
                 }).result);
    EXPECT_EQ(0, runAs("radAuthAndGetAttributes", [&limits] {
                     return radAuthAndGetAttributes("nemo", kPassword, &limits.idle, nullptr);
                 }).result);
    EXPECT_EQ(10U, limits.idle);
    EXPECT_EQ(121U, limits.session);
}

}  // namespace
}  // namespace lanyard::test
