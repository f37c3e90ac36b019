// The nine sample programs that log a user in: their command line, the start of the library, and what
// they pass on. What the functions behind them do is in login_contract_test.cpp.
#include <array>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ostream>
#include <unistd.h>

#include <lanyard/radius/frame.h>
#include <lanyard/radius/methods.h>
#include <palcore.h>

#include "tests/support/failing_partition.h"
#include "tests/unit/login/methods.h"

namespace {

// What the stand-in for the crypto library's generator is to do, and what it saw.
struct Generator {
    unsigned failingCall = 0;  // 1: the next; 0: none
    std::vector<uint32_t> lengths;
    bool hadContext = false;
};

Generator generator;

}  // namespace

int palCiphPRNGInit(void *context, uint8_t *out, uint32_t length) {
    generator.lengths.push_back(length);
    generator.hadContext = generator.hadContext || context != nullptr;
    if (generator.failingCall == generator.lengths.size()) {
        return -1;
    }
    for (uint32_t i = 0; i < length; ++i) {
        out[i] = static_cast<uint8_t>(generator.lengths.size() * 0x10 + i);
    }
    return 0;
}

namespace lanyard::test::sample_login_test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::Field;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr const char *kDefaultFile = "/var/radius.conf";
constexpr const char *kUsage = "Usage: login [-v] [ -f confFile] <username> <password>\n";
constexpr const char *kNotStarted = "Unable to initialize radius \n";

struct Program {
    const char *name;
    int (*main)(int argc, char *argv[], uint32_t *idle, uint32_t *session);
    size_t methodRow;       // in methods()
    int usageLevel;         // of the log; 0 prints the usage
    int missingValueLevel;  // of an option without its value
    int startLevel;         // of a failed start
    // "LEVEL FUNCTION: " of the line that refuses inputs of too many characters; "" where a name is
    // refused without a word, and a password is cut.
    const char *limits;
    bool knowsUserOptions = false;  // -u and -p, which nothing handles

    [[nodiscard]] const Method &method() const { return methods()[methodRow]; }
};

void PrintTo(const Program &program, std::ostream *stream) {
    *stream << program.name;
}

template <int (*main)(int argc, char *argv[])>
int plain(int argc, char *argv[], uint32_t * /*idle*/, uint32_t * /*session*/) {
    return main(argc, argv);
}

int everywhere(int argc, char *argv[], uint32_t * /*idle*/, uint32_t * /*session*/) {
    std::array<int32_t, 8> results{};
    return radAuthSampleMainCheckAllServer(argc, argv, results.data());
}

int chapForLimits(int argc, char *argv[], uint32_t *idle, uint32_t *session) {
    return radChapSampleMainCaptivePortal(argc, argv, reinterpret_cast<int *>(idle),
                                          reinterpret_cast<int *>(session));
}

// clang-format off
const std::vector<Program> &programs() {
    static const std::vector<Program> rows{
        {"radAuthSampleMain", plain<radAuthSampleMain>, 0, 0, kError, kError, "8 radAuth: "},
        {"radAuthSampleMainCheckAllServer", everywhere, 1, kTrace, kTrace, kTrace,
         "128 radAuthCheckAllServer: "},
        {"radAuthSampleMainCaptivePortal", radAuthSampleMainCaptivePortal, 2, 0, kError, kError,
         "8 radAuthAndGetAttributes: "},
        {"radChapSampleMain", plain<radChapSampleMain>, 3, 0, kError, kError,
         "8 radChapSampleMain: "},
        {"radChapSampleMainCaptivePortal", chapForLimits, 4, kTrace, kError, kTrace,
         "128 radChapSampleMainCaptivePortal: "},
        {"radMschapSampleMain", plain<radMschapSampleMain>, 5, 0, kError, kError, "", true},
        {"radMschapSampleMainCaptivePortal", radMschapSampleMainCaptivePortal, 6, 0, kError, kError,
         "", true},
        {"radMschapv2SampleMain", plain<radMschapv2SampleMain>, 7, 0, kError, kError, "", true},
        {"radMschapv2SampleMainCaptivePortal", radMschapv2SampleMainCaptivePortal, 8, 0, kError,
         kError, "", true}};
    return rows;
}
// clang-format on

std::vector<Program> programsOf(const Family &family) {
    std::vector<Program> rows;
    for (const Program &program : programs()) {
        if (&program.method().family() == &family) {
            rows.push_back(program);
        }
    }
    return rows;
}

class SampleProgram : public testing::TestWithParam<Program> {
  protected:
    SampleProgram() {
        generator = {};
        server_.otherwise(accept());
        device_.configure(kDefaultFile, server_);
    }
    ~SampleProgram() override { EXPECT_EQ(0, palRandLibInit(nullptr, nullptr)); }

