// The command-line programs, as a person or a script meets them: exit status and output.
#include <algorithm>
#include <filesystem>
#include <gmock/gmock.h>

#include "tests/interop/child_process.h"
#include "tests/interop/fixture.h"

namespace lanyard::test::programs_test {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

class Programs : public Interop {
  protected:
    void SetUp() override {
        Interop::SetUp();
        writeConfiguration("authserver " + entry(server().authPort()) + "\nacctserver " +
                           entry(server().acctPort()) + "\n");
    }

    // Runs a program of this build; whatever it does, it shows no secret and no sanitizer speaks
    // up.
    ProgramResult run(const std::string &program, const std::vector<std::string> &arguments) const {
        std::vector<std::string> command = {path(program)};
        command.insert(command.end(), arguments.begin(), arguments.end());
        ProgramResult result = runProgram(command, {"PAL_ROOT=" + root().path().string()});
        EXPECT_THAT(result.out, Not(HasSubstr(server().secret())));
        EXPECT_THAT(result.err, Not(HasSubstr(server().secret())));
        EXPECT_THAT(result.out + result.err, Not(HasSubstr("wonderland")));
        EXPECT_THAT(result.err, Not(HasSubstr("Sanitizer")));
        EXPECT_THAT(result.err, Not(HasSubstr("runtime error")));
        return result;
    }

    static std::string path(const std::string &program) {
        return std::string(LANYARD_PROGRAMS) + "/" + program;
    }

    static std::string address(uint16_t port) { return "127.0.0.1:" + std::to_string(port); }

    // The line that the programs print of a server that said no.
    static std::string rejectedBy(uint16_t port) {
        return "  " + address(port) + ": rejected by the server (Access-Reject)\n";
    }
    static std::string silenceOf(uint16_t port) {
        return "  " + address(port) +
               ": no reply in 1 try of 1 s: server down, wrong port, or wrong secret\n";
    }

