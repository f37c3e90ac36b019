// The service: start, main loop, and its end by SIGTERM.
#include <csignal>
#include <cstring>

#include "tests/support/test.h"
#include "tests/unit/relay/fixture.h"

namespace lanyard::test::service_test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

constexpr uint32_t kCookie = 0x1001;

// What SIGTERM does at present.
sighandler_t termHandler() {
    struct sigaction action {};
    EXPECT_EQ(0, sigaction(SIGTERM, nullptr, &action));
    return action.sa_handler;
}

class EapService : public EapTest {
  protected:
    EapService() {
        bus.calls.clear();
        pRadEapXbusCtx = nullptr;
    }
};

TEST_F(EapService, StartsRunsAndEnds) {
    bus.listens = {[] { return 0; },
                   [] {
                       EXPECT_EQ(TestBus::context(), pRadEapXbusCtx);
                       EXPECT_EQ(0, std::raise(SIGTERM));
                       return 0;
                   }};
    EXPECT_EQ(0, radEapInit());
    EXPECT_THAT(bus.calls, ElementsAre("xbusInit", "xbusRegister 8 2", "daemon 0 0",
                                       "xbusListen 100000", "xbusListen 100000", "palTaskDelay 100",
                                       "palTaskNameToId tRadEap", "xbusUnRegister"));
    EXPECT_LOG(log);
    EXPECT_EQ(nullptr, pRadEapXbusCtx);
}

TEST_F(EapService, NamesItselfBeforeItDetachesAndThenHandlesTheSignal) {
    std::memset(&palDaemonOpt, 0, sizeof(palDaemonOpt));
    bool detached = false;
    bus.whenDetached = [&detached] {
        detached = true;
        EXPECT_STREQ("tRadEap", static_cast<const char *>(palDaemonOpt.taskName));
        EXPECT_EQ(100, palDaemonOpt.setting1);
        EXPECT_EQ(8, palDaemonOpt.setting2);
        EXPECT_EQ(10000, palDaemonOpt.setting3);
        EXPECT_NE(&radEapExit, termHandler());
        EXPECT_EQ(TestBus::context(), pRadEapXbusCtx);
    };
    bus.listens = {[] {
        EXPECT_EQ(&radEapExit, termHandler());
        return 0;
    }};
    EXPECT_EQ(0, radEapInit());
    EXPECT_TRUE(detached);
}

TEST_F(EapService, WithADetachHook_CallsThatOnTheBusAndIsNoDaemon) {
    int calls = 0;
    const auto count = [](void *counter) {
        EXPECT_EQ(TestBus::context(), pRadEapXbusCtx);
        EXPECT_STREQ("tRadEap", static_cast<const char *>(palDaemonOpt.taskName));
        ++*static_cast<int *>(counter);
    };
    radEapDetachInstall(count, &calls);
    bus.listens = {[&calls] {
        EXPECT_EQ(1, calls);
        return 0;
    }};
    EXPECT_EQ(0, radEapInit());
    EXPECT_THAT(bus.calls, Not(Contains("daemon 0 0")));
    bus.calls.clear();

    radEapDetachInstall(nullptr, nullptr);
    EXPECT_EQ(0, radEapInit());
    EXPECT_EQ(1, calls);
    EXPECT_THAT(bus.calls, Contains("daemon 0 0"));
}

TEST_F(EapService, RelaysOnePacketAfterEachWait) {
    server.otherwise(reject());
    std::vector<size_t> requests;
    const auto count = [this, &requests] {
        requests.push_back(server.requestCount());
        return 0;
    };
    bus.listens = {[&] {
                       EXPECT_EQ(0, fromPnac(1, identityResponse(7, "alice")));
                       EXPECT_EQ(0, fromPnac(2, identityResponse(7, "bob")));
                       return count();
                   },
                   count, count, count};
    EXPECT_EQ(0, radEapInit());
    EXPECT_THAT(requests, ElementsAre(0, 1, 2, 2));
    ASSERT_EQ(2U, bus.sent.size());
    EXPECT_EQ(1U, bus.sent[0].word(0));
    EXPECT_EQ(2U, bus.sent[1].word(0));
}

