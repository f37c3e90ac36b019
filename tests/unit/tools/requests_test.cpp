// The programs that make requests: their help, and when a request fails, the exit status and the
// lines that say where.
#include <algorithm>
#include <array>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ostream>
#include <sched.h>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include "tests/interop/child_process.h"
#include "tests/support/radius_wire.h"
#include "tests/support/scripted_server.h"
#include "tests/support/temporary_root.h"

namespace lanyard::test::requests_test {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr const char *kSecret = "xyzzy5461";
constexpr uint8_t kAccept = 2;
constexpr uint8_t kReject = 3;
constexpr uint8_t kChallenge = 11;
constexpr uint8_t kRecvKey = 17;
constexpr uint32_t kMicrosoft = 311;

const std::string kHelpBuiltin = "  --builtin        computes the NT-Response itself\n";
const std::string kHelpSha1 =
    "  --standard-sha1  takes the published SHA-1, as standard servers do\n";
const std::string kHelpResilient =
    "  --resilient      ignores what is no valid reply, leaves dead servers sooner\n";
const std::string kHelpSigned =
    "  --require-signed takes only replies with a Message-Authenticator\n";
const std::string kUsageOfLogin =
    "[--resilient] [--require-signed] [-v] [ -f confFile] <username> <password>\n"
    "  <password>       - reads it from standard input\n";

struct Program {
    const char *name;
    std::vector<std::string> arguments;
    std::string help = kUsageOfLogin + kHelpResilient + kHelpSigned;
    bool isAccounting = false;
};

std::ostream &operator<<(std::ostream &stream, const Program &program) {
    return stream << program.name;
}

class RequestProgram : public testing::TestWithParam<Program> {
  protected:
    RequestProgram() {
        std::array<char, 256> name{};
        EXPECT_EQ(0, gethostname(name.data(), name.size() - 1));
        root_.write("/var/hosts", std::string("127.0.0.1 ") + name.data() + "\n");
    }

    // Servers that are asked once: "host:port:timeout".
    void configure(const std::vector<std::string> &servers) const {
        std::string text =
            GetParam().isAccounting ? "authserver 127.0.0.1:secret\nacctserver" : "authserver";
        for (const std::string &server : servers) {
            text.append(" ").append(server).append(":0:").append(kSecret);
        }
        root_.write("/var/radius.conf", text + "\n");
    }

    [[nodiscard]] ProgramResult run(const std::vector<std::string> &options = {}) const {
        std::vector<std::string> command = {std::string(LANYARD_PROGRAMS) + "/" + GetParam().name};
        command.insert(command.end(), options.begin(), options.end());
        command.insert(command.end(), GetParam().arguments.begin(), GetParam().arguments.end());
        ProgramResult result = runProgram(command, {"PAL_ROOT=" + root_.folder().string()});
        EXPECT_THAT(result.out + result.err, Not(HasSubstr(kSecret)));
        EXPECT_THAT(result.err, Not(HasSubstr("Sanitizer")));
        EXPECT_THAT(result.err, Not(HasSubstr("runtime error")));
        return result;
    }

    template <typename Server>
    static std::string address(const Server &server) {
        return server.host() + ":" + std::to_string(server.port());
    }

    static std::string entry(const SilentPort &server) { return address(server) + ":0"; }
    static std::string entry(const ScriptedServer &server) { return address(server) + ":20"; }