    static std::string usage(const std::string &program) {
        return "Usage: " + path(program) + " [-v] [ -f confFile] <username> <password>\n";
    }
};

TEST_F(Programs, RadauthWithTheRightPassword_Accepts) {
    const ProgramResult result = run("radauth", {"alice", "wonderland"});
    EXPECT_EQ(0, result.status);
    EXPECT_EQ(
        "\"alice\" RADIUS Authentication OK\n"
        "Attributes Received: \n"
        "Reply-Message: Welcome, alice\n",
        result.out);
    EXPECT_EQ("", result.err);
}

TEST_F(Programs, RadauthWithTheWrongPassword_RefusesInOneLineAndNamesTheServer) {
    const ProgramResult result = run("radauth", {"alice", "wrong"});
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("", result.out);
    EXPECT_THAT(result.err, HasSubstr("\"alice\" RADIUS Authentication failure"));
    EXPECT_EQ(2, occurrences(result.err, "\n")) << result.err;
    EXPECT_THAT(result.err, EndsWith("\n" + rejectedBy(server().authPort())));
}

TEST_F(Programs, WrongPasswordWrongSecretAndDeadServer_ReadDifferently) {
    const SilentServer silent;
    writeConfiguration("authserver " + entry(silent.port()) + ", " +
                       entry(server().authPort(), "not-the-secret") + ", " +
                       entry(server().authPort()) + "\n");
    const ProgramResult result = run("radauth", {"alice", "wrong"});
    EXPECT_EQ(1, result.status);
    EXPECT_THAT(result.err, EndsWith(silenceOf(silent.port()) + silenceOf(server().authPort()) +
                                     rejectedBy(server().authPort())));
    EXPECT_THAT(result.err, Not(HasSubstr("not-the-secret")));
}

TEST_F(Programs, RadauthWithAnotherFileAndV_ReadsIt) {
    root().write("elsewhere/other.conf", "authserver " + entry(server().signedPort()) + "\n");
    const ProgramResult result =
        run("radauth", {"-v", "-f", "/elsewhere/other.conf", "alice", "wonderland"});
    EXPECT_EQ(0, result.status);
    EXPECT_THAT(result.out, HasSubstr("Message-Authenticator: 0x"));
}

TEST_F(Programs, RadauthWithBadArguments_ExplainsItself) {
    const ProgramResult none = run("radauth", {});
    EXPECT_EQ(1, none.status);
    EXPECT_EQ(usage("radauth"), none.out);

    const ProgramResult one = run("radauth", {"alice"});
    EXPECT_EQ(1, one.status);
    EXPECT_EQ(usage("radauth"), one.out);

    const ProgramResult unknown = run("radauth", {"-x", "alice", "wonderful"});
    EXPECT_EQ(1, unknown.status);
    EXPECT_EQ(usage("radauth"), unknown.out);
}

TEST_F(Programs, RadauthWithoutUserOrPasswordAfterTheOptions_Fails) {
    const ProgramResult neither = run("radauth", {"-f", "/var/radius.conf"});
    EXPECT_EQ(1, neither.status);
    EXPECT_THAT(neither.out + neither.err, Not(IsEmpty()));

    const ProgramResult noPassword = run("radauth", {"-f", "/var/radius.conf", "alice"});
    EXPECT_EQ(1, noPassword.status);
    EXPECT_THAT(noPassword.out + noPassword.err, Not(IsEmpty()));

    const ProgramResult noFile = run("radauth", {"alice", "wonderful", "-f"});
    EXPECT_EQ(1, noFile.status);
    EXPECT_THAT(noFile.out + noFile.err, Not(IsEmpty()));
}

TEST_F(Programs, RadauthWithNamesAndPasswordsThatAreTooLong_Refuses) {
    const ProgramResult name = run("radauth", {std::string(65, 'n'), "password"});
    EXPECT_EQ(1, name.status);
    EXPECT_THAT(name.err, HasSubstr("Invalid username or password"));

    const ProgramResult password = run("radauth", {"alice", std::string(49, 'p')});
    EXPECT_EQ(1, password.status);
    EXPECT_THAT(password.err, HasSubstr("Invalid username or password"));
    EXPECT_THAT(password.err, Not(HasSubstr("ppp")));
}

TEST_F(Programs, MissingFile_Reported) {
    for (const char *program : {"radauth", "radauth-all", "radauth-portal"}) {
        const ProgramResult result = run(program, {"-f", "/var/none.conf", "alice", "wonderland"});
        EXPECT_EQ(1, result.status) << program;
        EXPECT_THAT(result.err,
                    HasSubstr("radConfigure: can't open /var/none.conf: No such file or directory"))
            << program;
    }
    const ProgramResult result = run("radacct", {"-f", "/var/none.conf", "-s", "7"});
    EXPECT_EQ(1, result.status);
    EXPECT_THAT(result.err, HasSubstr("can't open /var/none.conf"));
}

TEST_F(Programs, BrokenFile_ReportedWithItsLine) {
    writeConfiguration("# The servers.\nauthserver " + entry(server().authPort()) +
                       "\n\nTimeout 3\n");
    for (const char *program : {"radauth", "radauth-all", "radauth-portal"}) {
        const ProgramResult result = run(program, {"alice", "wonderland"});
        EXPECT_EQ(1, result.status) << program;
        EXPECT_THAT(result.err, HasSubstr("radConfigure: /var/radius.conf: line 4: "
                                          "unrecognized keyword: Timeout"))
            << program;
    }
    const ProgramResult result = run("radacct", {"-s", "7"});
    EXPECT_EQ(1, result.status);
    EXPECT_THAT(result.err, HasSubstr("line 4: unrecognized keyword: Timeout"));
}

TEST_F(Programs, FileWithoutServers_Reported) {
    writeConfiguration("timeout 3\n");
    const ProgramResult result = run("radauth", {"alice", "wonderland"});
    EXPECT_EQ(1, result.status);
    EXPECT_THAT(result.err, HasSubstr("radConfAssert: No AuthServer Specified"));
}

TEST_F(Programs, RadauthAll_ShowsEveryServerAfterTheLastReply) {
    const SilentServer silent;
    writeConfiguration("authserver " + entry(server().signedPort()) + ", " + entry(silent.port()) +
                       ", " + entry(server().authPort()) + "\n");
    const std::string first = "1 " + address(server().signedPort());
    const std::string second = "2 " + address(silent.port());
    const std::string third = "3 " + address(server().authPort());

    const ProgramResult right = run("radauth-all", {"alice", "wonderland"});
    EXPECT_EQ(0, right.status);
    EXPECT_EQ("Reply-Message: Welcome, alice\n" + first + " Access-Accept\n" + second +
                  " no valid reply\n" + third + " Access-Accept\n",
              right.out);

    const ProgramResult wrong = run("radauth-all", {"alice", "wrong"});
    EXPECT_EQ(1, wrong.status);
    EXPECT_EQ(
        first + " Access-Reject\n" + second + " no valid reply\n" + third + " Access-Reject\n",
        wrong.out);
}

TEST_F(Programs, RadauthAllWithoutAnybodyAsked_SaysSo) {
    const ProgramResult none = run("radauth-all", {});
    EXPECT_EQ(1, none.status);
    EXPECT_EQ("", none.out);
    EXPECT_THAT(none.err, StartsWith("radauth-all: no server was asked"));
    EXPECT_THAT(none.err, HasSubstr("Usage: radauth-all "));

    const ProgramResult tooLong = run("radauth-all", {std::string(65, 'n'), "password"});
    EXPECT_EQ(1, tooLong.status);
    EXPECT_EQ("1 " + address(server().authPort()) + " not asked\n", tooLong.out);
    EXPECT_THAT(tooLong.err, HasSubstr("no server was asked"));
}

TEST_F(Programs, RadauthPortal_ShowsTheLimits) {
    const ProgramResult both = run("radauth-portal", {"alice", "wonderland"});
    EXPECT_EQ(0, both.status);
    EXPECT_EQ(
        "Attributes Received: \n"
        "Reply-Message: Welcome, alice\n"
        "The user is let in.\n"
        "Idle: 10 minutes\n"
        "Session: 121 minutes\n",
        both.out);

    const ProgramResult one = run("radauth-portal", {"carol", "looking-glass"});
    EXPECT_EQ(0, one.status);
    EXPECT_THAT(one.out, HasSubstr("Idle: not limited\nSession: 1 minute\n"));
}

TEST_F(Programs, RadauthPortalWithTheWrongPassword_RefusesAndNamesTheServer) {
    const ProgramResult result = run("radauth-portal", {"alice", "wrong"});
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("", result.out);
    EXPECT_EQ("radauth-portal: the user is not let in\n" + rejectedBy(server().authPort()),
              result.err);
}

TEST_F(Programs, RadauthPortalWithBadArguments_ExplainsItself) {
    const ProgramResult none = run("radauth-portal", {});
    EXPECT_EQ(1, none.status);
    EXPECT_EQ(usage("radauth-portal"), none.out);

    const ProgramResult unknown = run("radauth-portal", {"-x", "alice", "wonderful"});
    EXPECT_EQ(1, unknown.status);
    EXPECT_EQ(usage("radauth-portal"), unknown.out);
}

TEST_F(Programs, Radacct_SendsItsStatus) {
    const size_t before = server().accountingRecords().size();
    const ProgramResult result = run("radacct", {"-s", "8"});
    EXPECT_EQ(0, result.status);
    EXPECT_EQ("RADIUS Accounting Exchange OK\n", result.out);
    EXPECT_EQ("", result.err);
    EXPECT_THAT(server().accountingRecords().substr(before),
                HasSubstr("Acct-Status-Type = Accounting-Off\n"));
}

TEST_F(Programs, RadacctWithBadArgumentsOrNoServer_SaysWhatIsWrong) {
    const ProgramResult unknown = run("radacct", {"-x"});
    EXPECT_EQ(1, unknown.status);
    EXPECT_EQ("Usage: " + path("radacct") + " [-v] [ -f confFile] [-s status]\n", unknown.out);

    writeConfiguration("authserver " + entry(server().authPort()) + "\n");
    const ProgramResult noServer = run("radacct", {"-s", "7"});
    EXPECT_EQ(1, noServer.status);
    EXPECT_THAT(noServer.err, HasSubstr("RADIUS is not configured properly"));
    EXPECT_THAT(noServer.err, HasSubstr("RADIUS Accounting Exchange Failed"));
}

// --- CHAP, MS-CHAP and MS-CHAPv2 -------------------------------------------------------------------

// A program of these methods, and the arguments that its method needs for a right password.
struct LoginProgram {
    const char *name;
    std::vector<std::string> options;
    bool isPortal;
};

class LoginPrograms : public Programs, public testing::WithParamInterface<LoginProgram> {
  protected:
    void SetUp() override {
        Programs::SetUp();
        installNtResponse();
    }