TEST_F(EapService, AgesConversationsAfterEachWaitAndRelay) {
    server.otherwise(answer(5));
    const auto age = [](int expected) {
        return [expected] {
            EXPECT_EQ(expected, conversation(kCookie).age);
            return -1;  // which changes nothing
        };
    };
    bus.listens = {[] { return fromPnac(kCookie, identityResponse(7, "alice")); }, age(1), age(2),
                   [] {
                       // A packet that comes in the last pass of its conversation is relayed
                       // before that ends.
                       conversation(kCookie).age = 3000;
                       return fromPnac(kCookie, identityResponse(8, "alice"));
                   },
                   [] {
                       EXPECT_THAT(conversations(), IsEmpty());
                       return 0;
                   }};
    EXPECT_EQ(0, radEapInit());
    EXPECT_EQ(2U, server.requestCount());
    EXPECT_THAT(bus.sent, IsEmpty());
}

TEST_F(EapService, EndsWithoutAnotherPassAndDropsWhatWaits) {
    server.otherwise(answer(5));
    bus.listens = {[] { return fromPnac(1, identityResponse(7, "alice")); },
                   [] {
                       EXPECT_EQ(0, fromPnac(2, identityResponse(7, "bob")));
                       EXPECT_EQ(0, std::raise(SIGTERM));
                       return 1;
                   }};
    EXPECT_EQ(0, radEapInit());
    EXPECT_EQ(1U, server.requestCount());
    EXPECT_THAT(conversations(), IsEmpty());
    EXPECT_THAT(bus.sent, IsEmpty());
}

TEST_F(EapService, StartsOnceAtATime) {
    bus.listens = {[this] {
        const std::vector<std::string> calls = bus.calls;
        EXPECT_EQ(0, fromPnac(kCookie, eapResponse(7, 22)));
        EXPECT_EQ(0, radEapInit());
        EXPECT_EQ(calls, bus.calls);
        EXPECT_EQ(1U, conversations().size());
        EXPECT_EQ(0, std::raise(SIGTERM));
        return 1;
    }};
    EXPECT_EQ(0, radEapInit());
}

TEST_F(EapService, MayStartAgain) {
    bus.listens = {[] { return fromPnac(kCookie, eapPacket(1, 7)); }};
    EXPECT_EQ(0, radEapInit());
    int waits = 0;
    bus.listens = {[&waits] { return ++waits; }, [&waits] { return ++waits; }};
    EXPECT_EQ(0, radEapInit());
    EXPECT_EQ(2, waits);
}

TEST_F(EapService, NeedsItsQueue) {
    for (const int result : {-1, 1}) {
        log.clear();
        bus.listInitResult = result;
        EXPECT_EQ(-1, radEapInit());
        EXPECT_LOG(log, "device error radEapInit> failed to initialize EAP message queue ");
    }
    bus.listInitResult = 0;
    EXPECT_THAT(bus.calls, IsEmpty());
}

TEST_F(EapService, NeedsTheBus) {
    bus.initResult = -1;
    EXPECT_EQ(-1, radEapInit());
    EXPECT_THAT(bus.calls, ElementsAre("xbusInit"));
    EXPECT_LOG(log, "device error radEapXbusInit> failed to initialize XBUS ");
    bus.initResult = 0;
    bus.calls.clear();
    EXPECT_EQ(0, radEapInit()) << "a later start tries again";
    EXPECT_EQ("xbusUnRegister", bus.calls.back());
}

using EapTerm = EapService;

TEST_F(EapTerm, WaitsUntilThereIsNoOtherTaskOfTheName) {
    bus.otherTasks = 2;
    radEapExit(SIGTERM);
    EXPECT_THAT(bus.calls, ElementsAre("palTaskDelay 100", "palTaskNameToId tRadEap",
                                       "palTaskDelay 100", "palTaskNameToId tRadEap",
                                       "palTaskDelay 100", "palTaskNameToId tRadEap"));
}

TEST_F(EapTerm, WaitsForATaskThatStaysForSeconds) {
    bus.otherTasks = 99;
    radEapExit(SIGTERM);
    EXPECT_EQ(0, bus.otherTasks);
    EXPECT_EQ("palTaskNameToId tRadEap", bus.calls.back());
}

TEST_F(EapTerm, DoesNotWaitForEver) {
    constexpr int kManyTasks = 1000000;
    bus.otherTasks = kManyTasks;
    radEapExit(SIGTERM);
    EXPECT_EQ(kManyTasks - 100, bus.otherTasks) << "ten seconds";
}

// What it calls is listed by the bus; memory and the log are no business of a signal handler's.
TEST_F(EapTerm, TakesNoMemoryAndLogsNothing) {
    const size_t before = allocationCount();
    radEapExit(SIGTERM);
    EXPECT_EQ(before, allocationCount());
    EXPECT_LOG(log);
}

}  // namespace
}  // namespace lanyard::test::service_test
