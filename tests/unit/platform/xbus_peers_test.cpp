// The bus among peers that come, go, become daemons, are not trusted or talk nonsense.
#include <cerrno>
#include <chrono>
#include <csignal>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
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
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Clock = std::chrono::steady_clock;

constexpr uint32_t kEndCommand = 99;
constexpr uid_t kNobody = 65534;

using XbusPeers = XbusTest;

int ignore(void * /*busArg1*/, void * /*busArg2*/, uint32_t /*cmd*/, void * /*buf*/,
           uint32_t /*len*/, void * /*out*/, uint32_t * /*outLen*/) {
    return 0;
}

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

struct Nonsense {
    const char *name;
    std::function<Bytes()> packet;
};

void PrintTo(const Nonsense &nonsense, std::ostream *stream) {
    *stream << nonsense.name;
}

Bytes withHead(const std::function<void(Head &)> &change) {
    Head head = noticeHead(1, 3, 2);
    change(head);
    return packetOf(head, {1, 2, 3}, {4, 5});
}

const Nonsense kNonsenses[] = {
    {"empty", [] { return Bytes{}; }},
    {"one byte", [] { return Bytes{1}; }},
    {"half a head",
     [] {
         Bytes packet = packetOf(noticeHead(1));
         packet.resize(packet.size() / 2);
         return packet;
     }},
    {"a head less one byte",
     [] {
         Bytes packet = packetOf(noticeHead(1));
         packet.pop_back();
         return packet;
     }},
    {"zeros", [] { return Bytes(100); }},
    {"another protocol", [] { return withHead([](Head &head) { head.magic ^= 1; }); }},
    {"no kind", [] { return withHead([](Head &head) { head.kind = Kind{}; }); }},
    {"an unknown kind", [] { return withHead([](Head &head) { head.kind = Kind{4}; }); }},
    {"an answer to nothing",
     [] { return withHead([](Head &head) { head.kind = Kind::kAnswer; }); }},
    {"an unknown flag", [] { return withHead([](Head &head) { head.given = 7; }); }},
    {"buf that is not given",
     [] { return withHead([](Head &head) { head.given = Head::kOutGiven; }); }},
    {"out that is not given",
     [] { return withHead([](Head &head) { head.given = Head::kBufGiven; }); }},
    {"buf longer than the packet", [] { return withHead([](Head &head) { head.bufLength = 4; }); }},
    {"out longer than the packet", [] { return withHead([](Head &head) { head.outLength = 3; }); }},
    {"out shorter than the packet",
     [] { return withHead([](Head &head) { head.outLength = 1; }); }},
    {"lengths that wrap",
     [] {
         return withHead([](Head &head) {
             head.bufLength = 0xfffffffe;
             head.outLength = 7;
         });
     }},
    {"the end is missing", [] { return packetOf(noticeHead(1, 1000, 0), Bytes(500)); }},
    {"buf above 64 KiB", [] { return packetOf(noticeHead(1, 65537, 0), Bytes(65537)); }},
    {"out above 64 KiB", [] { return packetOf(noticeHead(1, 0, 65537), {}, Bytes(65537)); }},
    {"far too much", [] { return packetOf(noticeHead(1, 200000, 0), Bytes(200000)); }},
};

class XbusNonsense : public XbusPeers, public testing::WithParamInterface<Nonsense> {};

TEST_P(XbusNonsense, Nonsense_ClosesItsSendersConnectionAndNoOther) {
    Module receiver(kRelay);
    const Module sender(kPnac);
    EXPECT_EQ(0, sender.notify(kRelay, 1));
    EXPECT_EQ(1, receiver.listen(0us));

    RawPeer peer(socketPath(kRelay));
    ASSERT_EQ(0, peer.error());
    ASSERT_TRUE(peer.send(GetParam().packet())) << peer.error();
    ASSERT_TRUE(peer.send(packetOf(noticeHead(1000))));
    EXPECT_EQ(0, receiver.listen(0us));
    EXPECT_TRUE(peer.isClosed());
    EXPECT_THAT(log_.lines(8), ElementsAre(Logged(8, 8, "xbusListen",
                                                  "a malformed or oversized message of process " +
                                                      std::to_string(getpid()) + " is dropped\n")));

    EXPECT_EQ(0, sender.notify(kRelay, 2));
    EXPECT_EQ(1, receiver.listen(0us));
    EXPECT_THAT(receiver.receivedCommands(), ElementsAre(1, 2));
}

