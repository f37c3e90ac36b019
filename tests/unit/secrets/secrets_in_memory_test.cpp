// What a process has in its memory after a method, and after the end of the library.
#include <openssl/md4.h>

#include "tests/support/test.h"
#include "tests/unit/secrets/secret_process.h"

namespace lanyard::test::secrets_in_memory_test {
namespace {

using testing::AllOf;
using testing::Each;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

constexpr std::string_view kPassword = "arctangent-of-an-unlikely-angle";
constexpr std::string_view kKey = "Session_Key_From_The_Last_Reply";

Bytes utf16(std::string_view text) {
    Bytes bytes;
    for (const char character : text) {
        bytes.push_back(static_cast<uint8_t>(character));
        bytes.push_back(0);
    }
    return bytes;
}

Bytes ntHash() {
    const Bytes text = utf16(kPassword);
    Bytes hash(MD4_DIGEST_LENGTH);
    MD4(text.data(), text.size(), hash.data());
    return hash;
}

Secrets secretsOfTheUser() {
    return {{"the password", fromText(kPassword)},
            {"its UTF-16", utf16(kPassword)},
            {"its hash", ntHash()},
            {"the key", fromText(kKey)},
            {"the key in digits", fromText(toHex(fromText(kKey)))}};
}

// The responses of a request, without the identifier and the flags in front of them.
void addResponses(const ReceivedRequest &request, Secrets &secrets) {
    for (const Attribute &attribute : request.attributes()) {
        if (attribute.type == 3) {
            secrets["the CHAP response"] = {attribute.value.begin() + 1, attribute.value.end()};
        } else if (attribute.type == 26 && attribute.value.at(4) != 11) {
            secrets["the NT-Response"] = {attribute.value.end() - 24, attribute.value.end()};
        }
    }
}

class SecretsInMemory : public testing::TestWithParam<const char *> {
  protected:
    SecretsInMemory() {
        configureServer(root_, server_.port());
        root_.makeFolder("/tmp");
        root_.makeFolder("/nexa2.0/bin");
        std::filesystem::create_symlink(LANYARD_NTRESPONSE,
                                        root_.path("/nexa2.0/bin/orvane_getNTResponse"));
        server_.otherwise(accept([](const ReceivedRequest &request) {
            return Attributes()
                .addText(18, "hello")
                .addVendor(311, 17,
                           encryptMppeKey(fromText(kKey), kSecret, request.authenticator()))
                .addVendor(311, 16,
                           encryptMppeKey(fromText(kKey), kSecret, request.authenticator()))
                .addMessageAuthenticator();
        }));
    }

    const TemporaryRoot root_;
    ScriptedServer server_{std::string(kSecret)};
};

TEST_P(SecretsInMemory, AreGone) {
    SecretUser user(GetParam(), root_);
    ASSERT_TRUE(user.step(kPassword));
    ASSERT_TRUE(server_.waitForRequests(1));
    Secrets secrets = secretsOfTheUser();
    addResponses(server_.request(0), secrets);
    secrets.merge(sharedSecret());
    // It is in the configuration, and only there.
    EXPECT_THAT(user.find(secrets), AllOf(Not(IsEmpty()), Each(StartsWith("the shared secret"))));

    ASSERT_TRUE(user.step(""));
    secrets.merge(digestedPads());
    EXPECT_THAT(user.find(secrets), IsEmpty());

    int status = -1;
    const std::string output = user.finish(status);
    EXPECT_EQ(0, status);
    EXPECT_THAT(output, Not(testing::HasSubstr(kPassword)));
    EXPECT_THAT(output, Not(testing::HasSubstr(kSecret)));
}

using SecretsOfAServer = SecretsInMemory;

TEST_P(SecretsOfAServer, AreGoneWithIt) {
    SecretUser user(GetParam(), root_);
    ASSERT_TRUE(user.step(kPassword));
    ASSERT_TRUE(server_.waitForRequests(1));
    Secrets secrets = sharedSecret();
    secrets.merge(digestedPads());
    EXPECT_THAT(user.find(secrets), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Deleted, SecretsOfAServer,
                         testing::Values("radAuth, then its server deleted",
                                         "radAuth, then all servers deleted"));

INSTANTIATE_TEST_SUITE_P(
    Methods, SecretsInMemory,
    testing::Values("radAuth", "radAuthCheckAllServer", "radAuthAndGetAttributes", "radChapAuth",
                    "radChapAuthAndGetAttributes", "radMschap", "radMschap, built in",
                    "radMschapAndGetAttributes", "radMschapv2", "radMschapv2AndGetAttributes",
                    "radAuthStart", "radAuthStart, cancelled", "radMschapStart", "radMschapv2Start",
                    "resilient radAuth", "radAuthSampleMain"));

}  // namespace
}  // namespace lanyard::test::secrets_in_memory_test
