// Messages and answers on the bus that make no sense, and what becomes of who sent them.
#include <cerrno>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ostream>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include <xbus.h>

#include "tests/unit/platform/xbus_fixture.h"

namespace lanyard::test::xbus_nonsense_test {
namespace {

using namespace std::chrono_literals;
using port::bus::Head;
using port::bus::Kind;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

using XbusPeers = XbusTest;

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

}  // namespace
}  // namespace lanyard::test::xbus_nonsense_test
