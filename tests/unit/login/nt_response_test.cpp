// The NT-Response through the device's program: its arguments, its file, and all that may be wrong
// with either.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <lanyard/radius/frame.h>
#include <lanyard/radius/methods.h>

#include "tests/unit/login/nt_response_program.h"

namespace {

// An allocation of kHugeSize fails when a test asks for it: by an option of the sanitizers, which
// counts in MiB, or else by a limit of the system. The latter is beyond what malloc() may have set
// aside for its arenas.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitizerLimitsAllocations = true;
constexpr const char *kSanitizerOptions = "allocator_may_return_null=1:max_allocation_size_mb=4";
constexpr size_t kHugeSize = size_t{8} << 20;
#else
constexpr bool kSanitizerLimitsAllocations = false;
constexpr size_t kHugeSize = size_t{80} << 20;
#endif

}  // namespace

#if defined(__SANITIZE_ADDRESS__)
extern "C" const char *__asan_default_options() {
    return kSanitizerOptions;
}
#elif defined(__SANITIZE_THREAD__)
extern "C" const char *__tsan_default_options() {
    return kSanitizerOptions;
}
#endif

namespace lanyard::test::nt_response_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char *kFile = "/tmp/mschap_nemo";
const Bytes kChallenge = "0102030405060708"_hex;

// A password of ASCII, its challenge and the response to it.
const Bytes kKnownChallenge = "102db5df085d3041"_hex;
const Answer kKnownAnswer{0, "4e9d3c8f9cfd385d5bf4d3246791956ca4c351ab409a3d61"_hex};

Answer askKnown(const char *userName = "nemo") {
    return ask(kKnownChallenge, "MyPw", userName);
}

class NtResponse : public testing::Test {
  protected:
    NtResponse() { root_.makeFolder("/tmp"); }
    ~NtResponse() override { EXPECT_LOG(log_); }

    TemporaryRoot root_;
    LogRecorder log_;
};

// --- The program of this build, as a child process ----------------------------------------------

TEST_F(NtResponse, RealProgramGivesTheKnownAnswers) {
    const InstalledProgram program(root_);
    struct Case {
        const char *password;
        Bytes challenge;
        Bytes response;
    };
    for (const Case &entry : {Case{"MyPw", "102db5df085d3041"_hex,
                                   "4e9d3c8f9cfd385d5bf4d3246791956ca4c351ab409a3d61"_hex},
                              Case{"clientPass", "d02e4386bce91226"_hex,
                                   "82309ecd8d708b5ea08faa3981cd83544233114a3d85d6df"_hex},
                              Case{"wonderland", "0101010101010101"_hex,
                                   "3d445f7365d559a2a4499abdd24bd417f0944984824c51b2"_hex}}) {
        SCOPED_TRACE(entry.password);
        EXPECT_EQ((Answer{0, entry.response}), ask(entry.challenge, entry.password));
        EXPECT_THAT(root_.list("/tmp"), IsEmpty());
    }
}

TEST_F(NtResponse, RealProgramReplacesWhatAnEarlierRunLeft) {
    const InstalledProgram program(root_);
    root_.write(kFile, std::string(100, 'x'));
    EXPECT_EQ(kKnownAnswer, askKnown());
    EXPECT_THAT(root_.list("/tmp"), IsEmpty());
}

TEST_F(NtResponse, RealProgramDoesNotFollowAPlantedLink) {
    const InstalledProgram program(root_);
    root_.write("/etc/shadow", "precious");
    std::filesystem::create_symlink(root_.path("/etc/shadow"), root_.path(kFile));
    EXPECT_EQ(kKnownAnswer, askKnown());
    EXPECT_EQ("precious", root_.read("/etc/shadow"));
    EXPECT_THAT(root_.list("/tmp"), IsEmpty());
}

TEST_F(NtResponse, ChallengeWithANulIsCutAndRefusedByTheRealProgram) {
    const InstalledProgram program(root_);
    testing::internal::CaptureStderr();
    const Answer answer = ask("0102030005060708"_hex);
    EXPECT_EQ("ntresponse: the challenge has 3 octets instead of 8\n",
              testing::internal::GetCapturedStderr());
    EXPECT_EQ(0, answer.result);
    EXPECT_BYTES_EQ(kNoResponse, answer.response);
}

