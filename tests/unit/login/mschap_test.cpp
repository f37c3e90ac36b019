// MS-CHAP: what goes out, what is said of the outcome, and the limits that a server grants.
#include <array>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ostream>

#include <lanyard/radius/methods.h>

#include "tests/support/failing_partition.h"
#include "tests/unit/login/nt_response_program.h"
#include "tests/unit/login/outcome.h"

namespace lanyard::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

constexpr const char *kOk = "\"nemo\" RADIUS Authentication OK\n";
constexpr const char *kFailure = "\"nemo\" RADIUS Authentication failure\n";
constexpr const char *kPassword = "arctangent";
constexpr uint32_t kUntouched = 4711;
constexpr uint32_t kMicrosoft = 311;

// The request of every MS-CHAP login, up to Message-Authenticator.
Attributes request(std::string_view userName, ByteView ntResponse) {
    return Attributes()
        .addText(1, userName)
        .addVendor(kMicrosoft, 11, "0101010101010101"_hex)
        .addVendor(kMicrosoft, 1, concatenate({"b901"_hex, Bytes(24), ntResponse}))
        .addInteger(6, 8)
        .addAddress(4, kDeviceAddress);
}

// One of each kind that is shown differently.
Attributes grant() {
    return Attributes().addText(18, "Hello").addInteger(27, 7201).addText(24, "ab");
}

struct EntryPoint {
    const char *name;
    int (*login)(const char *userName, const char *password);
    bool printsSuccess;  // on standard output, else logged at level 128
};

void PrintTo(const EntryPoint &entryPoint, std::ostream *stream) {
    *stream << entryPoint.name;
}

int loginForLimits(const char *userName, const char *password) {
    uint32_t idle = 0;
    uint32_t session = 0;
    return radMschapAndGetAttributes(userName, password, &idle, &session);
}

class MschapLogin : public testing::TestWithParam<EntryPoint> {
  protected:
    static Outcome login(const char *userName = "nemo", const char *password = kPassword) {
        return runAs(GetParam().name, [=] { return GetParam().login(userName, password); });
    }

    static void expectFailure(const Outcome &run) {
        EXPECT_EQ(-1, run.result);
        EXPECT_EQ("", run.output);
        EXPECT_THAT(run.told, ElementsAre(Logged(7, kError, GetParam().name, kFailure)));
    }
};

INSTANTIATE_TEST_SUITE_P(EntryPoints, MschapLogin,
                         testing::Values(EntryPoint{"radMschap", radMschap, true},
                                         EntryPoint{"radMschapAndGetAttributes", loginForLimits,
                                                    false}),
                         [](const auto &instance) { return std::string(instance.param.name); });

TEST_P(MschapLogin, RequestCarriesNameChallengeResponseAndServiceType) {
    const OneAuthServer far({accept()});
    const StandInProgram program(far.library.root(), answering(ntResponse()));
    EXPECT_EQ(0, login().result);
    ASSERT_EQ(1U, far.server.requestCount());
    EXPECT_THAT(attributeTypes(far.server.request(0)), ElementsAre(1, 26, 26, 6, 4, 80));
    expectAccessRequest(far.server.request(0), kSecret, request("nemo", ntResponse()));
    EXPECT_EQ(50U, vendorValue(far.server.request(0), kMicrosoft, 1).size());
}

TEST_P(MschapLogin, ProgramIsAskedForTheFixedChallenge) {
    const OneAuthServer far({accept()});
    const StandInProgram program(far.library.root(), answering(ntResponse()));
    EXPECT_EQ(0, login().result);
    ASSERT_EQ(1U, program.callCount());
    EXPECT_THAT(program.call(0).arguments,
                ElementsAre(kNtResponseProgram, kPassword, "\1\1\1\1\1\1\1\1", "/tmp/mschap_nemo"));
}

TEST_P(MschapLogin, RealProgramGivesTheKnownAnswer) {
    const OneAuthServer far({accept()});
    const InstalledProgram program(far.library.root());
    EXPECT_EQ(0, login("alice", "wonderland").result);
    expectAccessRequest(far.server.request(0), kSecret,
                        request("alice", "3d445f7365d559a2a4499abdd24bd417f0944984824c51b2"_hex));
    EXPECT_THAT(far.library.root().list("/tmp"), IsEmpty());
}

