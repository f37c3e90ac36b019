// What travels on the bus between modules that behave: commands, buffers there and back, results.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <span>

#include <xbus.h>

#include "tests/unit/platform/xbus_fixture.h"

namespace lanyard::test::xbus_message_test {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

using Xbus = XbusTest;

// Bytes that differ from their neighbours and from those of another seed.
Bytes pattern(size_t size, size_t seed) {
    Bytes bytes(size);
    for (size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<uint8_t>((i * 31 + i / 256 + seed) & 0xff);
    }
    return bytes;
}

TEST_F(Xbus, Call_CarriesBothBuffersThereAndBack) {
    const Gate ready;
    Child child([&ready] {
        Module module(kRelay);
        module.handler = [](const Invocation &call) {
            if (!std::equal(call.buf.begin(), call.buf.end(), call.out.begin() + 2)) {
                return -7;
            }
            std::reverse(call.out.begin(), call.out.end());
            *call.outLength -= 2;
            return static_cast<int>(call.command);
        };
        ready.open();
        return module.listen() == 1 && module.listen() == 1 ? 0 : 1;
    });
    ASSERT_TRUE(ready.pass());
    const Module sender(kPnac);
    Bytes out{1, 2, 3, 4, 5};
    EXPECT_EQ(0x12345678, sender.call(kRelay, 0x12345678, {3, 4, 5}, out));
    EXPECT_EQ((Bytes{5, 4, 3}), out);
    out = {1, 2, 3, 4};
    EXPECT_EQ(-7, sender.call(kRelay, 0x80000000, {9}, out));
    EXPECT_EQ((Bytes{1, 2, 3, 4}), out);
    EXPECT_EQ(0, child.wait());
}

TEST_F(Xbus, NullAndEmptyBuffers_ArriveAsSuch) {
    Module receiver(kRelay);
    const Module sender(kPnac);
    const char byte = 0;
    char outByte = 0;
    uint32_t none = 0;
    EXPECT_EQ(0, xbusIoctl(sender.context(), kRelay, 1, nullptr, 0, nullptr, nullptr, XBUS_NO_WAIT,
                           0, 0));
    EXPECT_EQ(
        0, xbusIoctl(sender.context(), kRelay, 2, &byte, 0, &outByte, &none, XBUS_NO_WAIT, 0, 0));
    EXPECT_EQ(
        0, xbusIoctl(sender.context(), kRelay, 3, nullptr, 0, &outByte, &none, XBUS_NO_WAIT, 0, 0));
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(1, receiver.listen());
    }
    EXPECT_THAT(receiver.received, ElementsAre(Received{1, {}, {}}, Received{2, Bytes{}, Bytes{}},
                                               Received{3, {}, Bytes{}}));
}

TEST_F(Xbus, Buffers_AlignedForAnyType) {
    Module receiver(kRelay);
    const Module sender(kPnac);
    receiver.handler = [](const Invocation &call) {
        const auto offset = [](const uint8_t *at) {
            return reinterpret_cast<uintptr_t>(at) % alignof(std::max_align_t);
        };
        EXPECT_EQ(0U, offset(call.buf.data()));
        EXPECT_EQ(0U, offset(call.out.data()));
        return 0;
    };
    for (const uint32_t size : {1U, 3U, 7U, 33U}) {
        Bytes out(size + 1);
        auto outLength = static_cast<uint32_t>(out.size());
        const Bytes buf(size);
        ASSERT_EQ(0, xbusIoctl(sender.context(), kRelay, 1, buf.data(), size, out.data(),
                               &outLength, XBUS_NO_WAIT, 0, 0));
        EXPECT_EQ(1, receiver.listen());
    }
}

TEST_F(Xbus, NoticeToAModuleThatDoesNotListenYet_HandedOver) {
    Module receiver(kRelay);
    const Module sender(kPnac);
    Bytes out{1, 2, 3};
    uint32_t outLength = 3;
    const Bytes buf{7};
    EXPECT_EQ(0, xbusIoctl(sender.context(), kRelay, 4, buf.data(), 1, out.data(), &outLength,
                           XBUS_NO_WAIT, 0, 0));
    receiver.handler = [](const Invocation &call) {
        EXPECT_EQ((Bytes{1, 2, 3}), Bytes(call.out.begin(), call.out.end()));
        call.out[0] = 99;
        return 5;
    };
    EXPECT_EQ(1, receiver.listen());
    EXPECT_EQ((Bytes{1, 2, 3}), out) << "nothing travels back to who does not wait";
    EXPECT_EQ(3U, outLength);
}

