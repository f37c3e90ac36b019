// One request to one server: packing it, sending it, and what keeps it from being sent.
#include <algorithm>
#include <cerrno>
#include <initializer_list>
#include <string>
#include <vector>

#include <lanyard/radius/engine.h>

#include "tests/support/test.h"
#include "tests/unit/client/send_fixture.h"
#include "tests/unit/client/system_calls.h"

namespace lanyard::test::send_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

TEST_F(SendTest, ExchangesTheExampleOfTheRfc) {
    const RandomBytes authenticator(fromHex(example::kAuthenticator));
    const ScriptedServer server(example::kSecret, {sendRaw(fromHex(example::kReply))});
    RadRequestDesc desc = to(server, kPlenty);
    desc.identifier = 0;
    desc.secret = example::kSecret;
    EXPECT_EQ(2, send(desc, PairRecords(example::requestPairs())));
    EXPECT_BYTES_EQ(fromHex(example::kRequest), server.request(0));
    EXPECT_THAT(attrNums(reply_.get()), ElementsAre(6, 15, 14));
}

TEST_F(SendTest, LogsEachStepInOrder) {
    const ScriptedServer server(kSecret, {accept(Attributes().addText(18, "Hello"))});
    const PairRecords pairs({textPair(1, "nemo", "User-Name"), numberPair(5, 3, 1, "NAS-Port")});
    const LogRecorder log;
    EXPECT_EQ(2, send(to(server, kPlenty), pairs));
    EXPECT_LOG(log, "trace radSendtoServer> Server found: 127.0.0.1, secret: secret",
               "trace radPackList> Packing attribute: User-Name",
               "trace radPackList> Packing attribute: NAS-Port",
               "trace radSendtoServer> Packed Auth. Reqest: code:1, id:7, len:32",
               "trace radSendtoServer> Sending Packet to 7f000001:" +
                   std::to_string(server.port()) + " ....",
               "trace radRecvfromServer> Receiving Reply Packet....",
               "trace radCheckReply> Verified Reply Packet Integrity",
               "trace radPairGen> Receiving attribute: Reply-Message",
               "trace radCheckReply> Generated Reply Attribute-Value pairs");
    EXPECT_THAT(log.dumps(),
                ElementsAre(Dumped(7, 256, "RADIUS Tx Buffer", server.request(0).bytes),
                            testing::Field(&LogDump::title, "RADIUS Rx Buffer")));
}

TEST_F(SendTest, WritesHeaderAndAttributes) {
    const ScriptedServer server(kSecret, {accept()});
    RadRequestDesc desc = to(server, kPlenty);
    desc.identifier = 255;
    EXPECT_EQ(2, send(desc));
    const ReceivedRequest request = server.request(0);
    EXPECT_EQ(1, request.code());
    EXPECT_EQ(255, request.identifier());
    EXPECT_BYTES_EQ("001a"_hex, ByteView(request).subspan(2, 2));
    EXPECT_BYTES_EQ("01066e656d6f"_hex, ByteView(request).subspan(20));
}

TEST_F(SendTest, DrawsAFreshAuthenticatorForEachRequest) {
    const ScriptedServer server(kSecret, {accept(), accept()});
    EXPECT_EQ(2, send(to(server, kPlenty)));
    EXPECT_EQ(2, send(to(server, kPlenty)));
    EXPECT_NE(server.request(0).authenticator(), server.request(1).authenticator());
}

TEST_F(SendTest, FailsWithoutRandomBytes) {
    const RandomBytes none({});
    const SilentPort server;
    const LogRecorder log;
    expectFailure(to(server, kPlenty));
    EXPECT_PROBLEMS(log);
    EXPECT_THAT(server.received(), IsEmpty());
}

TEST_F(SendTest, SignsAnAccountingRequest) {
    const ScriptedServer server(kSecret, {accountingResponse()});
    EXPECT_EQ(5, send(to(server, kPlenty, 0, 4)));
    EXPECT_EQ(4, server.request(0).code());
    EXPECT_TRUE(accountingAuthenticatorIsValid(server.request(0), kSecret));
    EXPECT_FALSE(accountingAuthenticatorIsValid(server.request(0), "other"));
}