INSTANTIATE_TEST_SUITE_P(Each, XbusNonsense, testing::ValuesIn(kNonsenses));

TEST_F(XbusPeers, RawPeerThatMakesSense_Heard) {
    Module receiver(kRelay);
    RawPeer peer(socketPath(kRelay));
    ASSERT_TRUE(peer.send(packetOf(noticeHead(5, 3, 2), {1, 2, 3}, {4, 5})));
    EXPECT_EQ(1, receiver.listen(0us));
    EXPECT_THAT(receiver.received, ElementsAre(Received{5, Bytes{1, 2, 3}, Bytes{4, 5}}));
}

// A module without the functions of the bus: answers the first call with what it is told to.
class FalseModule {
  public:
    explicit FalseModule(const std::string &path)
        : listener_(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0), "module") {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        isThere_ = bind(listener_.get(), reinterpret_cast<const sockaddr *>(&address),
                        sizeof address) == 0 &&
                   listen(listener_.get(), 10) == 0;
    }

    bool isThere() const { return isThere_; }

    void answerOnce(const std::function<Bytes(Head)> &answer) const { (void)answerFirst(answer); }

    // Returns whether the sender closes its connection after an answer.
    bool answersInVain(const std::function<Bytes(Head)> &answer) const {
        constexpr int kPatienceMilliseconds = 20000;
        const FileDescriptor sender = answerFirst(answer);
        pollfd entry{sender.get(), POLLRDHUP, 0};
        return poll(&entry, 1, kPatienceMilliseconds) == 1;
    }

  private:
    // Returns the connection.
    FileDescriptor answerFirst(const std::function<Bytes(Head)> &answer) const {
        FileDescriptor sender(accept(listener_.get(), nullptr, nullptr), "sender");
        Head head;
        EXPECT_GE(recv(sender.get(), &head, sizeof head, 0), static_cast<ssize_t>(sizeof head));
        const Bytes packet = answer(head);
        EXPECT_EQ(static_cast<ssize_t>(packet.size()),
                  send(sender.get(), packet.data(), packet.size(), 0));
        return sender;
    }

    lanyard::FileDescriptor listener_;
    bool isThere_ = false;
};

TEST_F(XbusPeers, FalseAnswer_Dropped) {
    const Module sender(kPnac);
    const FalseModule module(socketPath(kRelay));
    ASSERT_TRUE(module.isThere());
    const std::vector<std::function<Bytes(Head)>> answers{
        [](Head call) {
            call.kind = Kind::kAnswer;
            call.given = Head::kOutGiven;
            call.bufLength = 0;
            call.outLength = 4;
            return packetOf(call, {}, Bytes(4));  // One more than there is room for.
        },
        [](Head call) {
            call.kind = Kind::kAnswer;
            return packetOf(call, Bytes(call.bufLength), Bytes(call.outLength));
        },
        [](const Head &call) { return packetOf(call, Bytes(1), Bytes(3)); },
        [](const Head & /*call*/) { return Bytes(7); },
    };
    for (const auto &answer : answers) {
        std::thread other([&] { module.answerOnce(answer); });
        Bytes out{1, 2, 3};
        EXPECT_EQ(-1, sender.call(kRelay, 1, {9}, out));
        EXPECT_EQ((Bytes{1, 2, 3}), out);
        other.join();
    }
    EXPECT_EQ(answers.size(), errors().size());
    EXPECT_THAT(errors(), testing::Each(HasSubstr("malformed")));
}

TEST_F(XbusPeers, FalseAnswer_ClosesItsConnection) {
    const Module sender(kPnac);
    const FalseModule module(socketPath(kRelay));
    ASSERT_TRUE(module.isThere());
    std::thread other(
        [&] { EXPECT_TRUE(module.answersInVain([](const Head & /*call*/) { return Bytes(7); })); });
    EXPECT_EQ(-1, sender.call(kRelay, 1));
    EXPECT_EQ(EBADMSG, errno);
    other.join();
}

TEST_F(XbusPeers, AnswerToSomebodyElse_NotTaken) {
    const Module sender(kPnac);
    const FalseModule module(socketPath(kRelay));
    ASSERT_TRUE(module.isThere());
    std::thread other([&] {
        module.answerOnce([](Head call) {
            call.kind = Kind::kAnswer;
            call.id += 1;
            call.given = 0;
            return packetOf(call);
        });
    });
    EXPECT_EQ(-1, sender.call(kRelay, 0)) << "the module ends without a true answer";
    other.join();
    EXPECT_THAT(errors(), IsEmpty());
}

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