TEST_F(Xbus, AbsentModule_ReturnsMinusOne) {
    const Module sender(kPnac);
    EXPECT_EQ(-1, sender.notify(kRelay, 1));
    EXPECT_EQ(-1, sender.call(kRelay, 1));
    { const Module gone(kRelay); }
    EXPECT_EQ(-1, sender.notify(kRelay, 1));
    EXPECT_EQ(-1, sender.call(kRelay, 1));
    {
        const Module gone(kRelay);
        EXPECT_EQ(0, sender.notify(kRelay, 1));
    }
    EXPECT_EQ(-1, sender.notify(kRelay, 1)) << "also where there is a connection";
    EXPECT_EQ(-1, sender.call(kRelay, 1));
}

TEST_F(Xbus, ImpossibleArguments_Refused) {
    Module receiver(kRelay);
    const Module sender(kPnac);
    const char byte = 0;
    uint32_t one = 1;
    EXPECT_EQ(-1, xbusIoctl(nullptr, kRelay, 1, nullptr, 0, nullptr, nullptr, XBUS_NO_WAIT, 0, 0));
    EXPECT_EQ(-1, xbusIoctl(sender.context(), kRelay, 1, nullptr, 1, nullptr, nullptr, XBUS_NO_WAIT,
                            0, 0));
    EXPECT_EQ(-1,
              xbusIoctl(sender.context(), kRelay, 1, &byte, 1, nullptr, &one, XBUS_NO_WAIT, 0, 0));
    for (const uint32_t flags : {1U, 3U, 4U, 0x80000002U}) {
        EXPECT_EQ(-1,
                  xbusIoctl(sender.context(), kRelay, 1, &byte, 1, nullptr, nullptr, flags, 0, 0));
    }
    EXPECT_EQ(0, receiver.listen(0us)) << "nothing was sent";
}

TEST_F(Xbus, FullQueue_ReturnsMinusOneAndLosesNothing) {
    Module receiver(kRelay);
    const Module sender(kPnac);
    uint32_t sent = 0;
    while (sender.notify(kRelay, sent, pattern(100, sent)) == 0) {
        ++sent;
        ASSERT_LT(sent, 1'000'000U) << "a queue without an end";
    }
    EXPECT_EQ(EAGAIN, errno);
    EXPECT_GT(sent, 50U);
    for (uint32_t i = 0; i < sent; ++i) {
        ASSERT_EQ(1, receiver.listen(0us)) << i;
        ASSERT_EQ(i, receiver.received.back().command);
        ASSERT_EQ(pattern(100, i), receiver.received.back().buf);
    }
    EXPECT_EQ(0, receiver.listen(0us));
    EXPECT_EQ(0, sender.notify(kRelay, sent)) << "there is room again";
    EXPECT_EQ(1, receiver.listen(0us));
}

TEST_F(Xbus, SixtyFourKiBInEachBuffer_Arrive) {
    const Gate ready;
    Child child([&ready] {
        Module module(kRelay);
        module.handler = [](const Invocation &call) {
            const Bytes buf(call.buf.begin(), call.buf.end());
            const Bytes out(call.out.begin(), call.out.end());
            if (buf != pattern(kMost, 1) || out != pattern(kMost, 2)) {
                return -2;
            }
            std::copy(buf.rbegin(), buf.rend(), call.out.begin());
            return 1;
        };
        ready.open();
        return module.listen() == 1 && module.listen() == 1 ? 0 : 1;
    });
    ASSERT_TRUE(ready.pass());
    const Module sender(kPnac);
    const Bytes buf = pattern(kMost, 1);
    Bytes out = pattern(kMost, 2);
    uint32_t outLength = kMost;
    EXPECT_EQ(0, xbusIoctl(sender.context(), kRelay, 1, buf.data(), kMost, out.data(), &outLength,
                           XBUS_NO_WAIT, 0, 0));
    EXPECT_EQ(1, sender.call(kRelay, 1, buf, out));
    EXPECT_EQ(Bytes(buf.rbegin(), buf.rend()), out);
    EXPECT_EQ(0, child.wait());
}

TEST_F(Xbus, MoreThan64KiB_NotSent) {
    Module receiver(kRelay);
    const Module sender(kPnac);
    EXPECT_EQ(-1, sender.notify(kRelay, 1, Bytes(kMost + 1)));
    Bytes out(kMost + 1);
    EXPECT_EQ(-1, sender.call(kRelay, 1, {}, out));
    EXPECT_THAT(errors(), ElementsAre(HasSubstr("oversized"), HasSubstr("oversized")));
    EXPECT_EQ(0, receiver.listen(0us));
    EXPECT_EQ(0, sender.notify(kRelay, 2, Bytes(kMost)));
    EXPECT_EQ(1, receiver.listen(0us));
}