TEST_F(SendTest, SignsNoOtherRequestThatWay) {
    for (const uint8_t code : std::initializer_list<uint8_t>{1, 2, 5, 12}) {
        const RandomBytes authenticator(fromHex(example::kAuthenticator));
        const ScriptedServer server(kSecret, {accept()});
        EXPECT_EQ(2, send(to(server, kPlenty, 0, code)));
        EXPECT_EQ(code, server.request(0).code());
        EXPECT_BYTES_EQ(fromHex(example::kAuthenticator), server.request(0).authenticator());
    }
}

TEST_F(SendTest, NeedsOneBufferForTheRequestAndOneForTheReply) {
    const ScriptedServer server(kSecret, {accept()});
    const size_t allocationsBefore = allocationCount();
    EXPECT_EQ(2, send(to(server, kPlenty)));
    EXPECT_EQ(allocationsBefore + 2, allocationCount());
}

TEST_F(SendTest, LeavesNothingBehindWhenMemoryIsExhausted) {
    ScriptedServer server(kSecret);
    server.otherwise(accept(Attributes().addText(18, "Hello")));
    const PairRecords pairs({textPair(1, "nemo"), textPair(2, "arctangent")});
    const unsigned failures = forEachFailingAllocation([&] {
        const int result = send(to(server, kPlenty), pairs);
        EXPECT_EQ(allocationFailed() ? -1 : 2, result);
        EXPECT_EQ(allocationFailed(), reply_ == nullptr);
        reply_.reset();
    });
    EXPECT_EQ(5U, failures) << "request, password, its cipher, reply, pair";
}

TEST_F(SendTest, RefusesMissingArguments) {
    const SilentPort server;
    RadRequestDesc desc = to(server, kPlenty);
    RadPair stale{};
    RadPair *list = &stale;
    const LogRecorder log;
    EXPECT_EQ(-1, radSendtoServer(nullptr, pairs_.list(), &list));
    EXPECT_EQ(-1, radSendtoServer(&desc, nullptr, &list));
    EXPECT_EQ(&stale, list);
    EXPECT_EQ(-1, radSendtoServer(&desc, pairs_.list(), nullptr));
    desc.host = nullptr;
    EXPECT_EQ(-1, send(desc));
    EXPECT_EQ(nullptr, reply_);
    desc.host = "";
    EXPECT_EQ(-1, send(desc));
    EXPECT_EQ(nullptr, reply_);
    EXPECT_LOG(log);
}

TEST_F(SendTest, CannotPackWithoutASecret) {
    const SilentPort server;
    RadRequestDesc desc = to(server, kPlenty);
    desc.secret = nullptr;
    expectFailure(desc);
    EXPECT_THAT(server.received(), IsEmpty());
}

TEST_F(SendTest, AddsNoMessageOfItsOwnForAnUnknownHost) {
    RadRequestDesc desc = to(SilentPort(), kPlenty);
    desc.host = "nowhere";
    const LogRecorder log;
    expectFailure(desc);
    EXPECT_LOG(log, "error radGetIPByName: couldn't resolve hostname: nowhere");
}

TEST_F(SendTest, FindsTheServerByName) {
    const ScriptedServer server(kSecret, {accept()}, "127.0.0.9");
    const ResolverEntry entry("radius-server", "127.0.0.9");
    RadRequestDesc desc = to(server, kPlenty);
    desc.host = "radius-server";
    const LogRecorder log;
    EXPECT_EQ(2, send(desc));
    EXPECT_LOGGED(log, 128, "radSendtoServer", "Server found: radius-server, secret: secret\n");
    EXPECT_LOGGED(log, 128, "radSendtoServer",
                  "Sending Packet to 7f000009:" + std::to_string(server.port()) + " ....\n");
}

TEST_F(SendTest, FailsWithoutASocket) {
    const SilentPort server;
    const FailingCall failure("socket", EMFILE);
    const LogRecorder log;
    expectFailure(to(server, kPlenty));
    EXPECT_TRUE(failure.happened());
    EXPECT_PROBLEMS(log, "error radSendtoServer: socket: Too many open files");
}

TEST_F(SendTest, FailsWhenTheSocketCannotBeBound) {
    const SilentPort server;
    for (const char *call : {"bind", "getsockname"}) {
        const FailingCall failure(call, EADDRINUSE);
        const LogRecorder log;
        expectFailure(to(server, kPlenty));
        EXPECT_TRUE(failure.happened());
        EXPECT_PROBLEMS(log,
                        "error radSendtoServer: bind() Failed: 127.0.0.1: Address already in use");
    }
    EXPECT_THAT(server.received(), IsEmpty());
}