TEST_F(NtResponse, MissingProgramIsAFailure) {
    EXPECT_EQ((Answer{-1, kNoResponse}), ask());
}

TEST_F(NtResponse, ProgramThatMayNotRunIsAFailure) {
    root_.write(kNtResponseProgram, "no program", 0600);
    EXPECT_EQ(-1, ask().result);
}

// --- What the program is given, and what becomes of its file -------------------------------------

TEST_F(NtResponse, ProgramGetsPasswordChallengeAndFile) {
    StandInProgram program(root_, answering(ntResponse()));
    EXPECT_EQ(0, ask().result);
    ASSERT_EQ(1U, program.callCount());
    const StandInProgram::Call call = program.call(0);
    EXPECT_THAT(call.arguments,
                ElementsAre("/nexa2.0/bin/orvane_getNTResponse", "arctangent",
                            "\x01\x02\x03\x04\x05\x06\x07\x08", "/tmp/mschap_nemo"));
    EXPECT_EQ(0, call.reserved1);
    EXPECT_EQ(0, call.reserved2);
}

TEST_F(NtResponse, ArgumentsAreHandedOnAsTheyAre) {
    StandInProgram program(root_, answering(ntResponse()));
    const char *password = "$(reboot) '\"; \xc3\xa9 %s";
    const Bytes challenge = "8025ff0a2722203b"_hex;
    const char *userName = "..%s %n\xc3\xa9";
    EXPECT_EQ(0, ask(challenge, password, userName).result);
    const StandInProgram::Call call = program.call(0);
    EXPECT_EQ(password, call.password);
    EXPECT_BYTES_EQ(challenge, call.challenge);
    EXPECT_EQ(std::string("/tmp/mschap_") + userName, call.file);
}

TEST_F(NtResponse, EmptyNameAndPasswordAreHandedOn) {
    StandInProgram program(root_, answering(ntResponse()));
    EXPECT_EQ(0, ask(kChallenge, "", "").result);
    EXPECT_EQ("", program.call(0).password);
    EXPECT_EQ("/tmp/mschap_", program.call(0).file);
}

TEST_F(NtResponse, ResponseIsWhatTheFileHolds) {
    const StandInProgram program(root_, answering(ntResponse()));
    EXPECT_EQ((Answer{0, ntResponse()}), ask());
    EXPECT_FALSE(root_.exists(kFile));
}

TEST_F(NtResponse, BytesOfAnyValueAreKept) {
    const Bytes bytes = "00ff0a0d1a00ff0a0d1a00ff0a0d1a00ff0a0d1a00000000"_hex;
    const StandInProgram program(root_, answering(bytes));
    EXPECT_BYTES_EQ(bytes, ask().response);
}

TEST_F(NtResponse, BytesAfterTheResponseAreIgnored) {
    const StandInProgram program(root_, answering(concatenate({ntResponse(), Bytes(76, 0xee)})));
    EXPECT_EQ((Answer{0, ntResponse()}), ask());
    EXPECT_FALSE(root_.exists(kFile));
}

TEST_F(NtResponse, WhereTheFileEndsEarlyEndOfFileStandsInTheResponse) {
    StandInProgram program(root_, endingWith(0));
    for (const size_t size : {0U, 1U, 8U, 23U}) {
        SCOPED_TRACE(size);
        Bytes expected = ntResponse();
        expected.resize(size);
        program.replace(answering(expected));
        expected.resize(ntResponse().size(), 0xff);
        EXPECT_EQ((Answer{0, expected}), ask());
        EXPECT_FALSE(root_.exists(kFile));
    }
}

TEST_F(NtResponse, ProgramThatWritesNothingLeavesTheResponseAlone) {
    StandInProgram program(root_, endingWith(0));
    for (const int status : {0, 1, 127, 255}) {
        SCOPED_TRACE(status);
        program.replace(endingWith(status));
        EXPECT_EQ((Answer{0, kNoResponse}), ask());
    }
}

TEST_F(NtResponse, FileCountsWhateverTheExitStatus) {
    const StandInProgram program(root_, answering(ntResponse(), 1));
    EXPECT_EQ((Answer{0, ntResponse()}), ask());
    EXPECT_FALSE(root_.exists(kFile));
}