    TemporaryRoot root_;
};

INSTANTIATE_TEST_SUITE_P(
    Programs, RequestProgram,
    testing::Values(
        Program{"radacct",
                {"-s", "7"},
                "[--resilient] [-v] [ -f confFile] [-s status]\n" + kHelpResilient,
                true},
        Program{"radauth", {"alice", "wonderland"}},
        Program{"radauth-all", {"alice", "wonderland"}},
        Program{"radauth-portal", {"alice", "wonderland"}},
        Program{"radchap", {"alice", "wonderland"}},
        Program{"radchap-portal", {"alice", "wonderland"}},
        Program{"radmschap",
                {"alice", "wonderland"},
                "[--builtin] " + kUsageOfLogin + kHelpBuiltin + kHelpResilient + kHelpSigned},
        Program{"radmschap-portal",
                {"alice", "wonderland"},
                "[--builtin] " + kUsageOfLogin + kHelpBuiltin + kHelpResilient + kHelpSigned},
        Program{"radmschapv2",
                {"--standard-sha1", "alice", "wonderland"},
                "[--builtin] [--standard-sha1] " + kUsageOfLogin + kHelpBuiltin + kHelpSha1 +
                    kHelpResilient + kHelpSigned},
        Program{"radmschapv2-portal",
                {"--standard-sha1", "alice", "wonderland"},
                "[--builtin] [--standard-sha1] " + kUsageOfLogin + kHelpBuiltin + kHelpSha1 +
                    kHelpResilient + kHelpSigned}),
    [](const auto &instance) {
        std::string name = instance.param.name;
        std::replace(name.begin(), name.end(), '-', '_');
        return name;
    });

TEST_P(RequestProgram, SilenceThenReject_TellOfBothServers) {
    const SilentPort first;
    const ScriptedServer second(kSecret, {answer(kReject)});
    configure({entry(first), entry(second)});
    const ProgramResult result = run();
    EXPECT_EQ(1, result.status);
    EXPECT_THAT(
        result.err,
        EndsWith("  " + address(first) +
                 ": no reply in 1 try of 0 s: server down, wrong port, or wrong secret\n  " +
                 address(second) + ": rejected by the server (Access-Reject)\n"));
}

TEST_P(RequestProgram, ResilientForgedThenTrueServer_TellsOfBothServers) {
    ScriptedServer first(kSecret);
    first.otherwise(answer(kAccept).withWrongAuthenticator());
    const ScriptedServer second(kSecret, {answer(kReject)});
    configure({address(first) + ":1", entry(second)});
    const ProgramResult result = run({"--resilient"});
    EXPECT_EQ(1, result.status);
    EXPECT_EQ(1U, second.requestCount());
    EXPECT_THAT(result.err,
                EndsWith("  " + address(first) +
                         ": reply refused: wrong response authenticator: wrong secret, or not from "
                         "the server\n  " +
                         address(second) + ": rejected by the server (Access-Reject)\n"));
}

TEST_P(RequestProgram, UnsignedAcceptWhereSignedOnesAreRequired_IsRefused) {
    if (GetParam().isAccounting) {
        GTEST_SKIP() << "accounting has no Message-Authenticator";
    }
    const ScriptedServer server(kSecret, {answer(kAccept)});
    configure({entry(server)});
    const ProgramResult result = run({"--require-signed"});
    EXPECT_EQ(1, result.status);
    EXPECT_THAT(result.err, EndsWith("reply refused: no Message-Authenticator\n"));
}

TEST_P(RequestProgram, NoRoute_SaysSo) {
    configure({"198.51.100.1:1812:1"});
    // The program inherits the namespace, which has no route at all, from its parent's thread.
    bool isolated = false;
    ProgramResult result;
    std::thread([&] {
        isolated = unshare(CLONE_NEWNET) == 0;
        if (isolated) {
            result = run();
        }
    }).join();
    if (!isolated) {
        GTEST_SKIP() << "making a network namespace takes root";
    }
    EXPECT_EQ(1, result.status);
    EXPECT_THAT(result.err,
                EndsWith("  198.51.100.1:1812: sending failed: Network is unreachable\n"));
}

TEST_P(RequestProgram, RefusalThatEndsWithAKey_IsNoSuccess) {
    for (const uint8_t code : {kReject, kChallenge}) {
        const ScriptedServer server(
            kSecret, {answer(code, [](const ReceivedRequest &request) {
                return Attributes().addVendor(
                    kMicrosoft, kRecvKey,
                    encryptMppeKey("aabb"_hex, kSecret, request.authenticator()));
            })});
        configure({entry(server)});
        const ProgramResult result = run();
        EXPECT_EQ(1, result.status);
        EXPECT_THAT(result.out, Not(HasSubstr("let in")));
        EXPECT_THAT(
            result.err,
            EndsWith("  " + address(server) +
                     (code == kReject ? ": rejected by the server (Access-Reject)\n"
                                      : ": the server asks for more (Access-Challenge)\n")));
    }
}

TEST_P(RequestProgram, UsageError_HasNoReasonOfAServer) {
    const SilentPort server;
    configure({entry(server)});
    std::vector<std::string> command = {std::string(LANYARD_PROGRAMS) + "/" + GetParam().name,
                                        "-x"};
    const ProgramResult result = runProgram(command, {"PAL_ROOT=" + root_.folder().string()});
    EXPECT_EQ(1, result.status);
    EXPECT_THAT(result.err, Not(HasSubstr(address(server))));
}

TEST_P(RequestProgram, HelpAlone_IsPrintedAndNoFailure) {
    const std::string path = std::string(LANYARD_PROGRAMS) + "/" + GetParam().name;
    const ProgramResult help = runProgram({path, "--help"}, {});
    EXPECT_EQ(0, help.status);
    EXPECT_THAT(help.out, StartsWith(std::string(GetParam().name) + ": "));
    EXPECT_THAT(help.out,
                EndsWith("\nUsage: " + std::string(GetParam().name) + " " + GetParam().help));
    EXPECT_EQ("", help.err);

    const ProgramResult among = runProgram({path, "--help", "alice", "wonderland"}, {});
    EXPECT_EQ(1, among.status) << "an unknown option as before";
}

TEST_P(RequestProgram, Success_TellsOfNoServerThatWasAskedBefore) {
    const SilentPort first;
    const ScriptedServer second(kSecret, {answer(GetParam().isAccounting ? 5 : 2)});
    configure({entry(first), entry(second)});
    const ProgramResult result = run();
    EXPECT_EQ(0, result.status);
    EXPECT_THAT(result.err, Not(HasSubstr("no reply in")));
}

}  // namespace
}  // namespace lanyard::test::requests_test
