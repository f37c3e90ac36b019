// The programs over MS-CHAP and MS-CHAPv2: their command line and the start of the library.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ostream>

#include <lanyard/radius/frame.h>
#include <lanyard/radius/methods.h>

#include "tests/support/failing_partition.h"
#include "tests/unit/login/nt_response_program.h"
#include "tests/unit/login/outcome.h"

namespace lanyard::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;

constexpr const char *kDefaultFile = "/var/radius.conf";
constexpr const char *kPassword = "arctangent";
constexpr const char *kUsage = "Usage: radmschap [-v] [ -f confFile] <username> <password>\n";
constexpr const char *kMissingValue = "ERROR: option value not specified \n";
constexpr const char *kNotStarted = "Unable to initialize radius \n";

constexpr uint32_t kUntouched = 4711;
constexpr uint32_t kMicrosoft = 311;

struct Program {
    const char *name;
    int (*main)(int argc, char *argv[]);
    const char *method;
    uint8_t responseType;  // of the Microsoft sub-attribute
    size_t challengeSize;
    bool forLimits;
};

void PrintTo(const Program &program, std::ostream *stream) {
    *stream << program.name;
}

int mschapForLimits(int argc, char *argv[]) {
    uint32_t idle = 0;
    uint32_t session = 0;
    return radMschapSampleMainCaptivePortal(argc, argv, &idle, &session);
}

int mschapv2ForLimits(int argc, char *argv[]) {
    uint32_t idle = 0;
    uint32_t session = 0;
    return radMschapv2SampleMainCaptivePortal(argc, argv, &idle, &session);
}

class MschapProgram : public testing::TestWithParam<Program> {
  protected:
    MschapProgram() {
        server_.otherwise(accept());
        device_.configure(kDefaultFile, server_);
    }

    static Outcome run(Arguments arguments) {
        return runAs(GetParam().name, [&arguments] {
            return GetParam().main(arguments.count(), arguments.vector());
        });
    }

    // The request is that of the method, and the NT-Response was asked for with the password.
    void expectSent(size_t index, std::string_view userName, std::string_view password) {
        const ReceivedRequest sent = server_.request(index);
        const Bytes response = vendorValue(sent, kMicrosoft, GetParam().responseType);
        ASSERT_EQ(50U, response.size());
        EXPECT_BYTES_EQ(ntResponse(), ByteView(response).last(24));
        expectAccessRequest(sent, kSecret,
                            Attributes()
                                .addText(1, userName)
                                .addVendor(kMicrosoft, 11, Bytes(GetParam().challengeSize, 1))
                                .addVendor(kMicrosoft, GetParam().responseType, response)
                                .addInteger(6, 8)
                                .addAddress(4, kDeviceAddress));
        const StandInProgram::Call call = program_.call(index);
        EXPECT_EQ(password, call.password);
        EXPECT_EQ("/tmp/mschap_" + std::string(userName), call.file);
    }

    // Refused with the usage line, before anything else was done.
    void expectUsage(const Outcome &refused) const {
        EXPECT_EQ(-1, refused.result);
        EXPECT_EQ(kUsage, refused.output);
        EXPECT_THAT(refused.lines, IsEmpty());
        EXPECT_EQ(0U, radMemPartId);
        EXPECT_EQ(0U, server_.requestCount());
        EXPECT_EQ(0U, program_.callCount());
    }

    ScriptedServer server_{kSecret};
    StoppedDevice device_;
    StandInProgram program_{device_.root(), answering(ntResponse())};
};

INSTANTIATE_TEST_SUITE_P(
    Programs, MschapProgram,
    testing::Values(Program{"radMschapSampleMain", radMschapSampleMain, "radMschap", 1, 8, false},
                    Program{"radMschapSampleMainCaptivePortal", mschapForLimits,
                            "radMschapAndGetAttributes", 1, 8, true},
                    Program{"radMschapv2SampleMain", radMschapv2SampleMain, "radMschapv2", 25, 16,
                            false},
                    Program{"radMschapv2SampleMainCaptivePortal", mschapv2ForLimits,
                            "radMschapv2AndGetAttributes", 25, 16, true}),
    [](const auto &instance) { return std::string(instance.param.name); });

TEST_P(MschapProgram, LogsInFromTheDefaultFile) {
    const Outcome login = run({"radmschap", "nemo", kPassword});
    EXPECT_EQ(0, login.result);
    EXPECT_EQ(GetParam().forLimits ? "" : "\"nemo\" RADIUS Authentication OK\n", login.output);
    EXPECT_THAT(login.told, IsEmpty());
    EXPECT_THAT(login.problems, IsEmpty());
    EXPECT_EQ(1U, server_.requestCount());
    expectSent(0, "nemo", kPassword);
    expectSecrecy(login, kPassword);
}

