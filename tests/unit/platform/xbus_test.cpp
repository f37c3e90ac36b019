// The bus between modules that behave: registration, what travels, and how long anybody waits.
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <pthread.h>
#include <string>
#include <sys/stat.h>
#include <sys/time.h>
#include <thread>
#include <unistd.h>

#include <palroot.h>
#include <xbus.h>

#include "tests/unit/platform/xbus_fixture.h"

namespace lanyard::test::xbus_test {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Clock = std::chrono::steady_clock;

constexpr uint32_t kMost = 64 * 1024;

using Xbus = XbusTest;

int ignore(void * /*busArg1*/, void * /*busArg2*/, uint32_t /*cmd*/, void * /*buf*/,
           uint32_t /*len*/, void * /*out*/, uint32_t * /*outLen*/) {
    return 0;
}

// Bytes that differ from their neighbours and from those of another seed.
Bytes pattern(size_t size, size_t seed) {
    Bytes bytes(size);
    for (size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<uint8_t>((i * 31 + i / 256 + seed) & 0xff);
    }
    return bytes;
}

TEST_F(Xbus, FolderAndFiles_AreTheirOwnersAlone) {
    const Module module(kRelay);
    EXPECT_EQ(0700U, root_.mode("/run/xbus"));
    struct stat status {};
    ASSERT_EQ(0, lstat(socketPath(kRelay).c_str(), &status));
    EXPECT_TRUE(S_ISSOCK(status.st_mode));
    EXPECT_EQ(0600U, status.st_mode & 07777U);
    EXPECT_EQ(0600U, root_.mode("/run/xbus/8.lock"));
}

TEST_F(Xbus, InitWithAFolderThatIsOpenToOthers_ClosesIt) {
    ASSERT_EQ(0, chmod(root_.path("/run/xbus").c_str(), 0777));
    EXPECT_EQ(0, xbusInit());
    EXPECT_EQ(0700U, root_.mode("/run/xbus"));
}

TEST_F(Xbus, InitWithoutAPlaceForTheFolder_Fails) {
    root_.remove("/run");
    root_.write("/run", "a file");
    EXPECT_NE(0, xbusInit());
    root_.remove("/run");
    root_.write("/run/xbus", "a file");
    EXPECT_NE(0, xbusInit());
    palRootSet("/nonexistent/root");
    EXPECT_NE(0, xbusInit());
    palRootSet(root_.folder().c_str());
}

TEST_F(Xbus, RegisterWithoutFolderOrHandler_Refused) {
    errno = 0;
    EXPECT_EQ(nullptr, xbusRegister(kRelay, XBUS_MODE_HANDLER, nullptr, nullptr));
    EXPECT_EQ(EINVAL, errno);
    root_.remove("/run/xbus");
    errno = 0;
    EXPECT_EQ(nullptr, xbusRegister(kRelay, XBUS_MODE_HANDLER, ignore, nullptr));
    EXPECT_EQ(ENOENT, errno);
}

TEST_F(Xbus, RegisterTwice_SecondRefused) {
    {
        Module first(kRelay);
        errno = 0;
        EXPECT_EQ(nullptr, xbusRegister(kRelay, XBUS_MODE_HANDLER, ignore, nullptr));
        EXPECT_EQ(EADDRINUSE, errno);
        Child other([] {
            return xbusRegister(kRelay, XBUS_MODE_HANDLER, ignore, nullptr) == nullptr &&
                           errno == EADDRINUSE
                       ? 0
                       : 1;
        });
        EXPECT_EQ(0, other.wait());

        const Module sender(kPnac);
        EXPECT_EQ(0, sender.notify(kRelay, 1)) << "the refused ones took nothing away";
        EXPECT_EQ(1, first.listen());
    }
    const Module again(kRelay);
}

TEST_F(Xbus, Unregister_LeavesNoSocket) {
    { const Module module(kRelay); }
    EXPECT_THAT(root_.list("/run/xbus"), ElementsAre("8.lock"));
    EXPECT_EQ(-1, xbusUnRegister(nullptr));
}

TEST_F(Xbus, LongRoot_Works) {
    const std::string folder = root_.folder().string() + "/" + std::string(200, 'x');
    ASSERT_EQ(0, mkdir(folder.c_str(), 0700));
    palRootSet(folder.c_str());
    ASSERT_EQ(0, xbusInit());
    Module receiver(kRelay);
    const Module sender(kPnac);
    EXPECT_TRUE(std::filesystem::exists(folder + "/run/xbus/8"));
    EXPECT_EQ(0, sender.notify(kRelay, 1));
    EXPECT_EQ(1, receiver.listen());
    palRootSet(root_.folder().c_str());
    EXPECT_EQ(0, sender.notify(kRelay, 2)) << "modules stay where they registered";
    EXPECT_EQ(1, receiver.listen());
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
    for (const uint32_t size : {1, 3, 7, 33}) {
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

TEST_F(Xbus, CallThatIsNotAnswered_EndsAfterFiveSeconds) {
    const Module receiver(kRelay);
    const Module sender(kPnac);
    Bytes out{1, 2, 3};
    {
        const ShortWaits waits;
        errno = 0;
        EXPECT_EQ(-1, sender.call(kRelay, 1, {}, out));
        EXPECT_EQ(ETIMEDOUT, errno);
        ASSERT_EQ(1U, ShortWaits::asked().size());
        EXPECT_LE(ShortWaits::asked()[0], 5s);
        EXPECT_GT(ShortWaits::asked()[0], 4s);
    }
    EXPECT_EQ((Bytes{1, 2, 3}), out);
}

TEST_F(Xbus, CallToAFullQueue_EndsAfterFiveSeconds) {
    const Module receiver(kRelay);
    const Module sender(kPnac);
    while (sender.notify(kRelay, 1) == 0) {
    }
    const ShortWaits waits;
    EXPECT_EQ(-1, sender.call(kRelay, 1));
    ASSERT_EQ(1U, ShortWaits::asked().size());
    EXPECT_LE(ShortWaits::asked()[0], 5s);
    EXPECT_GT(ShortWaits::asked()[0], 4s);
}

TEST_F(Xbus, LateAnswer_NotTakenForTheNextOne) {
    const Gate ready;
    const Gate start;
    Child child([&] {
        Module module(kRelay);
        module.handler = [](const Invocation &call) { return static_cast<int>(call.command); };
        ready.open();
        if (!start.pass()) {
            return 2;
        }
        for (int i = 0; i < 4; ++i) {
            if (module.listen() != 1) {
                return 1;
            }
        }
        return 0;
    });
    ASSERT_TRUE(ready.pass());
    const Module sender(kPnac);
    {
        const ShortWaits waits;
        EXPECT_EQ(-1, sender.call(kRelay, 101));
        EXPECT_EQ(-1, sender.call(kRelay, 102));
    }
    start.open();
    EXPECT_EQ(103, sender.call(kRelay, 103));
    EXPECT_EQ(104, sender.call(kRelay, 104));
    EXPECT_EQ(0, child.wait());
}

// Opened by the third signal.
const Gate *gateOfSignals = nullptr;
volatile std::sig_atomic_t signalsLeft = 0;

void openGateAtLast(int /*signal*/) {
    if (signalsLeft > 0) {
        signalsLeft = signalsLeft - 1;
        if (signalsLeft == 0) {
            gateOfSignals->open();
        }
    }
}

TEST_F(Xbus, SignalsDuringACall_ItWaitsOn) {
    const Gate ready;
    const Gate interrupted;
    Child child([&] {
        Module module(kRelay);
        ready.open();
        return interrupted.pass() && module.listen() == 1 ? 0 : 1;
    });
    ASSERT_TRUE(ready.pass());
    const Module sender(kPnac);
    gateOfSignals = &interrupted;
    signalsLeft = 3;
    struct sigaction action {};
    struct sigaction before {};
    action.sa_handler = openGateAtLast;
    sigaction(SIGALRM, &action, &before);
    const itimerval every{{0, 5000}, {0, 5000}};
    setitimer(ITIMER_REAL, &every, nullptr);
    EXPECT_EQ(0, sender.call(kRelay, 1));
    const itimerval never{};
    setitimer(ITIMER_REAL, &never, nullptr);
    sigaction(SIGALRM, &before, nullptr);
    EXPECT_EQ(0, child.wait());
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

TEST_F(Xbus, Listen_HandlesOneMessageACall) {
    Module receiver(kRelay);
    const Module sender(kPnac);
    const Module other(kPnac + 1);
    for (const uint32_t command : {1U, 2U, 3U}) {
        EXPECT_EQ(0, sender.notify(kRelay, command));
        EXPECT_EQ(0, other.notify(kRelay, command + 10));
    }
    for (size_t handled = 1; handled <= 6; ++handled) {
        EXPECT_EQ(1, receiver.listen());
        EXPECT_EQ(handled, receiver.received.size());
    }
    EXPECT_EQ(0, receiver.listen(0us));
}

TEST_F(Xbus, ListenWithoutMessages_EndsWithTheTimeout) {
    Module receiver(kRelay);
    const auto start = Clock::now();
    EXPECT_EQ(0, receiver.listen(0us));
    EXPECT_EQ(0, receiver.listen(30ms));
    EXPECT_GE(Clock::now() - start, 30ms);
    EXPECT_LT(Clock::now() - start, 10s);
}

TEST_F(Xbus, ListenWithoutATimeout_SeesWhatANewSenderSent) {
    Module receiver(kRelay);
    const Module sender(kPnac);
    EXPECT_EQ(0, sender.notify(kRelay, 1));
    EXPECT_EQ(1, receiver.listen(0us));
}

TEST_F(Xbus, MessageWhileListening_EndsTheWait) {
    const Gate listening;
    Child child([&listening] {
        const Module sender(kPnac);
        return listening.pass() && sender.notify(kRelay, 1) == 0 ? 0 : 1;
    });
    Module receiver(kRelay);
    listening.open();
    const auto start = Clock::now();
    EXPECT_EQ(1, receiver.listen());
    EXPECT_LT(Clock::now() - start, 10s);
    EXPECT_EQ(0, child.wait());
}

// Sends a signal to the thread that makes it, again and again until it is destroyed.
class Signals {
  public:
    Signals() {
        struct sigaction action {};
        action.sa_handler = [](int /*signal*/) {};
        action.sa_flags = SA_RESTART;
        sigaction(SIGUSR1, &action, &before_);
        worker_ = std::thread([this, target = pthread_self()] {
            while (!isOver_) {
                pthread_kill(target, SIGUSR1);
                std::this_thread::yield();
            }
        });
    }
    ~Signals() {
        isOver_ = true;
        worker_.join();
        sigaction(SIGUSR1, &before_, nullptr);
    }
    Signals(const Signals &) = delete;
    Signals &operator=(const Signals &) = delete;
    Signals(Signals &&) = delete;
    Signals &operator=(Signals &&) = delete;

  private:
    std::atomic<bool> isOver_{false};
    struct sigaction before_ {};
    std::thread worker_;
};

TEST_F(Xbus, SignalWhileListening_EndsTheWait) {
    Module receiver(kRelay);
    const Signals signals;
    const auto start = Clock::now();
    EXPECT_EQ(0, receiver.listen());
    EXPECT_EQ(0, xbusListen(nullptr, 20'000'000)) << "also after an error";
    EXPECT_LT(Clock::now() - start, 10s);
}

TEST_F(Xbus, ListenThatFails_WaitsOutTheTimeout) {
    auto start = Clock::now();
    EXPECT_EQ(-1, xbusListen(nullptr, 30'000));
    EXPECT_GE(Clock::now() - start, 30ms);

    // No descriptor is left for the sender's connection.
    Module receiver(kRelay);
    const Module sender(kPnac);
    EXPECT_EQ(0, sender.notify(kRelay, 1));
    std::optional<NoDescriptors> none(std::in_place);
    start = Clock::now();
    const int result = receiver.listen(30ms);
    const auto waited = Clock::now() - start;
    none.reset();
    EXPECT_EQ(-1, result);
    EXPECT_GE(waited, 30ms);
    EXPECT_THAT(errors(), ElementsAre(HasSubstr("no sender can connect")));
    EXPECT_EQ(1, receiver.listen(0us)) << "the message is still there";
}

TEST_F(Xbus, NobodyElseCanConnect_WhoIsConnectedIsServed) {
    Module receiver(kRelay);
    const Module connected(kPnac);
    const Module stranger(kPnac + 1);
    EXPECT_EQ(0, connected.notify(kRelay, 1));
    EXPECT_EQ(1, receiver.listen());
    EXPECT_EQ(0, stranger.notify(kRelay, 2));
    EXPECT_EQ(0, connected.notify(kRelay, 3));
    std::optional<NoDescriptors> none(std::in_place);
    const int result = receiver.listen();
    none.reset();
    EXPECT_EQ(1, result);
    EXPECT_THAT(receiver.receivedCommands(), ElementsAre(1, 3));
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

TEST_F(Xbus, LateAnswers_LeaveRoomForTheNext) {
    constexpr int kLateCalls = 3;  // as many as fill both queues with the largest messages
    const Gate start;
    const Gate over;
    Child child([&] {
        Module module(kRelay);
        module.handler = [](const Invocation &call) { return static_cast<int>(call.command); };
        over.open();
        bool isSound = start.pass();
        for (int i = 0; i < kLateCalls; ++i) {
            isSound = isSound && module.listen() == 1;
        }
        over.open();
        return isSound && module.listen() == 1 ? 0 : 1;
    });
    ASSERT_TRUE(over.pass());
    const Module sender(kPnac);
    Bytes out(kMost);
    for (int i = 0; i < kLateCalls; ++i) {
        const ShortWaits waits;
        EXPECT_EQ(-1, sender.call(kRelay, 1, {}, out));
    }
    start.open();
    ASSERT_TRUE(over.pass());
    EXPECT_EQ(2, sender.call(kRelay, 2, {}, out));
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
}  // namespace lanyard::test::xbus_test
