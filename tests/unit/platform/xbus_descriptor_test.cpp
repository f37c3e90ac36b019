// One descriptor to wait for the bus with.
#include <cerrno>
#include <chrono>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <xbus.h>

#include "tests/unit/platform/xbus_fixture.h"

namespace lanyard::test::xbus_descriptor_test {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;

using XbusDescriptor = XbusTest;

bool isReadable(const Module &module, int milliseconds = 0) {
    pollfd entry{xbusDescriptor(module.context()), POLLIN, 0};
    return poll(&entry, 1, milliseconds) == 1 && entry.revents == POLLIN;
}

// Handles messages as a loop over poll() does. Returns how often it listened.
int serve(Module &module) {
    constexpr int kEndless = 1000;
    int rounds = 0;
    while (rounds < kEndless && isReadable(module)) {
        EXPECT_NE(-1, module.listen(0us));
        ++rounds;
    }
    return rounds;
}

TEST_F(XbusDescriptor, NoContext_Refused) {
    errno = 0;
    EXPECT_EQ(-1, xbusDescriptor(nullptr));
    EXPECT_EQ(EINVAL, errno);
}

TEST_F(XbusDescriptor, NothingSent_NotReadable) {
    const Module receiver(kRelay);
    EXPECT_GT(xbusDescriptor(receiver.context()), STDERR_FILENO);
    EXPECT_FALSE(isReadable(receiver));
}

TEST_F(XbusDescriptor, MessagesSent_ReadableUntilTheLastIsHandled) {
    Module receiver(kRelay);
    const Module sender(kPnac);
    const Module other(kPnac + 1);
    const int descriptor = xbusDescriptor(receiver.context());
    for (const uint32_t command : {1U, 2U}) {
        ASSERT_EQ(0, sender.notify(kRelay, command));
        ASSERT_EQ(0, other.notify(kRelay, command + 10));
    }
    for (size_t handled = 1; handled <= 4; ++handled) {
        EXPECT_TRUE(isReadable(receiver)) << handled;
        EXPECT_EQ(1, receiver.listen(0us)) << handled;
        EXPECT_EQ(handled, receiver.received.size());
    }
    serve(receiver);
    EXPECT_FALSE(isReadable(receiver));
    ASSERT_EQ(0, sender.notify(kRelay, 3));
    EXPECT_TRUE(isReadable(receiver)) << "also from who is connected already";
    EXPECT_EQ(1, receiver.listen(0us));
    EXPECT_FALSE(isReadable(receiver));
    EXPECT_EQ(descriptor, xbusDescriptor(receiver.context()));
}

TEST_F(XbusDescriptor, CallFromElsewhere_EndsTheWait) {
    Module receiver(kRelay);
    receiver.handler = [](const Invocation &call) { return static_cast<int>(call.command); };
    Child child([] {
        const Module sender(kPnac);
        return sender.call(kRelay, 7) == 7 ? 0 : 1;
    });
    while (receiver.listen(0us) != 1) {
        ASSERT_TRUE(isReadable(receiver, kPatienceMilliseconds));
    }
    EXPECT_EQ(0, child.wait());
}

TEST_F(XbusDescriptor, SendersComeAndGo_ListeningSeesToThem) {
    Module receiver(kRelay);
    RawPeer silent(socketPath(kRelay));
    EXPECT_EQ(1, serve(receiver)) << "who only connects";
    {
        const RawPeer shortLived(socketPath(kRelay));
        serve(receiver);
    }
    EXPECT_TRUE(isReadable(receiver));
    serve(receiver);
    EXPECT_FALSE(isReadable(receiver)) << "who leaves";
    {
        const Module sender(kPnac);
        ASSERT_EQ(0, sender.notify(kRelay, 1));
    }
    serve(receiver);
    EXPECT_FALSE(isReadable(receiver)) << "who leaves after sending";
    EXPECT_THAT(receiver.receivedCommands(), ElementsAre(1));
    ASSERT_TRUE(silent.send(packetOf(noticeHead(2))));
    EXPECT_TRUE(isReadable(receiver));
    EXPECT_EQ(1, receiver.listen(0us));
}

TEST_F(XbusDescriptor, MalformedMessage_NotLeftReadable) {
    Module receiver(kRelay);
    RawPeer peer(socketPath(kRelay));
    ASSERT_TRUE(peer.send(Bytes(7)));
    EXPECT_TRUE(isReadable(receiver));
    serve(receiver);
    EXPECT_FALSE(isReadable(receiver));
    EXPECT_THAT(errors(), ElementsAre(HasSubstr("malformed")));
}

TEST_F(XbusDescriptor, Daemon_WaitsWithTheDescriptorOfItsRegistration) {
    const Gate ready;
    const Gate over;
    Child child([&] {
        Module module(kRelay);
        if (daemon(0, 0) != 0) {
            return 2;
        }
        ready.open();
        while (module.received.size() < 2) {
            if (!isReadable(module, kPatienceMilliseconds) || module.listen(0us) == -1) {
                _exit(1);
            }
        }
        over.open();
        _exit(0);
    });
    EXPECT_EQ(0, child.wait()) << "the parent has left";
    ASSERT_TRUE(ready.pass());
    const Module sender(kPnac);
    ASSERT_EQ(0, sender.notify(kRelay, 1));
    ASSERT_EQ(0, sender.notify(kRelay, 2));
    EXPECT_TRUE(over.pass());
}

TEST_F(XbusDescriptor, SenderLeavesWhileAChildHoldsItsConnection_NotLeftReadable) {
    Module receiver(kRelay);
    const Gate leave;
    Child sender([&leave] {
        const Module module(kPnac);
        return module.notify(kRelay, 1) == 0 && leave.pass() ? 0 : 1;
    });
    EXPECT_EQ(1, receiver.listen());
    const Gate over;
    const Child holder([&over] { return over.pass() ? 0 : 1; });
    leave.open();
    EXPECT_EQ(0, sender.wait());
    EXPECT_EQ(1, serve(receiver));
    EXPECT_FALSE(isReadable(receiver));
}

TEST_F(XbusDescriptor, NoDescriptorLeftForASender_LooksAgainLater) {
    Module receiver(kRelay);
    const Module connected(kPnac);
    ASSERT_EQ(0, connected.notify(kRelay, 1));
    ASSERT_EQ(1, receiver.listen(0us));
    const Module stranger(kPnac + 1);
    ASSERT_EQ(0, stranger.notify(kRelay, 2));
    {
        const NoDescriptors none;
        EXPECT_TRUE(isReadable(receiver));
        EXPECT_EQ(-1, receiver.listen(0us));
        EXPECT_FALSE(isReadable(receiver)) << "a loop over poll() would spin";
        ASSERT_EQ(0, connected.notify(kRelay, 3));
        EXPECT_TRUE(isReadable(receiver)) << "who is connected is served";
        EXPECT_EQ(1, receiver.listen(0us));
        EXPECT_FALSE(isReadable(receiver));
    }
    EXPECT_TRUE(isReadable(receiver, kPatienceMilliseconds)) << "without anybody else's help";
    EXPECT_EQ(1, receiver.listen(0us));
    serve(receiver);
    EXPECT_FALSE(isReadable(receiver));
    EXPECT_THAT(receiver.receivedCommands(), ElementsAre(1, 3, 2));
}

}  // namespace
}  // namespace lanyard::test::xbus_descriptor_test