class XbusUsers : public XbusPeers {
  protected:
    void SetUp() override {
        if (geteuid() != 0) {
            GTEST_SKIP() << "only root can become somebody else";
        }
        ASSERT_EQ(0, chmod(root_.folder().c_str(), 0755));
        XbusPeers::SetUp();
    }

    // Runs a part of the test as an ordinary user.
    static int asNobody(const std::function<int()> &part) {
        Child child(
            [&part] { return setgid(kNobody) == 0 && setuid(kNobody) == 0 ? part() : 100; });
        return child.wait();
    }

    void openFolder() const {
        ASSERT_EQ(0, chmod(root_.path("/run/xbus").c_str(), 0777));
        for (const std::string &name : root_.list("/run/xbus")) {
            ASSERT_EQ(0, chmod(root_.path("/run/xbus/" + name).c_str(), 0666));
        }
    }
};

TEST_F(XbusUsers, OtherUser_KeptOutByTheFolder) {
    Module receiver(kRelay);
    const std::string path = socketPath(kRelay);
    EXPECT_EQ(0, asNobody([&path] {
                  if (RawPeer(path).error() != EACCES) {
                      return 1;
                  }
                  if (xbusInit() == 0) {
                      return 2;
                  }
                  return xbusRegister(kPnac, XBUS_MODE_HANDLER, ignore, nullptr) == nullptr &&
                                 errno == EACCES
                             ? 0
                             : 3;
              }));
    EXPECT_EQ(0, receiver.listen(0us));
}

TEST_F(XbusUsers, SenderOfAnotherUserInAnOpenFolder_Refused) {
    Module receiver(kRelay);
    openFolder();
    const std::string path = socketPath(kRelay);
    const Gate connected;
    EXPECT_EQ(0, asNobody([&path] {
                  RawPeer peer(path);
                  return peer.error() == 0 && peer.send(packetOf(noticeHead(1))) ? 0 : 1;
              }));
    EXPECT_EQ(0, receiver.listen(0us));
    EXPECT_THAT(receiver.received, IsEmpty());
    EXPECT_THAT(errors(), ElementsAre(AllOf(HasSubstr("of user 65534 is refused"))));
}

TEST_F(XbusUsers, ReceiverOfAnotherUserInAnOpenFolder_Refused) {
    const Module sender(kPnac);
    openFolder();
    const std::string path = socketPath(kRelay);
    const Gate ready;
    const Gate over;
    Child impostor([&] {
        if (setgid(kNobody) != 0 || setuid(kNobody) != 0) {
            return 100;
        }
        const FalseModule module(path);
        ready.open();
        return module.isThere() && over.pass() ? 0 : 1;
    });
    ASSERT_TRUE(ready.pass());
    EXPECT_EQ(-1, sender.notify(kRelay, 1));
    EXPECT_EQ(-1, sender.call(kRelay, 1));
    over.open();
    EXPECT_EQ(0, impostor.wait());
    EXPECT_THAT(errors(), ElementsAre(HasSubstr("of user 65534 is refused"),
                                      HasSubstr("of user 65534 is refused")));
}

TEST_F(XbusUsers, FoldersOwnerAndRoot_TalkToEachOther) {
    ASSERT_EQ(0, chown(root_.path("/run/xbus").c_str(), kNobody, kNobody));
    Module receiver(kRelay);
    // The owner could not open root's socket file, but takes it for its own folder's.
    ASSERT_EQ(0, chown(socketPath(kRelay).c_str(), kNobody, kNobody));
    EXPECT_EQ(0, asNobody([] {
                  const Module module(kPnac);
                  return module.context() != nullptr && module.notify(kRelay, 5) == 0 ? 0 : 1;
              }));
    EXPECT_EQ(1, receiver.listen(0us));
    EXPECT_THAT(receiver.receivedCommands(), ElementsAre(5));

    const Gate ready;
    Child child([&ready] {
        if (setgid(kNobody) != 0 || setuid(kNobody) != 0) {
            return 100;
        }
        Module module(kPnac + 1);
        ready.open();
        return module.listen() == 1 ? 0 : 1;
    });
    ASSERT_TRUE(ready.pass());
    EXPECT_EQ(0, receiver.notify(kPnac + 1, 6));
    EXPECT_EQ(0, child.wait());
    EXPECT_THAT(errors(), IsEmpty());
}

}  // namespace
}  // namespace lanyard::test::xbus_peers_test
