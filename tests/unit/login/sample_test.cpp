// The ten sample programs: their command line, the start of the library, and what they pass on. What
// the functions below them do is in login_contract_test.cpp and accounting_test.cpp.
#include <array>
#include <ostream>
#include <unistd.h>

#include <lanyard/radius/frame.h>
#include <lanyard/radius/methods.h>
#include <palcore.h>

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

namespace lanyard::test::sample_test {
namespace {

using testing::AnyOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

using Words = std::vector<std::string>;

constexpr const char *kDefaultFile = "/var/radius.conf";
constexpr const char *kMissingFile = "/etc/missing.conf";
constexpr int kAccounting = -1;

// Levels of the log are words, as EXPECT_LOG has them.
struct Program {
    const char *name;
    int (*main)(int argc, char *argv[], uint32_t *idle, uint32_t *session);
    int methodRow;                  // in methods(), or kAccounting
    const char *usageLevel;         // of the log; "" prints the usage
    const char *missingValueLevel;  // of an option without its value
    const char *startLevel;         // of a failed start
    // Start of the line that refuses inputs of too many characters; "" where a name is refused without
    // a word, and a password is cut.
    const char *limits;
    bool knowsUserOptions = false;  // -u and -p, which nothing handles

    [[nodiscard]] bool isAccounting() const { return methodRow == kAccounting; }
    [[nodiscard]] const Method &method() const { return methods()[static_cast<size_t>(methodRow)]; }
    [[nodiscard]] std::string line(const std::string &level, const std::string &text) const {
        return level + ' ' + name + "> " + text;
    }
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
        {"radAuthSampleMain", plain<radAuthSampleMain>,
         0, "", "error", "error", "error radAuth> "},
        {"radAuthSampleMainCheckAllServer", everywhere,
         1, "trace", "trace", "trace", "trace radAuthCheckAllServer> "},
        {"radAuthSampleMainCaptivePortal", radAuthSampleMainCaptivePortal,
         2, "", "error", "error", "error radAuthAndGetAttributes> "},
        {"radChapSampleMain", plain<radChapSampleMain>,
         3, "", "error", "error", "error radChapSampleMain> "},
        {"radChapSampleMainCaptivePortal", chapForLimits,
         4, "trace", "error", "trace", "trace radChapSampleMainCaptivePortal> "},
        {"radMschapSampleMain", plain<radMschapSampleMain>,
         5, "", "error", "error", "", true},
        {"radMschapSampleMainCaptivePortal", radMschapSampleMainCaptivePortal,
         6, "", "error", "error", "", true},
        {"radMschapv2SampleMain", plain<radMschapv2SampleMain>,
         7, "", "error", "error", "", true},
        {"radMschapv2SampleMainCaptivePortal", radMschapv2SampleMainCaptivePortal,
         8, "", "error", "error", "", true},
        {"radAcctSampleMain", plain<radAcctSampleMain>,
         kAccounting, "", "error", "error", ""}};
    return rows;
}
// clang-format on

template <typename Predicate>
std::vector<Program> programsThat(Predicate predicate) {
    std::vector<Program> rows;
    std::copy_if(programs().begin(), programs().end(), std::back_inserter(rows), predicate);
    return rows;
}

std::vector<Program> logins() {
    return programsThat([](const Program &program) { return !program.isAccounting(); });
}

class SampleProgram : public testing::TestWithParam<Program> {
  protected:
    SampleProgram() {
        generator = {};
        server_.otherwise(program().isAccounting() ? accountingResponse() : accept());
        configure(kDefaultFile);
    }
    ~SampleProgram() override {
        EXPECT_EQ(0U, otherServer_.requestCount());
        EXPECT_EQ(0, palRandLibInit(nullptr, nullptr));
    }

    static const Program &program() { return GetParam(); }
    static bool isAccounting() { return program().isAccounting(); }

    // A configuration file with both kinds of server, of which one is the program's.
    void configure(std::string_view path) const {
        device_.configure(path, isAccounting() ? otherServer_ : server_,
                          isAccounting() ? server_ : otherServer_);
    }

    // Runs it, and what is told is what `function` says: the program, or the function below it.
    static Outcome runTelling(const std::string &function, const Words &words,
                              Limits *limits = nullptr) {
        Words all{"sample"};
        all.insert(all.end(), words.begin(), words.end());
        Arguments arguments(all);
        Limits unused;
        Limits &places = limits != nullptr ? *limits : unused;
        return runAs(function, [&] {
            return program().main(arguments.count(), arguments.vector(), &places.idle,
                                  &places.session);
        });
    }

