// The bus among peers that come and go, become daemons, die or fall silent.
#include <cerrno>
#include <chrono>
#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include <xbus.h>

#include "tests/unit/platform/xbus_fixture.h"

namespace lanyard::test::xbus_peers_test {
namespace {

using namespace std::chrono_literals;
using port::bus::Head;
using port::bus::Kind;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Clock = std::chrono::steady_clock;

constexpr uint32_t kEndCommand = 99;

using XbusPeers = XbusTest;

// Answers each call with its command until it is told to end.
int serveUntilEnd(Module &module) {
    bool isOver = false;
    module.handler = [&isOver](const Invocation &call) {
        isOver = call.command == kEndCommand;
        return static_cast<int>(call.command);
    };
    while (!isOver) {
        if (module.listen() != 1) {
            return 1;
        }
    }
    return 0;
}

// A process that has a module and serves it.
class Server {
  public:
    explicit Server(uint32_t number)
        : child_([this, number] {
              Module module(number);
              ready_.open();
              return serveUntilEnd(module);
          }) {
        EXPECT_TRUE(ready_.pass());
    }
    int wait() { return child_.wait(); }
    void kill() {
        child_.kill();
        EXPECT_EQ(-SIGKILL, child_.wait());
    }

  private:
    Gate ready_;
    Child child_;
};

TEST_F(XbusPeers, SocketOfACrashedModule_Replaced) {
    Server crashed(kRelay);
    const Module sender(kPnac);
    EXPECT_EQ(5, sender.call(kRelay, 5));
    crashed.kill();
    EXPECT_THAT(root_.list("/run/xbus"), testing::Contains("8"));
    EXPECT_EQ(-1, sender.notify(kRelay, 5)) << "its socket is there, but nobody at it";
    Server next(kRelay);
    EXPECT_EQ(6, sender.call(kRelay, 6));
    EXPECT_EQ(static_cast<int>(kEndCommand), sender.call(kRelay, kEndCommand));
    EXPECT_EQ(0, next.wait());
}

TEST_F(XbusPeers, FileInThePlaceOfASocket_Replaced) {
    root_.write("/run/xbus/8", "no socket");
    Module receiver(kRelay);
    const Module sender(kPnac);
    EXPECT_EQ(0, sender.notify(kRelay, 1));
    EXPECT_EQ(1, receiver.listen());
}

TEST_F(XbusPeers, ModuleRestarted_ItsSenderNoticesNothing) {
    const Module sender(kPnac);
    for (const bool waits : {true, false, true, false}) {
        Server server(kRelay);
        if (waits) {
            EXPECT_EQ(7, sender.call(kRelay, 7)) << "the first after the restart";
        }
        EXPECT_EQ(0, sender.notify(kRelay, kEndCommand));
        EXPECT_EQ(0, server.wait());
    }
}

TEST_F(XbusPeers, ModuleRegisteredAnew_ItsSenderNoticesNothing) {
    const Module sender(kPnac);
    for (uint32_t command = 1; command < 4; ++command) {
        Module receiver(kRelay);
        EXPECT_EQ(0, sender.notify(kRelay, command));
        EXPECT_EQ(1, receiver.listen());
        EXPECT_THAT(receiver.receivedCommands(), ElementsAre(command));
    }
}

TEST_F(XbusPeers, ModuleDiesDuringACall_TheCallEnds) {
    const Gate ready;
    Child child([&ready] {
        Module module(kRelay);
        module.handler = [](const Invocation & /*call*/) -> int { _exit(3); };
        ready.open();
        return module.listen();
    });
    ASSERT_TRUE(ready.pass());
    const Module sender(kPnac);
    const auto start = Clock::now();
    EXPECT_EQ(-1, sender.call(kRelay, 1));
    EXPECT_LT(Clock::now() - start, 4s);
    EXPECT_EQ(3, child.wait());
}

// Registers, becomes a daemon and serves; ends in the process that was started.
void becomeServingDaemon(const Gate &ready) {
    Module module(kRelay);
    if (daemon(0, 0) != 0) {
        _exit(2);
    }
    ready.open();
    _exit(serveUntilEnd(module));
}

class XbusDaemon : public XbusPeers, public testing::WithParamInterface<bool> {};

TEST_P(XbusDaemon, RegisteredBeforeDaemon_KeepsTheModule) {
    const Gate ready;
    Child child([&ready] {
        if (GetParam()) {
            for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
                close(stream);
            }
        }
        becomeServingDaemon(ready);
        return 1;
    });
    EXPECT_EQ(0, child.wait()) << "the parent has left";
    ASSERT_TRUE(ready.pass());
    errno = 0;
    EXPECT_EQ(nullptr, xbusRegister(kRelay, XBUS_MODE_HANDLER, ignore, nullptr));
    EXPECT_EQ(EADDRINUSE, errno);
    const Module sender(kPnac);
    EXPECT_EQ(42, sender.call(kRelay, 42));
    EXPECT_EQ(0, sender.notify(kRelay, kEndCommand));