TEST_P(MschapProgram, FailureIsPassedOn) {
    server_.then(reject());
    const Outcome login = run({"radmschap", "nemo", kPassword});
    EXPECT_EQ(-1, login.result);
    EXPECT_EQ("", login.output);
    EXPECT_THAT(login.problems, ElementsAre(Logged(7, kError, GetParam().method,
                                                   "\"nemo\" RADIUS Authentication failure\n")));
    expectSecrecy(login, kPassword);
}

TEST_P(MschapProgram, TooFewArgumentsAreAUsageError) {
    expectUsage(run({"radmschap"}));
    expectUsage(run({"radmschap", "nemo"}));
    expectUsage(run({"radmschap", "-v"}));
    expectUsage(run({"radmschap", "-f"}));
    expectUsage(run({"radmschap", "-u"}));
}

TEST_P(MschapProgram, NameAndPasswordMissingBehindTheOptionsAreAUsageError) {
    expectUsage(run({"radmschap", "-v", "nemo"}));
    expectUsage(run({"radmschap", "-v", "-v"}));
    expectUsage(run({"radmschap", "-f", kDefaultFile}));
    expectUsage(run({"radmschap", "-f", kDefaultFile, "nemo"}));
}

// Name and password are positional always, whatever -u and -p look like.
TEST_P(MschapProgram, NameAndPasswordAsOptionsAreAUsageError) {
    testing::internal::CaptureStderr();
    expectUsage(run({"radmschap", "-u", "nemo"}));
    expectUsage(run({"radmschap", "-unemo", "nemo", kPassword}));
    expectUsage(run({"radmschap", "-u", "nemo", "-p", kPassword}));
    expectUsage(run({"radmschap", "-p", kPassword, "nemo", kPassword}));
    expectUsage(run({"radmschap", "-v", "-p", kPassword, "nemo", kPassword}));
    EXPECT_EQ("", testing::internal::GetCapturedStderr()) << "getopt() knows them";
    expectUsage(run({"radmschap", "-v", "-u"}));
    expectUsage(run({"radmschap", "-v", "-p"}));
}

TEST_P(MschapProgram, UnknownOptionIsAUsageError) {
    for (const char *option : {"-x", "-vx", "-s", "-?", "-:", "--standard-sha1"}) {
        SCOPED_TRACE(option);
        expectUsage(run({"radmschap", option, "nemo", kPassword}));
    }
}

TEST_P(MschapProgram, OptionWithoutItsValueIsAnError) {
    for (const char *option : {"-f", "-vf"}) {
        const Outcome refused = run({"radmschap", "-v", option});
        EXPECT_EQ(-1, refused.result);
        EXPECT_EQ("", refused.output);
        EXPECT_THAT(refused.lines, ElementsAre(Logged(7, kError, GetParam().name, kMissingValue)));
    }
    EXPECT_EQ(0U, radMemPartId);
}

TEST_P(MschapProgram, VerboseIsAcceptedAndAFileMayBeNamed) {
    device_.root().remove(kDefaultFile);
    device_.configure("/etc/other.conf", server_);
    EXPECT_EQ(0, run({"radmschap", "-v", "-f", "/etc/other.conf", "nemo", kPassword}).result);
    expectSent(0, "nemo", kPassword);
}

TEST_P(MschapProgram, PathMayHave99CharactersAndNoMore) {
    const std::string longest = "/var/" + std::string(94, 'x');
    device_.root().remove(kDefaultFile);
    device_.configure(longest, server_);
    device_.configure(longest + 'x', server_);
    expectUsage(run({"radmschap", "-f", longest + 'x', "nemo", kPassword}));
    EXPECT_EQ(0, run({"radmschap", "-f", longest, "nemo", kPassword}).result);
    expectSent(0, "nemo", kPassword);
}

TEST_P(MschapProgram, OptionsEndAtTwoDashes) {
    EXPECT_EQ(0, run({"radmschap", "-v", "--", "-u", "-p"}).result);
    expectSent(0, "-u", "-p");
}

TEST_P(MschapProgram, LongestNameArrivesWholeAndALongerOneIsRefusedWithoutAWord) {
    const std::string name(64, 'n');
    EXPECT_EQ(0, run({"radmschap", name, kPassword}).result);
    expectSent(0, name, kPassword);
    for (const size_t length : {65U, 127U, 128U, 5000U}) {
        SCOPED_TRACE(length);
        const Outcome refused = run({"radmschap", std::string(length, 'n'), kPassword});
        EXPECT_EQ(-1, refused.result);
        EXPECT_EQ("", refused.output);
        EXPECT_THAT(refused.problems, IsEmpty());
    }
    EXPECT_EQ(1U, server_.requestCount());
}

