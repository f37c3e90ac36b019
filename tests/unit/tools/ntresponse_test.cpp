// The program that computes NT-Responses: known answers, the file that it leaves, and what it
// refuses.
#include <array>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <poll.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/interop/child_process.h"
#include "tests/support/bytes.h"
#include "tests/support/temporary_root.h"
#include "tools/file_descriptor.h"
#include "tools/spawn.h"

namespace lanyard::test::ntresponse_test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr const char *kFile = "/tmp/response";
constexpr const char *kPassword = "MyPw";
const std::string kChallenge = toText("102db5df085d3041"_hex);
constexpr const char *kResponse = "4e9d3c8f9cfd385d5bf4d3246791956ca4c351ab409a3d61";

class NtResponseProgram : public testing::Test {
  protected:
    NtResponseProgram() { root_.makeFolder("/tmp"); }

    // Runs it on the device; whatever it does, it shows no password and no sanitizer speaks up.
    [[nodiscard]] ProgramResult run(const std::vector<std::string> &arguments) const {
        std::vector<std::string> command = {LANYARD_NTRESPONSE};
        command.insert(command.end(), arguments.begin(), arguments.end());
        ProgramResult result = runProgram(command, {"PAL_ROOT=" + root_.folder().string()});
        EXPECT_EQ("", result.out);
        if (!arguments.empty() && !arguments[0].empty()) {
            EXPECT_THAT(result.err, Not(HasSubstr(arguments[0])));
        }
        EXPECT_THAT(result.err, Not(HasSubstr("Sanitizer")));
        EXPECT_THAT(result.err, Not(HasSubstr("runtime error")));
        return result;
    }

    void expectResponse(const std::string &password, const std::string &challenge,
                        const std::string &response) const {
        const ProgramResult result = run({password, challenge, kFile});
        EXPECT_EQ(0, result.status);
        EXPECT_EQ("", result.err);
        EXPECT_EQ(response, toHex(fromText(root_.read(kFile))));
    }

    // One line that tells why, and no file.
    void expectRefused(const std::vector<std::string> &arguments, const std::string &why) const {
        const ProgramResult result = run(arguments);
        EXPECT_EQ(1, result.status);
        EXPECT_EQ(why, result.err);
        EXPECT_THAT(root_.list("/tmp"), IsEmpty());
    }

    TemporaryRoot root_;
};

// --- Responses ------------------------------------------------------------------------------------

TEST_F(NtResponseProgram, GivesTheKnownAnswers) {
    expectResponse("MyPw", toText("102db5df085d3041"_hex),
                   "4e9d3c8f9cfd385d5bf4d3246791956ca4c351ab409a3d61");
    expectResponse("clientPass", toText("d02e4386bce91226"_hex),
                   "82309ecd8d708b5ea08faa3981cd83544233114a3d85d6df");
    expectResponse("wonderland", toText("0101010101010101"_hex),
                   "3d445f7365d559a2a4499abdd24bd417f0944984824c51b2");
}

// The answers below were computed with the openssl program and the UTF-16 of another language.
TEST_F(NtResponseProgram, EmptyPasswordIsAnswered) {
    expectResponse("", std::string(8, 1), "06e2613cadb96d03a5506df223d0d8cd8e793bfdd5e63249");
}

TEST_F(NtResponseProgram, ChallengeIsOctetsOfAnyValueButZero) {
    expectResponse("MyPw", toText("ffffffffffffffff"_hex),
                   "094f861dca716fb0f85169a69e86e1608063a0ee46eff065");
}

TEST_F(NtResponseProgram, PasswordIsUtf8) {
    expectResponse("p\u00e4ssw\u00f6rd\u20ac\U0001F600", toText("fffefdfcfbfa8001"_hex),
                   "a293a977aa7c133a886870a3a0629de44cbd6ab84b917a3b");
    expectResponse("\x7f\u0080\u07ff\u0800\ud7ff\ue000\uffff\U00010000\U0010ffff",
                   std::string(8, 1), "9a53dbb36e5c539a0324e0ead04c1a214e498ebd55c1ae57");
}