TEST_P(MschapLogin, KnownAnswerIsComputedInTheProcess) {
    const OneAuthServer far({accept(), reject()});
    const BuiltinNtResponse builtin;
    EXPECT_EQ(0, login("a/b", "wonderland").result);
    expectAccessRequest(far.server.request(0), kSecret,
                        request("a/b", "3d445f7365d559a2a4499abdd24bd417f0944984824c51b2"_hex));
    expectFailure(login("nemo", "\xff"));
    expectAccessRequest(far.server.request(1), kSecret, request("nemo", Bytes(24)));
}

TEST_P(MschapLogin, PasswordDoesNotTravel) {
    const OneAuthServer far({accept()});
    const StandInProgram program(far.library.root(), answering(ntResponse()));
    EXPECT_EQ(0, login().result);
    EXPECT_THAT(toText(far.server.request(0)), Not(testing::HasSubstr(kPassword)));
}

TEST_P(MschapLogin, PasswordOfAnyLengthIsHandedToTheProgram) {
    const OneAuthServer far({accept(), accept()});
    const StandInProgram program(far.library.root(), answering(ntResponse()));
    const std::string password(500, 'p');
    EXPECT_EQ(0, login("nemo", password.c_str()).result);
    EXPECT_EQ(0, login("nemo", "").result);
    EXPECT_EQ(password, program.call(0).password);
    EXPECT_EQ("", program.call(1).password);
}

TEST_P(MschapLogin, NameOf64CharactersIsSentAndOf65RefusedWithoutAWord) {
    const OneAuthServer far({accept()});
    const StandInProgram program(far.library.root(), answering(ntResponse()));
    const std::string name(64, 'n');
    EXPECT_EQ(0, login(name.c_str()).result);
    expectAccessRequest(far.server.request(0), kSecret, request(name, ntResponse()));
    const std::string tooLong(65, 'n');
    for (const char *refused : {tooLong.c_str(), static_cast<const char *>(nullptr)}) {
        const Outcome run = login(refused);
        EXPECT_EQ(-1, run.result);
        EXPECT_EQ("", run.output);
        EXPECT_THAT(run.lines, IsEmpty());
    }
    EXPECT_EQ(1U, far.server.requestCount());
    EXPECT_EQ(1U, program.callCount());
}

TEST_P(MschapLogin, WithoutAnNtResponseZerosAreSent) {
    OneAuthServer far({});
    far.server.otherwise(reject());
    {
        const StandInProgram program(far.library.root(), endingWith(0));
        expectFailure(login());
    }
    {
        const StandInProgram program(far.library.root(), endingWith(3));
        expectFailure(login());
    }
    {
        const StandInProgram program(far.library.root(), endingWith(-1));
        expectFailure(login());
    }
    expectFailure(login());  // there is no program
    const StandInProgram program(far.library.root(), answering(ntResponse()));
    expectFailure(login("nemo", nullptr));
    ASSERT_EQ(5U, far.server.requestCount());
    EXPECT_EQ(0U, program.callCount());
    for (size_t i = 0; i < 5; ++i) {
        expectAccessRequest(far.server.request(i), kSecret, request("nemo", Bytes(24)));
    }
}

TEST_P(MschapLogin, NameWithASlashIsSentWithAZeroNtResponse) {
    const OneAuthServer far({reject()});
    const StandInProgram program(far.library.root(), answering(ntResponse()));
    EXPECT_EQ(-1, login("../etc/nemo").result);
    EXPECT_EQ(0U, program.callCount());
    expectAccessRequest(far.server.request(0), kSecret, request("../etc/nemo", Bytes(24)));
}

TEST_P(MschapLogin, WhereTheProgramsFileEndsEarlyEndOfFileIsSent) {
    const OneAuthServer far({reject()});
    const StandInProgram program(far.library.root(), answering("414243"_hex));
    expectFailure(login());
    expectAccessRequest(far.server.request(0), kSecret,
                        request("nemo", concatenate({"414243"_hex, Bytes(21, 0xff)})));
}

