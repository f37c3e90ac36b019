// The bus among users who do not trust each other.
#include <cerrno>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include <xbus.h>

#include "tests/unit/platform/xbus_fixture.h"

namespace lanyard::test::xbus_users_test {
namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr uid_t kNobody = 65534;

using XbusPeers = XbusTest;

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
}  // namespace lanyard::test::xbus_users_test
