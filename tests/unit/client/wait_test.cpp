// Waiting for the reply to a request: how long, what ends it, and when the request is sent again.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <pthread.h>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <vector>

#include "tests/support/test.h"
#include "tests/unit/client/send_fixture.h"
#include "tools/file_descriptor.h"

namespace lanyard::test::wait_test {
namespace {

using lanyard::FileDescriptor;
using namespace std::chrono_literals;
using testing::Each;
using testing::SizeIs;

std::string noReply(const SilentPort &server) {
    return "error radSendtoServer: No reply from RADIUS server 127.0.0.1:" +
           std::to_string(server.port());
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
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(2, send(to(server, 1, 2)));
    ASSERT_EQ(2U, server.requestCount());
    EXPECT_GE(server.request(1).arrival - start, 1s);
    EXPECT_LT(server.request(1).arrival - server.request(0).arrival, 1900ms);
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
}  // namespace lanyard::test::wait_test