TEST_P(MschapLogin, AcceptIsToldAndNothingElse) {
    const OneAuthServer far({accept()});
    const Outcome run = login();
    EXPECT_EQ(0, run.result);
    EXPECT_EQ(GetParam().printsSuccess ? kOk : "", run.output);
    if (GetParam().printsSuccess) {
        EXPECT_THAT(run.told, IsEmpty());
    } else {
        EXPECT_THAT(run.told, ElementsAre(Logged(7, kTrace, GetParam().name, kOk)));
    }
    EXPECT_THAT(run.problems, IsEmpty());
}

TEST_P(MschapLogin, NameIsToldAsItIs) {
    const OneAuthServer far({reject()});
    EXPECT_THAT(login("100%s \"n\"\xc3\xa9").problems,
                ElementsAre(Logged(7, kError, GetParam().name,
                                   "\"100%s \"n\"\xc3\xa9\" RADIUS Authentication failure\n")));
}

TEST_P(MschapLogin, OnlyAnAcceptIsASuccess) {
    for (const uint8_t code : Bytes{1, 3, 4, 5, 11, 12}) {
        SCOPED_TRACE(int{code});
        const OneAuthServer far({answer(code)});
        expectFailure(login());
    }
}

TEST_P(MschapLogin, AttributesOfARefusalAreNotShown) {
    OneAuthServer far({reject(grant()), challenge(grant()),
                       reject(Attributes().addVendor(kMicrosoft, 2, fromText("xE=691 R=1")))});
    for (int calls = 0; calls < 3; ++calls) {
        const Outcome run = login();
        expectFailure(run);
        EXPECT_EQ(1U, run.problems.size());
    }
    EXPECT_EQ(0U, far.server.unusedActions());
}

TEST_P(MschapLogin, SilentServerIsAFailure) {
    const SilentPort silent;
    const ConfiguredLibrary library({.authServers = {serverEntry(silent, 0)}});
    expectFailure(login());
    EXPECT_EQ(1U, silent.received().size());
}

TEST_P(MschapLogin, ForgedAcceptIsAFailure) {
    const OneAuthServer far({accept(grant()).withWrongAuthenticator()});
    expectFailure(login());
}

TEST_P(MschapLogin, FailsWithoutServers) {
    const ConfiguredLibrary library;
    expectFailure(login());
}

TEST_P(MschapLogin, NeitherPasswordNorSecretGetsIntoTheLog) {
    OneAuthServer far({accept(grant()), reject(grant()), accept().withWrongAuthenticator()});
    const StandInProgram program(far.library.root(), answering(ntResponse()));
    for (int calls = 0; calls < 3; ++calls) {
        const Outcome run = login();
        EXPECT_THAT(run.lines, Not(IsEmpty()));
        expectSecrecy(run, kPassword);
    }
    EXPECT_EQ(0U, far.server.unusedActions());
}

TEST_P(MschapLogin, RequestThatCannotBeMadeFailsWithoutAMessageOfItsOwn) {
    const OneAuthServer far({});
    const StandInProgram program(far.library.root(), answering(ntResponse()));
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
    EXPECT_EQ(2U, program.callCount()) << "it is asked once name and challenge are in the request";
}

TEST_P(MschapLogin, EveryAllocationMayFail) {
    OneAuthServer far({});
    far.server.otherwise(accept(grant().addMessageAuthenticator()));
    const StandInProgram program(far.library.root(), answering(ntResponse()));
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
                expectFailure(run);
            }
        }
    });
    // Six pairs of the request, the request, the reply and its four pairs.
    EXPECT_GE(failed, 12U);
}

// --- radMschap ------------------------------------------------------------------------------------