TEST_P(MschapProgram, PasswordIsCutBehind127Characters) {
    const std::string password = std::string(120, 'p') + "0123456789";
    EXPECT_EQ(0, run({"radmschap", "nemo", password.substr(0, 127)}).result);
    EXPECT_EQ(0, run({"radmschap", "nemo", password}).result);
    expectSent(0, "nemo", password.substr(0, 127));
    expectSent(1, "nemo", password.substr(0, 127));
}

TEST_P(MschapProgram, FileThatIsMissingIsAFailedStart) {
    const Outcome refused = run({"radmschap", "-f", "/etc/missing.conf", "nemo", kPassword});
    EXPECT_EQ(-1, refused.result);
    EXPECT_EQ("", refused.output);
    EXPECT_THAT(refused.told, ElementsAre(Logged(7, kError, GetParam().name, kNotStarted)));
    EXPECT_EQ(0U, server_.requestCount());
    expectSecrecy(refused, kPassword);

    EXPECT_EQ(0, run({"radmschap", "nemo", kPassword}).result) << "a later call tries again";
}

TEST_P(MschapProgram, FirstConfigurationStays) {
    const ScriptedServer other(kSecret);
    device_.configure("/etc/other.conf", other);
    EXPECT_EQ(0, run({"radmschap", "nemo", kPassword}).result);
    EXPECT_EQ(0, run({"radmschap", "-f", "/etc/other.conf", "alice", "wonderland"}).result);
    EXPECT_EQ(2U, server_.requestCount());
    EXPECT_EQ(0U, other.requestCount());
    expectSent(1, "alice", "wonderland");
}

TEST_P(MschapProgram, EveryCallParsesItsOwnArguments) {
    expectUsage(run({"radmschap", "-vuv", "nemo", kPassword}));
    EXPECT_EQ(0, run({"radmschap", "-v", "-f", kDefaultFile, "nemo", kPassword}).result);
    EXPECT_EQ(0, run({"radmschap", "alice", "wonderland"}).result);
    expectSent(0, "nemo", kPassword);
    expectSent(1, "alice", "wonderland");
}

// A dictionary of which a part is missing does not end the start, so what it lacks decides.
TEST_P(MschapProgram, EveryAllocationMayFail) {
    unsigned withDictionary = 0;
    forEachFailingAllocation([&withDictionary] {
        const Outcome login = run({"radmschap", "nemo", kPassword});
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

TEST(MschapPrograms, InitDoesNothing) {
    EXPECT_EQ(0, radMschapSampleInit());
    EXPECT_EQ(0U, radMemPartId);
}

using PortalMain = int (*)(int argc, char *argv[], uint32_t *idle, uint32_t *session);

TEST(MschapPrograms, CaptivePortalsHandOutTheLimits) {
    ScriptedServer server(kSecret);
    server.otherwise(accept(Attributes().addInteger(28, 600).addInteger(27, 7201)));
    const StoppedDevice device;
    device.configure(kDefaultFile, server);
    for (const PortalMain portal :
         {radMschapSampleMainCaptivePortal, radMschapv2SampleMainCaptivePortal}) {
        Arguments arguments{"portal", "nemo", kPassword};
        uint32_t idle = kUntouched;
        uint32_t session = kUntouched;
        const Outcome login = runAs(
            "", [&] { return portal(arguments.count(), arguments.vector(), &idle, &session); });
        EXPECT_EQ(0, login.result);
        EXPECT_EQ("", login.output);
        EXPECT_EQ(10U, idle);
        EXPECT_EQ(121U, session);
    }
}

TEST(MschapPrograms, RefusedCommandLineLeavesTheOutputsAlone) {
    const StoppedDevice device;
    for (const PortalMain portal :
         {radMschapSampleMainCaptivePortal, radMschapv2SampleMainCaptivePortal}) {
        Arguments arguments{"portal", "nemo"};
        uint32_t idle = kUntouched;
        uint32_t session = kUntouched;
        const Outcome refused = runAs(
            "", [&] { return portal(arguments.count(), arguments.vector(), &idle, &session); });
        EXPECT_EQ(-1, refused.result);
        EXPECT_EQ(kUntouched, idle);
        EXPECT_EQ(kUntouched, session);
    }
}

}  // namespace
}  // namespace lanyard::test
