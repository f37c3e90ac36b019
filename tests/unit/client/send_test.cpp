// One request to one server: sending, waiting, sending again.
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <initializer_list>
#include <pthread.h>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <vector>

#include <lanyard/radius/engine.h>

#include "tests/support/test.h"
#include "tests/unit/client/fixture.h"
#include "tests/unit/client/system_calls.h"
#include "tools/file_descriptor.h"

namespace lanyard::test::send_test {
namespace {

using lanyard::FileDescriptor;
using namespace std::chrono_literals;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char *kSecret = "secret";
constexpr int kPlenty = 20;  // seconds that no test ever waits for

class SendTest : public EngineTest {
  protected:
    // A description of a request to a server: ScriptedServer or SilentPort.
    template <typename Server>
    static RadRequestDesc to(const Server &server, int timeout, int retries = 0, uint8_t code = 1) {
        return {.code = code,
                .identifier = 7,
                .host = server.host().c_str(),
                .port = server.port(),
                .timeout = timeout,
                .retries = retries,
                .secret = kSecret};
    }

    int send(const RadRequestDesc &desc, const PairRecords &pairs) {
        RadPair stale{};
        RadPair *list = &stale;
        const int result = radSendtoServer(&desc, pairs.list(), &list);
        EXPECT_NE(&stale, list) << "the list was left as it was";
        reply_.reset(list);
        return result;
    }
    int send(const RadRequestDesc &desc) { return send(desc, pairs_); }

    // Expects a failure that leaves nothing behind; the base class counts the sockets.
    void expectFailure(const RadRequestDesc &desc, const PairRecords &pairs) {
        const size_t blocksBefore = liveBlocks();
        EXPECT_EQ(-1, send(desc, pairs));
        EXPECT_EQ(nullptr, reply_);
        EXPECT_EQ(blocksBefore, liveBlocks());
    }
    void expectFailure(const RadRequestDesc &desc) { expectFailure(desc, pairs_); }

