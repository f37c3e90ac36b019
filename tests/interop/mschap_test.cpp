// MS-CHAP and MS-CHAPv2 logins against the real server, with the NT-Response program of this build.
#include <array>
#include <filesystem>
#include <gmock/gmock.h>
#include <openssl/md4.h>
#include <openssl/sha.h>
#include <string_view>
#include <vector>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/engine.h>
#include <lanyard/radius/frame.h>
#include <lanyard/radius/methods.h>
#include <palcore.h>

#include "tests/interop/fixture.h"
#include "tests/support/bytes.h"

namespace lanyard::test::mschap_test {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr const char *kLongPassword = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKL";
constexpr uint32_t kUntouched = 4711;
constexpr size_t kKeySize = 16;

class Mschap : public Interop {
  protected:
    void SetUp() override {
        Interop::SetUp();
        installNtResponse();
        configure("authserver " + entry(server().authPort()) + "\n");
    }

    void TearDown() override {
        radOptionSet(RAD_OPTION_STANDARD_SHA1, 0);
        Interop::TearDown();
    }

    struct Login {
        int result = -2;
        Written written;
        uint32_t idle = kUntouched;
        uint32_t session = kUntouched;
    };

    template <typename Method>
    static Login login(Method method, const char *userName, const char *password) {
        Login outcome;
        outcome.written = capture([&] { outcome.result = method(userName, password); });
        return outcome;
    }

    template <typename Method>
    static Login loginForLimits(Method method, const char *userName, const char *password) {
        Login outcome;
        outcome.written = capture(
            [&] { outcome.result = method(userName, password, &outcome.idle, &outcome.session); });
        return outcome;
    }

    static void expectAccepted(const Login &outcome) {
        EXPECT_EQ(0, outcome.result);
        EXPECT_EQ("\"alice\" RADIUS Authentication OK\n", outcome.written.out);
        EXPECT_EQ("", outcome.written.err);
    }