    static Outcome run(Arguments arguments, Limits *limits = nullptr) {
        Limits unused;
        Limits &places = limits != nullptr ? *limits : unused;
        return runAs(GetParam().name, [&] {
            return GetParam().main(arguments.count(), arguments.vector(), &places.idle,
                                   &places.session);
        });
    }

    // The same, and what is told is what the function behind the program says.
    static Outcome runForMethod(Arguments arguments) {
        return runAs(GetParam().method().name, [&] {
            Limits unused;
            return GetParam().main(arguments.count(), arguments.vector(), &unused.idle,
                                   &unused.session);
        });
    }

    void expectSent(size_t index, std::string_view userName, std::string_view password) {
        const Family &family = GetParam().method().family();
        expectLogin(family, server_.request(index), userName, password);
        if (family.runsProgram) {
            EXPECT_EQ(password, program_.call(index).password);
            EXPECT_EQ("/tmp/mschap_" + std::string(userName), program_.call(index).file);
        }
    }

    static std::vector<std::string> ownLine(int level, const std::string &text) {
        return {std::to_string(level) + " " + GetParam().name + ": " + text};
    }

    // Refused with the usage line, in the program's own way, before anything else was done.
    void expectUsage(const Outcome &refused, const std::string &usage = kUsage) const {
        const int level = GetParam().usageLevel;
        EXPECT_EQ(-1, refused.result);
        EXPECT_EQ(level == 0 ? usage : "", refused.output);
        EXPECT_EQ(level == 0 ? std::vector<std::string>() : ownLine(level, usage),
                  texts(refused.lines));
        EXPECT_EQ(0U, radMemPartId);
        EXPECT_EQ(0U, server_.requestCount());
        EXPECT_EQ(0U, program_.callCount());
    }

    // What comes after the start of the library, up to where inputs are looked at, has been done.
    void expectLimitRefused(const Outcome &refused) const {
        const std::string limits = GetParam().limits;
        EXPECT_EQ(-1, refused.result);
        EXPECT_EQ("", refused.output);
        const std::string line = limits + "Invalid username or password\n";
        if (limits.empty()) {
            EXPECT_THAT(texts(refused.lines), Not(Contains(HasSubstr("Invalid"))));
        } else {
            EXPECT_THAT(texts(refused.lines), Contains(line));
        }
        EXPECT_EQ(limits.starts_with("8 ") ? std::vector{line} : std::vector<std::string>(),
                  texts(refused.problems));
        EXPECT_THAT(generator.lengths, IsEmpty());
    }

    ScriptedServer server_{kSecret};
    StoppedDevice device_;
    StandInProgram program_{device_.root(), answering(ntResponse())};
};

INSTANTIATE_TEST_SUITE_P(Programs, SampleProgram, testing::ValuesIn(programs()), nameOf<Program>);

TEST_P(SampleProgram, LogsInFromTheDefaultFile) {
    const Outcome login = run({"login", "nemo", kPassword});
    EXPECT_EQ(0, login.result);
    EXPECT_EQ(
        GetParam().method().printsSuccess ? "\"nemo\" RADIUS Authentication OK\n" : std::string(),
        login.output);
    EXPECT_THAT(login.told, IsEmpty());
    EXPECT_THAT(login.problems, IsEmpty());
    EXPECT_EQ(1U, server_.requestCount());
    expectSent(0, "nemo", kPassword);
    expectSecrecy(login, kPassword);
}

TEST_P(SampleProgram, FailureIsPassedOn) {
    server_.then(reject());
    const Outcome login = run({"login", "nemo", kPassword});
    EXPECT_EQ(-1, login.result);
    EXPECT_EQ("", login.output);
    EXPECT_THAT(login.told, IsEmpty());
    expectSecrecy(login, kPassword);
}

TEST_P(SampleProgram, SaysWhatItsFunctionSays) {
    server_.then(accept(grant())).then(reject(grant()));
    expectSaidWithGrant(GetParam().method(), runForMethod({"login", "nemo", kPassword}), true);
    expectSaidWithGrant(GetParam().method(), runForMethod({"login", "nemo", kPassword}), false);
}

// --- The command line -----------------------------------------------------------------------------

TEST_P(SampleProgram, TooFewArgumentsAreAUsageError) {
    Limits limits;
    expectUsage(run({"login"}));
    expectUsage(run({"login", "nemo"}, &limits));
    expectUsage(run({"login", "-v"}));
    expectUsage(run({"login", "-f"}));
    expectUsage(run({"login", "-u"}));
    EXPECT_EQ(Limits(), limits);
}