TEST_F(NtResponse, FileIsNotReadWhenTheProgramCouldNotBeRun) {
    const StandInProgram program(root_, answering(ntResponse(), -1));
    EXPECT_EQ((Answer{-1, kNoResponse}), ask());
    EXPECT_TRUE(root_.exists(kFile));
}

TEST_F(NtResponse, ResultIsThatOfRemovingTheFile) {
    const StandInProgram program(root_, answering(ntResponse()));
    const RefusedRemovals removals(1);
    EXPECT_EQ((Answer{-1, ntResponse()}), ask());
}

TEST_F(NtResponse, FilesOfOtherUsersAreLeftAlone) {
    root_.write("/tmp/mschap_nem", "x");
    root_.write("/tmp/mschap_nemo2", "x");
    const StandInProgram program(root_, answering(ntResponse()));
    EXPECT_EQ(0, ask().result);
    EXPECT_THAT(root_.list("/tmp"), ElementsAre("mschap_nem", "mschap_nemo2"));
}

TEST_F(NtResponse, NameWithASlashTouchesNoFile) {
    const StandInProgram program(root_, answering(ntResponse()));
    root_.write("/etc/shadow", "precious");
    root_.makeFolder("/tmp/mschap_");
    for (const char *userName : {"/", "/../../etc/shadow", "nemo/", "a/b", "../etc/shadow"}) {
        SCOPED_TRACE(userName);
        EXPECT_EQ((Answer{-1, kNoResponse}), ask(kChallenge, "arctangent", userName));
    }
    EXPECT_EQ(0U, program.callCount());
    EXPECT_EQ("precious", root_.read("/etc/shadow"));
    EXPECT_THAT(root_.list("/tmp"), ElementsAre("mschap_"));
}

TEST_F(NtResponse, MissingArgumentsAreRefused) {
    const StandInProgram program(root_, answering(ntResponse()));
    expectMissingArgumentsRefused();
    EXPECT_EQ(0U, program.callCount());
}

TEST_F(NtResponse, StaysWithinChallengeAndResponse) {
    const StandInProgram program(root_, answering(ntResponse()));
    expectWithinArguments("8182838485868788"_hex, ntResponse());
    EXPECT_BYTES_EQ("8182838485868788"_hex, program.call(0).challenge);
    EXPECT_BYTES_EQ("8182838485868788"_hex, program.call(1).challenge);
}

TEST_F(NtResponse, FileIsClosedAgain) {
    StandInProgram program(root_, answering(ntResponse()));
    const auto before = openDescriptors();
    ask();
    program.replace(answering({}));
    ask();
    EXPECT_EQ(before, openDescriptors());
}

// --- Computed in the process --------------------------------------------------------------------

// No program runs, and no file or folder of the device is touched.
class BuiltinResponse : public NtResponse {
  protected:
    BuiltinResponse() { root_.remove("/tmp"); }
    ~BuiltinResponse() override {
        EXPECT_EQ(0U, program_.callCount());
        EXPECT_THAT(root_.list("/"), IsEmpty());
    }

    BuiltinNtResponse option_;
    StandInProgram program_{root_, answering(ntResponse())};
};

TEST_F(BuiltinResponse, GivesTheKnownAnswers) {
    struct Case {
        std::string password;
        Bytes challenge;
        const char *response;
    };
    std::string pairs;
    for (int count = 0; count < 128; ++count) {
        pairs += "\U0001F600";
    }
    for (const Case &entry : {
             Case{"MyPw", "102db5df085d3041"_hex,
                  "4e9d3c8f9cfd385d5bf4d3246791956ca4c351ab409a3d61"},
             Case{"clientPass", "d02e4386bce91226"_hex,
                  "82309ecd8d708b5ea08faa3981cd83544233114a3d85d6df"},
             Case{"", Bytes(8, 1), "06e2613cadb96d03a5506df223d0d8cd8e793bfdd5e63249"},
             Case{"p\u00e4ssw\u00f6rd\u20ac\U0001F600", "fffefdfcfbfa8001"_hex,
                  "a293a977aa7c133a886870a3a0629de44cbd6ab84b917a3b"},
             Case{std::string(256, 'x'), Bytes(8, 1),
                  "43cf5d06e3fb8310445d95402ddf07481a1d052047c8baec"},
             Case{pairs, Bytes(8, 1), "f74b798aabaa515be21953f05994a107401eb94b325cad90"},
         }) {
        SCOPED_TRACE(entry.password);
        EXPECT_EQ((Answer{0, fromHex(entry.response)}),
                  ask(entry.challenge, entry.password.c_str()));
    }
}

