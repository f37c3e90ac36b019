// The programs over PAP: their command line and the start of the library.
#include <array>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ostream>
#include <unistd.h>

#include <lanyard/radius/frame.h>
#include <lanyard/radius/methods.h>

#include "tests/support/failing_partition.h"
#include "tests/unit/login/outcome.h"

namespace lanyard::test {
namespace {

using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;

constexpr const char *kDefaultFile = "/var/radius.conf";
constexpr const char *kPassword = "arctangent";
constexpr const char *kUsage = "Usage: radauth [-v] [ -f confFile] <username> <password>\n";
constexpr const char *kMissingValue = "ERROR: option value not specified \n";
constexpr const char *kNotStarted = "Unable to initialize radius \n";
constexpr const char *kRefusal = "Invalid username or password\n";

constexpr uint32_t kUntouched = 4711;

struct Program {
    const char *name;
    int (*main)(int argc, char *argv[]);
    const char *method;
    bool printsUsage;  // on standard output, else logged at level 128
    int problemLevel;  // of a missing option value and of a failed start
    int refusalLevel;  // of a name or password that the method refuses
};

void PrintTo(const Program &program, std::ostream *stream) {
    *stream << program.name;
}

int mainEverywhere(int argc, char *argv[]) {
    std::array<int32_t, 8> results{};
    return radAuthSampleMainCheckAllServer(argc, argv, results.data());
}

int mainForLimits(int argc, char *argv[]) {
    uint32_t idle = 0;
    uint32_t session = 0;
    return radAuthSampleMainCaptivePortal(argc, argv, &idle, &session);
}

class PapProgram : public testing::TestWithParam<Program> {
  protected:
    PapProgram() {
        server_.otherwise(accept());
        device_.configure(kDefaultFile, server_);
    }

    static Outcome run(Arguments arguments) {
        return runAs(GetParam().name, [&arguments] {
            return GetParam().main(arguments.count(), arguments.vector());
        });
    }

    void expectSent(size_t index, std::string_view userName, std::string_view password) {
        expectAccessRequest(server_.request(index), kSecret,
                            Attributes()
                                .addText(1, userName)
                                .add(2, padded(password))
                                .addInteger(6, 8)
                                .addAddress(4, kDeviceAddress));
    }

    // Refused with the usage line, in the program's own way, before anything else was done.
    void expectUsage(const Outcome &refused) const {
        EXPECT_EQ(-1, refused.result);
        if (GetParam().printsUsage) {
            EXPECT_EQ(kUsage, refused.output);
            EXPECT_THAT(refused.lines, IsEmpty());
        } else {
            EXPECT_EQ("", refused.output);
            EXPECT_THAT(refused.lines, ElementsAre(Logged(7, kTrace, GetParam().name, kUsage)));
        }
        EXPECT_EQ(0U, radMemPartId);
        EXPECT_EQ(0U, server_.requestCount());
    }