TEST_F(NtResponseProgram, PasswordHas256CharactersAtMost) {
    const std::string emoji = "\U0001F600";
    std::string pairs;
    for (int count = 0; count < 128; ++count) {
        pairs += emoji;
    }
    const std::string why = "ntresponse: the password is not UTF-8 of at most 256 characters\n";
    expectRefused({std::string(257, 'x'), std::string(8, 1), kFile}, why);
    expectRefused({pairs + 'x', std::string(8, 1), kFile}, why);
    expectRefused({std::string(255, 'x') + emoji, std::string(8, 1), kFile}, why);
    expectRefused({std::string(100000, 'x'), std::string(8, 1), kFile}, why);
    expectResponse(std::string(256, 'x'), std::string(8, 1),
                   "43cf5d06e3fb8310445d95402ddf07481a1d052047c8baec");
    expectResponse(pairs, std::string(8, 1), "f74b798aabaa515be21953f05994a107401eb94b325cad90");
}

TEST_F(NtResponseProgram, WhatIsNotUtf8IsRefused) {
    const std::string why = "ntresponse: the password is not UTF-8 of at most 256 characters\n";
    for (const char *octets :
         {"80", "41c3", "c328", "e282", "e28228", "f09f98", "c080", "c1bf", "e080af", "f08080af",
          "eda080", "edbfbf", "f4908080", "f8888080af", "ff", "fe", "41ff42"}) {
        SCOPED_TRACE(octets);
        expectRefused({toText(fromHex(octets)), kChallenge, kFile}, why);
    }
}

// --- The file -------------------------------------------------------------------------------------

TEST_F(NtResponseProgram, FileHas24OctetsAndBelongsToItsOwnerAlone) {
    const mode_t before = umask(0);
    expectResponse(kPassword, kChallenge, kResponse);
    umask(before);
    EXPECT_EQ(24U, root_.read(kFile).size());
    EXPECT_EQ(0600U, root_.mode(kFile));
    EXPECT_THAT(root_.list("/tmp"), ElementsAre("response"));
}

TEST_F(NtResponseProgram, StaleFileIsReplaced) {
    root_.write(kFile, std::string(100, 'x'), 0666);
    expectResponse(kPassword, kChallenge, kResponse);
    EXPECT_EQ(0600U, root_.mode(kFile));
}

TEST_F(NtResponseProgram, PlantedSymbolicLinkIsNotFollowed) {
    root_.write("/etc/precious", "precious", 0644);
    std::filesystem::create_symlink(root_.path("/etc/precious"), root_.path(kFile));
    expectResponse(kPassword, kChallenge, kResponse);
    EXPECT_FALSE(std::filesystem::is_symlink(root_.path(kFile)));
    EXPECT_EQ(0600U, root_.mode(kFile));
    EXPECT_EQ("precious", root_.read("/etc/precious"));
    EXPECT_EQ(0644U, root_.mode("/etc/precious"));
}

TEST_F(NtResponseProgram, PlantedLinkIntoTheVoidCreatesNothing) {
    std::filesystem::create_symlink(root_.path("/etc-created"), root_.path(kFile));
    expectResponse(kPassword, kChallenge, kResponse);
    EXPECT_FALSE(root_.exists("/etc-created"));
}

TEST_F(NtResponseProgram, OtherNameOfAStaleFileKeepsItsContent) {
    root_.write("/etc/precious", "precious");
    std::filesystem::create_hard_link(root_.path("/etc/precious"), root_.path(kFile));
    expectResponse(kPassword, kChallenge, kResponse);
    EXPECT_EQ("precious", root_.read("/etc/precious"));
}

TEST_F(NtResponseProgram, FolderInPlaceOfTheFileIsAnError) {
    root_.makeFolder(kFile);
    const ProgramResult result = run({kPassword, kChallenge, kFile});
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("ntresponse: /tmp/response: Is a directory\n", result.err);
    EXPECT_THAT(root_.list(kFile), IsEmpty());
}

TEST_F(NtResponseProgram, FolderThatIsMissingIsAnError) {
    expectRefused({kPassword, kChallenge, "/nowhere/response"},
                  "ntresponse: /nowhere/response: No such file or directory\n");
    EXPECT_FALSE(root_.exists("/nowhere"));
}

