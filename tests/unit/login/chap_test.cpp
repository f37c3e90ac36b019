// CHAP: what goes out, what is said of the outcome, and the limits that a server grants.
#include <array>
#include <climits>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ostream>

#include <lanyard/radius/methods.h>

#include "tests/support/failing_partition.h"
#include "tests/support/guard_page.h"
#include "tests/unit/login/outcome.h"

namespace lanyard::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

constexpr const char *kOk = "\"nemo\" RADIUS Authentication OK\n";
constexpr const char *kFailure = "\"nemo\" RADIUS Authentication failure\n";
constexpr const char *kRefusal = "Invalid username, challenge or response\n";
constexpr const char *kTooLong = "radPairAssign: bad attribute value length\n";
constexpr int kUntouched = 4711;

const Bytes kChallenge = "000102030405060708090a0b0c0d0e0f"_hex;
// It has an octet 0 in it, as a response may.
const Bytes kResponse = "2a 00112233445566778899aabbccddeeff"_hex;

// --- What the two entry points have in common -----------------------------------------------------

Attributes request(std::string_view userName, ByteView response = kResponse,
                   ByteView challenge = kChallenge) {
    return Attributes()
        .addText(1, userName)
        .addInteger(6, 8)
        .add(3, response)
        .add(60, challenge)
        .addAddress(4, kDeviceAddress);
}

// One of each kind that is shown differently.
Attributes grant() {
    return Attributes().addText(18, "Hello").addInteger(27, 7201).addText(24, "ab");
}

constexpr const char *kShownGrant = "Reply-Message: Hello\nState: 0x6162\n";

struct LoginArguments {
    const char *userName;
    const uint8_t *response;
    int responseLength;
    const uint8_t *challenge;
    int challengeLength;
};

struct EntryPoint {
    const char *name;
    int (*login)(const char *userName, const uint8_t *response, int responseLength,
                 const uint8_t *challenge, int challengeLength);
    int refusalLevel;
    int failureLevel;
};

void PrintTo(const EntryPoint &entryPoint, std::ostream *stream) {
    *stream << entryPoint.name;
}

int loginForLimits(const char *userName, const uint8_t *response, int responseLength,
                   const uint8_t *challenge, int challengeLength) {
    int idle = 0;
    int session = 0;
    return radChapAuthAndGetAttributes(userName, response, responseLength, challenge,
                                       challengeLength, &idle, &session);
}

class ChapLogin : public testing::TestWithParam<EntryPoint> {
  protected:
    static Outcome login(const LoginArguments &arguments) {
        return runAs(GetParam().name, [&arguments] {
            return GetParam().login(arguments.userName, arguments.response,
                                    arguments.responseLength, arguments.challenge,
                                    arguments.challengeLength);
        });
    }

    static Outcome login(const char *userName = "nemo", ByteView response = kResponse,
                         ByteView challenge = kChallenge) {
        return login({userName, response.data(), static_cast<int>(response.size()),
                      challenge.data(), static_cast<int>(challenge.size())});
    }

    static void expectRefused(const Outcome &run) {
        EXPECT_EQ(-1, run.result);
        EXPECT_EQ("", run.output);
        EXPECT_THAT(run.lines,
                    ElementsAre(Logged(7, GetParam().refusalLevel, GetParam().name, kRefusal)));
    }

    static auto failureLine() {
        return Logged(7, GetParam().failureLevel, GetParam().name, kFailure);
    }
};

INSTANTIATE_TEST_SUITE_P(EntryPoints, ChapLogin,
                         testing::Values(EntryPoint{"radChapAuth", radChapAuth, kError, kError},
                                         EntryPoint{"radChapAuthAndGetAttributes", loginForLimits,
                                                    kTrace, kTrace}),
                         [](const auto &instance) { return std::string(instance.param.name); });