TEST_P(SampleProgram, UsageNamesTheProgramAsItWasCalled) {
    expectUsage(run({"/opt/100%s/login"}),
                "Usage: /opt/100%s/login [-v] [ -f confFile] <username> <password>\n");
}

TEST_P(SampleProgram, NameAndPasswordMissingBehindTheOptionsAreAUsageError) {
    expectUsage(run({"login", "-v", "nemo"}));
    expectUsage(run({"login", "-v", "-v"}));
    expectUsage(run({"login", "-f", kDefaultFile}));
    expectUsage(run({"login", "-f", kDefaultFile, "nemo"}));
    expectUsage(run({"login", "-v", "--", "nemo"}));
}

TEST_P(SampleProgram, UnknownOptionIsAUsageError) {
    for (const char *option :
         {"-x", "-vx", "-s", "-u", "-p", "-?", "-:", "--help", "--standard-sha1"}) {
        SCOPED_TRACE(option);
        expectUsage(run({"login", option, "nemo", kPassword}));
    }
}

// Name and password are positional always, whatever -u and -p look like.
TEST_P(SampleProgram, NameAndPasswordAsOptionsAreAUsageError) {
    testing::internal::CaptureStderr();
    expectUsage(run({"login", "-u", "nemo"}));
    expectUsage(run({"login", "-unemo", "nemo", kPassword}));
    expectUsage(run({"login", "-u", "nemo", "-p", kPassword}));
    expectUsage(run({"login", "-p", kPassword, "nemo", kPassword}));
    expectUsage(run({"login", "-v", "-p", kPassword, "nemo", kPassword}));
    const std::string complaints = testing::internal::GetCapturedStderr();
    EXPECT_EQ(GetParam().knowsUserOptions, complaints.empty()) << "getopt(): " << complaints;
    expectUsage(run({"login", "-v", "-u"}));
    expectUsage(run({"login", "-v", "-p"}));
}

TEST_P(SampleProgram, OptionWithoutItsValueIsAnError) {
    for (const char *option : {"-f", "-vf"}) {
        const Outcome refused = run({"login", "-v", option});
        EXPECT_EQ(-1, refused.result);
        EXPECT_EQ("", refused.output);
        EXPECT_EQ(ownLine(GetParam().missingValueLevel, "ERROR: option value not specified \n"),
                  texts(refused.lines));
    }
    EXPECT_EQ(0U, radMemPartId);
}

TEST_P(SampleProgram, VerboseIsAcceptedAndIgnored) {
    const Outcome quiet = run({"login", "nemo", kPassword});
    const Outcome verbose = run({"login", "-v", "nemo", kPassword});
    EXPECT_EQ(0, verbose.result);
    EXPECT_EQ(quiet.output, verbose.output);
    expectSent(1, "nemo", kPassword);
}

TEST_P(SampleProgram, FileMayBeNamedAndTheLastOneCounts) {
    device_.root().remove(kDefaultFile);
    device_.configure("/b", server_);
    size_t sent = 0;
    for (const std::vector<std::string> &options : {std::vector<std::string>{"-v", "-f", "/b"},
                                                    {"-vf/b"},
                                                    {"-f", "/etc/longer", "-f", "/b"}}) {
        std::vector<std::string> words{"login"};
        words.insert(words.end(), options.begin(), options.end());
        words.insert(words.end(), {"nemo", kPassword});
        EXPECT_EQ(0, run(Arguments(words)).result);
        expectSent(sent++, "nemo", kPassword);
        stopLibrary();
    }
}

TEST_P(SampleProgram, PathMayHave99CharactersAndNoMore) {
    const std::string longest = "/var/" + std::string(94, 'x');
    const std::string tooLong = longest + 'x';
    ASSERT_EQ(99U, longest.size());
    device_.root().remove(kDefaultFile);
    device_.configure(longest, server_);
    device_.configure(tooLong, server_);
    expectUsage(run({"login", "-f", tooLong, "nemo", kPassword}));
    expectUsage(run({"login", "-f", "/" + std::string(5000, 'x'), "nemo", kPassword}));
    EXPECT_EQ(0, run({"login", "-f", longest, "nemo", kPassword}).result);
    expectSent(0, "nemo", kPassword);
}

TEST_P(SampleProgram, OptionsEndAtTwoDashes) {
    EXPECT_EQ(0, run({"login", "-v", "--", "-nemo", "-x"}).result);
    EXPECT_EQ(0, run({"login", "-v", "--", "-u", "-p"}).result);
    expectSent(0, "-nemo", "-x");
    expectSent(1, "-u", "-p");
}