    XbusCtx *next = nullptr;
    const auto deadline = Clock::now() + 20s;
    while ((next = xbusRegister(kRelay, XBUS_MODE_HANDLER, ignore, nullptr)) == nullptr &&
           Clock::now() < deadline) {
        std::this_thread::yield();
    }
    EXPECT_NE(nullptr, next) << "the number is free when the daemon has ended";
    xbusUnRegister(next);
}

INSTANTIATE_TEST_SUITE_P(WithAndWithoutStandardStreams, XbusDaemon, testing::Bool());

TEST_F(XbusPeers, PeerThatDiesInMidMessage_HoldsUpNobody) {
    Module receiver(kRelay);
    const Module sender(kPnac);
    const std::string path = socketPath(kRelay);
    Child dying([&path] {
        RawPeer peer(path);
        (void)peer.send(packetOf(noticeHead(1, 1000, 0), Bytes(500)));
        (void)raise(SIGKILL);
        return 0;
    });
    EXPECT_EQ(-SIGKILL, dying.wait());
    EXPECT_EQ(0, sender.notify(kRelay, 2));
    EXPECT_EQ(1, receiver.listen(0us));
    EXPECT_EQ(0, receiver.listen(0us));
    EXPECT_THAT(receiver.receivedCommands(), ElementsAre(2));
    EXPECT_THAT(errors(), ElementsAre(HasSubstr("malformed")));
}

TEST_F(XbusPeers, SilentPeer_HoldsUpNobody) {
    Module receiver(kRelay);
    const Module sender(kPnac);
    std::vector<RawPeer> silent;
    silent.reserve(10);
    for (int i = 0; i < 10; ++i) {
        silent.emplace_back(socketPath(kRelay));
    }
    EXPECT_EQ(0, receiver.listen(0us));
    EXPECT_EQ(0, sender.notify(kRelay, 1));
    EXPECT_EQ(1, receiver.listen());
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(XbusPeers, MessagesOfADeadSender_StillArrive) {
    Module receiver(kRelay);
    Child sender([] {
        const Module module(kPnac);
        for (uint32_t command = 1; command <= 3; ++command) {
            if (module.notify(kRelay, command) != 0) {
                return 1;
            }
        }
        (void)raise(SIGKILL);
        return 2;
    });
    EXPECT_EQ(-SIGKILL, sender.wait());
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(1, receiver.listen(0us));
    }
    EXPECT_THAT(receiver.receivedCommands(), ElementsAre(1, 2, 3));
    EXPECT_EQ(0, receiver.listen(0us));
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(XbusPeers, MessagesAfterAnAnswerThatWasNotRead_NotLost) {
    Module receiver(kRelay);
    {
        const Module sender(kPnac);
        {
            const ShortWaits waits;
            EXPECT_EQ(-1, sender.call(kRelay, 1));
        }
        EXPECT_EQ(0, sender.notify(kRelay, 2));
        EXPECT_EQ(0, sender.notify(kRelay, 3));
        EXPECT_EQ(1, receiver.listen(0us));
    }
    EXPECT_EQ(1, receiver.listen(0us));
    EXPECT_EQ(1, receiver.listen(0us));
    EXPECT_THAT(receiver.receivedCommands(), ElementsAre(1, 2, 3));
}

TEST_F(XbusPeers, CallerThatDoesNotReadItsAnswers_HoldsUpNobody) {
    Module receiver(kRelay);
    RawPeer peer(socketPath(kRelay));
    Head call = noticeHead(1, 0, 65536);
    call.kind = Kind::kCall;
    for (int i = 0; i < 20; ++i) {
        ASSERT_TRUE(peer.send(packetOf(call, {}, Bytes(65536))));
        ASSERT_EQ(1, receiver.listen(0us));
    }
    EXPECT_THAT(errors(), testing::Contains(HasSubstr("an answer is dropped")));
}

}  // namespace
}  // namespace lanyard::test::xbus_peers_test
