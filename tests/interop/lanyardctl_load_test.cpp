// lanyardctl load: how many logins a server takes, and what it says of those that fail.
#include <csignal>

#include "tests/interop/lanyardctl.h"
#include "tests/support/scripted_server.h"

namespace lanyard::test::lanyardctl_load_test {
namespace {

constexpr std::chrono::seconds kLong{30};

using nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

class Load : public Ctl {
  protected:
    // A load of alice with her password.
    std::vector<std::string> load(const std::vector<std::string> &more) const {
        std::vector<std::string> arguments = {"load", "alice", "--password-file",
                                              file("password", "wonderland\n")};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return arguments;
    }

    // One that a busy machine may keep waiting.
    static std::string patientEntry(uint16_t port) {
        return at(port) + ":20:5:" + server().secret();
    }

    // What becomes of three logins at one server that answers none of them.
    json failures(const std::string &server) {
        writeConfiguration("authserver " + server + "\n");
        const json answer = document(load({"-n", "3"}), 5);
        EXPECT_EQ(3, answer.value("logins", 0));
        EXPECT_FALSE(answer.contains("milliseconds"));
        return answer.value("failures", json::object());
    }
};

TEST_F(Load, EveryMethod_AllAccepted) {
    writeConfiguration("authserver " + patientEntry(server().authPort()) + "\n");
    for (const char *method : {"pap", "chap", "mschap", "mschapv2"}) {
        const json answer = document(load({"-n", "30", "-c", "7", "-m", method}), 0);
        EXPECT_EQ(true, answer.at("ok"));
        EXPECT_EQ(method, answer.at("method"));
        EXPECT_EQ(7, answer.at("at_once"));
        EXPECT_EQ(30, answer.at("planned"));
        EXPECT_EQ(30, answer.at("logins"));
        EXPECT_EQ(30, answer.at("accepted"));
        EXPECT_EQ(0, answer.at("given_up"));
        EXPECT_EQ(json::object(), answer.at("failures"));
        EXPECT_GT(answer.at("per_second"), 0);
        const json &times = answer.at("milliseconds");
        EXPECT_GT(times.at("shortest"), 0);
        EXPECT_LE(times.at("p50"), times.at("p99"));
        EXPECT_LE(times.at("p99"), times.at("longest"));
        int count = 0;
        for (const json &row : times.at("histogram")) {
            EXPECT_LT(row.at("from"), row.at("to"));
            count += row.at("count").get<int>();
        }
        EXPECT_EQ(30, count);
        ASSERT_EQ(1U, answer.at("servers").size());
        EXPECT_EQ(at(server().authPort()), answer.at("servers")[0].at("server"));
        EXPECT_EQ(30, answer.at("servers")[0].at("requests"));
    }
}

TEST_F(Load, UsersOfAFile_LogInInTurn) {
    writeConfiguration("authserver " + patientEntry(server().authPort()) + "\n");
    const std::string users = file("users", "alice wonderland\ncarol looking-glass\nbob wrong\n");
    const int before = occurrences(server().accessRequests(), "User-Name = \"carol\"");
    const json answer = document({"load", "--user-file", users, "-n", "10"}, 4);
    EXPECT_EQ(false, answer.at("ok"));
    EXPECT_EQ(3, answer.at("users"));
    EXPECT_EQ(7, answer.at("accepted"));
    EXPECT_EQ(3, answer.at("rejected"));
    EXPECT_EQ(before + 3, occurrences(server().accessRequests(), "User-Name = \"carol\""));
}

TEST_F(Load, PersonReadsRateOutcomesBarsAndServers) {
    writeConfiguration("authserver " + patientEntry(server().authPort()) + "\n");
    const std::string users = file("users", "alice wonderland\nbob wrong\n");
    const ProgramResult result = run({"load", "--user-file", users, "-n", "40", "-c", "4"});
    EXPECT_EQ(4, result.status);
    EXPECT_THAT(
        result.out,
        MatchesRegex("40 logins of 2 users \\(PAP\\), 4 at once, in [0-9.]+ s: [0-9]+ a second\n"
                     "  accepted: 20 \\(50.0 %\\)\n"
                     "  rejected: 20 \\(50.0 %\\)\n"
                     "\n"
                     "Time until the answer:\n"
                     "( +[0-9.]+ to [0-9.]+ +ms +[0-9]+  #*\n)+"
                     "  shortest [0-9.]+ ms, 50 % [0-9.]+ ms, 90 % [0-9.]+ ms, 95 % [0-9.]+ ms, "
                     "99 % [0-9.]+ ms, longest [0-9.]+ ms\n"
                     "\n"
                     "SERVER +REQUESTS  RESENT  TIMEOUTS  BAD-AUTH  STRAYS  MALFORMED\n"
                     "127.0.0.1:[0-9]+ +40 +[0-9]+ +[0-9]+ +0 +[0-9]+ +0\n"));
    EXPECT_EQ("", result.err) << "no progress where no terminal is";
}

TEST_F(Load, Terminal_ShowsAProgressBarThatGoesAgain) {
    writeConfiguration("authserver " + patientEntry(server().authPort()) + "\n");
    const ProgramResult result =
        runProgram({"/usr/bin/script", "-qec",
                    std::string(LANYARDCTL) + " load alice -n 20 --password-file " +
                        file("password", "wonderland\n"),
                    "/dev/null"},
                   {"PAL_ROOT=" + root().path().string(), "NO_COLOR=1"});
    EXPECT_EQ(0, result.status);
    EXPECT_THAT(result.out, MatchesRegex("\r\\[[#.]+\\] +[0-9]+ %, [0-9]+ a second(.|\r|\n)*\r +"
                                         "\r20 logins of alice \\(PAP\\)(.|\r|\n)*"));
}

TEST_F(Load, FailuresAreCountedByTheirReason) {
    const RefusedPort refused;
    EXPECT_EQ(json({{"port closed", 3}}), failures(entry(refused.port())));
    const SilentPort silent;
    EXPECT_EQ(json({{"no answer", 3}}), failures(entry(silent.port())));
    ScriptedServer other("another-secret");
    other.otherwise(reject());
    EXPECT_EQ(json({{"bad authenticator", 3}}), failures(entry(other.port(), "our-secret")));
    ScriptedServer forger("our-secret");
    forger.otherwise(
        accept(Attributes().addMessageAuthenticator()).withWrongMessageAuthenticator());
    EXPECT_EQ(json({{"bad authenticator", 3}}), failures(entry(forger.port(), "our-secret")));
    ScriptedServer broken("our-secret");
    broken.otherwise(accept().withLengthField(100));
    EXPECT_EQ(json({{"malformed answer", 3}}), failures(entry(broken.port(), "our-secret")));
}

TEST_F(Load, FailureInWords_AndTheServersCounts) {
    ScriptedServer other("another-secret", {challenge()});
    other.otherwise(reject());
    writeConfiguration("authserver " + entry(other.port(), "our-secret") + "\n");
    const ProgramResult result = run(load({"-n", "2"}));
    EXPECT_EQ(5, result.status);
    EXPECT_THAT(result.out,
                AllOf(HasSubstr("\n  bad authenticator: 2 (100.0 %)\n"),
                      Not(HasSubstr("Time until")), HasSubstr("BAD-AUTH  STRAYS  MALFORMED\n")));
}

TEST_F(Load, Challenge_IsNoAccept) {
    ScriptedServer server("secret");
    server.otherwise(challenge());
    writeConfiguration("authserver " + entry(server.port(), "secret") + "\n");
    EXPECT_EQ(2, document(load({"-n", "2"}), 4).at("challenged"));
}

TEST_F(Load, Interrupted_TellsWhatThereIsAndKeepsToSoManyAtOnce) {
    ScriptedServer server("secret", {accept(), accept(), reject()});
    writeConfiguration("authserver 127.0.0.1:" + std::to_string(server.port()) + ":60:0:secret\n");
    for (const int signal : {SIGINT, SIGTERM}) {
        std::vector<std::string> command = load({"-n", "100", "-c", "5"});
        command.insert(command.begin(), LANYARDCTL);
        RunningProgram program(command, {"PAL_ROOT=" + root().path().string()},
                               root().path() / "output");
        ASSERT_TRUE(server.waitForRequests(signal == SIGINT ? 8 : 13, kLong));
        program.signal(signal);
        EXPECT_EQ(signal == SIGINT ? 4 : 1, program.wait());
        EXPECT_THAT(program.output(),
                    AllOf(HasSubstr(signal == SIGINT ? "3 of 100 logins of alice (PAP), 5 at once"
                                                     : "0 of 100 logins of alice (PAP), 5 at once"),
                          HasSubstr("\n  given up while they waited: 5 (")));
    }
    EXPECT_EQ(13U, server.requestCount());
}

TEST_F(Load, ServerElsewhere_IsNotAskedUnlessItsAddressIsConfirmed) {
    // Where nothing leaves the machine even if the load were to begin.
    const auto runWithoutNetwork = [this](const std::vector<std::string> &more) {
        std::vector<std::string> command = {"/usr/bin/unshare", "--map-root-user", "--net",
                                            LANYARDCTL};
        const std::vector<std::string> arguments = load(more);
        command.insert(command.end(), arguments.begin(), arguments.end());
        return runProgram(command, {"PAL_ROOT=" + root().path().string()});
    };
    writeConfiguration("authserver 192.0.2.10:1812:1:0:s\n");
    const ProgramResult result = runWithoutNetwork({});
    if (result.err.starts_with("unshare: ")) {
        GTEST_SKIP() << "this machine does not allow namespaces";
    }
    EXPECT_EQ(2, result.status);
    EXPECT_EQ("", result.out);
    EXPECT_EQ(
        "lanyardctl: the server 192.0.2.10:1812 is not on this machine, and a load may keep it "
        "from serving others: if it is yours to try, say so with --confirm-address 192.0.2.10\n",
        result.err);
    EXPECT_EQ(2, runWithoutNetwork({"--confirm-address", "192.0.2.11"}).status);
    EXPECT_EQ(2, runWithoutNetwork({"--confirm-address", "127.0.0.1"}).status);
    EXPECT_EQ(2, runWithoutNetwork({"--confirm-address", "radius.example"}).status);
    EXPECT_EQ(5, runWithoutNetwork({"--confirm-address", "192.0.2.10", "-n", "1"}).status)
        << "it begins, and reaches nobody";
    writeConfiguration("authserver " + patientEntry(server().authPort()) + "\n");
    EXPECT_EQ(0, run({"load", "-n", "1", "--password-file", file("password", "wonderland\n"),
                      "--confirm-address", "192.0.2.10", "alice"})
                     .status)
        << "it takes one address";
}

TEST_F(Load, WrongInput_IsRefused) {
    writeConfiguration("authserver " + entry(server().authPort()) + "\n");
    const auto refusal = [this](const std::vector<std::string> &arguments, int status) {
        const ProgramResult result = run(arguments);
        EXPECT_EQ(status, result.status) << result.out;
        EXPECT_EQ("", result.out);
        return result.err;
    };
    EXPECT_EQ("lanyardctl: a load needs either USER or --user-file\n", refusal({"load"}, 2));
    EXPECT_EQ("lanyardctl: USER excludes --user-file\n",
              refusal({"load", "alice", "--user-file", "users"}, 2));
    EXPECT_EQ("lanyardctl: --password-file requires USER\n",
              refusal({"load", "--user-file", "users", "--password-file", "x"}, 2));
    EXPECT_THAT(refusal(load({"-n", "0"}), 2), HasSubstr("not in range 1 to 1000000000"));
    EXPECT_THAT(refusal(load({"-c", "10001"}), 2), HasSubstr("not in range 1 to 10000"));
    EXPECT_THAT(refusal(load({"-m", "telepathy"}), 2), HasSubstr("telepathy"));
    EXPECT_EQ("lanyardctl: cannot read /none: No such file or directory\n",
              refusal({"load", "--user-file", "/none"}, 1));
    EXPECT_THAT(refusal({"load", "--user-file", file("users", "alice\n")}, 2),
                HasSubstr("line 1 of "));
    EXPECT_THAT(refusal({"load", "--user-file", file("users", std::string(65, 'n') + " x\n")}, 2),
                HasSubstr("a name has at most 64 characters"));
    EXPECT_THAT(refusal(load({"-f", "/none.conf"}), 1), HasSubstr("/none.conf is refused"));
    const json document = this->document({"load"}, 2);
    EXPECT_EQ(false, document.at("ok"));
    EXPECT_EQ("a load needs either USER or --user-file", document.at("error"));
}

}  // namespace
}  // namespace lanyard::test::lanyardctl_load_test
