// What the nine sample programs that log a user in have alone. What the functions below them do is in login_contract_test.cpp.
#include <array>

#include <lanyard/radius/frame.h>
#include <lanyard/radius/methods.h>
#include <palcore.h>

#include "tests/unit/login/sample_program.h"

namespace lanyard::test::sample_login_test {
namespace {

using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class SampleLogin : public SampleProgram {
  protected:
    // What comes after the start of the library, up to where inputs are looked at, has been done.
    static void expectLimitRefused(const Outcome &refused) {
        const std::string limits = program().limits;
        const std::string line = limits + "Invalid username or password";
        EXPECT_EQ(-1, refused.result);
        EXPECT_EQ("", refused.output);
        if (limits.empty()) {
            EXPECT_THAT(refused.log(), Not(Contains(HasSubstr("Invalid"))));
        } else {
            EXPECT_THAT(refused.log(), Contains(line));
        }
        EXPECT_EQ(limits.starts_with("error") ? Words{line} : Words(), refused.problemLog());
        EXPECT_THAT(generator.lengths, IsEmpty());
    }
};

INSTANTIATE_TEST_SUITE_P(Programs, SampleLogin,
                         testing::ValuesIn(programsThat([](const Program &program) {
                             return !program.isAccounting();
                         })),
                         nameOf<Program>);

TEST_P(SampleLogin, SaysWhatItsFunctionSays) {
    const Method &method = program().method();
    server_.then(accept(grant())).then(reject(grant()));
    EXPECT_THAT(runTelling(method.name, Arguments(inputs({"sample"}))),
                VerdictWithGrant(method, true));
    EXPECT_THAT(runTelling(method.name, Arguments(inputs({"sample"}))),
                VerdictWithGrant(method, false));
}

TEST_P(SampleLogin, NameOrPasswordMissingIsAUsageError) {
    Limits limits;
    expectUsage(run({}));
    expectUsage(run({"nemo"}, &limits));
    EXPECT_EQ(Limits(), limits);
    for (const Words &words : std::vector<Words>{{"-v"},
                                                 {"-f"},
                                                 {"-u"},
                                                 {"-v", "nemo"},
                                                 {"-v", "-v"},
                                                 {"-f", kDefaultFile},
                                                 {"-f", kDefaultFile, "nemo"},
                                                 {"-v", "--", "nemo"}}) {
        expectUsage(run(words));
    }
}

// Name and password are positional always, whatever -u and -p look like.
TEST_P(SampleLogin, NameAndPasswordAsOptionsAreAUsageError) {
    testing::internal::CaptureStderr();
    expectUsage(run({"-u", "nemo"}));
    expectUsage(run({"-unemo", "nemo", kPassword}));
    expectUsage(run({"-u", "nemo", "-p", kPassword}));
    expectUsage(run({"-p", kPassword, "nemo", kPassword}));
    expectUsage(run({"-v", "-p", kPassword, "nemo", kPassword}));
    const std::string complaints = testing::internal::GetCapturedStderr();
    EXPECT_EQ(program().knowsUserOptions, complaints.empty()) << "getopt(): " << complaints;
    expectUsage(run({"-v", "-u"}));
    expectUsage(run({"-v", "-p"}));
}

TEST_P(SampleLogin, OptionsEndAtTwoDashes) {
    EXPECT_EQ(0, run({"-v", "--", "-nemo", "-x"}).result);
    EXPECT_EQ(0, run({"-v", "--", "-u", "-p"}).result);
    expectLoginSent(0, "-nemo", "-x");
    expectLoginSent(1, "-u", "-p");
}

TEST_P(SampleLogin, EmptyPasswordIsTakenAsItIs) {
    EXPECT_EQ(0, run({"nemo", ""}).result);
    expectLoginSent(0, "nemo", "");
}

TEST_P(SampleLogin, LongestNameAndPasswordArriveWhole) {
    const std::string name(64, 'n');
    const std::string password(48, 'p');
    EXPECT_EQ(0, run({name, password}).result);
    expectLoginSent(0, name, password);
}

// The buffers hold 127 characters, which is more than a name may have: what is cut there is refused like what is not.
TEST_P(SampleLogin, LongerNameIsRefused) {
    for (const size_t length : {65U, 127U, 128U, 129U, 255U, 256U, 5000U}) {
        SCOPED_TRACE(length);
        const std::string text(length, 'n');
        expectLimitRefused(run({text, kPassword}));
        expectLimitRefused(run({text, text}));
    }
    EXPECT_EQ(0U, server_.requestCount());
}

TEST_P(SampleLogin, LongerPasswordIsRefusedOrCutAfter127Characters) {
    size_t sent = 0;
    for (const size_t length : {49U, 65U, 127U, 128U, 129U, 255U, 256U, 5000U}) {
        SCOPED_TRACE(length);
        const std::string password = std::string(126, 'p') + std::string(4874, 'q');
        const Outcome login = run({"nemo", password.substr(0, length)});
        if (program().method().family().runsProgram) {
            EXPECT_EQ(0, login.result);
            expectLoginSent(sent++, "nemo", password.substr(0, std::min<size_t>(length, 127)));
        } else {
            expectLimitRefused(login);
        }
    }
    EXPECT_EQ(sent, server_.requestCount());
}

TEST_P(SampleLogin, EveryCallParsesItsOwnArguments) {
    expectUsage(run({"-vxv", "nemo", kPassword}));
    expectUsage(run({"-vuv", "nemo", kPassword}));
    EXPECT_EQ(0, run({"-v", "-f", kDefaultFile, "nemo", kPassword}).result);
    EXPECT_EQ(0, run({"alice", "wonderland"}).result);
    EXPECT_EQ(0, run({"-v", "bob", "builder"}).result);
    expectLoginSent(0, "nemo", kPassword);
    expectLoginSent(1, "alice", "wonderland");
    expectLoginSent(2, "bob", "builder");
}

TEST_P(SampleLogin, CaptivePortalHandsOutTheLimits) {
    const Method &method = program().method();
    server_.then(accept(Attributes().addInteger(28, 600).addInteger(27, 7201)))
        .then(reject(Attributes().addInteger(28, 61)));
    Limits limits;
    EXPECT_EQ(0, run(inputs(), &limits).result);
    EXPECT_EQ(method.handsOutLimits ? (Limits{10, 121}) : Limits(), limits);
    const Limits before = limits;
    EXPECT_EQ(-1, run(inputs(), &limits).result);
    const bool taken = method.handsOutLimits && method.shown == Shown::kAlways;
    EXPECT_EQ(taken ? (Limits{2, 121}) : before, limits);
}

class ChapSample : public SampleLogin {};

INSTANTIATE_TEST_SUITE_P(Programs, ChapSample,
                         testing::ValuesIn(programsThat([](const Program &program) {
                             return !program.isAccounting() && program.method().family == chap;
                         })),
                         nameOf<Program>);

TEST_P(ChapSample, ChallengeAndIdentifierComeFromTheCryptoLibraryForEveryCall) {
    EXPECT_EQ(0, run(inputs()).result);
    EXPECT_EQ(0, run(inputs()).result);
    ASSERT_GE(generator.lengths.size(), 2U);
    EXPECT_EQ(16U, generator.lengths[0]);
    EXPECT_EQ(1U, generator.lengths[1]);
    EXPECT_FALSE(generator.hadContext);
    const Bytes challenge = attributeValue(server_.request(0), 60);
    EXPECT_EQ("101112131415161718191a1b1c1d1e1f", toHex(challenge));
    EXPECT_EQ(0x20, attributeValue(server_.request(0), 3).at(0));
    EXPECT_EQ(17U, attributeValue(server_.request(0), 3).size());
    EXPECT_NE(challenge, attributeValue(server_.request(1), 60));
}

TEST_P(ChapSample, RandomSourceIsSetBeforeTheStartAndAfterTheOptions) {
    uint8_t byte = 0;
    run({"-x", "nemo", kPassword});
    EXPECT_EQ(0, palRandGen(&byte, 1));
    EXPECT_THAT(generator.lengths, IsEmpty());

    EXPECT_EQ(-1, run({"-f", kMissingFile, "nemo", kPassword}).result);
    EXPECT_EQ(0, palRandGen(&byte, 1));
    EXPECT_THAT(generator.lengths, ElementsAre(1));
}

TEST_P(ChapSample, WithoutAChallengeOrAnIdentifierNothingIsSent) {
    for (const unsigned failingCall : {1U, 2U}) {
        generator = {.failingCall = failingCall, .lengths = {}};
        const Outcome login = run(inputs());
        EXPECT_EQ(-1, login.result);
        EXPECT_EQ("", login.output);
        EXPECT_EQ(failingCall, generator.lengths.size());
    }
    EXPECT_EQ(0U, server_.requestCount());
}

TEST(SamplePrograms, AllServersOneHandsOutTheResults) {
    const ScriptedServer first(kSecret, {accept()});
    const ScriptedServer second(kSecret, {reject()});
    const StoppedDevice device;
    const auto entry = [](const ScriptedServer &server) {
        return "127.0.0.1:" + std::to_string(server.port()) + ":10:0:" + kSecret;
    };
    device.root().write(kDefaultFile, "authserver " + entry(first) + ',' + entry(second) + '\n');
    std::array<int32_t, 3> results{};
    results.fill(kUntouched);
    const auto run = [&results](Arguments arguments) {
        return runAs("radAuthCheckAllServer", [&] {
            return radAuthSampleMainCheckAllServer(arguments.count(), arguments.vector(),
                                                   results.data());
        });
    };
    EXPECT_EQ(-1, run({"sample", "nemo"}).result);
    EXPECT_THAT(results, Each(kUntouched));
    const Outcome login = run({"sample", "-v", "nemo", kPassword});
    EXPECT_THAT(results, ElementsAre(2, 3, kUntouched));
    EXPECT_THAT(login, Ended(-1, "",
                             {"trace radAuthCheckAllServer> \"nemo\" RADIUS "
                              "Authentication failure"}));
    EXPECT_PROBLEMS(login);
}

}  // namespace
}  // namespace lanyard::test::sample_login_test