    ProgramResult login(const std::string &user, const std::string &password) const {
        std::vector<std::string> arguments = GetParam().options;
        arguments.push_back(user);
        arguments.push_back(password);
        return run(GetParam().name, arguments);
    }
};

INSTANTIATE_TEST_SUITE_P(
    Methods, LoginPrograms,
    testing::Values(LoginProgram{"radchap", {}, false}, LoginProgram{"radchap-portal", {}, true},
                    LoginProgram{"radmschap", {}, false},
                    LoginProgram{"radmschap-portal", {}, true},
                    LoginProgram{"radmschapv2", {"--standard-sha1"}, false},
                    LoginProgram{"radmschapv2-portal", {"--standard-sha1"}, true},
                    LoginProgram{"radmschap", {"--builtin"}, false},
                    LoginProgram{"radmschap-portal", {"--builtin"}, true},
                    LoginProgram{"radmschapv2", {"--builtin", "--standard-sha1"}, false},
                    LoginProgram{"radmschapv2-portal", {"--standard-sha1", "--builtin"}, true}),
    [](const auto &instance) {
        std::string name = instance.param.name;
        for (const std::string &option : instance.param.options) {
            name += option;
        }
        std::replace(name.begin(), name.end(), '-', '_');
        return name;
    });

TEST_P(LoginPrograms, RightPassword_Accepted) {
    const ProgramResult result = login("alice", "wonderland");
    EXPECT_EQ(0, result.status);
    EXPECT_EQ("", result.err);
    if (GetParam().isPortal) {
        EXPECT_THAT(result.out, HasSubstr("Reply-Message: Welcome, alice\n"));
        EXPECT_THAT(result.out,
                    EndsWith("The user is let in.\nIdle: 10 minutes\nSession: 121 minutes\n"));
    } else {
        EXPECT_THAT(result.out, StartsWith("\"alice\" RADIUS Authentication OK\n"));
    }
}

TEST_P(LoginPrograms, WrongPassword_RefusedInOneLineThatNamesTheServer) {
    const ProgramResult result = login("alice", "wrong");
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("", result.out);
    if (GetParam().isPortal) {
        EXPECT_THAT(result.err,
                    EndsWith(std::string(GetParam().name) + ": the user is not let in\n" +
                             rejectedBy(server().authPort())));
    } else {
        EXPECT_THAT(result.err, HasSubstr("\"alice\" RADIUS Authentication failure"));
        EXPECT_EQ(2, occurrences(result.err, "\n")) << result.err;
        EXPECT_THAT(result.err, EndsWith(rejectedBy(server().authPort())));
    }
}

TEST_P(LoginPrograms, LimitsThatTheReplyLacks_NotShown) {
    const ProgramResult result = login("carol", "looking-glass");
    EXPECT_EQ(0, result.status);
    if (GetParam().isPortal) {
        EXPECT_THAT(result.out, EndsWith("Idle: not limited\nSession: 1 minute\n"));
    }
}

TEST_P(LoginPrograms, AnotherFile_IsRead) {
    root().write("elsewhere/other.conf", "authserver " + entry(server().signedPort()) + "\n");
    std::filesystem::remove(root().path() / "var/radius.conf");
    std::vector<std::string> arguments = GetParam().options;
    for (const char *argument : {"-v", "-f", "/elsewhere/other.conf", "alice", "wonderland"}) {
        arguments.emplace_back(argument);
    }
    EXPECT_EQ(0, run(GetParam().name, arguments).status);
}

TEST_P(LoginPrograms, BadArguments_ShowTheUsage) {
    const std::string program = GetParam().name;
    for (const std::vector<std::string> &more : {std::vector<std::string>{},
                                                 {"alice"},
                                                 {"-x", "alice", "wonderful"},
                                                 {"-u", "alice"},
                                                 {"-u", "alice", "-p", "wonderful"}}) {
        std::vector<std::string> arguments = GetParam().options;
        arguments.insert(arguments.end(), more.begin(), more.end());
        const ProgramResult result = run(program, arguments);
        EXPECT_EQ(1, result.status);
        // The portal of CHAP tells at a level that is not shown.
        EXPECT_THAT(result.out, program == "radchap-portal" ? "" : usage(program));
    }
}

TEST_P(LoginPrograms, MissingFile_Reported) {
    std::vector<std::string> arguments = GetParam().options;
    for (const char *argument : {"-f", "/var/none.conf", "alice", "wonderland"}) {
        arguments.emplace_back(argument);
    }
    const ProgramResult result = run(GetParam().name, arguments);
    EXPECT_EQ(1, result.status);
    EXPECT_THAT(result.err,
                HasSubstr("radConfigure: can't open /var/none.conf: No such file or directory"));
}

TEST_F(Programs, RadmschapWithoutTheNtResponseProgram_Fails) {
    for (const char *program : {"radmschap", "radmschap-portal"}) {
        EXPECT_EQ(1, run(program, {"alice", "wonderland"}).status);
    }
    installNtResponse();
    EXPECT_EQ(0, run("radmschap", {"alice", "wonderland"}).status);
}

// --- The file of the NT-Response program, in other hands -------------------------------------------

// The NT-Response that lets alice in: the challenge of MS-CHAP is always the same.
const std::string kResponseOfAlice =
    "\x3d\x44\x5f\x73\x65\xd5\x59\xa2\xa4\x49\x9a\xbd"
    "\xd2\x4b\xd4\x17\xf0\x94\x49\x84\x82\x4c\x51\xb2";

// Commands of a shell, in the root folder of the device, that put something at tmp/mschap_alice
// from which her response could be read.
struct PlantedFile {
    const char *name;
    const char *commands;
    bool needsRoot;
};

class PlantedFiles : public Programs, public testing::WithParamInterface<PlantedFile> {
  protected:
    void SetUp() override {
        if (GetParam().needsRoot && geteuid() != 0) {
            GTEST_SKIP() << "only root can give a file away";
        }
        Programs::SetUp();
        installNtResponse();
        root().write("precious", kResponseOfAlice);
    }
};

INSTANTIATE_TEST_SUITE_P(
    Everything, PlantedFiles,
    testing::Values(PlantedFile{"Link", "ln -s ../precious tmp/mschap_alice", false},
                    PlantedFile{"SecondName", "ln precious tmp/mschap_alice", false},
                    PlantedFile{"Fifo", "mkfifo -m 666 tmp/mschap_alice", false},
                    PlantedFile{"FifoOfAnotherUser",
                                "mkfifo -m 666 tmp/mschap_alice && chown 65534 tmp/mschap_alice",
                                true},
                    PlantedFile{"FileOfAnotherUser",
                                "cp precious tmp/mschap_alice && chown 65534 tmp/mschap_alice",
                                true}),
    [](const auto &instance) { return std::string(instance.param.name); });

TEST_P(PlantedFiles, PlantedBeforeTheLogin_HelpsNobody) {
    const std::string plant =
        "cd " + root().path().string() + " && rm -f tmp/mschap_alice && " + GetParam().commands;
    for (const char *wrong : {"wonderlanD", "\xff"}) {
        ASSERT_EQ(0, runProgram({"/bin/sh", "-c", plant}, {}).status);
        EXPECT_EQ(1, run("radmschap", {"alice", wrong}).status);
    }
    ASSERT_EQ(0, runProgram({"/bin/sh", "-c", plant}, {}).status);
    EXPECT_EQ(0, run("radmschap", {"alice", "wonderland"}).status);
}

// The device's program itself stands in for somebody who is quicker.
TEST_P(PlantedFiles, PlantedDuringTheLogin_HelpsNobody) {
    const std::string program = "nexa2.0/bin/orvane_getNTResponse";
    root().write(program,
                 "#!/bin/sh\ncd \"$PAL_ROOT\" && " + std::string(GetParam().commands) + "\n");
    std::filesystem::permissions(root().path() / program, std::filesystem::perms::owner_all);
    const ProgramResult result = run("radmschap", {"alice", "wonderlanD"});
    EXPECT_EQ(1, result.status);
    EXPECT_TRUE(std::filesystem::exists(
        std::filesystem::symlink_status(root().path() / "tmp/mschap_alice")));
    EXPECT_THAT(result.err, HasSubstr("/tmp/mschap_alice is not read"));
    EXPECT_THAT(result.err, HasSubstr("RADIUS Authentication failure"));
}

TEST_F(Programs, ResponseThatWasLeftOver_LetsNobodyIn) {
    installNtResponse();
    for (const char *wrong : {"\xff", "wonderlanD"}) {
        root().write("tmp/mschap_alice", kResponseOfAlice);
        EXPECT_EQ(1, run("radmschap", {"alice", wrong}).status);
        EXPECT_FALSE(std::filesystem::exists(root().path() / "tmp/mschap_alice"));
    }
}

TEST_F(Programs, BuiltinWithoutProgramAndFolder_LogsIn) {
    for (const char *program : {"radmschap", "radmschap-portal"}) {
        EXPECT_EQ(0, run(program, {"--builtin", "alice", "wonderland"}).status) << program;
        EXPECT_EQ(1, run(program, {"--builtin", "alice", "wonderlanD"}).status) << program;
    }
    for (const char *program : {"radmschapv2", "radmschapv2-portal"}) {
        for (const std::vector<std::string> &options :
             {std::vector<std::string>{"--builtin", "--standard-sha1"},
              {"--standard-sha1", "--builtin"}}) {
            std::vector<std::string> arguments = options;
            arguments.insert(arguments.end(), {"alice", "wonderland"});
            EXPECT_EQ(0, run(program, arguments).status) << program;
            arguments.back() = "wonderlanD";
            EXPECT_EQ(1, run(program, arguments).status) << program;
        }
    }
    EXPECT_FALSE(std::filesystem::exists(root().path() / "tmp"));
}

TEST_F(Programs, Radmschapv2AtAStandardServer_NeedsThePublishedSha1) {
    installNtResponse();
    for (const char *program : {"radmschapv2", "radmschapv2-portal"}) {
        EXPECT_EQ(1, run(program, {"alice", "wonderland"}).status) << program;
        EXPECT_EQ(0, run(program, {"--standard-sha1", "alice", "wonderland"}).status) << program;
    }
}

TEST_F(Programs, OptionsOfMschapAfterOthers_Refused) {
    for (const char *program : {"radmschapv2", "radmschapv2-portal"}) {
        for (const std::vector<std::string> &arguments :
             {std::vector<std::string>{"-v", "--standard-sha1", "alice", "wonderful"},
              {"alice", "wonderful", "--standard-sha1"},
              {"--standard-sha1", "--standard-sha1", "alice", "wonderful"},
              {"--standard-sha1", "--builtin", "--standard-sha1", "alice", "wonderful"},
              {"-v", "--builtin", "alice", "wonderful"},
              {"--standard-sha", "alice", "wonderful"}}) {
            const ProgramResult result = run(program, arguments);
            EXPECT_EQ(1, result.status);
            EXPECT_EQ(usage(program), result.out);
        }
    }
    for (const char *program : {"radauth", "radmschap"}) {
        EXPECT_EQ(usage(program), run(program, {"--standard-sha1", "alice", "wonderful"}).out);
    }
    EXPECT_EQ(usage("radauth"), run("radauth", {"--builtin", "alice", "wonderful"}).out);
    EXPECT_EQ(usage("radmschap"),
              run("radmschap", {"--builtin", "--builtin", "alice", "wonderful"}).out);
}

}  // namespace
}  // namespace lanyard::test::programs_test
