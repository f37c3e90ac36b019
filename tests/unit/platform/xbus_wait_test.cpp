// How long callers on the bus wait for answers and listeners for messages, and what ends the wait.
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <pthread.h>
#include <sys/time.h>
#include <thread>

#include <xbus.h>

#include "tests/unit/platform/xbus_fixture.h"

namespace lanyard::test::xbus_wait_test {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using Clock = std::chrono::steady_clock;

using Xbus = XbusTest;

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

}  // namespace
}  // namespace lanyard::test::xbus_wait_test