    static Outcome run(const Words &words, Limits *limits = nullptr) {
        return runTelling(program().name, words, limits);
    }

    // The inputs of a run that succeeds, after these options.
    static Words inputs(Words options = {}) {
        const Words inputs = isAccounting() ? Words{"-s", "7"} : Words{"nemo", kPassword};
        options.insert(options.end(), inputs.begin(), inputs.end());
        return options;
    }

    // Expects the index-th request to be that of inputs(), a record, or a login.
    void expectSent(size_t index) {
        if (isAccounting()) {
            expectRecord(index, 7);
        } else {
            expectLoginSent(index, "nemo", kPassword);
        }
    }

    void expectRecord(size_t index, uint32_t status) {
        expectAccountingRequest(server_.request(index), kSecret,
                                Attributes().addInteger(40, status).addAddress(4, kDeviceAddress));
    }

    void expectLoginSent(size_t index, std::string_view userName, std::string_view password) {
        const Family &family = program().method().family();
        expectLogin(family, server_.request(index), userName, password);
        if (family.runsProgram) {
            EXPECT_EQ(password, program_.call(index).password);
            EXPECT_EQ("/tmp/mschap_" + std::string(userName), program_.call(index).file);
        }
    }

    // Refused with the usage line, in the program's own way, before anything else was done.
    void expectUsage(const Outcome &refused, const std::string &calledAs = "sample") const {
        const std::string usage = "Usage: " + calledAs + " [-v] [ -f confFile] " +
                                  (isAccounting() ? "[-s status]" : "<username> <password>");
        const std::string level = program().usageLevel;
        EXPECT_THAT(refused, level.empty() ? EndedWithLog(-1, usage + '\n', {})
                                           : EndedWithLog(-1, "", {program().line(level, usage)}));
        expectNothingDone();
    }

    void expectNothingDone() const {
        EXPECT_EQ(0U, radMemPartId);
        EXPECT_EQ(0U, server_.requestCount());
        EXPECT_EQ(0U, program_.callCount());
    }

    static auto notStarted() {
        return Ended(-1, "",
                     {program().line(program().startLevel, "Unable to initialize radius ")});
    }