TEST_P(ChapLogin, RequestCarriesNameServiceTypeResponseAndChallenge) {
    const OneAuthServer far({accept()});
    EXPECT_EQ(0, login().result);
    ASSERT_EQ(1U, far.server.requestCount());
    EXPECT_THAT(attributeTypes(far.server.request(0)), ElementsAre(1, 6, 3, 60, 4, 80));
    expectAccessRequest(far.server.request(0), kSecret, request("nemo"));
}

TEST_P(ChapLogin, ResponseAndChallengeAreSentAsTheyAre) {
    const OneAuthServer far({accept(), accept(), accept()});
    const Bytes longest(253, 0xc3);
    Bytes nulAt17(60, 0x5a);
    nulAt17[17] = 0;
    EXPECT_EQ(0, login("nemo", "00"_hex, "ff"_hex).result);
    EXPECT_EQ(0, login("nemo", kResponse, longest).result);
    EXPECT_EQ(0, login("nemo", nulAt17, kChallenge).result);
    expectAccessRequest(far.server.request(0), kSecret, request("nemo", "00"_hex, "ff"_hex));
    expectAccessRequest(far.server.request(1), kSecret, request("nemo", kResponse, longest));
    expectAccessRequest(far.server.request(2), kSecret, request("nemo", nulAt17, kChallenge));
}

TEST_P(ChapLogin, NameOf64CharactersIsSentAndOf65Refused) {
    const OneAuthServer far({accept()});
    const std::string name(64, 'n');
    EXPECT_EQ(0, login(name.c_str()).result);
    expectAccessRequest(far.server.request(0), kSecret, request(name));
    expectRefused(login((name + 'n').c_str()));
    EXPECT_EQ(1U, far.server.requestCount());
}

TEST_P(ChapLogin, ResponseOf48OctetsIsSentAndOf49Refused) {
    const OneAuthServer far({accept()});
    const Bytes octets(49, 0x5a);
    EXPECT_EQ(0, login("nemo", ByteView(octets).first(48)).result);
    expectAccessRequest(far.server.request(0), kSecret,
                        request("nemo", ByteView(octets).first(48)));
    expectRefused(login("nemo", octets));
    expectRefused(login("nemo", Bytes(200, 0x5a)));
    EXPECT_EQ(1U, far.server.requestCount());
}

TEST_P(ChapLogin, MissingAndEmptyInputsAreRefused) {
    const OneAuthServer far({});
    const uint8_t *response = kResponse.data();
    const uint8_t *challenge = kChallenge.data();
    expectRefused(login({nullptr, response, 17, challenge, 16}));
    expectRefused(login({"nemo", nullptr, 17, challenge, 16}));
    expectRefused(login({"nemo", response, 17, nullptr, 16}));
    for (const int length : {0, -1, INT_MIN}) {
        SCOPED_TRACE(length);
        expectRefused(login({"nemo", response, length, challenge, 16}));
        expectRefused(login({"nemo", response, 17, challenge, length}));
    }
    EXPECT_EQ(0U, far.server.requestCount());
}

TEST_P(ChapLogin, StaysWithinItsInputs) {
    OneAuthServer far({});
    far.server.otherwise(accept());
    const Bytes withoutNul(17, 0x5a);
    for (const GuardedBuffer::Edge edge : {GuardedBuffer::Edge::start, GuardedBuffer::Edge::end}) {
        GuardedBuffer response(withoutNul, edge);
        response.makeReadOnly();
        GuardedBuffer challenge(kChallenge, edge);
        challenge.makeReadOnly();
        EXPECT_EQ(0, login("nemo", response.bytes(), challenge.bytes()).result);
        expectAccessRequest(far.server.request(far.server.requestCount() - 1), kSecret,
                            request("nemo", withoutNul));
    }
}

