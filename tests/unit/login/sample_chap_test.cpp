// The programs over CHAP: their command line, the random source, and the start of the library.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ostream>
#include <unistd.h>

#include <lanyard/radius/frame.h>
#include <lanyard/radius/methods.h>
#include <palcore.h>

#include "tests/support/failing_partition.h"
#include "tests/unit/login/outcome.h"

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

namespace lanyard::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;

constexpr const char *kDefaultFile = "/var/radius.conf";
constexpr const char *kPassword = "arctangent";
constexpr const char *kUsage = "Usage: radchap [-v] [ -f confFile] <username> <password>\n";
constexpr const char *kMissingValue = "ERROR: option value not specified \n";
constexpr const char *kNotStarted = "Unable to initialize radius \n";
constexpr const char *kRefusal = "Invalid username or password\n";

constexpr int kUntouched = 4711;

struct Program {
    const char *name;
    int (*main)(int argc, char *argv[]);
    bool printsUsage;  // on standard output, else logged at level 128
    int startLevel;    // of a failed start
    int refusalLevel;  // of a name or password out of bounds
};

void PrintTo(const Program &program, std::ostream *stream) {
    *stream << program.name;
}

int mainForLimits(int argc, char *argv[]) {
    int idle = 0;
    int session = 0;
    return radChapSampleMainCaptivePortal(argc, argv, &idle, &session);
}

class ChapProgram : public testing::TestWithParam<Program> {
  protected:
    ChapProgram() {
        generator = {};
        server_.otherwise(accept());
        device_.configure(kDefaultFile, server_);
    }
    ~ChapProgram() override { EXPECT_EQ(0, palRandLibInit(nullptr, nullptr)); }

    static Outcome run(Arguments arguments) {
        return runAs(GetParam().name, [&arguments] {
            return GetParam().main(arguments.count(), arguments.vector());
        });
    }

