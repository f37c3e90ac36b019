// A connection to the process that has a module, and to no later one.
#include <cerrno>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <poll.h>

#include <xbus.h>

#include "tests/unit/platform/xbus_fixture.h"
#include "tools/file_descriptor.h"

namespace lanyard::test {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

class XbusConnection : public XbusTest {
  protected:
    void SetUp() override {
        XbusTest::SetUp();
        sender_.emplace(kPnac);
    }

    [[nodiscard]] FileDescriptor connectToRelay() const {
        return {xbusConnect(sender_->context(), kRelay), "connection"};
    }
    static int send(const FileDescriptor &connection, uint32_t command) {
        return xbusSend(connection.get(), command, "buf", 3, nullptr, 0);
    }
    static bool isReadable(const FileDescriptor &connection, int milliseconds = 0) {
        pollfd entry{connection.get(), POLLIN, 0};
        return poll(&entry, 1, milliseconds) == 1;
    }

    std::optional<Module> sender_;
    int result_ = 0;
};

TEST_F(XbusConnection, NoSuchModule_Refused) {
    EXPECT_EQ(-1, xbusConnect(nullptr, kRelay));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_EQ(-1, xbusConnect(sender_->context(), kRelay));
    EXPECT_EQ(ENOENT, errno);
}

TEST_F(XbusConnection, ReceiverThatIsBusy_ResultsComeInOrderOnceItListens) {
    Module receiver(kRelay);
    receiver.handler = [](const Invocation &call) {
        EXPECT_EQ("buf", std::string(call.buf.begin(), call.buf.end()));
        *call.outLength = static_cast<uint32_t>(call.out.size());
        return -static_cast<int>(call.command);
    };
    const FileDescriptor connection = connectToRelay();
    ASSERT_EQ(0, send(connection, 1));
    ASSERT_EQ(0, xbusSend(connection.get(), 2, "buf", 3, "some", 4));
    EXPECT_EQ(0, xbusResult(connection.get(), &result_));
    EXPECT_FALSE(isReadable(connection));
    for (const int result : {-1, -2}) {
        EXPECT_EQ(1, receiver.listen());
        EXPECT_TRUE(isReadable(connection));
        EXPECT_EQ(1, xbusResult(connection.get(), &result_));
        EXPECT_EQ(result, result_);
    }
    EXPECT_EQ(0, xbusResult(connection.get(), &result_));
    EXPECT_FALSE(isReadable(connection));
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(XbusConnection, OfManySenders_HasItsTurn) {
    Module receiver(kRelay);
    const Module other(kPnac + 1);
    for (uint32_t command = 10; command < 20; ++command) {
        ASSERT_EQ(0, other.notify(kRelay, command));
    }
    const FileDescriptor connection = connectToRelay();
    ASSERT_EQ(0, send(connection, 1));
    EXPECT_EQ(1, receiver.listen());
    EXPECT_EQ(1, receiver.listen());
    EXPECT_EQ(1, xbusResult(connection.get(), &result_)) << "nobody waits for more than one";
}

TEST_F(XbusConnection, ReceiverThatEnds_NextOneGetsNothing) {
    std::optional<Module> receiver(std::in_place, kRelay);
    const FileDescriptor connection = connectToRelay();
    ASSERT_EQ(0, send(connection, 1));
    receiver.reset();
    receiver.emplace(kRelay);
    EXPECT_TRUE(isReadable(connection));
    EXPECT_EQ(-1, xbusResult(connection.get(), &result_));
    EXPECT_EQ(ECONNRESET, errno);
    EXPECT_EQ(-1, send(connection, 2));
    EXPECT_EQ(EPIPE, errno);
    EXPECT_EQ(0, receiver->listen(0us));
    EXPECT_THAT(receiver->received, IsEmpty());
}

TEST_F(XbusConnection, ReceiverThatIsKilled_IsToldAtOnce) {
    const Gate ready;
    const Gate never;
    const Child relay([&] {
        const Module module(kRelay);
        ready.open();
        return never.pass() ? 0 : 1;
    });
    ASSERT_TRUE(ready.pass());
    const FileDescriptor connection = connectToRelay();
    ASSERT_EQ(0, send(connection, 1));
    EXPECT_FALSE(isReadable(connection));
    relay.kill();
    EXPECT_TRUE(isReadable(connection, kPatienceMilliseconds));
    EXPECT_EQ(-1, xbusResult(connection.get(), &result_));
}

TEST_F(XbusConnection, ReceiverThatAnsweredAndEnded_ResultComesFirst) {
    std::optional<Module> receiver(std::in_place, kRelay);
    receiver->handler = [](const Invocation & /*call*/) { return 7; };
    const FileDescriptor connection = connectToRelay();
    ASSERT_EQ(0, send(connection, 1));
    EXPECT_EQ(1, receiver->listen());
    receiver.reset();
    EXPECT_EQ(1, xbusResult(connection.get(), &result_));
    EXPECT_EQ(7, result_);
    EXPECT_EQ(-1, xbusResult(connection.get(), &result_));
}

TEST_F(XbusConnection, SenderThatLeaves_MessageArrives) {
    Module receiver(kRelay);
    {
        const FileDescriptor connection = connectToRelay();
        ASSERT_EQ(0, send(connection, 1));
    }
    EXPECT_EQ(1, receiver.listen());
    EXPECT_THAT(receiver.receivedCommands(), ElementsAre(1));
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(XbusConnection, WrongArguments_Refused) {
    const Module receiver(kRelay);
    const FileDescriptor connection = connectToRelay();
    constexpr uint32_t kTooMuch = 64 * 1024 + 1;
    const Bytes bytes(kTooMuch);
    EXPECT_EQ(-1, xbusSend(connection.get(), 1, bytes.data(), kTooMuch, nullptr, 0));
    EXPECT_EQ(EMSGSIZE, errno);
    EXPECT_EQ(-1, xbusSend(connection.get(), 1, nullptr, 1, nullptr, 0));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_EQ(-1, xbusSend(connection.get(), 1, nullptr, 0, nullptr, 1));
    EXPECT_EQ(EINVAL, errno);
}

}  // namespace
}  // namespace lanyard::test