TEST_F(Xbus, HandlerThatSends_IsHeard) {
    Module receiver(kRelay);
    Module sender(kPnac);
    receiver.handler = [&receiver](const Invocation &call) {
        return receiver.notify(kPnac, call.command + 1);
    };
    EXPECT_EQ(0, sender.notify(kRelay, 1));
    EXPECT_EQ(1, receiver.listen());
    EXPECT_EQ(1, sender.listen());
    EXPECT_THAT(sender.receivedCommands(), ElementsAre(2));
}

TEST_F(Xbus, HandlerThatCalls_GetsItsAnswer) {
    const Gate ready;
    Child child([&ready] {
        Module module(kPnac + 1);
        module.handler = [](const Invocation &call) {
            std::fill(call.out.begin(), call.out.end(), uint8_t{9});
            return 7;
        };
        ready.open();
        return module.listen() == 1 ? 0 : 1;
    });
    ASSERT_TRUE(ready.pass());
    Module receiver(kRelay);
    const Module sender(kPnac);
    receiver.handler = [&receiver](const Invocation &call) {
        Bytes out(kMost);
        EXPECT_EQ(7, receiver.call(kPnac + 1, 1, Bytes(kMost, 8), out));
        EXPECT_EQ(Bytes(kMost, 9), out);
        EXPECT_EQ(pattern(kMost, 1), Bytes(call.buf.begin(), call.buf.end()));
        EXPECT_EQ(pattern(kMost, 2), Bytes(call.out.begin(), call.out.end()));
        return 0;
    };
    const Bytes buf = pattern(kMost, 1);
    Bytes out = pattern(kMost, 2);
    uint32_t outLength = kMost;
    EXPECT_EQ(0, xbusIoctl(sender.context(), kRelay, 1, buf.data(), kMost, out.data(), &outLength,
                           XBUS_NO_WAIT, 0, 0));
    EXPECT_EQ(1, receiver.listen());
    EXPECT_EQ(0, child.wait());
}

#ifdef __SANITIZE_ADDRESS__
using XbusDeathTest = Xbus;

TEST_F(XbusDeathTest, ReadPastABuffer_SeenByAddressSanitizer) {
    Module receiver(kRelay);
    const Module sender(kPnac);
    for (const bool isOut : {false, true}) {
        receiver.handler = [isOut](const Invocation &call) {
            const std::span<uint8_t> part = isOut ? call.out : call.buf;
            return static_cast<const volatile uint8_t *>(part.data())[part.size()];
        };
        Bytes out(5);
        uint32_t outLength = 5;
        const Bytes buf(3);
        ASSERT_EQ(0, xbusIoctl(sender.context(), kRelay, 1, buf.data(), 3, out.data(), &outLength,
                               XBUS_NO_WAIT, 0, 0));
        EXPECT_DEATH(receiver.listen(), "use-after-poison");
    }
}

TEST_F(XbusDeathTest, UseAfterTheHandler_SeenByAddressSanitizer) {
    Module receiver(kRelay);
    const Module sender(kPnac);
    const volatile uint8_t *kept = nullptr;
    receiver.handler = [&kept](const Invocation &call) {
        kept = call.buf.data();
        return 0;
    };
    ASSERT_EQ(0, sender.notify(kRelay, 1, Bytes(3)));
    ASSERT_EQ(1, receiver.listen());
    EXPECT_DEATH((void)kept[0], "use-after-poison");
}
#endif

TEST_F(Xbus, HandlerThatSendsBackMoreThanItGot_CutToThat) {
    const Gate ready;
    Child child([&ready] {
        Module module(kRelay);
        module.handler = [](const Invocation &call) {
            *call.outLength = 1'000'000;
            return 0;
        };
        ready.open();
        return module.listen() == 1 ? 0 : 1;
    });
    ASSERT_TRUE(ready.pass());
    const Module sender(kPnac);
    Bytes out{1, 2, 3};
    EXPECT_EQ(0, sender.call(kRelay, 1, {}, out));
    EXPECT_EQ((Bytes{1, 2, 3}), out);
    EXPECT_EQ(0, child.wait());
    EXPECT_THAT(errors(), IsEmpty());
}

}  // namespace
}  // namespace lanyard::test::xbus_message_test