TEST_P(SampleProgram, ArgumentsBehindThePasswordAreIgnored) {
    EXPECT_EQ(0, run({"login", "nemo", kPassword, "more"}).result);
    expectSent(0, "nemo", kPassword);
}

TEST_P(SampleProgram, EmptyPasswordIsTakenAsItIs) {
    EXPECT_EQ(0, run({"login", "nemo", ""}).result);
    expectSent(0, "nemo", "");
}

TEST_P(SampleProgram, LongestNameAndPasswordArriveWhole) {
    const std::string name(64, 'n');
    const std::string password(48, 'p');
    EXPECT_EQ(0, run({"login", name, password}).result);
    expectSent(0, name, password);
}

// The buffers hold 127 characters, which is more than a name may have: what is cut there is refused
// like what is not.
TEST_P(SampleProgram, LongerNameIsRefused) {
    for (const size_t length : {65U, 127U, 128U, 129U, 255U, 256U, 5000U}) {
        SCOPED_TRACE(length);
        const std::string text(length, 'n');
        expectLimitRefused(run({"login", text, kPassword}));
        expectLimitRefused(run({"login", text, text}));
    }
    EXPECT_EQ(0U, server_.requestCount());
}

TEST_P(SampleProgram, LongerPasswordIsRefusedOrCutBehind127Characters) {
    size_t sent = 0;
    for (const size_t length : {49U, 65U, 127U, 128U, 129U, 255U, 256U, 5000U}) {
        SCOPED_TRACE(length);
        const std::string password = std::string(126, 'p') + std::string(4874, 'q');
        const Outcome login = run({"login", "nemo", password.substr(0, length)});
        if (GetParam().method().family().runsProgram) {
            EXPECT_EQ(0, login.result);
            expectSent(sent++, "nemo", password.substr(0, std::min<size_t>(length, 127)));
        } else {
            expectLimitRefused(login);
        }
    }
    EXPECT_EQ(sent, server_.requestCount());
}

TEST_P(SampleProgram, ArgumentsAreLeftAsTheyWere) {
    Arguments arguments{"login", "-v", "nemo", kPassword};
    char **const argv = arguments.vector();
    const std::vector<char *> before(argv, argv + arguments.count() + 1);
    Limits limits;
    const Outcome login = runAs(GetParam().name, [&] {
        return GetParam().main(arguments.count(), argv, &limits.idle, &limits.session);
    });
    EXPECT_EQ(0, login.result);
    EXPECT_EQ(before, std::vector<char *>(argv, argv + arguments.count() + 1));
    EXPECT_STREQ("nemo", argv[2]);
    EXPECT_STREQ(kPassword, argv[3]);
}

TEST_P(SampleProgram, EveryCallParsesItsOwnArguments) {
    expectUsage(run({"login", "-vxv", "nemo", kPassword}));
    expectUsage(run({"login", "-vuv", "nemo", kPassword}));
    EXPECT_EQ(0, run({"login", "-v", "-f", kDefaultFile, "nemo", kPassword}).result);
    EXPECT_EQ(0, run({"login", "alice", "wonderland"}).result);
    EXPECT_EQ(0, run({"login", "-v", "bob", "builder"}).result);
    expectSent(0, "nemo", kPassword);
    expectSent(1, "alice", "wonderland");
    expectSent(2, "bob", "builder");
}

TEST_P(SampleProgram, ParsesAfterTheHostHasUsedGetopt) {
    Arguments host{"host", "-ab", "first", "second"};
    optind = 0;  // an earlier test may have left getopt() inside arguments that are gone
    while (getopt(host.count(), host.vector(), "ab") != -1) {
    }
    EXPECT_EQ(0, run({"login", "-v", "nemo", kPassword}).result);
    expectSent(0, "nemo", kPassword);
}

// --- The start of the library ---------------------------------------------------------------------

TEST_P(SampleProgram, FirstConfigurationStays) {
    const ScriptedServer other(kSecret);
    device_.configure("/etc/other.conf", other);
    EXPECT_EQ(0, run({"login", "nemo", kPassword}).result);
    EXPECT_EQ(0, run({"login", "-f", "/etc/other.conf", "alice", "wonderland"}).result);
    EXPECT_EQ(0, run({"login", "-f", "/etc/missing.conf", "bob", "builder"}).result);
    EXPECT_EQ(3U, server_.requestCount());
    EXPECT_EQ(0U, other.requestCount());
    expectSent(1, "alice", "wonderland");
}