    ScriptedServer server_{kSecret};
    ScriptedServer otherServer_{kSecret};
    StoppedDevice device_;
    StandInProgram program_{device_.root(), answering(ntResponse())};
};

INSTANTIATE_TEST_SUITE_P(Programs, SampleProgram, testing::ValuesIn(programs()), nameOf<Program>);

TEST_P(SampleProgram, AsksTheServerOfTheDefaultFile) {
    const Outcome done = run(inputs());
    const char *expected = "\"nemo\" RADIUS Authentication OK\n";
    if (isAccounting()) {
        expected = "RADIUS Accounting Exchange OK\n";
    } else if (!program().method().printsSuccess) {
        expected = "";
    }
    EXPECT_THAT(done, Ended(0, expected));
    EXPECT_PROBLEMS(done);
    EXPECT_EQ(1U, server_.requestCount());
    expectSent(0);
    expectSecrecy(done, kPassword);
}

TEST_P(SampleProgram, FailureIsPassedOn) {
    server_.then(reject());
    const Outcome refused = run(inputs());
    EXPECT_THAT(refused, Ended(-1));
    expectSecrecy(refused, kPassword);
}

// --- The command line -----------------------------------------------------------------------------

TEST_P(SampleProgram, UsageNamesTheProgramAsItWasCalled) {
    Arguments arguments{"/opt/100%s/sample", "-x"};
    Limits limits;
    expectUsage(runAs(program().name,
                      [&] {
                          return program().main(arguments.count(), arguments.vector(), &limits.idle,
                                                &limits.session);
                      }),
                "/opt/100%s/sample");
}

TEST_P(SampleProgram, UnknownOptionIsAUsageError) {
    for (const char *option :
         {"-x", "-vx", "-u", "-p", "-?", "-:", "--help", "--standard-sha1", "-s"}) {
        SCOPED_TRACE(option);
        if (!isAccounting() || option != std::string("-s")) {
            expectUsage(run(inputs({option})));
            expectUsage(run(inputs({"-v", option, "-v"})));
        }
    }
    EXPECT_EQ(0, run(inputs()).result);
    expectSent(0);
}

TEST_P(SampleProgram, OptionWithoutItsValueIsAnError) {
    for (const std::string option : {"-f", "-vf", "-s", "-vs"}) {
        SCOPED_TRACE(option);
        if (isAccounting() || option.back() == 'f') {
            EXPECT_THAT(run({"-v", option}),
                        EndedWithLog(-1, "",
                                     {program().line(program().missingValueLevel,
                                                     "ERROR: option value not specified ")}));
        }
    }
    expectNothingDone();
}

TEST_P(SampleProgram, VerboseIsAcceptedAndIgnored) {
    const Outcome quiet = run(inputs());
    const Outcome verbose = run(inputs({"-v"}));
    EXPECT_EQ(0, verbose.result);
    EXPECT_EQ(quiet.output, verbose.output);
    expectSent(1);
}

TEST_P(SampleProgram, FileMayBeNamedAndTheLastOneCounts) {
    device_.root().remove(kDefaultFile);
    configure("/b");
    size_t sent = 0;
    for (const Words &options :
         {Words{"-v", "-f", "/b"}, {"-vf/b"}, {"-f", "/etc/longer", "-f", "/b"}}) {
        EXPECT_EQ(0, run(inputs(options)).result);
        expectSent(sent++);
        stopLibrary();
    }
}

TEST_P(SampleProgram, PathMayHave99CharactersAndNoMore) {
    const std::string longest = "/var/" + std::string(94, 'x');
    const std::string tooLong = longest + 'x';
    ASSERT_EQ(99U, longest.size());
    device_.root().remove(kDefaultFile);
    configure(longest);
    configure(tooLong);
    expectUsage(run(inputs({"-f", tooLong})));
    expectUsage(run(inputs({"-f", "/" + std::string(5000, 'x')})));
    EXPECT_EQ(0, run(inputs({"-f", longest})).result);
    expectSent(0);
}

TEST_P(SampleProgram, ArgumentsAfterTheInputsAreIgnored) {
    Words words = inputs();
    words.insert(words.end(), {"more", "words"});
    EXPECT_EQ(0, run(words).result);
    expectSent(0);
}

TEST_P(SampleProgram, ArgumentsAreLeftAsTheyWere) {
    const Words words = inputs({"sample", "-v"});
    Arguments arguments(words);
    char **const argv = arguments.vector();
    const std::vector<char *> before(argv, argv + arguments.count() + 1);
    Limits limits;
    const Outcome done = runAs(program().name, [&] {
        return program().main(arguments.count(), argv, &limits.idle, &limits.session);
    });
    EXPECT_EQ(0, done.result);
    EXPECT_EQ(before, std::vector<char *>(argv, argv + arguments.count() + 1));
    EXPECT_EQ(words, Words(argv, argv + arguments.count()));
}

TEST_P(SampleProgram, ParsesAfterTheHostHasUsedGetopt) {
    Arguments host{"host", "-ab", "first", "second"};
    optind = 0;  // an earlier test may have left getopt() inside arguments that are gone
    while (getopt(host.count(), host.vector(), "ab") != -1) {
    }
    EXPECT_EQ(0, run(inputs({"-v"})).result);
    expectSent(0);
}

// --- The start of the library ---------------------------------------------------------------------

TEST_P(SampleProgram, FirstConfigurationStays) {
    const ScriptedServer another(kSecret);
    device_.configure("/etc/other.conf", another, another);
    EXPECT_EQ(0, run(inputs()).result);
    EXPECT_EQ(0, run(inputs({"-f", "/etc/other.conf"})).result);
    EXPECT_EQ(0, run(inputs({"-f", kMissingFile})).result);
    EXPECT_EQ(0U, another.requestCount());
    ASSERT_EQ(3U, server_.requestCount());
    expectSent(2);
}

// Names and passwords are looked at once the library has started.
TEST_P(SampleProgram, FileThatIsMissingIsAFailedStart) {
    std::vector<Words> all{inputs()};
    if (!isAccounting()) {
        all.push_back({std::string(65, 'n'), kPassword});
    }
    for (const Words &words : all) {
        Words arguments{"-f", kMissingFile};
        arguments.insert(arguments.end(), words.begin(), words.end());
        const Outcome refused = run(arguments);
        EXPECT_THAT(refused, notStarted());
        std::vector<std::string> problems{
            "error radConfigure: can't open /etc/missing.conf: No such file or directory"};
        if (program().startLevel == std::string("error")) {
            problems.push_back(refused.told.at(0));
        }
        EXPECT_EQ(problems, refused.problemLog());
        expectSecrecy(refused, kPassword);
    }
    EXPECT_EQ(0U, server_.requestCount());
    EXPECT_EQ(0, run(inputs()).result) << "a later call tries again";
}

TEST_P(SampleProgram, FileWithoutAServerIsAFailedStart) {
    device_.root().write(kDefaultFile, "timeout 1\n");
    EXPECT_THAT(run(inputs()), notStarted());
}

// A dictionary of which a part is missing does not end the start, so what it lacks decides.
TEST_P(SampleProgram, EveryAllocationMayFail) {
    unsigned withDictionary = 0;
    forEachFailingAllocation([&withDictionary] {
        const Outcome done = run(inputs());
        if (!allocationFailed()) {
            EXPECT_EQ(0, done.result);
        } else if (!testing::Value(done.problemLog(), Contains(HasSubstr(" radDictLoad")))) {
            ++withDictionary;
            EXPECT_EQ(-1, done.result);
            EXPECT_EQ("", done.output);
            if (isAccounting()) {
                EXPECT_THAT(done.problemLog(),
                            Contains(AnyOf("error radAcctSampleMain> Unable to initialize radius ",
                                           "error radAcct> RADIUS Accounting Exchange Failed",
                                           "critical radPairNew: out of memory")));
            }
        }
        stopLibrary();
    });
    // Two servers with two texts each, two numbers, and the exchange.
    EXPECT_GE(withDictionary, 10U);
}

TEST(SamplePrograms, InitDoesNothing) {
    for (int (*const init)() :
         {radAuthSampleInit, radChapSampleInit, radMschapSampleInit, radAcctSampleInit}) {
        EXPECT_EQ(0, init());
        EXPECT_EQ(0U, radMemPartId);
    }
}

// --- Name and password ----------------------------------------------------------------------------

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

INSTANTIATE_TEST_SUITE_P(Programs, SampleLogin, testing::ValuesIn(logins()), nameOf<Program>);

TEST_P(SampleLogin, SaysWhatItsFunctionSays) {
    const Method &method = program().method();
    server_.then(accept(grant())).then(reject(grant()));
    EXPECT_THAT(runTelling(method.name, inputs()), VerdictWithGrant(method, true));
    EXPECT_THAT(runTelling(method.name, inputs()), VerdictWithGrant(method, false));
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

// The buffers hold 127 characters, which is more than a name may have: what is cut there is refused
// like what is not.
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

std::vector<Program> chapLogins() {
    return programsThat([](const Program &program) {
        return !program.isAccounting() && &program.method().family() == &chap();
    });
}

class ChapSample : public SampleLogin {};

INSTANTIATE_TEST_SUITE_P(Programs, ChapSample, testing::ValuesIn(chapLogins()), nameOf<Program>);

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

    EXPECT_EQ(-1, run({"-f", "/etc/missing.conf", "nemo", kPassword}).result);
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
    EXPECT_THAT(
        login,
        Ended(-1, "", {"trace radAuthCheckAllServer> \"nemo\" RADIUS Authentication failure"}));
    EXPECT_PROBLEMS(login);
}

// --- Accounting -----------------------------------------------------------------------------------

using SampleAccounting = SampleProgram;

INSTANTIATE_TEST_SUITE_P(Programs, SampleAccounting, testing::Values(programs().back()),
                         nameOf<Program>);

TEST_P(SampleAccounting, WithoutAStatusItSends0) {
    EXPECT_EQ(0, run({}).result);
    EXPECT_EQ(0, run({"-s", "7"}).result);
    EXPECT_EQ(0, run({}).result) << "that of an earlier call is forgotten";
    expectRecord(0, 0);
    expectRecord(1, 7);
    expectRecord(2, 0);
}

TEST_P(SampleAccounting, StatusIsTakenAsANumber) {
    struct Case {
        const char *text;
        uint32_t status;
    };
    size_t sent = 0;
    for (const auto &[text, status] :
         {Case{"7", 7}, Case{"08", 8}, Case{"+2", 2}, Case{" 1", 1}, Case{"2nd", 2},
          Case{"Start", 0}, Case{"", 0}, Case{"2147483647", 2147483647}, Case{"-1", UINT32_MAX}}) {
        SCOPED_TRACE(text);
        EXPECT_EQ(0, run({"-s", text}).result);
        expectRecord(sent++, status);
    }
}

TEST_P(SampleAccounting, OptionsMayBeJoinedAndRepeated) {
    EXPECT_EQ(0, run({"-vs7"}).result);
    EXPECT_EQ(0, run({"-v", "-v", "-s", "1", "-s", "2"}).result);
    expectRecord(0, 7);
    expectRecord(1, 2);
}

TEST_P(SampleAccounting, FailureIsTold) {
    server_.then(accept());
    EXPECT_THAT(runTelling("radAcct", {"-s", "1"}),
                Ended(-1, "", {"error radAcct> RADIUS Accounting Exchange Failed"}));
}

}  // namespace
}  // namespace lanyard::test::sample_test