TEST_P(ChapLogin, ValueThatNoAttributeHoldsFailsWithTheMessageOfThePair) {
    const OneAuthServer far({});
    Bytes response(254, 0);
    const Bytes challenge(254, 1);
    for (const Outcome &run : {login("nemo", response), login("nemo", kResponse, challenge)}) {
        EXPECT_EQ(-1, run.result);
        EXPECT_EQ("", run.output);
        EXPECT_THAT(run.lines, ElementsAre(Logged(7, kError, "radPairAssign", kTooLong)));
    }
    EXPECT_EQ(0U, far.server.requestCount());
}

TEST_P(ChapLogin, OnlyAnAcceptIsASuccess) {
    for (const uint8_t code : Bytes{1, 3, 4, 5, 11, 12}) {
        const OneAuthServer far({answer(code)});
        const Outcome run = login();
        EXPECT_EQ(-1, run.result) << int{code};
        EXPECT_EQ("", run.output);
        EXPECT_THAT(run.told, ElementsAre(failureLine()));
    }
}

TEST_P(ChapLogin, SilentServerIsAFailure) {
    const SilentPort silent;
    const ConfiguredLibrary library({.authServers = {serverEntry(silent, 0)}});
    const Outcome run = login();
    EXPECT_EQ(-1, run.result);
    EXPECT_EQ("", run.output);
    EXPECT_THAT(run.told, ElementsAre(failureLine()));
    EXPECT_EQ(1U, silent.received().size());
}

TEST_P(ChapLogin, ForgedAcceptIsAFailureAndNotShown) {
    const OneAuthServer far({accept(grant()).withWrongAuthenticator()});
    const Outcome run = login();
    EXPECT_EQ(-1, run.result);
    EXPECT_EQ("", run.output);
    EXPECT_THAT(run.told, ElementsAre(failureLine()));
}

TEST_P(ChapLogin, FailsWithoutServers) {
    const ConfiguredLibrary library;
    const Outcome run = login();
    EXPECT_EQ(-1, run.result);
    EXPECT_EQ("", run.output);
    EXPECT_THAT(run.told, ElementsAre(failureLine()));
}

TEST_P(ChapLogin, NextServerDecidesWhenOneIsSilent) {
    const SilentPort silent;
    const ScriptedServer server(kSecret, {accept()});
    const ConfiguredLibrary library(
        {.authServers = {serverEntry(silent, 0), serverEntry(server, kPatience)}});
    EXPECT_EQ(0, login().result);
    expectAccessRequest(server.request(0), kSecret, request("nemo"));
    EXPECT_EQ(1U, silent.received().size());
}

TEST_P(ChapLogin, SecretDoesNotGetIntoTheLog) {
    OneAuthServer far({accept(grant()), reject(grant()), accept().withWrongAuthenticator()});
    for (int calls = 0; calls < 3; ++calls) {
        const Outcome run = login();
        EXPECT_THAT(run.lines, Not(IsEmpty()));
        expectSecrecy(run);
    }
    EXPECT_EQ(0U, far.server.unusedActions());
}

