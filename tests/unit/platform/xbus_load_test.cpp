// The bus with many messages and many senders.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <poll.h>
#include <string>
#include <sys/resource.h>
#include <sys/select.h>
#include <vector>

#include <xbus.h>

#include "tests/unit/platform/xbus_fixture.h"

namespace lanyard::test::xbus_load_test {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

using XbusLoad = XbusTest;

// Sends, again while the queue is full.
bool notifyAtLast(const Module &module, uint32_t destination, uint32_t command) {
    while (module.notify(destination, command) != 0) {
        if (errno != EAGAIN) {
            return false;
        }
        (void)poll(nullptr, 0, 1);
    }
    return true;
}

TEST_F(XbusLoad, HundredThousandMessages_AllArriveInOrder) {
    constexpr uint32_t kCount = 100'000;
    constexpr uint32_t kCallEvery = 97;
    Module receiver(kRelay);
    uint32_t next = 0;
    receiver.handler = [&next](const Invocation &call) {
        return call.command == next ? static_cast<int>(next++) : -1;
    };
    Child sender([] {
        const Module module(kPnac);
        for (uint32_t i = 0; i < kCount; ++i) {
            const bool isSent = i % kCallEvery == 0 ? module.call(kRelay, i) == static_cast<int>(i)
                                                    : notifyAtLast(module, kRelay, i);
            if (!isSent) {
                return 1;
            }
        }
        return 0;
    });
    while (next < kCount) {
        const uint32_t expected = next;
        ASSERT_EQ(1, receiver.listen());
        ASSERT_EQ(expected + 1, next);
    }
    EXPECT_EQ(0, sender.wait());
    EXPECT_EQ(0, receiver.listen(0us));
}

TEST_F(XbusLoad, MessageAfterACallThatWasNotAnswered_ArrivesInOrder) {
    Module receiver(kRelay);
    const Module sender(kPnac);
    EXPECT_EQ(0, sender.notify(kRelay, 1));
    EXPECT_EQ(0, sender.notify(kRelay, 2));
    {
        const ShortWaits waits;
        EXPECT_EQ(-1, sender.call(kRelay, 3));
    }
    EXPECT_EQ(0, sender.notify(kRelay, 4));
    while (receiver.listen(0us) == 1) {
    }
    EXPECT_THAT(receiver.receivedCommands(), ElementsAre(1, 2, 3, 4));
}

TEST_F(XbusLoad, TwoModulesThatFillEachOthersQueues_BothGetAll) {
    constexpr uint32_t kCount = 10'000;
    const auto exchange = [](uint32_t own, uint32_t other) {
        Module module(own);
        uint32_t got = 0;
        bool isInOrder = true;
        module.handler = [&](const Invocation &call) {
            isInOrder = isInOrder && call.command == got;
            ++got;
            return 0;
        };
        // Neither listens before its own queue is full or everything is sent.
        for (uint32_t sent = 0; sent < kCount;) {
            if (module.notify(other, sent) == 0) {
                ++sent;
            } else if (module.listen(1ms) == -1) {
                return 1;
            }
        }
        while (got < kCount) {
            if (module.listen() != 1) {
                return 2;
            }
        }
        return isInOrder ? 0 : 3;
    };
    Child first([&exchange] { return exchange(kPnac, kRelay); });
    Child second([&exchange] { return exchange(kRelay, kPnac); });
    EXPECT_EQ(0, first.wait());
    EXPECT_EQ(0, second.wait());
}

TEST_F(XbusLoad, LoudAndQuietSender_TakeTurns) {
    Module receiver(kRelay);
    const Module loud(kPnac);
    const Module quiet(kPnac + 1);
    while (loud.notify(kRelay, 1) == 0) {
    }
    EXPECT_EQ(1, receiver.listen(0us));
    for (int i = 0; i < 5; ++i) {
        receiver.received.clear();
        EXPECT_EQ(0, quiet.notify(kRelay, 2));
        EXPECT_EQ(1, receiver.listen(0us));
        EXPECT_EQ(1, receiver.listen(0us));
        EXPECT_THAT(receiver.receivedCommands(), testing::UnorderedElementsAre(1, 2));
    }
}

TEST_F(XbusLoad, SendersLeave_OthersKeepTheirTurns) {
    Module receiver(kRelay);
    std::vector<std::unique_ptr<Module>> senders;
    for (uint32_t i = 0; i < 6; ++i) {
        senders.push_back(std::make_unique<Module>(100 + i));
        EXPECT_EQ(0, senders[i]->notify(kRelay, i));
        if (i >= 2) {
            EXPECT_EQ(0, senders[i]->notify(kRelay, i));
        }
    }
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(1, receiver.listen(0us));
    }
    senders[0].reset();
    senders[1].reset();
    while (receiver.listen(0us) == 1) {
    }
    EXPECT_THAT(receiver.receivedCommands(), ElementsAre(0, 1, 2, 3, 4, 5, 2, 3, 4, 5));
}

TEST_F(XbusLoad, SeveralHundredProcesses_Served) {
    constexpr uint32_t kCount = 200;
    Module receiver(kRelay);
    receiver.handler = [](const Invocation &call) { return static_cast<int>(call.command); };
    const Gate start;
    std::vector<std::unique_ptr<Child>> senders;
    for (uint32_t i = 0; i < kCount; ++i) {
        senders.push_back(std::make_unique<Child>([&start, i] {
            const Module module(1000 + i);
            return start.pass() && module.call(kRelay, i) == static_cast<int>(i) &&
                           module.call(kRelay, i + 1) == static_cast<int>(i + 1)
                       ? 0
                       : 1;
        }));
    }
    for (uint32_t i = 0; i < kCount; ++i) {
        start.open();
    }
    for (uint32_t i = 0; i < 2 * kCount; ++i) {
        ASSERT_EQ(1, receiver.listen()) << i;
    }
    for (const auto &sender : senders) {
        EXPECT_EQ(0, sender->wait());
    }
}

TEST_F(XbusLoad, MoreConnectionsThanSelectCould_Served) {
    constexpr uint32_t kCount = FD_SETSIZE + 200;
    rlimit before{};
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &before));
    const rlimit raised{std::max<rlim_t>(before.rlim_cur, 2 * kCount + 100), before.rlim_max};
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &raised)) << "a limit of the machine is too low";
    {
        Module receiver(kRelay);
        std::vector<RawPeer> senders;
        for (uint32_t i = 0; i < kCount; ++i) {
            senders.emplace_back(socketPath(kRelay));
            ASSERT_TRUE(senders.back().send(packetOf(noticeHead(i)))) << i;
        }
        for (uint32_t i = 0; i < kCount; ++i) {
            ASSERT_EQ(1, receiver.listen(0us)) << i;
        }
        auto commands = receiver.receivedCommands();
        std::sort(commands.begin(), commands.end());
        for (uint32_t i = 0; i < kCount; ++i) {
            ASSERT_EQ(i, commands[i]);
        }
        EXPECT_TRUE(senders.back().send(packetOf(noticeHead(kCount))));
        EXPECT_EQ(1, receiver.listen(0us));
        EXPECT_THAT(errors(), IsEmpty());
    }
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &before));
}

}  // namespace
}  // namespace lanyard::test::xbus_load_test
