/**
 * @file
 * The bus between modules that behave: registration, what travels, and how long anybody waits.
 */
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
#include <pthread.h>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <thread>
#include <unistd.h>

#include <palroot.h>
#include <xbus.h>

#include "tests/unit/platform/xbus_fixture.h"

namespace {

using namespace std::chrono_literals;
using test::Bytes;
using test::Child;
using test::Gate;
using test::Invocation;
using test::Module;
using test::Received;
using test::ShortWaits;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Clock = std::chrono::steady_clock;

constexpr uint32_t pnac = 6;
constexpr uint32_t relay = 8;
constexpr uint32_t most = 64 * 1024;

using Xbus = test::XbusTest;

int ignore(void * /*busArg1*/, void * /*busArg2*/, uint32_t /*cmd*/, void * /*buf*/,
           uint32_t /*len*/, void * /*out*/, uint32_t * /*outLen*/) {
    return 0;
}

/** Bytes that differ from their neighbours and from those of another seed. */
Bytes pattern(std::size_t size, std::size_t seed) {
    Bytes bytes(size);
    for (std::size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<uint8_t>((i * 31 + i / 256 + seed) & 0xff);
    }
    return bytes;
}

TEST_F(Xbus, IsItsOwnersAlone) {
    const Module module(relay);
    EXPECT_EQ(root_.mode("/run/xbus"), 0700U);
    struct stat status {};
    ASSERT_EQ(lstat(socketPath(relay).c_str(), &status), 0);
    EXPECT_TRUE(S_ISSOCK(status.st_mode));
    EXPECT_EQ(status.st_mode & 07777U, 0600U);
    EXPECT_EQ(root_.mode("/run/xbus/8.lock"), 0600U);
}

TEST_F(Xbus, InitClosesAFolderThatIsOpenToOthers) {
    ASSERT_EQ(chmod(root_.path("/run/xbus").c_str(), 0777), 0);
    EXPECT_EQ(xbusInit(), 0);
    EXPECT_EQ(root_.mode("/run/xbus"), 0700U);
}

TEST_F(Xbus, InitFailsWithoutAPlaceForTheFolder) {
    root_.remove("/run");
    root_.write("/run", "a file");
    EXPECT_NE(xbusInit(), 0);
    root_.remove("/run");
    root_.write("/run/xbus", "a file");
    EXPECT_NE(xbusInit(), 0);
    palRootSet("/nonexistent/root");
    EXPECT_NE(xbusInit(), 0);
    palRootSet(root_.folder().c_str());
}

TEST_F(Xbus, RegisteringNeedsTheFolderAndAHandler) {
    errno = 0;
    EXPECT_EQ(xbusRegister(relay, XBUS_MODE_HANDLER, nullptr, nullptr), nullptr);
    EXPECT_EQ(errno, EINVAL);
    root_.remove("/run/xbus");
    errno = 0;
    EXPECT_EQ(xbusRegister(relay, XBUS_MODE_HANDLER, ignore, nullptr), nullptr);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(Xbus, AModuleIsThereOnce) {
    {
        Module first(relay);
        errno = 0;
        EXPECT_EQ(xbusRegister(relay, XBUS_MODE_HANDLER, ignore, nullptr), nullptr);
        EXPECT_EQ(errno, EADDRINUSE);
        Child other([] {
            return xbusRegister(relay, XBUS_MODE_HANDLER, ignore, nullptr) == nullptr &&
                           errno == EADDRINUSE
                       ? 0
                       : 1;
        });
        EXPECT_EQ(other.wait(), 0);

        const Module sender(pnac);
        EXPECT_EQ(sender.notify(relay, 1), 0) << "the refused ones took nothing away";
        EXPECT_EQ(first.listen(), 1);
    }
    const Module again(relay);
}

TEST_F(Xbus, UnregisteringLeavesNoSocket) {
    { const Module module(relay); }
    EXPECT_THAT(root_.list("/run/xbus"), ElementsAre("8.lock"));
    EXPECT_EQ(xbusUnRegister(nullptr), -1);
}

TEST_F(Xbus, WorksBelowALongRoot) {
    const std::string folder = root_.folder().string() + "/" + std::string(200, 'x');
    ASSERT_EQ(mkdir(folder.c_str(), 0700), 0);
    palRootSet(folder.c_str());
    ASSERT_EQ(xbusInit(), 0);
    Module receiver(relay);
    const Module sender(pnac);
    EXPECT_TRUE(std::filesystem::exists(folder + "/run/xbus/8"));
    EXPECT_EQ(sender.notify(relay, 1), 0);
    EXPECT_EQ(receiver.listen(), 1);
    palRootSet(root_.folder().c_str());
    EXPECT_EQ(sender.notify(relay, 2), 0) << "modules stay where they registered";
    EXPECT_EQ(receiver.listen(), 1);
}

TEST_F(Xbus, ACallCarriesBothBuffersThereAndBack) {
    const Gate ready;
    Child child([&ready] {
        Module module(relay);
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
    const Module sender(pnac);
    Bytes out{1, 2, 3, 4, 5};
    EXPECT_EQ(sender.call(relay, 0x12345678, {3, 4, 5}, out), 0x12345678);
    EXPECT_EQ(out, (Bytes{5, 4, 3}));
    out = {1, 2, 3, 4};
    EXPECT_EQ(sender.call(relay, 0x80000000, {9}, out), -7);
    EXPECT_EQ(out, (Bytes{1, 2, 3, 4}));
    EXPECT_EQ(child.wait(), 0);
}

TEST_F(Xbus, NullStaysNullAndEmptyStaysEmpty) {
    Module receiver(relay);
    const Module sender(pnac);
    const char byte = 0;
    char outByte = 0;
    uint32_t none = 0;
    EXPECT_EQ(
        xbusIoctl(sender.context(), relay, 1, nullptr, 0, nullptr, nullptr, XBUS_NO_WAIT, 0, 0), 0);
    EXPECT_EQ(xbusIoctl(sender.context(), relay, 2, &byte, 0, &outByte, &none, XBUS_NO_WAIT, 0, 0),
              0);
    EXPECT_EQ(
        xbusIoctl(sender.context(), relay, 3, nullptr, 0, &outByte, &none, XBUS_NO_WAIT, 0, 0), 0);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(receiver.listen(), 1);
    }
    EXPECT_THAT(receiver.received, ElementsAre(Received{1, {}, {}}, Received{2, Bytes{}, Bytes{}},
                                               Received{3, {}, Bytes{}}));
}

TEST_F(Xbus, BuffersAreAlignedForAnyType) {
    Module receiver(relay);
    const Module sender(pnac);
    receiver.handler = [](const Invocation &call) {
        const auto offset = [](const uint8_t *at) {
            return reinterpret_cast<std::uintptr_t>(at) % alignof(std::max_align_t);
        };
        EXPECT_EQ(offset(call.buf.data()), 0U);
        EXPECT_EQ(offset(call.out.data()), 0U);
        return 0;
    };
    for (const uint32_t size : {1, 3, 7, 33}) {
        Bytes out(size + 1);
        auto outLength = static_cast<uint32_t>(out.size());
        const Bytes buf(size);
        ASSERT_EQ(xbusIoctl(sender.context(), relay, 1, buf.data(), size, out.data(), &outLength,
                            XBUS_NO_WAIT, 0, 0),
                  0);
        EXPECT_EQ(receiver.listen(), 1);
    }
}

TEST_F(Xbus, ANoticeIsHandedOverToAModuleThatDoesNotListenYet) {
    Module receiver(relay);
    const Module sender(pnac);
    Bytes out{1, 2, 3};
    uint32_t outLength = 3;
    const Bytes buf{7};
    EXPECT_EQ(xbusIoctl(sender.context(), relay, 4, buf.data(), 1, out.data(), &outLength,
                        XBUS_NO_WAIT, 0, 0),
              0);
    receiver.handler = [](const Invocation &call) {
        EXPECT_EQ(Bytes(call.out.begin(), call.out.end()), (Bytes{1, 2, 3}));
        call.out[0] = 99;
        return 5;
    };
    EXPECT_EQ(receiver.listen(), 1);
    EXPECT_EQ(out, (Bytes{1, 2, 3})) << "nothing travels back to who does not wait";
    EXPECT_EQ(outLength, 3U);
}

TEST_F(Xbus, AnAbsentModuleYieldsMinusOne) {
    const Module sender(pnac);
    EXPECT_EQ(sender.notify(relay, 1), -1);
    EXPECT_EQ(sender.call(relay, 1), -1);
    { const Module gone(relay); }
    EXPECT_EQ(sender.notify(relay, 1), -1);
    EXPECT_EQ(sender.call(relay, 1), -1);
    {
        const Module gone(relay);
        EXPECT_EQ(sender.notify(relay, 1), 0);
    }
    EXPECT_EQ(sender.notify(relay, 1), -1) << "also where there is a connection";
    EXPECT_EQ(sender.call(relay, 1), -1);
}

TEST_F(Xbus, ImpossibleArgumentsAreRefused) {
    Module receiver(relay);
    const Module sender(pnac);
    const char byte = 0;
    uint32_t one = 1;
    EXPECT_EQ(xbusIoctl(nullptr, relay, 1, nullptr, 0, nullptr, nullptr, XBUS_NO_WAIT, 0, 0), -1);
    EXPECT_EQ(
        xbusIoctl(sender.context(), relay, 1, nullptr, 1, nullptr, nullptr, XBUS_NO_WAIT, 0, 0),
        -1);
    EXPECT_EQ(xbusIoctl(sender.context(), relay, 1, &byte, 1, nullptr, &one, XBUS_NO_WAIT, 0, 0),
              -1);
    for (const uint32_t flags : {1U, 3U, 4U, 0x80000002U}) {
        EXPECT_EQ(xbusIoctl(sender.context(), relay, 1, &byte, 1, nullptr, nullptr, flags, 0, 0),
                  -1);
    }
    EXPECT_EQ(receiver.listen(0us), 0) << "nothing was sent";
}

TEST_F(Xbus, ACallThatIsNotAnsweredEndsAfterFiveSeconds) {
    const Module receiver(relay);
    const Module sender(pnac);
    Bytes out{1, 2, 3};
    {
        const ShortWaits waits;
        errno = 0;
        EXPECT_EQ(sender.call(relay, 1, {}, out), -1);
        EXPECT_EQ(errno, ETIMEDOUT);
        ASSERT_EQ(ShortWaits::asked().size(), 1U);
        EXPECT_LE(ShortWaits::asked()[0], 5s);
        EXPECT_GT(ShortWaits::asked()[0], 4s);
    }
    EXPECT_EQ(out, (Bytes{1, 2, 3}));
}

TEST_F(Xbus, ACallToAFullQueueEndsAfterFiveSeconds) {
    const Module receiver(relay);
    const Module sender(pnac);
    while (sender.notify(relay, 1) == 0) {
    }
    const ShortWaits waits;
    EXPECT_EQ(sender.call(relay, 1), -1);
    ASSERT_EQ(ShortWaits::asked().size(), 1U);
    EXPECT_LE(ShortWaits::asked()[0], 5s);
    EXPECT_GT(ShortWaits::asked()[0], 4s);
}

TEST_F(Xbus, ALateAnswerIsNotTakenForTheNextOne) {
    const Gate ready;
    const Gate start;
    Child child([&] {
        Module module(relay);
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
    const Module sender(pnac);
    {
        const ShortWaits waits;
        EXPECT_EQ(sender.call(relay, 101), -1);
        EXPECT_EQ(sender.call(relay, 102), -1);
    }
    start.open();
    EXPECT_EQ(sender.call(relay, 103), 103);
    EXPECT_EQ(sender.call(relay, 104), 104);
    EXPECT_EQ(child.wait(), 0);
}

/** Opened by the third signal. */
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

TEST_F(Xbus, ACallWaitsOnThroughSignals) {
    const Gate ready;
    const Gate interrupted;
    Child child([&] {
        Module module(relay);
        ready.open();
        return interrupted.pass() && module.listen() == 1 ? 0 : 1;
    });
    ASSERT_TRUE(ready.pass());
    const Module sender(pnac);
    gateOfSignals = &interrupted;
    signalsLeft = 3;
    struct sigaction action {};
    struct sigaction before {};
    action.sa_handler = openGateAtLast;
    sigaction(SIGALRM, &action, &before);
    const itimerval every{{0, 5000}, {0, 5000}};
    setitimer(ITIMER_REAL, &every, nullptr);
    EXPECT_EQ(sender.call(relay, 1), 0);
    const itimerval never{};
    setitimer(ITIMER_REAL, &never, nullptr);
    sigaction(SIGALRM, &before, nullptr);
    EXPECT_EQ(child.wait(), 0);
}

TEST_F(Xbus, AFullQueueYieldsMinusOneAndLosesNothing) {
    Module receiver(relay);
    const Module sender(pnac);
    uint32_t sent = 0;
    while (sender.notify(relay, sent, pattern(100, sent)) == 0) {
        ++sent;
        ASSERT_LT(sent, 1'000'000U) << "a queue without an end";
    }
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_GT(sent, 50U);
    for (uint32_t i = 0; i < sent; ++i) {
        ASSERT_EQ(receiver.listen(0us), 1) << i;
        ASSERT_EQ(receiver.received.back().command, i);
        ASSERT_EQ(receiver.received.back().buf, pattern(100, i));
    }
    EXPECT_EQ(receiver.listen(0us), 0);
    EXPECT_EQ(sender.notify(relay, sent), 0) << "there is room again";
    EXPECT_EQ(receiver.listen(0us), 1);
}

TEST_F(Xbus, ListeningHandlesOneMessageACall) {
    Module receiver(relay);
    const Module sender(pnac);
    const Module other(pnac + 1);
    for (const uint32_t command : {1U, 2U, 3U}) {
        EXPECT_EQ(sender.notify(relay, command), 0);
        EXPECT_EQ(other.notify(relay, command + 10), 0);
    }
    for (std::size_t handled = 1; handled <= 6; ++handled) {
        EXPECT_EQ(receiver.listen(), 1);
        EXPECT_EQ(receiver.received.size(), handled);
    }
    EXPECT_EQ(receiver.listen(0us), 0);
}

TEST_F(Xbus, ListeningEndsWithTheTimeout) {
    Module receiver(relay);
    const auto start = Clock::now();
    EXPECT_EQ(receiver.listen(0us), 0);
    EXPECT_EQ(receiver.listen(30ms), 0);
    EXPECT_GE(Clock::now() - start, 30ms);
    EXPECT_LT(Clock::now() - start, 10s);
}

TEST_F(Xbus, ListeningWithoutATimeoutSeesWhatANewSenderSent) {
    Module receiver(relay);
    const Module sender(pnac);
    EXPECT_EQ(sender.notify(relay, 1), 0);
    EXPECT_EQ(receiver.listen(0us), 1);
}

TEST_F(Xbus, ListeningIsWokenByAMessage) {
    const Gate listening;
    Child child([&listening] {
        const Module sender(pnac);
        return listening.pass() && sender.notify(relay, 1) == 0 ? 0 : 1;
    });
    Module receiver(relay);
    listening.open();
    const auto start = Clock::now();
    EXPECT_EQ(receiver.listen(), 1);
    EXPECT_LT(Clock::now() - start, 10s);
    EXPECT_EQ(child.wait(), 0);
}

/** Sends a signal to the thread that makes it, again and again until it is destroyed. */
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

TEST_F(Xbus, ASignalEndsListening) {
    Module receiver(relay);
    const Signals signals;
    const auto start = Clock::now();
    EXPECT_EQ(receiver.listen(), 0);
    EXPECT_EQ(xbusListen(nullptr, 20'000'000), 0) << "also after an error";
    EXPECT_LT(Clock::now() - start, 10s);
}

TEST_F(Xbus, AnErrorWaitsOutTheTimeout) {
    auto start = Clock::now();
    EXPECT_EQ(xbusListen(nullptr, 30'000), -1);
    EXPECT_GE(Clock::now() - start, 30ms);

    // No descriptor is left for the sender's connection.
    Module receiver(relay);
    const Module sender(pnac);
    EXPECT_EQ(sender.notify(relay, 1), 0);
    const int firstFree = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
    ASSERT_NE(firstFree, -1);
    close(firstFree);
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit none{static_cast<rlim_t>(firstFree), before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    start = Clock::now();
    const int result = receiver.listen(30ms);
    const auto waited = Clock::now() - start;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_EQ(result, -1);
    EXPECT_GE(waited, 30ms);
    EXPECT_THAT(errors(), ElementsAre(HasSubstr("no sender can connect")));
    EXPECT_EQ(receiver.listen(0us), 1) << "the message is still there";
}

TEST_F(Xbus, WhoIsConnectedIsServedWhileNobodyElseCanConnect) {
    Module receiver(relay);
    const Module connected(pnac);
    const Module stranger(pnac + 1);
    EXPECT_EQ(connected.notify(relay, 1), 0);
    EXPECT_EQ(receiver.listen(), 1);
    EXPECT_EQ(stranger.notify(relay, 2), 0);
    EXPECT_EQ(connected.notify(relay, 3), 0);
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const int firstFree = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
    ASSERT_NE(firstFree, -1);
    close(firstFree);
    const rlimit none{static_cast<rlim_t>(firstFree), before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    const int result = receiver.listen();
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_EQ(result, 1);
    EXPECT_THAT(receiver.receivedCommands(), ElementsAre(1, 3));
}

TEST_F(Xbus, CarriesMessagesOf64KiBInEachBuffer) {
    const Gate ready;
    Child child([&ready] {
        Module module(relay);
        module.handler = [](const Invocation &call) {
            const Bytes buf(call.buf.begin(), call.buf.end());
            const Bytes out(call.out.begin(), call.out.end());
            if (buf != pattern(most, 1) || out != pattern(most, 2)) {
                return -2;
            }
            std::copy(buf.rbegin(), buf.rend(), call.out.begin());
            return 1;
        };
        ready.open();
        return module.listen() == 1 && module.listen() == 1 ? 0 : 1;
    });
    ASSERT_TRUE(ready.pass());
    const Module sender(pnac);
    const Bytes buf = pattern(most, 1);
    Bytes out = pattern(most, 2);
    uint32_t outLength = most;
    EXPECT_EQ(xbusIoctl(sender.context(), relay, 1, buf.data(), most, out.data(), &outLength,
                        XBUS_NO_WAIT, 0, 0),
              0);
    EXPECT_EQ(sender.call(relay, 1, buf, out), 1);
    EXPECT_EQ(out, Bytes(buf.rbegin(), buf.rend()));
    EXPECT_EQ(child.wait(), 0);
}

TEST_F(Xbus, RefusesToSendMoreThan64KiB) {
    Module receiver(relay);
    const Module sender(pnac);
    EXPECT_EQ(sender.notify(relay, 1, Bytes(most + 1)), -1);
    Bytes out(most + 1);
    EXPECT_EQ(sender.call(relay, 1, {}, out), -1);
    EXPECT_THAT(errors(), ElementsAre(HasSubstr("oversized"), HasSubstr("oversized")));
    EXPECT_EQ(receiver.listen(0us), 0);
    EXPECT_EQ(sender.notify(relay, 2, Bytes(most)), 0);
    EXPECT_EQ(receiver.listen(0us), 1);
}

TEST_F(Xbus, AHandlerMaySend) {
    Module receiver(relay);
    Module sender(pnac);
    receiver.handler = [&receiver](const Invocation &call) {
        return receiver.notify(pnac, call.command + 1);
    };
    EXPECT_EQ(sender.notify(relay, 1), 0);
    EXPECT_EQ(receiver.listen(), 1);
    EXPECT_EQ(sender.listen(), 1);
    EXPECT_THAT(sender.receivedCommands(), ElementsAre(2));
}

TEST_F(Xbus, AHandlerMayCall) {
    const Gate ready;
    Child child([&ready] {
        Module module(pnac + 1);
        module.handler = [](const Invocation &call) {
            std::fill(call.out.begin(), call.out.end(), uint8_t{9});
            return 7;
        };
        ready.open();
        return module.listen() == 1 ? 0 : 1;
    });
    ASSERT_TRUE(ready.pass());
    Module receiver(relay);
    const Module sender(pnac);
    receiver.handler = [&receiver](const Invocation &call) {
        Bytes out(most);
        EXPECT_EQ(receiver.call(pnac + 1, 1, Bytes(most, 8), out), 7);
        EXPECT_EQ(out, Bytes(most, 9));
        EXPECT_EQ(Bytes(call.buf.begin(), call.buf.end()), pattern(most, 1));
        EXPECT_EQ(Bytes(call.out.begin(), call.out.end()), pattern(most, 2));
        return 0;
    };
    const Bytes buf = pattern(most, 1);
    Bytes out = pattern(most, 2);
    uint32_t outLength = most;
    EXPECT_EQ(xbusIoctl(sender.context(), relay, 1, buf.data(), most, out.data(), &outLength,
                        XBUS_NO_WAIT, 0, 0),
              0);
    EXPECT_EQ(receiver.listen(), 1);
    EXPECT_EQ(child.wait(), 0);
}

TEST_F(Xbus, LateAnswersLeaveRoomForTheNext) {
    constexpr int lateCalls = 3;  // as many as fill both queues with the largest messages
    const Gate start;
    const Gate over;
    Child child([&] {
        Module module(relay);
        module.handler = [](const Invocation &call) { return static_cast<int>(call.command); };
        over.open();
        bool isSound = start.pass();
        for (int i = 0; i < lateCalls; ++i) {
            isSound = isSound && module.listen() == 1;
        }
        over.open();
        return isSound && module.listen() == 1 ? 0 : 1;
    });
    ASSERT_TRUE(over.pass());
    const Module sender(pnac);
    Bytes out(most);
    for (int i = 0; i < lateCalls; ++i) {
        const ShortWaits waits;
        EXPECT_EQ(sender.call(relay, 1, {}, out), -1);
    }
    start.open();
    ASSERT_TRUE(over.pass());
    EXPECT_EQ(sender.call(relay, 2, {}, out), 2);
    EXPECT_EQ(child.wait(), 0);
}

#ifdef __SANITIZE_ADDRESS__
using XbusDeathTest = Xbus;

TEST_F(XbusDeathTest, AddressSanitizerSeesWhereBuffersEnd) {
    Module receiver(relay);
    const Module sender(pnac);
    for (const bool isOut : {false, true}) {
        receiver.handler = [isOut](const Invocation &call) {
            const std::span<uint8_t> part = isOut ? call.out : call.buf;
            return static_cast<const volatile uint8_t *>(part.data())[part.size()];
        };
        Bytes out(5);
        uint32_t outLength = 5;
        const Bytes buf(3);
        ASSERT_EQ(xbusIoctl(sender.context(), relay, 1, buf.data(), 3, out.data(), &outLength,
                            XBUS_NO_WAIT, 0, 0),
                  0);
        EXPECT_DEATH(receiver.listen(), "use-after-poison");
    }
}

TEST_F(XbusDeathTest, AddressSanitizerSeesUseAfterTheHandler) {
    Module receiver(relay);
    const Module sender(pnac);
    const volatile uint8_t *kept = nullptr;
    receiver.handler = [&kept](const Invocation &call) {
        kept = call.buf.data();
        return 0;
    };
    ASSERT_EQ(sender.notify(relay, 1, Bytes(3)), 0);
    ASSERT_EQ(receiver.listen(), 1);
    EXPECT_DEATH((void)kept[0], "use-after-poison");
}
#endif

TEST_F(Xbus, AHandlerCannotSendBackMoreThanItGot) {
    const Gate ready;
    Child child([&ready] {
        Module module(relay);
        module.handler = [](const Invocation &call) {
            *call.outLength = 1'000'000;
            return 0;
        };
        ready.open();
        return module.listen() == 1 ? 0 : 1;
    });
    ASSERT_TRUE(ready.pass());
    const Module sender(pnac);
    Bytes out{1, 2, 3};
    EXPECT_EQ(sender.call(relay, 1, {}, out), 0);
    EXPECT_EQ(out, (Bytes{1, 2, 3}));
    EXPECT_EQ(child.wait(), 0);
    EXPECT_THAT(errors(), IsEmpty());
}

}  // namespace
