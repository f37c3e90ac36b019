// What the relay and the bus have in their memory after a conversation, and after their end.
#include <algorithm>

#include <lanyard/radius/eap.h>
#include <xbus.h>

#include "tests/support/test.h"
#include "tests/unit/secrets/secret_process.h"

namespace lanyard::test::relay_secrets_test {
namespace {

using testing::AllOf;
using testing::Each;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

constexpr uint32_t kCookie = 7;
constexpr uint32_t kReplyCommand = 17;
constexpr uint32_t kMicroseconds = 20000000;
// Nothing that a dictionary or a message holds as well.
const Bytes kRecvKey = "9d1f6b8ee402c75ab3907d21f46ac8150e5b93d7682c4fa1b01ed8337aa9c64f"_hex;
const Bytes kSendKey = "47c2e90b15fd86a33e7190cd5ab8246f92d30fe1784cb66bd51a83a9f70c2ee8"_hex;
const Bytes kState = "c80ab57d13e6994f62d1f02b8ea73c55"_hex;
const Bytes kResponse = "e1730c9ad84bf62591be07d36c58a24f"_hex;  // of EAP-MD5, without its size

// A module of the bus, which keeps what it gets and answers with a key.
class Module {
  public:
    explicit Module(uint32_t number) {
        EXPECT_EQ(0, xbusInit());
        bus_ = xbusRegister(number, XBUS_MODE_HANDLER, handle, this);
        EXPECT_NE(nullptr, bus_);
    }
    Module(const Module &) = delete;
    Module &operator=(const Module &) = delete;
    ~Module() { xbusUnRegister(bus_); }

    // The next record; empty for none.
    Bytes receive() {
        received_.clear();
        EXPECT_EQ(1, xbusListen(bus_, kMicroseconds));
        return received_;
    }
    int send(uint32_t module, const Bytes &bytes) const {
        uint32_t outSize = 0;
        return xbusIoctl(bus_, module, kReplyCommand, bytes.data(),
                         static_cast<uint32_t>(bytes.size()), nullptr, &outSize, XBUS_NO_WAIT, 0,
                         0);
    }
    // Sends it, and returns the answer, of that size at most.
    Bytes call(uint32_t module, const Bytes &bytes, uint32_t size) const {
        Bytes answer(size);
        EXPECT_EQ(0, xbusIoctl(bus_, module, 0, bytes.data(), static_cast<uint32_t>(bytes.size()),
                               answer.data(), &size, XBUS_WAIT, 0, 0));
        answer.resize(size);
        return answer;
    }

  private:
    static int handle(void * /*busArg1*/, void *module, uint32_t /*cmd*/, void *buf, uint32_t len,
                      void *out, uint32_t *outLen) {
        const auto *bytes = static_cast<const uint8_t *>(buf);
        static_cast<Module *>(module)->received_.assign(bytes, bytes + len);
        if (*outLen >= kRecvKey.size()) {
            std::copy(kRecvKey.begin(), kRecvKey.end(), static_cast<uint8_t *>(out));
            *outLen = static_cast<uint32_t>(kRecvKey.size());
        }
        return 0;
    }