    ScriptedServer server_{kSecret};
    StoppedDevice device_;
};

INSTANTIATE_TEST_SUITE_P(Programs, PapProgram,
                         testing::Values(Program{"radAuthSampleMain", radAuthSampleMain, "radAuth",
                                                 true, kError, kError},
                                         Program{"radAuthSampleMainCheckAllServer", mainEverywhere,
                                                 "radAuthCheckAllServer", false, kTrace, kTrace},
                                         Program{"radAuthSampleMainCaptivePortal", mainForLimits,
                                                 "radAuthAndGetAttributes", true, kError, kError}),
                         [](const auto &instance) { return std::string(instance.param.name); });

TEST_P(PapProgram, LogsInFromTheDefaultFile) {
    const Outcome login = run({"radauth", "nemo", kPassword});
    EXPECT_EQ(0, login.result);
    EXPECT_THAT(login.told, IsEmpty());
    EXPECT_THAT(login.problems, IsEmpty());
    EXPECT_EQ(1U, server_.requestCount());
    expectSent(0, "nemo", kPassword);
    expectSecrecy(login, kPassword);
}

TEST_P(PapProgram, FailureIsPassedOn) {
    server_.then(reject());
    const Outcome login = run({"radauth", "nemo", kPassword});
    EXPECT_EQ(-1, login.result);
    EXPECT_THAT(login.told, IsEmpty());
    expectSecrecy(login, kPassword);
}

TEST_P(PapProgram, TooFewArgumentsAreAUsageError) {
    expectUsage(run({"radauth"}));
    expectUsage(run({"radauth", "nemo"}));
    expectUsage(run({"radauth", "-v"}));
    expectUsage(run({"radauth", "-f"}));
}

TEST_P(PapProgram, UsageNamesTheProgramAsItWasCalled) {
    const Outcome refused = run({"/opt/100%s/login"});
    const std::string usage = "Usage: /opt/100%s/login [-v] [ -f confFile] <username> <password>\n";
    EXPECT_EQ(GetParam().printsUsage ? usage : "", refused.output);
    EXPECT_EQ(GetParam().printsUsage ? 0U : 1U, refused.lines.size());
    EXPECT_THAT(refused.lines, Each(Field(&LogLine::text, usage)));
}

TEST_P(PapProgram, NameAndPasswordMissingBehindTheOptionsAreAUsageError) {
    expectUsage(run({"radauth", "-v", "nemo"}));
    expectUsage(run({"radauth", "-v", "-v"}));
    expectUsage(run({"radauth", "-f", kDefaultFile}));
    expectUsage(run({"radauth", "-f", kDefaultFile, "nemo"}));
    expectUsage(run({"radauth", "-v", "--", "nemo"}));
}

TEST_P(PapProgram, UnknownOptionIsAUsageError) {
    for (const char *option : {"-x", "-vx", "-s", "-u", "-p", "-?", "-:", "--help"}) {
        SCOPED_TRACE(option);
        expectUsage(run({"radauth", option, "nemo", kPassword}));
    }
}

TEST_P(PapProgram, OptionWithoutItsValueIsAnError) {
    for (const char *option : {"-f", "-vf"}) {
        const Outcome refused = run({"radauth", "-v", option});
        EXPECT_EQ(-1, refused.result);
        EXPECT_EQ("", refused.output);
        EXPECT_THAT(refused.lines, ElementsAre(Logged(7, GetParam().problemLevel, GetParam().name,
                                                      kMissingValue)));
    }
    EXPECT_EQ(0U, radMemPartId);
}

TEST_P(PapProgram, VerboseIsAcceptedAndIgnored) {
    const Outcome plain = run({"radauth", "nemo", kPassword});
    const Outcome verbose = run({"radauth", "-v", "nemo", kPassword});
    EXPECT_EQ(0, verbose.result);
    EXPECT_EQ(plain.output, verbose.output);
    expectSent(1, "nemo", kPassword);
}

TEST_P(PapProgram, FileMayBeNamed) {
    device_.root().remove(kDefaultFile);
    device_.configure("/etc/other.conf", server_);
    EXPECT_EQ(0, run({"radauth", "-f", "/etc/other.conf", "nemo", kPassword}).result);
    expectSent(0, "nemo", kPassword);
}

TEST_P(PapProgram, FileMayBeJoinedToItsOption) {
    device_.root().remove(kDefaultFile);
    device_.configure("/etc/other.conf", server_);
    EXPECT_EQ(0, run({"radauth", "-vf/etc/other.conf", "nemo", kPassword}).result);
    expectSent(0, "nemo", kPassword);
}

TEST_P(PapProgram, LastOfSeveralFilesCounts) {
    device_.root().remove(kDefaultFile);
    device_.configure("/b", server_);
    EXPECT_EQ(0, run({"radauth", "-f", "/etc/longer.conf", "-f", "/b", "nemo", kPassword}).result);
    expectSent(0, "nemo", kPassword);
}

TEST_P(PapProgram, PathMayHave99CharactersAndNoMore) {
    const std::string longest = "/var/" + std::string(94, 'x');
    const std::string tooLong = longest + 'x';
    ASSERT_EQ(99U, longest.size());
    device_.root().remove(kDefaultFile);
    device_.configure(longest, server_);
    device_.configure(tooLong, server_);
    expectUsage(run({"radauth", "-f", tooLong, "nemo", kPassword}));
    expectUsage(run({"radauth", "-f", "/" + std::string(5000, 'x'), "nemo", kPassword}));
    EXPECT_EQ(0, run({"radauth", "-f", longest, "nemo", kPassword}).result);
    expectSent(0, "nemo", kPassword);
}

TEST_P(PapProgram, OptionsEndAtTwoDashes) {
    EXPECT_EQ(0, run({"radauth", "-v", "--", "-nemo", "-x"}).result);
    expectSent(0, "-nemo", "-x");
}

TEST_P(PapProgram, ArgumentsBehindThePasswordAreIgnored) {
    EXPECT_EQ(0, run({"radauth", "nemo", kPassword, "more"}).result);
    expectSent(0, "nemo", kPassword);
}

TEST_P(PapProgram, LongestNameAndPasswordArriveWhole) {
    const std::string name(64, 'n');
    const std::string password(48, 'p');
    EXPECT_EQ(0, run({"radauth", name, password}).result);
    expectSent(0, name, password);
}

// The buffers hold 127 characters, which is more than the method takes: what is cut there is
// refused like what is not.
TEST_P(PapProgram, NameAndPasswordOfAnyLengthAreRefusedByTheMethod) {
    for (const size_t length : {65U, 127U, 128U, 129U, 255U, 256U, 5000U}) {
        SCOPED_TRACE(length);
        const std::string text(length, 'x');
        for (Arguments arguments :
             {Arguments{"radauth", text, kPassword}, Arguments{"radauth", "nemo", text},
              Arguments{"radauth", text, text}}) {
            const Outcome refused = run(std::move(arguments));
            EXPECT_EQ(-1, refused.result);
            EXPECT_EQ("", refused.output);
            EXPECT_THAT(refused.lines,
                        Contains(Logged(7, GetParam().refusalLevel, GetParam().method, kRefusal)));
        }
    }
    EXPECT_EQ(0U, server_.requestCount());
}

TEST_P(PapProgram, ArgumentsAreLeftAsTheyWere) {
    Arguments arguments{"radauth", "-v", "nemo", kPassword};
    char **const argv = arguments.vector();
    const std::vector<char *> before(argv, argv + arguments.count() + 1);
    const Outcome login =
        runAs(GetParam().name, [&] { return GetParam().main(arguments.count(), argv); });
    EXPECT_EQ(0, login.result);
    EXPECT_EQ(before, std::vector<char *>(argv, argv + arguments.count() + 1));
    EXPECT_STREQ("nemo", argv[2]);
    EXPECT_STREQ(kPassword, argv[3]);
}

TEST_P(PapProgram, EveryCallParsesItsOwnArguments) {
    expectUsage(run({"radauth", "-vxv", "nemo", kPassword}));
    EXPECT_EQ(0, run({"radauth", "-v", "-f", kDefaultFile, "nemo", kPassword}).result);
    EXPECT_EQ(0, run({"radauth", "alice", "wonderland"}).result);
    EXPECT_EQ(0, run({"radauth", "-v", "bob", "builder"}).result);
    expectSent(0, "nemo", kPassword);
    expectSent(1, "alice", "wonderland");
    expectSent(2, "bob", "builder");
}

TEST_P(PapProgram, ParsesAfterTheHostHasUsedGetopt) {
    Arguments host{"host", "-ab", "first", "second"};
    optind = 0;  // an earlier test may have left getopt() inside arguments that are gone
    while (getopt(host.count(), host.vector(), "ab") != -1) {
    }
    EXPECT_EQ(0, run({"radauth", "-v", "nemo", kPassword}).result);
    expectSent(0, "nemo", kPassword);
}

TEST_P(PapProgram, FirstConfigurationStays) {
    const ScriptedServer other(kSecret);
    device_.configure("/etc/other.conf", other);
    EXPECT_EQ(0, run({"radauth", "nemo", kPassword}).result);
    EXPECT_EQ(0, run({"radauth", "-f", "/etc/other.conf", "alice", "wonderland"}).result);
    EXPECT_EQ(0, run({"radauth", "-f", "/etc/missing.conf", "bob", "builder"}).result);
    EXPECT_EQ(3U, server_.requestCount());
    EXPECT_EQ(0U, other.requestCount());
}

TEST_P(PapProgram, FileThatIsMissingIsAFailedStart) {
    const Outcome refused = run({"radauth", "-f", "/etc/missing.conf", "nemo", kPassword});
    EXPECT_EQ(-1, refused.result);
    EXPECT_EQ("", refused.output);
    EXPECT_THAT(refused.told,
                ElementsAre(Logged(7, GetParam().problemLevel, GetParam().name, kNotStarted)));
    EXPECT_EQ(0U, server_.requestCount());
    expectSecrecy(refused, kPassword);

    EXPECT_EQ(0, run({"radauth", "nemo", kPassword}).result) << "a later call tries again";
}

TEST_P(PapProgram, FileWithoutAServerIsAFailedStart) {
    device_.root().write(kDefaultFile, "timeout 1\n");
    const Outcome refused = run({"radauth", "nemo", kPassword});
    EXPECT_EQ(-1, refused.result);
    EXPECT_THAT(refused.told,
                ElementsAre(Logged(7, GetParam().problemLevel, GetParam().name, kNotStarted)));
}

// A dictionary of which a part is missing does not end the start, so what it lacks decides.
TEST_P(PapProgram, EveryAllocationMayFail) {
    unsigned withDictionary = 0;
    forEachFailingAllocation([&withDictionary] {
        const Outcome login = run({"radauth", "nemo", kPassword});
        const auto isDictionary = Field(&LogLine::function, "radDictLoad");
        if (!allocationFailed()) {
            EXPECT_EQ(0, login.result);
        } else if (!testing::Value(login.problems, Contains(isDictionary))) {
            ++withDictionary;
            EXPECT_EQ(-1, login.result);
            EXPECT_EQ("", login.output);
        }
        stopLibrary();
    });
    // A server with two texts, two numbers, and the exchange.
    EXPECT_GE(withDictionary, 10U);
}

TEST(PapPrograms, InitDoesNothing) {
    EXPECT_EQ(0, radAuthSampleInit());
    EXPECT_EQ(0U, radMemPartId);
}

TEST(PapPrograms, PlainOneSaysWhatTheMethodSays) {
    ScriptedServer server(kSecret, {accept(Attributes().addText(18, "Hello")), reject()});
    const StoppedDevice device;
    device.configure(kDefaultFile, server);
    Arguments arguments{"radauth", "nemo", kPassword};
    const auto call = [&] { return radAuthSampleMain(arguments.count(), arguments.vector()); };
    const Outcome accepted = runAs("radAuth", call);
    EXPECT_EQ(0, accepted.result);
    EXPECT_EQ(
        "\"nemo\" RADIUS Authentication OK\n"
        "Attributes Received: \n"
        "Reply-Message: Hello\n",
        accepted.output);
    const Outcome rejected = runAs("radAuth", call);
    EXPECT_EQ(-1, rejected.result);
    EXPECT_THAT(rejected.problems, ElementsAre(Logged(7, kError, "radAuth",
                                                      "\"nemo\" RADIUS Authentication failure\n")));
}

TEST(PapPrograms, AllServersOneHandsOutTheResults) {
    const ScriptedServer first(kSecret, {accept()});
    const ScriptedServer second(kSecret, {reject()});
    const StoppedDevice device;
    const auto entry = [](const ScriptedServer &server) {
        return "127.0.0.1:" + std::to_string(server.port()) + ":10:0:" + kSecret;
    };
    device.root().write(kDefaultFile, "authserver " + entry(first) + ',' + entry(second) + '\n');
    Arguments arguments{"radauth", "-v", "nemo", kPassword};
    std::array<int32_t, 3> results{};
    results.fill(kUntouched);
    const Outcome login = runAs("radAuthCheckAllServer", [&] {
        return radAuthSampleMainCheckAllServer(arguments.count(), arguments.vector(),
                                               results.data());
    });
    EXPECT_EQ(-1, login.result);
    EXPECT_EQ("", login.output);
    EXPECT_THAT(results, ElementsAre(2, 3, kUntouched));
    EXPECT_THAT(login.told, ElementsAre(Logged(7, kTrace, "radAuthCheckAllServer",
                                               "\"nemo\" RADIUS Authentication failure\n")));
    EXPECT_THAT(login.problems, IsEmpty());
}

TEST(PapPrograms, CaptivePortalHandsOutTheLimits) {
    const ScriptedServer server(kSecret,
                                {accept(Attributes().addInteger(28, 600).addInteger(27, 7201))});
    const StoppedDevice device;
    device.configure(kDefaultFile, server);
    Arguments arguments{"radauth", "nemo", kPassword};
    uint32_t idle = kUntouched;
    uint32_t session = kUntouched;
    const Outcome login = runAs("radAuthAndGetAttributes", [&] {
        return radAuthSampleMainCaptivePortal(arguments.count(), arguments.vector(), &idle,
                                              &session);
    });
    EXPECT_EQ(0, login.result);
    EXPECT_EQ("Attributes Received: \n", login.output);
    EXPECT_EQ(10U, idle);
    EXPECT_EQ(121U, session);
}

TEST(PapPrograms, RefusedCommandLineLeavesTheOutputsAlone) {
    const StoppedDevice device;
    Arguments arguments{"radauth", "nemo"};
    auto result = static_cast<int32_t>(kUntouched);
    uint32_t idle = kUntouched;
    uint32_t session = kUntouched;
    runAs("", [&] {
        EXPECT_EQ(-1,
                  radAuthSampleMainCheckAllServer(arguments.count(), arguments.vector(), &result));
        EXPECT_EQ(-1, radAuthSampleMainCaptivePortal(arguments.count(), arguments.vector(), &idle,
                                                     &session));
        return 0;
    });
    EXPECT_EQ(kUntouched, result);
    EXPECT_EQ(kUntouched, idle);
    EXPECT_EQ(kUntouched, session);
}

}  // namespace
}  // namespace lanyard::test
