// What the logins of MS-CHAP and MS-CHAPv2 have alone: the NT-Response in their requests.
#include <lanyard/radius/methods.h>

#include "tests/unit/login/methods.h"
#include "tests/unit/login/mschapv2_challenge.h"

namespace lanyard::test::mschap_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char *kKnownResponse = "3d445f7365d559a2a4499abdd24bd417f0944984824c51b2";

class MschapLogin : public testing::TestWithParam<Method> {
  protected:
    static bool isV2() { return &GetParam().family() == &mschapv2(); }

    static Outcome login(const char *userName = "nemo", const char *password = kPassword) {
        return logIn(GetParam(), userName, password);
    }

    static auto failed() { return Verdict(GetParam(), false); }

    // The NT-Response of a request, which is right in all else.
    static Bytes ntResponseOf(const ReceivedRequest &sent, std::string_view userName) {
        const Bytes response = vendorValue(sent, kMicrosoft, isV2() ? 25 : 1);
        EXPECT_EQ(50U, response.size());
        EXPECT_EQ(isV2() ? "b900" : "b901", toHex(ByteView(response).first(2)));
        EXPECT_BYTES_EQ(Bytes(8), ByteView(response).subspan(18, 8));
        if (!isV2()) {
            EXPECT_BYTES_EQ(Bytes(24), ByteView(response).subspan(2, 24));
        }
        expectAccessRequest(sent, kSecret,
                            Attributes()
                                .addText(1, userName)
                                .addVendor(kMicrosoft, 11, Bytes(isV2() ? 16 : 8, 1))
                                .addVendor(kMicrosoft, isV2() ? 25 : 1, response)
                                .addInteger(6, 8)
                                .addAddress(4, kDeviceAddress));
        return {response.end() - 24, response.end()};
    }
};

INSTANTIATE_TEST_SUITE_P(Methods, MschapLogin, testing::ValuesIn(mschapMethods()), nameOf<Method>);

// The challenge hash of MS-CHAPv2 is b21356e016e0daf5, with the published SHA-1.
TEST_P(MschapLogin, RealProgramGivesTheKnownAnswer) {
    const OneAuthServer far({accept()});
    const InstalledProgram program(far.library.root());
    const StandInRandom random({Bytes(kChallengeSize, 2)});
    const StandardSha1 option;
    EXPECT_EQ(0, login("alice", "wonderland").result);
    EXPECT_EQ(isV2() ? "ab1caddd5ce729b3fb361ba010a9b6c77fc82af46a40aaa9" : kKnownResponse,
              toHex(ntResponseOf(far.server.request(0), "alice")));
    EXPECT_THAT(far.library.root().list("/tmp"), IsEmpty());
}

TEST_P(MschapLogin, PasswordOfAnyLengthIsHandedToTheProgram) {
    const FarEnd far({accept(), accept()});
    const std::string password(500, 'p');
    EXPECT_EQ(0, login("nemo", password.c_str()).result);
    EXPECT_EQ(0, login("nemo", "").result);
    EXPECT_EQ(password, far.program.call(0).password);
    EXPECT_EQ("", far.program.call(1).password);
    EXPECT_EQ("/tmp/mschap_nemo", far.program.call(0).file);
}

TEST_P(MschapLogin, WithoutAnNtResponseZerosAreSent) {
    OneAuthServer far({});
    far.server.otherwise(reject());
    for (const int result : {0, 3, -1}) {
        const StandInProgram program(far.library.root(), endingWith(result));
        EXPECT_THAT(login(), failed());
        EXPECT_EQ(1U, program.callCount());
    }
    EXPECT_THAT(login(), failed());  // there is no program
    const StandInProgram program(far.library.root(), answering(ntResponse()));
    EXPECT_THAT(login("nemo", nullptr), failed());
    EXPECT_EQ(0U, program.callCount());
    ASSERT_EQ(5U, far.server.requestCount());
    for (size_t i = 0; i < 5; ++i) {
        const ReceivedRequest sent = far.server.request(i);
        EXPECT_BYTES_EQ(Bytes(24), ntResponseOf(sent, "nemo"));
        if (isV2() && i < 4) {
            const Bytes response = vendorValue(sent, kMicrosoft, 25);
            EXPECT_NE(Bytes(kChallengeSize), Bytes(response.begin() + 2, response.begin() + 18));
        }
    }
}

TEST_P(MschapLogin, NameWithASlashIsSentWithAZeroNtResponse) {
    const FarEnd far({reject()});
    EXPECT_EQ(-1, login("../etc/nemo").result);
    EXPECT_EQ(0U, far.program.callCount());
    EXPECT_BYTES_EQ(Bytes(24), ntResponseOf(far.server.request(0), "../etc/nemo"));
}

TEST_P(MschapLogin, WhereTheProgramsFileEndsEarlyEndOfFileIsSent) {
    const OneAuthServer far({reject()});
    const StandInProgram program(far.library.root(), answering("414243"_hex));
    EXPECT_THAT(login(), failed());
    EXPECT_BYTES_EQ(concatenate({"414243"_hex, Bytes(21, 0xff)}),
                    ntResponseOf(far.server.request(0), "nemo"));
}

TEST_P(MschapLogin, ErrorOfARefusalIsNotShown) {
    const OneAuthServer far(
        {reject(Attributes().addVendor(kMicrosoft, 2, fromText("xE=691 R=1")))});
    EXPECT_THAT(login(), failed());
}

// --- MS-CHAP --------------------------------------------------------------------------------------

class MschapV1Login : public MschapLogin {};

INSTANTIATE_TEST_SUITE_P(Methods, MschapV1Login,
                         testing::Values(mschapMethods()[0], mschapMethods()[1]), nameOf<Method>);

TEST_P(MschapV1Login, ProgramIsAskedForTheFixedChallenge) {
    const FarEnd far({accept()});
    EXPECT_EQ(0, login().result);
    ASSERT_EQ(1U, far.program.callCount());
    EXPECT_THAT(far.program.call(0).arguments,
                ElementsAre(kNtResponseProgram, kPassword, "\1\1\1\1\1\1\1\1", "/tmp/mschap_nemo"));
}

TEST_P(MschapV1Login, KnownAnswerIsComputedInTheProcess) {
    const OneAuthServer far({accept(), reject()});
    const BuiltinNtResponse builtin;
    EXPECT_EQ(0, login("a/b", "wonderland").result);
    EXPECT_EQ(kKnownResponse, toHex(ntResponseOf(far.server.request(0), "a/b")));
    EXPECT_THAT(login("nemo", "\xff"), failed());
    EXPECT_BYTES_EQ(Bytes(24), ntResponseOf(far.server.request(1), "nemo"));
}

}  // namespace
}  // namespace lanyard::test::mschap_test
