// Many requests at once, from several threads, over the OS layer's own memory.
#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <atomic>
#include <functional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/engine.h>
#include <lanyard/radius/frame.h>
#include <lanyard/radius/loop.h>
#include <lanyard/radius/status.h>

#include "tests/support/test.h"

namespace lanyard::test::threads_test {
namespace {

constexpr const char *kSecret = "secret";
constexpr int kPlenty = 30;  // seconds that no test ever waits for
constexpr size_t kThreads = 4;
constexpr size_t kRequests = 64;  // of each thread; all of them make one round of identifiers
static_assert(kThreads * kRequests == 256);

// Runs the function in all threads, with the number of the thread.
void inAllThreads(const std::function<void(size_t)> &run) {
    std::vector<std::thread> threads;
    for (size_t thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back(run, thread);
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
}

std::string userName(size_t thread, size_t request) {
    return "user-" + std::to_string(thread) + "-" + std::to_string(request);
}

// Accepts, and says in Reply-Message which user and password it was asked about.
Action echo() {
    return accept([](const ReceivedRequest &request) {
        std::string text = toText(attributeValue(request, 1));
        text.append("/").append(revealPassword(request, kSecret));
        return Attributes().addText(18, text).addMessageAuthenticator();
    });
}

// One login; returns the Reply-Message, or the empty text when there is none.
std::string login(int expected, const std::string &user, const std::string &password) {
    RadPair *pairs = nullptr;
    EXPECT_NE(nullptr, radPairAdd(&pairs, RAD_ATTR_USER_NAME, user.c_str(), 0));
    EXPECT_NE(nullptr, radPairAdd(&pairs, RAD_ATTR_USER_PASSWORD, password.c_str(), 0));
    RadPair *reply = nullptr;
    EXPECT_EQ(expected, radBuildAndSendReq(RAD_CODE_ACCESS_REQUEST, pairs, &reply));
    const RadPair *message = radPairGet(reply, RAD_ATTR_REPLY_MESSAGE);
    std::string text = message != nullptr ? message->strValue : "";
    radPairListFree(reply);
    radPairListFree(pairs);
    return text;
}

TEST(Threads, GetTheirOwnReplyAndAnIdentifierOfTheirOwn) {
    ScriptedServer server(kSecret);
    server.otherwise(echo());
    const ConfiguredLibrary library({.authServers = {serverEntry(server, kPlenty)}});
    const LogRecorder log;
    inAllThreads([](size_t thread) {
        for (size_t i = 0; i < kRequests; ++i) {
            const std::string user = userName(thread, i);
            const std::string password = "password-of-" + user;
            EXPECT_EQ(std::string(user).append("/").append(password), login(2, user, password));
        }
    });
    const std::vector<ReceivedRequest> requests = server.requests();
    std::set<uint8_t> identifiers;
    std::set<Bytes> authenticators;
    for (const ReceivedRequest &request : requests) {
        identifiers.insert(request.identifier());
        authenticators.insert(request.authenticator());
        EXPECT_TRUE(messageAuthenticatorIsValid(request, kSecret));
    }
    EXPECT_EQ(kThreads * kRequests, requests.size());
    EXPECT_EQ(kThreads * kRequests, identifiers.size()) << "no identifier was drawn twice";
    EXPECT_EQ(kThreads * kRequests, authenticators.size());
    EXPECT_PROBLEMS(log);
}

TEST(Threads, FailOverSideBySide) {
    const SilentPort silent;
    ScriptedServer lying(kSecret);
    lying.otherwise(accept().withWrongAuthenticator());
    ScriptedServer right(kSecret);
    right.otherwise(echo());
    const ConfiguredLibrary library(
        {.authServers = {serverEntry(silent, 0, 1), serverEntry(lying, kPlenty),
                         serverEntry(right, kPlenty)}});
    constexpr size_t kLogins = 16;
    inAllThreads([](size_t thread) {
        for (size_t i = 0; i < kLogins; ++i) {
            const std::string user = userName(thread, i);
            EXPECT_EQ(user + "/secret", login(2, user, "secret"));
        }
    });
    EXPECT_EQ(kThreads * kLogins, lying.requestCount());
    EXPECT_EQ(kThreads * kLogins, right.requestCount());
}

std::atomic<size_t> packCalls{0};
std::atomic<size_t> unpackCalls{0};

int countPack(uint8_t * /*value*/, uint8_t * /*length*/, const RadPair * /*pair*/,
              const char * /*secret*/, RadPacket * /*packet*/) {
    ++packCalls;
    return 1;
}

int countUnpack(RadPair * /*pair*/, RadPair * /*list*/, RadPacket * /*reply*/,
                RadPacket * /*request*/, const char * /*secret*/) {
    ++unpackCalls;
    return 1;
}

TEST(Threads, DoDifferentThingsAtTheSameTime) {
    ScriptedServer authServer(kSecret);
    authServer.otherwise(echo());
    std::array<ScriptedServer, 2> acctServers{ScriptedServer(kSecret), ScriptedServer(kSecret)};
    for (ScriptedServer &server : acctServers) {
        server.otherwise(accountingResponse());
    }
    const ConfiguredLibrary library({.authServers = {serverEntry(authServer, kPlenty)},
                                     .acctServers = {serverEntry(acctServers[0], kPlenty),
                                                     serverEntry(acctServers[1], kPlenty)}});
    const RadFuncTbl hooks{.radPackHook = countPack, .radUnpackHook = countUnpack};
    ASSERT_EQ(0, radFuncTblInstall(&hooks));
    packCalls = 0;
    unpackCalls = 0;
    constexpr size_t kRounds = 24;
    constexpr size_t kLoginPairs = 4;       // name, password, address, Message-Authenticator
    constexpr size_t kAccountingPairs = 2;  // name, address
    const auto logins = [] {
        for (size_t i = 0; i < kRounds; ++i) {
            EXPECT_EQ("nemo/arctangent", login(2, "nemo", "arctangent"));
        }
    };
    const auto accounting = [] {
        RadPair *pairs = nullptr;
        EXPECT_NE(nullptr, radPairAdd(&pairs, RAD_ATTR_USER_NAME, "nemo", 0));
        for (size_t i = 0; i < kRounds; ++i) {
            std::array<int32_t, 8> results{};
            RadPair *reply = nullptr;
            EXPECT_EQ(5, radBuildAndSendReqCheckAllServer(RAD_CODE_ACCOUNTING_REQUEST, pairs,
                                                          &reply, results.data()));
            EXPECT_EQ(5, results[0]);
            EXPECT_EQ(5, results[1]);
            radPairListFree(reply);
        }
        radPairListFree(pairs);
    };
    const auto lookUps = [] {
        for (size_t i = 0; i < kRounds; ++i) {
            EXPECT_EQ(htonl(INADDR_LOOPBACK), radGetIPByName("localhost"));
            EXPECT_NE(0U, radGetHostIP());
        }
    };
    inAllThreads([&](size_t thread) {
        if (thread == 0) {
            accounting();
        } else if (thread == 1) {
            lookUps();
        } else {
            logins();
        }
    });
    // Every pair is measured and packed.
    EXPECT_EQ(kRounds * 2 * (2 * kLoginPairs + 2 * kAccountingPairs), packCalls);
    EXPECT_EQ(kRounds * 2 * 2, unpackCalls) << "two pairs in each of the replies to a login";
    EXPECT_EQ(2 * kRounds, authServer.requestCount());
    for (const ScriptedServer &server : acctServers) {
        EXPECT_EQ(kRounds, server.requestCount());
        for (const ReceivedRequest &request : server.requests()) {
            EXPECT_TRUE(accountingAuthenticatorIsValid(request, kSecret));
        }
    }
}

// A request of a loop: which user it was about, and what it was answered.
struct Asked {
    std::string user;
    std::string answer;

    static void note(void *context, RadRequest * /*request*/, int code, RadPair *reply) {
        Asked &asked = *static_cast<Asked *>(context);
        EXPECT_EQ(2, code);
        const RadPair *message = radPairGet(reply, RAD_ATTR_REPLY_MESSAGE);
        asked.answer = message != nullptr ? message->strValue : "";
        radPairListFree(reply);
    }
};

// Keeps as many requests in flight at once, over a loop of this thread.
void askOverALoop(size_t thread, size_t requests) {
    RadLoop *loop = radLoopCreate();
    ASSERT_NE(nullptr, loop);
    std::vector<Asked> all(requests);
    for (size_t i = 0; i < requests; ++i) {
        all[i].user = userName(thread, i);
        RadPair *pairs = nullptr;
        EXPECT_NE(nullptr, radPairAdd(&pairs, RAD_ATTR_USER_NAME, all[i].user.c_str(), 0));
        EXPECT_NE(nullptr, radPairAdd(&pairs, RAD_ATTR_USER_PASSWORD, "secret", 0));
        EXPECT_NE(nullptr,
                  radRequestStart(loop, RAD_CODE_ACCESS_REQUEST, pairs, Asked::note, &all[i]));
        radPairListFree(pairs);
    }
    while (radLoopRun(loop, -1) > 0) {
    }
    radLoopDestroy(loop);
    for (const Asked &asked : all) {
        EXPECT_EQ(asked.user + "/secret", asked.answer);
    }
}

TEST(Threads, LoopsBesideWaitingCallsAndReadersOfTheStatus) {
    const SilentPort silent;
    ScriptedServer server(kSecret);
    server.otherwise(echo());
    const ConfiguredLibrary library(
        {.authServers = {serverEntry(silent, 0), serverEntry(server, kPlenty, 3)}});
    constexpr size_t kInFlight = 24;  // of two loops, in the library's own 100 KiB
    constexpr size_t kLogins = 16;
    radOptionSet(RAD_OPTION_DEAD_TIME, 1);
    inAllThreads([](size_t thread) {
        if (thread < 2) {
            askOverALoop(thread, kInFlight);
            return;
        }
        for (size_t i = 0; i < kLogins; ++i) {
            const std::string user = userName(thread, i);
            EXPECT_EQ(user + "/secret", login(2, user, "secret"));
            RadServerStatus status{};
            for (int at = 0; radServerStatusAt(at, &status) == 0; ++at) {
                EXPECT_GT(status.port, 0);
            }
        }
    });
    // Resilient calls have a loop each.
    radOptionSet(RAD_OPTION_RESILIENT, 1);
    inAllThreads([](size_t thread) {
        for (size_t i = 0; i < kLogins; ++i) {
            const std::string user = userName(thread, i);
            EXPECT_EQ(user + "/secret", login(2, user, "secret"));
        }
    });
    radOptionSet(RAD_OPTION_RESILIENT, 0);
    radOptionSet(RAD_OPTION_DEAD_TIME, 0);
    EXPECT_LE(2 * kInFlight + 2 * kLogins + kThreads * kLogins, server.requestCount());
}

}  // namespace
}  // namespace lanyard::test::threads_test