    XbusCtx *bus_ = nullptr;
    Bytes received_;
};

Bytes eapResponse(uint8_t identifier, uint8_t type, const Bytes &data) {
    const auto size = static_cast<uint8_t>(5 + data.size());
    return concatenate({Bytes{2, identifier, 0, size, type}, data});
}

Bytes record(const Bytes &packet) {
    const RadEapXbusMsg head{.cookie = kCookie,
                             .command = kReplyCommand,
                             .length = static_cast<uint32_t>(packet.size())};
    const auto *bytes = reinterpret_cast<const uint8_t *>(&head);
    return concatenate({Bytes(bytes, bytes + sizeof(head)), packet});
}

uint8_t codeOf(const Bytes &record) {
    return record.size() > sizeof(RadEapXbusMsg) ? record[sizeof(RadEapXbusMsg)] : uint8_t{0};
}

// What a conversation has brought.
Secrets secretsOfAConversation() {
    return {{"the response", kResponse},   {"the State", kState},
            {"the receive key", kRecvKey}, {"its digits", fromText(toHex(kRecvKey))},
            {"the send key", kSendKey},    {"its digits too", fromText(toHex(kSendKey))}};
}

// What it has when it waits for the next record; the last one is out before it has done with a conversation.
std::vector<std::string> atRest(const SecretUser &relay, const Secrets &secrets) {
    constexpr int kLooks = 3;
    std::vector<std::string> places = relay.find(secrets);
    for (int looks = 1; looks < kLooks && !places.empty(); ++looks) {
        places = relay.find(secrets);
    }
    return places;
}

class RelaySecrets : public testing::TestWithParam<const char *> {
  protected:
    RelaySecrets()
        : server_(std::string(kSecret),
                  {challenge(Attributes()
                                 .add(24, kState)
                                 .add(79, "01020006 0410"_hex)
                                 .addMessageAuthenticator()),
                   accept([](const ReceivedRequest &request) {
                       return Attributes()
                           .addVendor(311, 17,
                                      encryptMppeKey(kRecvKey, kSecret, request.authenticator()))
                           .addVendor(311, 16,
                                      encryptMppeKey(kSendKey, kSecret, request.authenticator()))
                           .add(79, "03020004"_hex)
                           .addMessageAuthenticator();
                   })}) {
        configureServer(root_, server_.port());
    }

    const TemporaryRoot root_;
    ScriptedServer server_;
};

TEST_P(RelaySecrets, AreGone) {
    Module pnac(RAD_EAP_PNAC_MODULE);
    SecretUser relay(GetParam(), root_);
    ASSERT_TRUE(relay.step("")) << "it is on the bus";
    ASSERT_EQ(0, pnac.send(RAD_EAP_MODULE, record(eapResponse(1, 1, fromText("alice")))));
    ASSERT_EQ(1, codeOf(pnac.receive())) << "a request";
    EXPECT_THAT(relay.find({{"the State", kState}}), Not(IsEmpty())) << "it needs that";
    ASSERT_EQ(0, pnac.send(RAD_EAP_MODULE, record(eapResponse(2, 4, kResponse))));
    const Bytes verdict = pnac.receive();
    ASSERT_EQ(3, codeOf(verdict)) << "a Success";
    for (const Bytes &key : {kRecvKey, kSendKey}) {
        EXPECT_NE(verdict.end(),
                  std::search(verdict.begin(), verdict.end(), key.begin(), key.end()));
    }
    Secrets secrets = secretsOfAConversation();
    EXPECT_THAT(atRest(relay, secrets), IsEmpty());

    ASSERT_TRUE(relay.step("")) << "it has ended";
    secrets.merge(sharedSecret());
    // It is in the configuration, and only there.
    EXPECT_THAT(relay.find(secrets), AllOf(Not(IsEmpty()), Each(StartsWith("the shared secret"))));
    ASSERT_TRUE(relay.step(""));
    secrets.merge(digestedPads());
    EXPECT_THAT(relay.find(secrets), IsEmpty());
    int status = -1;
    relay.finish(status);
    EXPECT_EQ(0, status);
}

INSTANTIATE_TEST_SUITE_P(Loops, RelaySecrets,
                         testing::Values("relay", "relay, one after the other"));

TEST(BusSecrets, AreGone) {
    constexpr uint32_t kOwn = 101;
    constexpr uint32_t kOther = 100;
    constexpr uint32_t kSize = 128;
    const std::string password = toHex(kResponse);
    const TemporaryRoot root;
    const SilentPort nobody;
    configureServer(root, nobody.port());
    Module own(kOwn);
    SecretUser other("bus", root);
    ASSERT_TRUE(other.step(password)) << "it is on the bus";
    const Bytes answer = own.call(kOther, kSendKey, kSize);
    EXPECT_STREQ(password.c_str(), reinterpret_cast<const char *>(answer.data()));
    const Bytes received = own.receive();
    EXPECT_STREQ(password.c_str(), reinterpret_cast<const char *>(received.data()));
    ASSERT_TRUE(other.awaitStep());
    EXPECT_THAT(other.find({{"what it sent", fromText(password)},
                            {"what it was sent", kSendKey},
                            {"what it was answered", kRecvKey}}),
                IsEmpty());
}

}  // namespace
}  // namespace lanyard::test::relay_secrets_test