TEST_F(BuiltinResponse, PasswordThatHasNoHashLeavesTheResponseAlone) {
    for (const std::string &password :
         {std::string("\xff"), std::string("41\xc3"), std::string(257, 'x'),
          std::string(255, 'x') + "\U0001F600", std::string(256, 'x') + "\U0001F600",
          std::string(size_t{1} << 20, 'x')}) {
        EXPECT_EQ((Answer{0, kNoResponse}), ask(kChallenge, password.c_str()));
    }
}

// The answers were computed with the openssl program.
TEST_F(BuiltinResponse, ChallengeMayHoldAnyByte) {
    EXPECT_EQ("8293b5084955dfc3c3a5b95059ceeb7c79c0be5002ec10e9",
              toHex(ask(Bytes(8, 0), "MyPw").response));
    EXPECT_EQ("c0c5d756f1b614c3e85c9cc33ee0b9d2a4286f276b997c39",
              toHex(ask("0102030005060708"_hex, "MyPw").response));
}

TEST_F(BuiltinResponse, NameIsNotLookedAt) {
    const std::string longName(5000, 'n');
    for (const char *userName : {"", "/", "../../etc/shadow", longName.c_str()}) {
        EXPECT_EQ(kKnownAnswer, askKnown(userName));
    }
}

TEST_F(BuiltinResponse, MissingArgumentsAreRefused) {
    expectMissingArgumentsRefused();
}

TEST_F(BuiltinResponse, StaysWithinChallengeAndResponse) {
    expectWithinArguments(kKnownChallenge, kKnownAnswer.response);
}

TEST_F(BuiltinResponse, AnyOtherValueThanZeroAsksForIt) {
    EXPECT_EQ(0, radOptionSet(RAD_OPTION_BUILTIN_NT_RESPONSE, -1));
    EXPECT_EQ(kKnownAnswer, askKnown());
}

// --- Without memory -----------------------------------------------------------------------------

// While it is there, allocations of kHugeSize fail.
class NoHugeAllocations {
  public:
    NoHugeAllocations() {
        if (kSanitizerLimitsAllocations) {
            return;
        }
        EXPECT_EQ(0, getrlimit(RLIMIT_AS, &before_));
        size_t pages = 0;
        std::ifstream("/proc/self/statm") >> pages;
        const rlimit narrow{
            .rlim_cur = pages * static_cast<size_t>(sysconf(_SC_PAGESIZE)) + kHugeSize / 2,
            .rlim_max = before_.rlim_max};
        EXPECT_EQ(0, setrlimit(RLIMIT_AS, &narrow));
    }
    NoHugeAllocations(const NoHugeAllocations &) = delete;
    NoHugeAllocations &operator=(const NoHugeAllocations &) = delete;
    ~NoHugeAllocations() {
        if (!kSanitizerLimitsAllocations) {
            EXPECT_EQ(0, setrlimit(RLIMIT_AS, &before_));
        }
    }

  private:
    rlimit before_{};
};

TEST_F(NtResponse, WithoutMemoryForTheNameOfTheFileThereIsNoOutputAndNoFailure) {
    const StandInProgram program(root_, answering(ntResponse()));
    void *room =
        mmap(nullptr, kHugeSize + 1, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(MAP_FAILED, room);
    char *userName = static_cast<char *>(room);
    std::fill_n(userName, kHugeSize, 'n');
    Answer answer;
    {
        const NoHugeAllocations limit;
        answer = ask(kChallenge, "arctangent", userName);
    }
    munmap(room, kHugeSize + 1);
    EXPECT_EQ(0, answer.result);
    EXPECT_BYTES_EQ(kNoResponse, answer.response);
    EXPECT_EQ(0U, program.callCount());
}

}  // namespace
}  // namespace lanyard::test::nt_response_test