    static void expectRefused(const Login &outcome) {
        EXPECT_EQ(-1, outcome.result);
        EXPECT_EQ("", outcome.written.out);
        EXPECT_THAT(outcome.written.err, HasSubstr("\"alice\" RADIUS Authentication failure"));
        EXPECT_EQ(1, occurrences(outcome.written.err, "\n")) << outcome.written.err;
    }
};

// --- MS-CHAP --------------------------------------------------------------------------------------

TEST_F(Mschap, RightPassword_Accepted) {
    expectAccepted(login(radMschap, "alice", "wonderland"));
}

TEST_F(Mschap, WrongPassword_Refused) {
    expectRefused(login(radMschap, "alice", "wonderlanD"));
}

TEST_F(Mschap, Request_ReachesTheServerAsItWasMeant) {
    login(radMschap, "alice", "wonderland");
    const std::string request = lastRequest();
    EXPECT_THAT(request, HasSubstr("User-Name = \"alice\"\n"));
    EXPECT_THAT(request, HasSubstr("MS-CHAP-Challenge = 0x0101010101010101\n"));
    EXPECT_THAT(request, HasSubstr("MS-CHAP-Response = 0xb901" + std::string(48, '0') +
                                   "3d445f7365d559a2a4499abdd24bd417f0944984824c51b2\n"));
    EXPECT_THAT(request, HasSubstr("Service-Type = Authenticate-Only\n"));
    EXPECT_THAT(request, HasSubstr("Message-Authenticator = 0x"));
    EXPECT_THAT(request, Not(HasSubstr("User-Password")));
}

TEST_F(Mschap, Utf8PasswordsOfAnyLength_Accepted) {
    EXPECT_EQ(0, login(radMschap, "dave", "p\u00e4ssw\u00f6rd\u20ac").result);
    EXPECT_EQ(-1, login(radMschap, "dave", "passw\u00f6rd\u20ac").result);
    EXPECT_EQ(0, login(radMschap, "bob", kLongPassword).result);
}

TEST_F(Mschap, NoProgram_TheServerRefuses) {
    std::filesystem::remove_all(root().path() / "nexa2.0");
    expectRefused(login(radMschap, "alice", "wonderland"));
    EXPECT_THAT(lastRequest(), HasSubstr("MS-CHAP-Response = 0xb901" + std::string(96, '0')));
}

TEST_F(Mschap, Limits_ComeBackInMinutesRoundedUp) {
    const Login outcome = loginForLimits(radMschapAndGetAttributes, "alice", "wonderland");
    EXPECT_EQ(0, outcome.result);
    EXPECT_THAT(outcome.written.out, HasSubstr("Reply-Message: Welcome, alice\n"));
    EXPECT_EQ("", outcome.written.err);
    EXPECT_EQ(10U, outcome.idle);      // 600 s
    EXPECT_EQ(121U, outcome.session);  // 7201 s
}

TEST_F(Mschap, Login_LeavesNothingInTheFolderOfTheProgram) {
    login(radMschap, "alice", "wonderland");
    login(radMschap, "alice", "wrong");
    EXPECT_TRUE(std::filesystem::is_empty(root().path() / "tmp"));
}

// --- MS-CHAPv2 ------------------------------------------------------------------------------------

TEST_F(Mschap, Version2WithTheOwnSha1_Refused) {
    expectRefused(login(radMschapv2, "alice", "wonderland"));
    EXPECT_THAT(lastRequest(), HasSubstr("MS-CHAP2-Response = 0xb900"));
}

TEST_F(Mschap, Version2WithThePublishedSha1_Accepted) {
    radOptionSet(RAD_OPTION_STANDARD_SHA1, 1);
    expectAccepted(login(radMschapv2, "alice", "wonderland"));
    const std::string request = lastRequest();
    EXPECT_THAT(request, HasSubstr("User-Name = \"alice\"\n"));
    EXPECT_THAT(request, HasSubstr("MS-CHAP-Challenge = 0x01010101010101010101010101010101\n"));
    EXPECT_THAT(request, HasSubstr("MS-CHAP2-Response = 0xb900"));
    EXPECT_THAT(request, HasSubstr("Service-Type = Authenticate-Only\n"));
    EXPECT_THAT(request, Not(HasSubstr("User-Password")));
}

TEST_F(Mschap, Version2WithAWrongPassword_RefusedEitherWay) {
    expectRefused(login(radMschapv2, "alice", "wonderlanD"));
    radOptionSet(RAD_OPTION_STANDARD_SHA1, 1);
    expectRefused(login(radMschapv2, "alice", "wonderlanD"));
}

TEST_F(Mschap, Version2ManyTimes_AcceptedEachTime) {
    radOptionSet(RAD_OPTION_STANDARD_SHA1, 1);
    for (int logins = 0; logins < 20; ++logins) {
        expectAccepted(login(radMschapv2, "alice", "wonderland"));
    }
}

TEST_F(Mschap, LimitsOfVersion2_ComeBackInMinutesRoundedUp) {
    const Login refused = loginForLimits(radMschapv2AndGetAttributes, "alice", "wonderland");
    EXPECT_EQ(-1, refused.result);
    EXPECT_EQ(kUntouched, refused.idle);
    EXPECT_EQ(kUntouched, refused.session);

    radOptionSet(RAD_OPTION_STANDARD_SHA1, 1);
    const Login outcome = loginForLimits(radMschapv2AndGetAttributes, "alice", "wonderland");
    EXPECT_EQ(0, outcome.result);
    EXPECT_THAT(outcome.written.out, HasSubstr("Reply-Message: Welcome, alice\n"));
    EXPECT_EQ("", outcome.written.err);
    EXPECT_EQ(10U, outcome.idle);
    EXPECT_EQ(121U, outcome.session);
}

// --- The keys of an accept (RFC 3079 section 3) ---------------------------------------------------

// MD4 of the UTF-16 of "wonderland".
constexpr std::array<uint8_t, MD4_DIGEST_LENGTH> kPasswordHash = {
    0x3e, 0x05, 0x7c, 0xd1, 0x23, 0x20, 0x5a, 0xa1, 0x68, 0xaf, 0x5f, 0x12, 0x17, 0x16, 0xb3, 0x35};
constexpr std::string_view kMasterKeyMagic = "This is the MPPE Master Key";
constexpr std::string_view kSendKeyMagic =
    "On the client side, this is the receive key; on the server side, it is the send key.";
constexpr std::string_view kRecvKeyMagic =
    "On the client side, this is the send key; on the server side, it is the receive key.";

void append(Bytes &bytes, std::string_view text) {
    bytes.insert(bytes.end(), text.begin(), text.end());
}

// Returns the first 16 bytes of the published SHA-1.
Bytes sha1Key(const Bytes &bytes) {
    Bytes digest(SHA_DIGEST_LENGTH);
    SHA1(bytes.data(), bytes.size(), digest.data());
    digest.resize(kKeySize);
    return digest;
}

Bytes masterKey(const Bytes &ntResponse) {
    Bytes bytes(MD4_DIGEST_LENGTH);
    MD4(kPasswordHash.data(), kPasswordHash.size(), bytes.data());
    bytes.insert(bytes.end(), ntResponse.begin(), ntResponse.end());
    append(bytes, kMasterKeyMagic);
    return sha1Key(bytes);
}

Bytes startKey(Bytes bytes, std::string_view magic) {
    bytes.insert(bytes.end(), 40, 0x00);
    append(bytes, magic);
    bytes.insert(bytes.end(), 40, 0xf2);
    return sha1Key(bytes);
}

// Returns the key of a reply: length byte and padding are taken off.
Bytes keyOf(RadPair *reply, int type) {
    Bytes key;
    int keys = 0;
    for (RadPair *pair = radPairGet(reply, RAD_ATTR_VENDOR_SPECIFIC); pair != nullptr;
         pair = radPairGet(radPairNext(pair), RAD_ATTR_VENDOR_SPECIFIC)) {
        uint8_t *data = nullptr;
        if (radVendorAttrGet(pair, RAD_VENDOR_MICROSOFT, type, &data) == 0) {
            // The value is one of 6 bytes and the data; the key's length stands in front of it.
            EXPECT_LE(6U + 1 + data[0], pair->numValue);
            key.assign(data + 1, data + 1 + data[0]);
            palMemPartFree(radMemPartId, data);
            ++keys;
        }
    }
    EXPECT_EQ(1, keys) << "of type " << type;
    return key;
}

void addVendor(RadPair **request, int type, const Bytes &data) {
    std::array<uint8_t, RAD_VALUE_MAX> value{};
    const int length = radVendorMessagePack(value.data(), RAD_VENDOR_MICROSOFT, type, data.data(),
                                            static_cast<int>(data.size()));
    ASSERT_GT(length, 0);
    ASSERT_NE(nullptr, radPairAdd(request, RAD_ATTR_VENDOR_SPECIFIC, value.data(), length));
}

TEST_F(Mschap, KeysOfAnAccept_AreThoseThatThePasswordMakes) {
    radOptionSet(RAD_OPTION_STANDARD_SHA1, 1);
    const Bytes authenticatorChallenge(16, 1);
    Bytes peerChallenge(16);
    Bytes ntResponse(24);
    ASSERT_EQ(0, generateMschapv2Response(ntResponse.data(), peerChallenge.data(), "alice",
                                          "wonderland", authenticatorChallenge.data()));
    Bytes response = {0, 0};
    response.insert(response.end(), peerChallenge.begin(), peerChallenge.end());
    response.insert(response.end(), 8, 0);
    response.insert(response.end(), ntResponse.begin(), ntResponse.end());

    RadPair *request = nullptr;
    ASSERT_NE(nullptr, radPairAdd(&request, RAD_ATTR_USER_NAME, "alice", 0));
    addVendor(&request, RAD_MS_CHAP_CHALLENGE, authenticatorChallenge);
    addVendor(&request, RAD_MS_CHAP2_RESPONSE, response);
    RadPair *reply = nullptr;
    EXPECT_EQ(RAD_CODE_ACCESS_ACCEPT, radBuildAndSendReq(RAD_CODE_ACCESS_REQUEST, request, &reply));

    const Bytes master = masterKey(ntResponse);
    EXPECT_EQ(startKey(master, kSendKeyMagic), keyOf(reply, RAD_MS_MPPE_SEND_KEY));
    EXPECT_EQ(startKey(master, kRecvKeyMagic), keyOf(reply, RAD_MS_MPPE_RECV_KEY));
    radPairListFree(reply);
    radPairListFree(request);
}

}  // namespace
}  // namespace lanyard::test::mschap_test
