// The loop without memory, and with a system that fails: every allocation and every system call in turn.
#include <array>
#include <cerrno>
#include <vector>

#include <lanyard/radius/loop.h>

#include "tests/support/test.h"
#include "tests/unit/client/loop_fixture.h"

namespace lanyard::test::loop_failure_test {
namespace {

// Two requests from the making of a loop to its end: one answered by the second server, as the first is
// silent, and one that is cancelled. Whether the first one was accepted.
bool roundTrip(const ClockAhead &clock, const PlayedServer &first, const PlayedServer &second,
               const RadPair *pairs) {
    Loop loop;
    if (loop.get() == nullptr) {
        return false;
    }
    Answer answer;
    Answer cancelled;
    if (loop.start(answer, kAccess, pairs) == nullptr) {
        return false;
    }
    radRequestCancel(loop.start(cancelled, kAccess, pairs));
    for (int runs = 0; runs < 100 && answer.times == 0; ++runs) {
        while (first.poll()) {
        }
        while (const auto request = second.poll()) {
            second.reply(*request, 2, Attributes().addText(18, "hello"));
        }
        loop.run();
        clock.advance(1);
    }
    EXPECT_EQ(1, answer.times);
    EXPECT_EQ(0, cancelled.times);
    return answer.code == 2;
}

TEST_F(LoopTest, EveryAllocationFailing_LeavesNothing) {
    const PlayedServer first;
    const PlayedServer second;
    const ConfiguredLibrary library({.authServers = {first.entry(0), second.entry(kPlenty, 3)}});
    radOptionSet(RAD_OPTION_DEAD_TIME, -1);
    const PairList pairs = nemo();
    size_t refused = 0;
    const unsigned runs = forEachFailingAllocation([&] {
        if (!roundTrip(clock_, first, second, pairs.get())) {
            ++refused;
        }
    });
    EXPECT_LT(10U, runs);
    EXPECT_LT(4U, refused);
    EXPECT_TRUE(roundTrip(clock_, first, second, pairs.get()));
}

TEST_F(LoopTest, EveryAllocationFailing_LeavesNothingOfAStatusServer) {
    const PlayedServer first;
    const PlayedServer second;
    const ConfiguredLibrary library({.authServers = {first.entry(0), second.entry(kPlenty, 3)}});
    radOptionSet(RAD_OPTION_STATUS_SERVER, 1);
    const PairList pairs = nemo();
    EXPECT_TRUE(roundTrip(clock_, first, second, pairs.get()));
    const unsigned runs = forEachFailingAllocation([&] {
        clock_.advance(61);
        roundTrip(clock_, first, second, pairs.get());
    });
    EXPECT_LT(10U, runs);
}

TEST_F(LoopTest, EveryAllocationFailing_LeavesNothingOfAResilientCall) {
    ScriptedServer server(kSecret, {}, newAddress());
    server.otherwise(accept(Attributes().addText(18, "hello")));
    const ConfiguredLibrary library({.authServers = {serverEntry(server, 1)}});
    radOptionSet(RAD_OPTION_RESILIENT, 1);
    const PairList pairs = nemo();
    forEachFailingAllocation([&] {
        exchange(kAccess, pairs.get());
        reply_.reset();
        EXPECT_NE(nullptr, radLastError());
        exchangeWithAll(kAccess, pairs.get());
        reply_.reset();
        EXPECT_NE(nullptr, radLastError());
    });
}

TEST_F(LoopTest, EverySystemCallFailing_LeavesNothing) {
    for (const char *call : {"socket", "connect", "send", "recv", "epoll_create1", "epoll_ctl",
                             "epoll_wait", "timerfd_create", "timerfd_settime"}) {
        for (const int error : {EMFILE, ENETUNREACH, EINTR}) {
            bool happened = true;
            int n = 0;
            while (happened && n < 100) {
                const testing::ScopedTrace trace(__FILE__, __LINE__,
                                                 std::string(call) + " " + std::to_string(++n));
                const PlayedServer first;
                const PlayedServer second;
                const ConfiguredLibrary library(
                    {.authServers = {first.entry(0), second.entry(kPlenty, 3)}});
                const PairList pairs = nemo();
                const size_t descriptors = openDescriptors();
                const FailingCall failure(call, error, n);
                const bool accepted = roundTrip(clock_, first, second, pairs.get());
                happened = failure.happened();
                EXPECT_EQ(descriptors, openDescriptors());
                EXPECT_TRUE(happened || accepted);
            }
            EXPECT_LT(1, n) << call << " was never called";
        }
    }
}

TEST_F(LoopTest, TimerThatCannotBeSet_IsNotWaitedFor) {
    const PlayedServer server;
    const ConfiguredLibrary library({.authServers = {server.entry(0)}});
    const Loop loop;
    Answer answer;
    const FailingCall failure("timerfd_settime", EINVAL);
    loop.start(answer);
    EXPECT_TRUE(failure.happened());
    loop.finish();
    EXPECT_EQ(1, answer.times);
}

TEST_F(LoopTest, ConnectionThatNobodyMayMake_IsAnError) {
    const PlayedServer server;
    const ConfiguredLibrary library({.authServers = {server.entry()}});
    const Loop loop;
    for (const char *call : {"socket", "connect", "epoll_ctl"}) {
        Answer answer;
        const FailingCall failure(call, EACCES);
        loop.start(answer);
        EXPECT_EQ(1, loop.run());
        EXPECT_EQ(-1, answer.code);
        EXPECT_EQ(RAD_STEP_SOCKET + 0, answer.step);
        EXPECT_EQ(EACCES, answer.reason);
    }
}

TEST_F(LoopTest, WaitThatFails_IsToldAndTheRequestGoesOn) {
    const PlayedServer server;
    const ConfiguredLibrary library({.authServers = {server.entry()}});
    const Loop loop;
    Answer answer;
    loop.start(answer);
    server.reply(server.take(), 2);
    {
        const FailingCall failure("epoll_wait", EBADF);
        EXPECT_EQ(-1, loop.run());
        EXPECT_EQ(EBADF, errno);
    }
    {
        const FailingCall failure("epoll_wait", EINTR);
        EXPECT_EQ(0, loop.run(-1)) << "a signal handler ran";
    }
    EXPECT_EQ(1, loop.run());
    EXPECT_EQ(2, answer.code);
}

}  // namespace
}  // namespace lanyard::test::loop_failure_test
