// What a process has in its memory after a method, and after the end of the library.
#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>
#include <openssl/md4.h>
#include <openssl/md5.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/test.h"
#include "tests/unit/secrets/process_memory.h"
#include "tools/file_descriptor.h"
#include "tools/spawn.h"

namespace lanyard::test::secrets_in_memory_test {
namespace {

using testing::AllOf;
using testing::Each;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

constexpr std::string_view kSecret = "5hared.by.all.servers.with.this.device";
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

Bytes maskedWith(uint8_t mask, std::string_view text) {
    Bytes bytes = fromText(text);
    std::for_each(bytes.begin(), bytes.end(), [mask](uint8_t &byte) { byte ^= mask; });
    return bytes;
}

// What MD5 makes of a pad of HMAC: as good as the secret for a signature.
Bytes digestedPad(uint8_t mask) {
    Bytes block = maskedWith(mask, kSecret);
    block.resize(MD5_CBLOCK, mask);
    MD5_CTX context;
    MD5_Init(&context);
    MD5_Update(&context, block.data(), block.size());
    Bytes state;
    for (const MD5_LONG word : {context.A, context.B, context.C, context.D}) {
        const auto *bytes = reinterpret_cast<const uint8_t *>(&word);
        state.insert(state.end(), bytes, bytes + sizeof(word));
    }
    return state;
}

// With the pads of HMAC.
Secrets sharedSecret() {
    return {{"the shared secret", fromText(kSecret)},
            {"its inner pad", maskedWith(0x36, kSecret)},
            {"its outer pad", maskedWith(0x5c, kSecret)}};
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

// The program secret-user. It ends with the object.
class SecretUser {
  public:
    SecretUser(const std::string &method, const TemporaryRoot &root) {
        std::vector<std::string> command{LANYARD_SECRET_USER, method, "/var/radius.conf"};
        std::vector<std::string> environment = ownEnvironment();
        environment.push_back("PAL_ROOT=" + root.folder().string());
        // Libraries of the system that bind at the first call save vector registers on the stack.
        environment.emplace_back("LD_BIND_NOW=1");
        port::SpawnPlan plan;
        plan.duplicate(input_.readEnd.get(), STDIN_FILENO);
        plan.duplicate(output_.writeEnd.get(), STDOUT_FILENO);
        plan.duplicate(output_.writeEnd.get(), STDERR_FILENO);
        plan.duplicate(reports_.writeEnd.get(), kReports);
        EXPECT_EQ(0, plan.spawn(process_, command[0].c_str(), pointersTo(command).data(),
                                pointersTo(environment).data()));
        reports_.writeEnd.reset();
        output_.writeEnd.reset();
    }
    SecretUser(const SecretUser &) = delete;
    SecretUser &operator=(const SecretUser &) = delete;
    ~SecretUser() {
        if (process_ != -1) {
            kill(process_, SIGKILL);
            waitpid(process_, nullptr, 0);
        }
    }

    // Writes a line to the program, and waits for its next step.
    [[nodiscard]] bool step(std::string_view line) {
        const std::string text = std::string(line) + '\n';
        char byte = 0;
        pollfd report{.fd = reports_.readEnd.get(), .events = POLLIN, .revents = 0};
        return write(input_.writeEnd.get(), text.data(), text.size()) ==
                   static_cast<ssize_t>(text.size()) &&
               poll(&report, 1, 20000) == 1 && read(reports_.readEnd.get(), &byte, 1) == 1;
    }

    [[nodiscard]] std::vector<std::string> find(const Secrets &secrets) const {
        return findSecrets(process_, secrets);
    }

    // Lets it end. All that it has written; its exit status.
    std::string finish(int &status) {
        input_.writeEnd.reset();
        std::string text;
        std::array<char, 4096> part{};
        for (ssize_t size = 1; size > 0;) {
            size = read(output_.readEnd.get(), part.data(), part.size());
            text.append(part.data(), static_cast<size_t>(std::max<ssize_t>(size, 0)));
        }
        EXPECT_EQ(process_, waitpid(process_, &status, 0));
        process_ = -1;
        return text;
    }

  private:
    static constexpr int kReports = 3;

    Pipe input_;
    Pipe output_;
    Pipe reports_;
    pid_t process_ = -1;
};

class SecretsInMemory : public testing::TestWithParam<const char *> {
  protected:
    SecretsInMemory() {
        const std::string entry = "127.0.0.1:" + std::to_string(server_.port()) + ":20:0:";
        root_.write("/var/hosts", "");
        root_.write("/var/radius.conf", "authserver " + entry + std::string(kSecret) + ":device\n",
                    0600);
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
    secrets["its inner pad, digested"] = digestedPad(0x36);
    secrets["its outer pad, digested"] = digestedPad(0x5c);
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
    secrets["its inner pad, digested"] = digestedPad(0x36);
    secrets["its outer pad, digested"] = digestedPad(0x5c);
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
