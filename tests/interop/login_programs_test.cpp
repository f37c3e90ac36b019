// The programs of CHAP, MS-CHAP and MS-CHAPv2: exit status and output, and what may lie at the path of
// an NT-Response.
#include <algorithm>
#include <filesystem>

#include "tests/interop/programs.h"

namespace lanyard::test::login_programs_test {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

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
}  // namespace lanyard::test::login_programs_test