TEST(RadMschap, AttributesOfAnAcceptAreNotShown) {
    const OneAuthServer far({accept(grant())});
    const Outcome run = runAs("radMschap", [] { return radMschap("nemo", kPassword); });
    EXPECT_EQ(0, run.result);
    EXPECT_EQ(kOk, run.output);
    EXPECT_THAT(run.told, IsEmpty());
    EXPECT_THAT(run.problems, IsEmpty());
}

// --- radMschapAndGetAttributes --------------------------------------------------------------------

struct Limits {
    uint32_t idle = kUntouched;
    uint32_t session = kUntouched;
};

Outcome loginForLimits(Limits &limits) {
    return runAs("radMschapAndGetAttributes", [&limits] {
        return radMschapAndGetAttributes("nemo", kPassword, &limits.idle, &limits.session);
    });
}

TEST(RadMschapAndGetAttributes, AttributesOfAnAcceptAreShownInOrder) {
    const OneAuthServer far({accept(grant())});
    Limits limits;
    const Outcome run = loginForLimits(limits);
    EXPECT_EQ(0, run.result);
    EXPECT_EQ("Reply-Message: Hello\nState: 0x6162\n", run.output);
    EXPECT_THAT(run.told, ElementsAre(Logged(7, kTrace, "radMschapAndGetAttributes", kOk),
                                      Logged(7, kDump, "radPairShow", "Session-Timeout: 7201\n")));
    EXPECT_THAT(run.problems, IsEmpty());
    EXPECT_EQ(121U, limits.session);
    EXPECT_EQ(kUntouched, limits.idle);
}

TEST(RadMschapAndGetAttributes, EachLimitHasItsOwnOutput) {
    const OneAuthServer far({accept(Attributes().addInteger(28, 600)),
                             accept(Attributes().addInteger(28, 60).addInteger(27, 3600))});
    Limits limits;
    EXPECT_EQ(0, loginForLimits(limits).result);
    EXPECT_EQ(10U, limits.idle);
    EXPECT_EQ(kUntouched, limits.session);
    EXPECT_EQ(0, loginForLimits(limits).result);
    EXPECT_EQ(1U, limits.idle);
    EXPECT_EQ(60U, limits.session);
}

TEST(RadMschapAndGetAttributes, LimitsOfARefusalAreNotTaken) {
    OneAuthServer far({reject(Attributes().addInteger(28, 600).addInteger(27, 7201)),
                       challenge(Attributes().addInteger(28, 600).addInteger(27, 7201))});
    for (int calls = 0; calls < 2; ++calls) {
        Limits limits;
        EXPECT_EQ(-1, loginForLimits(limits).result);
        EXPECT_EQ(kUntouched, limits.idle);
        EXPECT_EQ(kUntouched, limits.session);
    }
    EXPECT_EQ(0U, far.server.unusedActions());
}

TEST(RadMschapAndGetAttributes, SecondsBecomeWholeMinutesInSinglePrecision) {
    struct Case {
        uint32_t seconds;
        uint32_t minutes;
    };
    // The last group is where single precision shows.
    constexpr std::array kCases{
        Case{0, 0},
        Case{1, 1},
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
        EXPECT_EQ(0, loginForLimits(limits).result);
        EXPECT_EQ(entry.minutes, limits.idle);
        EXPECT_EQ(entry.minutes, limits.session);
    }
}

TEST(RadMschapAndGetAttributes, LaterLimitOfTheSameNameWins) {
    const OneAuthServer far(
        {accept(Attributes().addInteger(27, 600).addInteger(28, 1200).addInteger(27, 60).addInteger(
            28, 120))});
    Limits limits;
    EXPECT_EQ(0, loginForLimits(limits).result);
    EXPECT_EQ(1U, limits.session);
    EXPECT_EQ(2U, limits.idle);
}

TEST(RadMschapAndGetAttributes, RefusedNameLeavesTheLimitsAlone) {
    const OneAuthServer far({});
    Limits limits;
    EXPECT_EQ(-1, radMschapAndGetAttributes(nullptr, kPassword, &limits.idle, &limits.session));
    EXPECT_EQ(kUntouched, limits.idle);
    EXPECT_EQ(kUntouched, limits.session);
}

}  // namespace
}  // namespace lanyard::test