TEST_F(SendTest, FailsWithoutAMessageWhenTheSystemDoesNotSend) {
    const SilentPort server;
    for (const int n : {1, 2}) {  // the request, and its second copy
        const FailingCall failure("sendto", EPERM, n);
        const LogRecorder log;
        expectFailure(to(server, 0, 3));
        EXPECT_TRUE(failure.happened());
        EXPECT_PROBLEMS(log);
        EXPECT_THAT(server.received(), SizeIs(static_cast<size_t>(n - 1)));
    }
}

// A request of that many bytes.
std::vector<RadPair> pairsOfSize(size_t size) {
    std::vector<RadPair> pairs;
    for (size_t left = size - kHeaderSize; left > 0;) {
        const size_t length = std::min<size_t>(left, 255);
        pairs.push_back(textPair(1, std::string(length - 2, 'x')));
        left -= length;
    }
    return pairs;
}

TEST_F(SendTest, SendsARequestOf4096Bytes) {
    const ScriptedServer server(kSecret, {accept()});
    EXPECT_EQ(2, send(to(server, kPlenty), PairRecords(pairsOfSize(4096))));
    EXPECT_EQ(4096U, server.request(0).bytes.size());
    EXPECT_BYTES_EQ("1000"_hex, ByteView(server.request(0)).subspan(2, 2));
}

TEST_F(SendTest, RefusesARequestOfMoreThan4096Bytes) {
    const SilentPort server;
    for (const size_t size : {4097U, 5000U, 70000U}) {
        const LogRecorder log;
        expectFailure(to(server, kPlenty), PairRecords(pairsOfSize(size)));
        EXPECT_LOG(log, "trace radSendtoServer> Server found: 127.0.0.1, secret: secret",
                   "error radSendtoServer: Send Packet too Large: " + std::to_string(size) +
                       ", limit: 4096");
    }
    EXPECT_THAT(server.received(), IsEmpty());
}

TEST_F(SendTest, HandsTheHooksErrorOn) {
    ScriptedServer server(kSecret);
    server.otherwise(accept(Attributes().addText(18, "Hello")));
    int measuring = 1;
    int packing = 1;
    int unpacking = 1;
    const Hooks hooks(
        [&](const uint8_t *value, const uint8_t * /*length*/, const RadPair * /*pair*/,
            const char * /*secret*/,
            RadPacket * /*request*/) { return value == nullptr ? measuring : packing; },
        [&](RadPair * /*pair*/, RadPair * /*list*/, RadPacket * /*reply*/, RadPacket * /*request*/,
            const char * /*secret*/) { return unpacking; });
    const size_t blocksBefore = liveBlocks();

    measuring = 21;
    EXPECT_EQ(21, send(to(server, kPlenty)));
    measuring = 1;
    packing = 22;
    EXPECT_EQ(22, send(to(server, kPlenty)));
    EXPECT_EQ(0U, server.requestCount());
    packing = 1;
    unpacking = 23;
    EXPECT_EQ(23, send(to(server, kPlenty)));
    EXPECT_EQ(1U, server.requestCount());
    EXPECT_EQ(nullptr, reply_);
    EXPECT_EQ(blocksBefore, liveBlocks());
    unpacking = 1;
    EXPECT_EQ(2, send(to(server, kPlenty)));
}

// The length field is the hook's to read; what was measured and allocated is what is sent.
TEST_F(SendTest, HookThatWritesTheLengthField_SendsWhatWasMeasured) {
    for (const uint8_t code : std::initializer_list<uint8_t>{1, 4}) {
        for (const unsigned length : {0U, 19U, 0xFFFFU}) {
            const SilentPort server;
            const Hooks hooks([length](const uint8_t *value, const uint8_t * /*length*/,
                                       const RadPair * /*pair*/, const char * /*secret*/,
                                       RadPacket *request) {
                if (value != nullptr) {
                    request->length[0] = static_cast<uint8_t>(length >> 8);
                    request->length[1] = static_cast<uint8_t>(length);
                }
                return 1;
            });
            expectFailure(to(server, 0, 0, code));
            EXPECT_THAT(server.received(), ElementsAre(SizeIs(26)));
        }
    }
}

}  // namespace
}  // namespace lanyard::test::send_test
