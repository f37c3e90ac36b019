// What the ten sample programs share: their command line and the start of the library.
#include <unistd.h>

#include <lanyard/radius/frame.h>
#include <lanyard/radius/methods.h>
#include <palcore.h>

#include "tests/unit/login/sample_program.h"

namespace lanyard::test::sample_contract_test {
namespace {

using testing::AnyOf;
using testing::Contains;
using testing::HasSubstr;

auto notStarted(const Program &program) {
    return Ended(-1, "", {program.line(program.startLevel, "Unable to initialize radius ")});
}

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
    expectUsage(runTelling(program().name, {"/opt/100%s/sample", "-x"}), "/opt/100%s/sample");
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
    EXPECT_EQ(0, program().main(arguments.count(), argv, &limits.idle, &limits.session));
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
        EXPECT_THAT(refused, notStarted(program()));
        std::vector<std::string> problems{
            "error radConfigure: can't open /etc/missing.conf: No such file or "
            "directory"};
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
    EXPECT_THAT(run(inputs()), notStarted(program()));
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

}  // namespace
}  // namespace lanyard::test::sample_contract_test