// Names and passwords are looked at once the library has started.
TEST_P(SampleProgram, FileThatIsMissingIsAFailedStart) {
    for (const std::string &name : {std::string("nemo"), std::string(65, 'n')}) {
        const Outcome refused = run({"login", "-f", "/etc/missing.conf", name, kPassword});
        EXPECT_EQ(-1, refused.result);
        EXPECT_EQ("", refused.output);
        EXPECT_EQ(ownLine(GetParam().startLevel, kNotStarted), texts(refused.told));
        expectSecrecy(refused, kPassword);
    }
    EXPECT_EQ(0U, server_.requestCount());
    EXPECT_EQ(0, run({"login", "nemo", kPassword}).result) << "a later call tries again";
}

TEST_P(SampleProgram, FileWithoutAServerIsAFailedStart) {
    device_.root().write(kDefaultFile, "timeout 1\n");
    const Outcome refused = run({"login", "nemo", kPassword});
    EXPECT_EQ(-1, refused.result);
    EXPECT_EQ(ownLine(GetParam().startLevel, kNotStarted), texts(refused.told));
}

// A dictionary of which a part is missing does not end the start, so what it lacks decides.
TEST_P(SampleProgram, EveryAllocationMayFail) {
    unsigned withDictionary = 0;
    forEachFailingAllocation([&withDictionary] {
        const Outcome login = run({"login", "nemo", kPassword});
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

// --- What some of them have alone -----------------------------------------------------------------

TEST_P(SampleProgram, CaptivePortalHandsOutTheLimits) {
    const Method &method = GetParam().method();
    server_.then(accept(Attributes().addInteger(28, 600).addInteger(27, 7201)))
        .then(reject(Attributes().addInteger(28, 61)));
    Limits limits;
    EXPECT_EQ(0, run({"login", "nemo", kPassword}, &limits).result);
    EXPECT_EQ(method.handsOutLimits ? (Limits{10, 121}) : Limits(), limits);
    const Limits before = limits;
    EXPECT_EQ(-1, run({"login", "nemo", kPassword}, &limits).result);
    const bool taken = method.handsOutLimits && method.shown == Shown::kAlways;
    EXPECT_EQ(taken ? (Limits{2, 121}) : before, limits);
}

class ChapSample : public SampleProgram {};

INSTANTIATE_TEST_SUITE_P(Programs, ChapSample, testing::ValuesIn(programsOf(chap())),
                         nameOf<Program>);

TEST_P(ChapSample, ChallengeAndIdentifierComeFromTheCryptoLibraryForEveryCall) {
    EXPECT_EQ(0, run({"login", "nemo", kPassword}).result);
    EXPECT_EQ(0, run({"login", "nemo", kPassword}).result);
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
    uint8_t octet = 0;
    run({"login", "-x", "nemo", kPassword});
    EXPECT_EQ(0, palRandGen(&octet, 1));
    EXPECT_THAT(generator.lengths, IsEmpty());

    EXPECT_EQ(-1, run({"login", "-f", "/etc/missing.conf", "nemo", kPassword}).result);
    EXPECT_EQ(0, palRandGen(&octet, 1));
    EXPECT_THAT(generator.lengths, ElementsAre(1));
}

TEST_P(ChapSample, WithoutAChallengeOrAnIdentifierNothingIsSent) {
    for (const unsigned failingCall : {1U, 2U}) {
        generator = {.failingCall = failingCall, .lengths = {}};
        const Outcome login = run({"login", "nemo", kPassword});
        EXPECT_EQ(-1, login.result);
        EXPECT_EQ("", login.output);
        EXPECT_EQ(failingCall, generator.lengths.size());
    }
    EXPECT_EQ(0U, server_.requestCount());
}

TEST(SamplePrograms, InitDoesNothing) {
    for (int (*const init)() : {radAuthSampleInit, radChapSampleInit, radMschapSampleInit}) {
        EXPECT_EQ(0, init());
        EXPECT_EQ(0U, radMemPartId);
    }
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
    EXPECT_EQ(-1, run({"login", "nemo"}).result);
    EXPECT_THAT(results, testing::Each(kUntouched));
    const Outcome login = run({"login", "-v", "nemo", kPassword});
    EXPECT_EQ(-1, login.result);
    EXPECT_EQ("", login.output);
    EXPECT_THAT(results, ElementsAre(2, 3, kUntouched));
    EXPECT_THAT(texts(login.told),
                ElementsAre("128 radAuthCheckAllServer: \"nemo\" RADIUS Authentication failure\n"));
    EXPECT_THAT(login.problems, IsEmpty());
}

}  // namespace
}  // namespace lanyard::test::sample_login_test