TEST_P(ChapLogin, RequestThatCannotBeMadeFailsWithoutAMessageOfItsOwn) {
    const OneAuthServer far({});
    for (const unsigned pair : {1U, 2U, 3U, 4U}) {
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

TEST_P(ChapLogin, EveryAllocationMayFail) {
    OneAuthServer far({});
    far.server.otherwise(accept(grant().addMessageAuthenticator()));
    unsigned runs = 0;
    const unsigned failed = forEachFailingAllocation([&runs] {
        constexpr unsigned kOwnPairs = 4;
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
    // Six pairs of the request, the request, the reply and its four pairs.
    EXPECT_GE(failed, 12U);
}

// --- radChapAuth ----------------------------------------------------------------------------------

Outcome authenticate(const char *userName = "nemo") {
    return runAs("radChapAuth", [userName] {
        return radChapAuth(userName, kResponse.data(), 17, kChallenge.data(), 16);
    });
}

TEST(RadChapAuth, AcceptIsPrinted) {
    const OneAuthServer far({accept()});
    const Outcome run = authenticate();
    EXPECT_EQ(0, run.result);
    EXPECT_EQ(kOk, run.output);
    EXPECT_THAT(run.told, IsEmpty());
    EXPECT_THAT(run.problems, IsEmpty());
}

TEST(RadChapAuth, NameIsPrintedAsItIs) {
    const OneAuthServer far({accept(), reject()});
    EXPECT_EQ("\"100%s \"n\"\xc3\xa9\" RADIUS Authentication OK\n",
              authenticate("100%s \"n\"\xc3\xa9").output);
    EXPECT_THAT(authenticate("100%s \"n\"\xc3\xa9").problems,
                ElementsAre(Logged(7, kError, "radChapAuth",
                                   "\"100%s \"n\"\xc3\xa9\" RADIUS Authentication failure\n")));
}

TEST(RadChapAuth, AttributesOfAnAcceptAreShownInOrder) {
    const OneAuthServer far({accept(grant())});
    const Outcome run = authenticate();
    EXPECT_EQ(0, run.result);
    EXPECT_EQ(std::string(kOk) + "Attributes Received: \n" + kShownGrant, run.output);
    EXPECT_THAT(run.told, ElementsAre(Logged(7, kDump, "radPairShow", "Session-Timeout: 7201\n")));
    EXPECT_THAT(run.problems, IsEmpty());
}

TEST(RadChapAuth, RejectAndChallengeFailAndTheirAttributesAreShown) {
    OneAuthServer far({reject(grant()), challenge(grant())});
    for (int calls = 0; calls < 2; ++calls) {
        const Outcome run = authenticate();
        EXPECT_EQ(-1, run.result);
        EXPECT_EQ(std::string("Attributes Received: \n") + kShownGrant, run.output);
        EXPECT_THAT(run.told,
                    ElementsAre(Logged(7, kError, "radChapAuth", kFailure),
                                Logged(7, kDump, "radPairShow", "Session-Timeout: 7201\n")));
        EXPECT_EQ(1U, run.problems.size());
    }
    EXPECT_EQ(0U, far.server.unusedActions());
}

// --- radChapAuthAndGetAttributes ------------------------------------------------------------------

struct Limits {
    int idle = kUntouched;
    int session = kUntouched;
};

Outcome authenticateForLimits(Limits &limits) {
    return runAs("radChapAuthAndGetAttributes", [&limits] {
        return radChapAuthAndGetAttributes("nemo", kResponse.data(), 17, kChallenge.data(), 16,
                                           &limits.idle, &limits.session);
    });
}

TEST(RadChapAuthAndGetAttributes, AcceptIsTracedAndItsAttributesAreShown) {
    const OneAuthServer far({accept(grant())});
    Limits limits;
    const Outcome run = authenticateForLimits(limits);
    EXPECT_EQ(0, run.result);
    EXPECT_EQ(kShownGrant, run.output);
    EXPECT_THAT(run.told, ElementsAre(Logged(7, kTrace, "radChapAuthAndGetAttributes", kOk),
                                      Logged(7, kTrace, "radChapAuthAndGetAttributes",
                                             "Attributes Received: \n"),
                                      Logged(7, kDump, "radPairShow", "Session-Timeout: 7201\n")));
    EXPECT_THAT(run.problems, IsEmpty());
    EXPECT_EQ(121, limits.session);
    EXPECT_EQ(kUntouched, limits.idle);
}

TEST(RadChapAuthAndGetAttributes, AcceptWithoutAttributesHasNoHeading) {
    const OneAuthServer far({accept()});
    Limits limits;
    const Outcome run = authenticateForLimits(limits);
    EXPECT_EQ(0, run.result);
    EXPECT_EQ("", run.output);
    EXPECT_THAT(run.told, ElementsAre(Logged(7, kTrace, "radChapAuthAndGetAttributes", kOk)));
    EXPECT_EQ(kUntouched, limits.session);
    EXPECT_EQ(kUntouched, limits.idle);
}

TEST(RadChapAuthAndGetAttributes, EachLimitHasItsOwnOutput) {
    const OneAuthServer far({accept(Attributes().addInteger(28, 600)),
                             accept(Attributes().addInteger(28, 60).addInteger(27, 3600))});
    Limits limits;
    EXPECT_EQ(0, authenticateForLimits(limits).result);
    EXPECT_EQ(10, limits.idle);
    EXPECT_EQ(kUntouched, limits.session);
    EXPECT_EQ(0, authenticateForLimits(limits).result);
    EXPECT_EQ(1, limits.idle);
    EXPECT_EQ(60, limits.session);
}

TEST(RadChapAuthAndGetAttributes, LimitsOfARejectAndOfAChallengeAreTakenAsWell) {
    OneAuthServer far({reject(grant().addInteger(28, 61)), challenge(grant().addInteger(28, 61))});
    for (int calls = 0; calls < 2; ++calls) {
        Limits limits;
        const Outcome run = authenticateForLimits(limits);
        EXPECT_EQ(-1, run.result);
        EXPECT_EQ(kShownGrant, run.output);
        EXPECT_THAT(
            run.told,
            ElementsAre(Logged(7, kTrace, "radChapAuthAndGetAttributes", kFailure),
                        Logged(7, kTrace, "radChapAuthAndGetAttributes", "Attributes Received: \n"),
                        Logged(7, kDump, "radPairShow", "Session-Timeout: 7201\n"),
                        Logged(7, kDump, "radPairShow", "Idle-Timeout: 61\n")));
        EXPECT_THAT(run.problems, IsEmpty());
        EXPECT_EQ(2, limits.idle);
        EXPECT_EQ(121, limits.session);
    }
    EXPECT_EQ(0U, far.server.unusedActions());
}

TEST(RadChapAuthAndGetAttributes, WithoutAValidReplyTheLimitsStay) {
    const OneAuthServer far(
        {accept(Attributes().addInteger(28, 600).addInteger(27, 600)).withWrongAuthenticator()});
    Limits limits;
    EXPECT_EQ(-1, authenticateForLimits(limits).result);
    EXPECT_EQ(kUntouched, limits.idle);
    EXPECT_EQ(kUntouched, limits.session);
}

TEST(RadChapAuthAndGetAttributes, SecondsBecomeWholeMinutesInSinglePrecision) {
    struct Case {
        uint32_t seconds;
        int minutes;
    };
    // The last group is where single precision shows.
    constexpr std::array kCases{
        Case{0, 0},
        Case{1, 1},
        Case{59, 1},
        Case{60, 1},
        Case{61, 2},
        Case{3600, 60},
        Case{3601, 61},
        Case{16777217, 279621},
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

TEST(RadChapAuthAndGetAttributes, LaterLimitOfTheSameNameWins) {
    const OneAuthServer far(
        {accept(Attributes().addInteger(27, 600).addInteger(28, 1200).addInteger(27, 60).addInteger(
            28, 120))});
    Limits limits;
    EXPECT_EQ(0, authenticateForLimits(limits).result);
    EXPECT_EQ(1, limits.session);
    EXPECT_EQ(2, limits.idle);
}

TEST(RadChapAuthAndGetAttributes, RefusedInputsLeaveTheLimitsAlone) {
    const OneAuthServer far({});
    Limits limits;
    EXPECT_EQ(-1, radChapAuthAndGetAttributes(nullptr, kResponse.data(), 17, kChallenge.data(), 16,
                                              &limits.idle, &limits.session));
    EXPECT_EQ(kUntouched, limits.idle);
    EXPECT_EQ(kUntouched, limits.session);
}

}  // namespace
}  // namespace lanyard::test