    // The request's challenge is answered by its response.
    void expectSent(size_t index, std::string_view userName, std::string_view password) {
        const ReceivedRequest sent = server_.request(index);
        const Bytes response = attributeValue(sent, 3);
        const Bytes challenge = attributeValue(sent, 60);
        ASSERT_EQ(17U, response.size());
        ASSERT_EQ(16U, challenge.size());
        const ByteView identifier = ByteView(response).first(1);
        const Digest digest = md5({identifier, fromText(password), challenge});
        EXPECT_BYTES_EQ(concatenate({identifier, digest}), response);
        expectAccessRequest(sent, kSecret,
                            Attributes()
                                .addText(1, userName)
                                .addInteger(6, 8)
                                .add(3, response)
                                .add(60, challenge)
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

INSTANTIATE_TEST_SUITE_P(Programs, ChapProgram,
                         testing::Values(Program{"radChapSampleMain", radChapSampleMain, true,
                                                 kError, kError},
                                         Program{"radChapSampleMainCaptivePortal", mainForLimits,
                                                 false, kTrace, kTrace}),
                         [](const auto &instance) { return std::string(instance.param.name); });

TEST_P(ChapProgram, LogsInFromTheDefaultFile) {
    const Outcome login = run({"radchap", "nemo", kPassword});
    EXPECT_EQ(0, login.result);
    EXPECT_THAT(login.told, IsEmpty());
    EXPECT_THAT(login.problems, IsEmpty());
    EXPECT_EQ(1U, server_.requestCount());
    expectSent(0, "nemo", kPassword);
    expectSecrecy(login, kPassword);
}

TEST_P(ChapProgram, ChallengeAndIdentifierComeFromTheCryptoLibrary) {
    EXPECT_EQ(0, run({"radchap", "nemo", kPassword}).result);
    ASSERT_GE(generator.lengths.size(), 2U);
    EXPECT_EQ(16U, generator.lengths[0]);
    EXPECT_EQ(1U, generator.lengths[1]);
    EXPECT_FALSE(generator.hadContext);
    EXPECT_EQ("101112131415161718191a1b1c1d1e1f", toHex(attributeValue(server_.request(0), 60)));
    EXPECT_EQ(0x20, attributeValue(server_.request(0), 3).at(0));
}

TEST_P(ChapProgram, RandomSourceIsSetBeforeTheStartAndAfterTheOptions) {
    uint8_t octet = 0;
    run({"radchap", "-x", "nemo", kPassword});
    EXPECT_EQ(0, palRandGen(&octet, 1));
    EXPECT_THAT(generator.lengths, IsEmpty());

    EXPECT_EQ(-1, run({"radchap", "-f", "/etc/missing.conf", "nemo", kPassword}).result);
    EXPECT_EQ(0, palRandGen(&octet, 1));
    EXPECT_THAT(generator.lengths, ElementsAre(1));
}

TEST_P(ChapProgram, WithoutAChallengeNothingIsSent) {
    generator.failingCall = 1;
    const Outcome login = run({"radchap", "nemo", kPassword});
    EXPECT_EQ(-1, login.result);
    EXPECT_EQ("", login.output);
    EXPECT_EQ(0U, server_.requestCount());
}

TEST_P(ChapProgram, WithoutAnIdentifierNothingIsSent) {
    generator.failingCall = 2;
    const Outcome login = run({"radchap", "nemo", kPassword});
    EXPECT_EQ(-1, login.result);
    EXPECT_EQ("", login.output);
    EXPECT_EQ(0U, server_.requestCount());
}

TEST_P(ChapProgram, FailureIsPassedOn) {
    server_.then(reject());
    const Outcome login = run({"radchap", "nemo", kPassword});
    EXPECT_EQ(-1, login.result);
    EXPECT_THAT(login.told, IsEmpty());
    expectSecrecy(login, kPassword);
}

TEST_P(ChapProgram, TooFewArgumentsAreAUsageError) {
    expectUsage(run({"radchap"}));
    expectUsage(run({"radchap", "nemo"}));
    expectUsage(run({"radchap", "-v"}));
    expectUsage(run({"radchap", "-f"}));
}

TEST_P(ChapProgram, NameAndPasswordMissingBehindTheOptionsAreAUsageError) {
    expectUsage(run({"radchap", "-v", "nemo"}));
    expectUsage(run({"radchap", "-v", "-v"}));
    expectUsage(run({"radchap", "-f", kDefaultFile}));
    expectUsage(run({"radchap", "-f", kDefaultFile, "nemo"}));
}

TEST_P(ChapProgram, UnknownOptionIsAUsageError) {
    for (const char *option : {"-x", "-vx", "-s", "-u", "-p", "-?", "-:", "--standard-sha1"}) {
        SCOPED_TRACE(option);
        expectUsage(run({"radchap", option, "nemo", kPassword}));
    }
}

// At level 8 in both of them.
TEST_P(ChapProgram, OptionWithoutItsValueIsAnError) {
    for (const char *option : {"-f", "-vf"}) {
        const Outcome refused = run({"radchap", "-v", option});
        EXPECT_EQ(-1, refused.result);
        EXPECT_EQ("", refused.output);
        EXPECT_THAT(refused.lines, ElementsAre(Logged(7, kError, GetParam().name, kMissingValue)));
    }
    EXPECT_EQ(0U, radMemPartId);
}

TEST_P(ChapProgram, VerboseIsAcceptedAndAFileMayBeNamed) {
    device_.root().remove(kDefaultFile);
    device_.configure("/etc/other.conf", server_);
    EXPECT_EQ(0, run({"radchap", "-v", "-f", "/etc/other.conf", "nemo", kPassword}).result);
    expectSent(0, "nemo", kPassword);
}

TEST_P(ChapProgram, PathMayHave99CharactersAndNoMore) {
    const std::string longest = "/var/" + std::string(94, 'x');
    device_.root().remove(kDefaultFile);
    device_.configure(longest, server_);
    device_.configure(longest + 'x', server_);
    expectUsage(run({"radchap", "-f", longest + 'x', "nemo", kPassword}));
    EXPECT_EQ(0, run({"radchap", "-f", longest, "nemo", kPassword}).result);
    expectSent(0, "nemo", kPassword);
}

TEST_P(ChapProgram, OptionsEndAtTwoDashes) {
    EXPECT_EQ(0, run({"radchap", "-v", "--", "-nemo", "-x"}).result);
    expectSent(0, "-nemo", "-x");
}

TEST_P(ChapProgram, LongestNameAndPasswordArriveWhole) {
    const std::string name(64, 'n');
    const std::string password(48, 'p');
    EXPECT_EQ(0, run({"radchap", name, password}).result);
    expectSent(0, name, password);
}

TEST_P(ChapProgram, EmptyPasswordIsAnswered) {
    EXPECT_EQ(0, run({"radchap", "nemo", ""}).result);
    expectSent(0, "nemo", "");
}

TEST_P(ChapProgram, NameAndPasswordOutOfBoundsAreRefused) {
    using Login = std::pair<size_t, size_t>;
    for (const auto &[name, password] :
         {Login{65, 8}, Login{4, 49}, Login{65, 49}, Login{127, 8}, Login{128, 8}, Login{4, 127},
          Login{4, 128}, Login{5000, 5000}}) {
        SCOPED_TRACE(testing::Message() << name << " and " << password);
        const Outcome refused =
            run({"radchap", std::string(name, 'n'), std::string(password, 'p')});
        EXPECT_EQ(-1, refused.result);
        EXPECT_EQ("", refused.output);
        EXPECT_THAT(refused.told,
                    ElementsAre(Logged(7, GetParam().refusalLevel, GetParam().name, kRefusal)));
        EXPECT_EQ(GetParam().refusalLevel == kError ? 1U : 0U, refused.problems.size());
    }
    EXPECT_EQ(0U, server_.requestCount());
    EXPECT_THAT(generator.lengths, IsEmpty());
}

// Names and passwords are looked at once the library has started.
TEST_P(ChapProgram, FileThatIsMissingIsAFailedStart) {
    const std::string tooLong(65, 'n');
    for (const char *name : {"nemo", tooLong.c_str()}) {
        const Outcome refused = run({"radchap", "-f", "/etc/missing.conf", name, kPassword});
        EXPECT_EQ(-1, refused.result);
        EXPECT_EQ("", refused.output);
        EXPECT_THAT(refused.told,
                    ElementsAre(Logged(7, GetParam().startLevel, GetParam().name, kNotStarted)));
        expectSecrecy(refused, kPassword);
    }
    EXPECT_EQ(0U, server_.requestCount());
    EXPECT_EQ(0, run({"radchap", "nemo", kPassword}).result) << "a later call tries again";
}

TEST_P(ChapProgram, FirstConfigurationStays) {
    const ScriptedServer other(kSecret);
    device_.configure("/etc/other.conf", other);
    EXPECT_EQ(0, run({"radchap", "nemo", kPassword}).result);
    EXPECT_EQ(0, run({"radchap", "-f", "/etc/other.conf", "alice", "wonderland"}).result);
    EXPECT_EQ(2U, server_.requestCount());
    EXPECT_EQ(0U, other.requestCount());
    expectSent(1, "alice", "wonderland");
}

TEST_P(ChapProgram, EveryCallParsesItsOwnArguments) {
    expectUsage(run({"radchap", "-vxv", "nemo", kPassword}));
    EXPECT_EQ(0, run({"radchap", "-v", "-f", kDefaultFile, "nemo", kPassword}).result);
    EXPECT_EQ(0, run({"radchap", "alice", "wonderland"}).result);
    expectSent(0, "nemo", kPassword);
    expectSent(1, "alice", "wonderland");
    EXPECT_NE(attributeValue(server_.request(0), 60), attributeValue(server_.request(1), 60));
}

// A dictionary of which a part is missing does not end the start, so what it lacks decides.
TEST_P(ChapProgram, EveryAllocationMayFail) {
    unsigned withDictionary = 0;
    forEachFailingAllocation([&withDictionary] {
        const Outcome login = run({"radchap", "nemo", kPassword});
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

// --- What each of them has alone ------------------------------------------------------------------

TEST(ChapPrograms, InitDoesNothing) {
    EXPECT_EQ(0, radChapSampleInit());
    EXPECT_EQ(0U, radMemPartId);
}

TEST(ChapPrograms, PlainOneSaysWhatTheMethodSays) {
    generator = {};
    ScriptedServer server(kSecret, {accept(Attributes().addText(18, "Hello")), reject()});
    const StoppedDevice device;
    device.configure(kDefaultFile, server);
    Arguments arguments{"radchap", "nemo", kPassword};
    const auto call = [&] { return radChapSampleMain(arguments.count(), arguments.vector()); };
    const Outcome accepted = runAs("radChapAuth", call);
    EXPECT_EQ(0, accepted.result);
    EXPECT_EQ(
        "\"nemo\" RADIUS Authentication OK\n"
        "Attributes Received: \n"
        "Reply-Message: Hello\n",
        accepted.output);
    const Outcome rejected = runAs("radChapAuth", call);
    EXPECT_EQ(-1, rejected.result);
    EXPECT_THAT(rejected.problems, ElementsAre(Logged(7, kError, "radChapAuth",
                                                      "\"nemo\" RADIUS Authentication failure\n")));
    EXPECT_EQ(0, palRandLibInit(nullptr, nullptr));
}

TEST(ChapPrograms, CaptivePortalHandsOutTheLimitsQuietly) {
    generator = {};
    const ScriptedServer server(kSecret,
                                {accept(Attributes().addInteger(28, 600).addInteger(27, 7201)),
                                 reject(Attributes().addInteger(28, 61))});
    const StoppedDevice device;
    device.configure(kDefaultFile, server);
    Arguments arguments{"radchap-portal", "nemo", kPassword};
    int idle = kUntouched;
    int session = kUntouched;
    const auto call = [&] {
        return radChapSampleMainCaptivePortal(arguments.count(), arguments.vector(), &idle,
                                              &session);
    };
    const Outcome accepted = runAs("radChapAuthAndGetAttributes", call);
    EXPECT_EQ(0, accepted.result);
    EXPECT_EQ("", accepted.output);
    EXPECT_THAT(accepted.told, Contains(Logged(7, kTrace, "radChapAuthAndGetAttributes",
                                               "\"nemo\" RADIUS Authentication OK\n")));
    EXPECT_EQ(10, idle);
    EXPECT_EQ(121, session);
    const Outcome rejected = runAs("radChapAuthAndGetAttributes", call);
    EXPECT_EQ(-1, rejected.result);
    EXPECT_THAT(rejected.problems, IsEmpty());
    EXPECT_EQ(2, idle);
    EXPECT_EQ(121, session);
    EXPECT_EQ(0, palRandLibInit(nullptr, nullptr));
}

TEST(ChapPrograms, RefusedCommandLineLeavesTheOutputsAlone) {
    const StoppedDevice device;
    Arguments arguments{"radchap-portal", "nemo"};
    int idle = kUntouched;
    int session = kUntouched;
    EXPECT_EQ(
        -1, radChapSampleMainCaptivePortal(arguments.count(), arguments.vector(), &idle, &session));
    EXPECT_EQ(kUntouched, idle);
    EXPECT_EQ(kUntouched, session);
}

}  // namespace
}  // namespace lanyard::test
