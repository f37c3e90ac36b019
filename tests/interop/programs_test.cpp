// The command-line programs, as a person or a script meets them: exit status and output. PAP and
// accounting, and what all programs share.

#include "tests/interop/programs.h"

namespace lanyard::test::programs_test {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

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

}  // namespace
}  // namespace lanyard::test::programs_test