// A file may have no more than that many octets, as on a disk that is full.
class FileSizeLimit {
  public:
    explicit FileSizeLimit(rlim_t octets) {
        EXPECT_EQ(0, getrlimit(RLIMIT_FSIZE, &before_));
        const rlimit limit{.rlim_cur = octets, .rlim_max = before_.rlim_max};
        EXPECT_EQ(0, setrlimit(RLIMIT_FSIZE, &limit));
        // Else the child would be ended by it.
        handler_ = signal(SIGXFSZ, SIG_IGN);
    }
    FileSizeLimit(const FileSizeLimit &) = delete;
    FileSizeLimit &operator=(const FileSizeLimit &) = delete;
    ~FileSizeLimit() {
        EXPECT_EQ(0, setrlimit(RLIMIT_FSIZE, &before_));
        EXPECT_NE(SIG_ERR, signal(SIGXFSZ, handler_));
    }

  private:
    rlimit before_{};
    void (*handler_)(int);
};

TEST_F(NtResponseProgram, FileThatCannotBeWrittenWholeIsAnErrorAndRemoved) {
    struct Case {
        rlim_t octets;
        const char *why;
    };
    for (const Case &entry : {Case{0, "File too large"}, Case{23, "Input/output error"}}) {
        ProgramResult result;
        {
            const FileSizeLimit limit(entry.octets);
            result = run({kPassword, kChallenge, kFile});
        }
        EXPECT_EQ(1, result.status);
        EXPECT_EQ(std::string("ntresponse: /tmp/response: ") + entry.why + "\n", result.err);
        EXPECT_FALSE(root_.exists(kFile));
    }
}

// --- The command line -----------------------------------------------------------------------------

TEST_F(NtResponseProgram, AnotherNumberOfArgumentsIsAUsageError) {
    const std::string usage =
        std::string("Usage: ") + LANYARD_NTRESPONSE + " PASSWORD CHALLENGE FILE\n";
    expectRefused({}, usage);
    expectRefused({kPassword}, usage);
    expectRefused({kPassword, kChallenge}, usage);
    expectRefused({kPassword, kChallenge, kFile, "more"}, usage);
    expectRefused({kPassword, kChallenge, kFile, ""}, usage);
}

TEST_F(NtResponseProgram, ChallengeOfAnotherLengthIsRefused) {
    for (const size_t length : {0U, 1U, 7U, 9U, 16U, 1000U}) {
        expectRefused(
            {kPassword, std::string(length, 1), kFile},
            "ntresponse: the challenge has " + std::to_string(length) + " octets instead of 8\n");
    }
}

TEST_F(NtResponseProgram, RefusalLeavesAnEarlierFileAlone) {
    root_.write(kFile, "earlier");
    EXPECT_EQ(1, run({kPassword, "short", kFile}).status);
    EXPECT_EQ("earlier", root_.read(kFile));
}

// The message of this run is longer than what goes into its standard error, so that the program
// stands still in the middle of it.
TEST_F(NtResponseProgram, PasswordIsWipedFromTheProcessList) {
    Pipe standardError;
    const int room = fcntl(standardError.readEnd.get(), F_SETPIPE_SZ, 4096);
    ASSERT_GT(room, 0);

    const std::string program = LANYARD_NTRESPONSE;
    const std::string password = "opensesame";
    const std::string challenge = kChallenge;
    const std::string path = "/" + std::string(static_cast<size_t>(room) * 2, 'x');
    const pid_t child = spawn({program, password, challenge, path}, ownEnvironment(),
                              {.err = standardError.writeEnd.get()});
    standardError.writeEnd.reset();

    pollfd message = {standardError.readEnd.get(), POLLIN, 0};
    EXPECT_EQ(1, poll(&message, 1, 10000));
    std::ifstream stream("/proc/" + std::to_string(child) + "/cmdline", std::ios::binary);
    const std::string commandLine{std::istreambuf_iterator<char>(stream), {}};
    std::string text;
    std::array<char, 4096> octets;
    for (ssize_t count = 1; count > 0;) {
        count = read(standardError.readEnd.get(), octets.data(), octets.size());
        text.append(octets.data(), static_cast<size_t>(std::max<ssize_t>(count, 0)));
    }
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(1, WEXITSTATUS(status));
    EXPECT_EQ("ntresponse: " + path + ": File name too long\n", text);

    EXPECT_THAT(commandLine, HasSubstr(program));
    EXPECT_THAT(commandLine, HasSubstr(challenge));
    EXPECT_THAT(commandLine, Not(HasSubstr("opensesame")));
    EXPECT_THAT(commandLine, HasSubstr(std::string(password.size(), '\0') + '\0' + challenge));
}

}  // namespace
}  // namespace lanyard::test::ntresponse_test