    ConfiguredLibrary library_;
    const PairRecords pairs_{{textPair(1, "nemo", "User-Name")}};
    PairList reply_;
};

std::string noReply(const SilentPort &server) {
    return "error radSendtoServer: No reply from RADIUS server 127.0.0.1:" +
           std::to_string(server.port());
}

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

TEST_F(SendTest, SendsOnceAndOnceMoreForEachRetry) {
    struct Case {
        int retries;
        size_t sends;
    };
    for (const Case entry : {Case{0, 1}, Case{-1, 1}, Case{-5, 1}, Case{1, 2}, Case{5, 6}}) {
        const SilentPort server;
        const LogRecorder log;
        expectFailure(to(server, 0, entry.retries));
        EXPECT_PROBLEMS(log, noReply(server));
        const std::vector<Bytes> sent = server.received();
        EXPECT_THAT(sent, SizeIs(entry.sends)) << entry.retries;
        EXPECT_THAT(sent, Each(sent.front())) << "the identical packet";
        EXPECT_THAT(log.dumps(), SizeIs(entry.sends));
        EXPECT_THAT(log.dumps(), Each(Dumped(7, 256, "RADIUS Tx Buffer", sent.front())));
        const std::vector<std::string> texts = log.texts(128);
        EXPECT_EQ(
            static_cast<std::ptrdiff_t>(entry.sends),
            std::count(texts.begin(), texts.end(),
                       "Sending Packet to 7f000001:" + std::to_string(server.port()) + " ....\n"));
    }
}

TEST_F(SendTest, WaitsAsLongAsTheTimeoutBeforeItSendsAgain) {
    const ScriptedServer server(kSecret, {silence(), accept()});
    EXPECT_EQ(2, send(to(server, 1, 2)));
    ASSERT_EQ(2U, server.requestCount());
    const auto gap = server.request(1).arrival - server.request(0).arrival;
    EXPECT_GE(gap, 950ms);
    EXPECT_LT(gap, 1900ms);
    EXPECT_BYTES_EQ(server.request(0).bytes, server.request(1).bytes);
    EXPECT_EQ(server.request(0).sourcePort, server.request(1).sourcePort);
}

TEST_F(SendTest, CannotWaitANegativeTime) {
    for (const int timeout : {-1, -2, INT32_MIN}) {
        const SilentPort server;
        const LogRecorder log;
        expectFailure(to(server, timeout, 3));
        EXPECT_PROBLEMS(log, "error radSendtoServer: select() Failed: Invalid argument");
        EXPECT_THAT(server.received(), SizeIs(1));
    }
}

TEST_F(SendTest, EndsWithTheFirstDatagramThatArrives) {
    struct Case {
        Action action;
        const char *function;
        const char *text;
    };
    const std::vector<Case> cases = {
        {accept().withWrongIdentifier(), "radCheckReply",
         "radCheckReply: Expected id: 7, received id: 8\n"},
        {accept().withWrongAuthenticator(), "radCheckReply",
         "radCheckReply: received invalid reply digest from RADIUS server\n"},
        {accept().withTrailing("00"_hex), "radCheckReply",
         "radCheckReply: Received (21) octets doesn't match length in packet: 20\n"},
        {accept(Attributes().addMessageAuthenticator()).withWrongMessageAuthenticator(),
         "radCheckMsgAuth",
         "radCheckMsgAuth:Invalid Message-Authenticator in RADIUS server reply\n"},
    };
    for (const Case &entry : cases) {
        ScriptedServer server(kSecret, {entry.action});
        server.otherwise(accept());
        const LogRecorder log;
        expectFailure(to(server, kPlenty, 3));
        EXPECT_ONLY_PROBLEM(log, 8, entry.function, entry.text);
        EXPECT_EQ(1U, server.requestCount());
    }
}

TEST_F(SendTest, ConsumesAndRefusesADatagramThatIsTooShortForAHeader) {
    for (const size_t size : {0U, 19U}) {
        ScriptedServer server(kSecret, {sendRaw(Bytes(size, 0x14))});
        server.otherwise(accept());
        const LogRecorder log;
        expectFailure(to(server, kPlenty, 3));
        EXPECT_ONLY_PROBLEM(
            log, 8, "radRecvfromServer",
            testing::StartsWith("radRecvfromServer: Packet too small from 127.0.0.1:"));
        EXPECT_EQ(1U, server.requestCount());
    }
}

TEST_F(SendTest, TakesAReplyFromAnotherPort) {
    const ScriptedServer server(kSecret, {accept().fromOtherPort()});
    EXPECT_EQ(2, send(to(server, kPlenty)));
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

std::atomic<int> signalsHandled{0};

void countSignal(int /*signal*/) {
    ++signalsHandled;
}

// Interrupts the thread that makes it, once for each of the first `count` datagrams of a server.
class Interrupter {
  public:
    Interrupter(const ScriptedServer &server, size_t count) {
        struct sigaction action {};
        action.sa_handler = countSignal;  // without SA_RESTART
        sigaction(SIGUSR1, &action, &before_);
        thread_ = std::thread([&server, count, target = pthread_self()] {
            for (size_t n = 1; n <= count; ++n) {
                // The datagram arrives before the thread waits; a signal in between is lost on it.
                for (int tries = 0; server.requestCount() <= n && tries < 500; ++tries) {
                    if (server.waitForRequests(n)) {
                        pthread_kill(target, SIGUSR1);
                        (void)server.waitForRequests(n + 1, 10ms);
                    }
                }
            }
        });
    }
    Interrupter(const Interrupter &) = delete;
    Interrupter &operator=(const Interrupter &) = delete;
    ~Interrupter() {
        thread_.join();
        sigaction(SIGUSR1, &before_, nullptr);
    }

  private:
    struct sigaction before_ {};
    std::thread thread_;
};

TEST_F(SendTest, SendsAgainAfterASignalWithoutCountingItAsARetry) {
    signalsHandled = 0;
    ScriptedServer server(kSecret, {silence(), silence()});
    server.otherwise(accept());
    const LogRecorder log;
    {
        const Interrupter interrupter(server, 2);
        EXPECT_EQ(2, send(to(server, kPlenty, 0)));
    }
    EXPECT_GE(signalsHandled, 2);
    EXPECT_PROBLEMS(log);
    const std::vector<ReceivedRequest> requests = server.requests();
    ASSERT_GE(requests.size(), 3U);
    for (const ReceivedRequest &request : requests) {
        EXPECT_BYTES_EQ(requests.front().bytes, request.bytes);
    }
    EXPECT_LT(requests.back().arrival - requests.front().arrival, 15s);
}

TEST_F(SendTest, StillHasItsRetriesAfterASignal) {
    ScriptedServer server(kSecret, {silence(), silence()});
    server.otherwise(accept());
    const Interrupter interrupter(server, 1);
    EXPECT_EQ(2, send(to(server, 1, 1))) << "a signal, a time-out, a reply";
}

// Takes every descriptor up to a number.
std::vector<FileDescriptor> occupyDescriptors(int highest) {
    std::vector<FileDescriptor> taken;
    do {
        taken.emplace_back(open("/dev/null", O_RDONLY | O_CLOEXEC), "/dev/null");
    } while (taken.back().get() < highest);
    return taken;
}

TEST_F(SendTest, WaitsOnADescriptorAbove1023) {
    constexpr rlim_t kNeeded = 1200;
    rlimit before{};
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &before));
    rlimit raised = before;
    raised.rlim_cur = std::max(raised.rlim_cur, kNeeded);
    if (raised.rlim_max < kNeeded) {
        GTEST_SKIP() << "no more than " << raised.rlim_max << " descriptors are allowed";
    }
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &raised));
    {
        const ScriptedServer server(kSecret, {accept().delayed(20ms)});
        const SilentPort silent;
        const auto taken = occupyDescriptors(1023);
        EXPECT_EQ(-1, send(to(silent, 0)));
        EXPECT_EQ(2, send(to(server, kPlenty)));
        EXPECT_EQ(1U, server.requestCount()) << "it waited for the reply";
    }
    EXPECT_EQ(0, setrlimit(RLIMIT_NOFILE, &before));
}

}  // namespace
}  // namespace lanyard::test::send_test
