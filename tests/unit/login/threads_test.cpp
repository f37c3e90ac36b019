// Sixteen threads log in and account in all ways at once, with calls that wait and with loops, while options
// change: each gets its own verdict and its own limits.
//
// LANYARD_THREADS_SECONDS sets for how long, one second without it.
#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include <lanyard/radius/engine.h>
#include <lanyard/radius/frame.h>
#include <lanyard/radius/loop.h>
#include <lanyard/radius/methods.h>
#include <lanyard/radius/status.h>

#include "tests/support/footprint.h"
#include "tests/support/tireless_server.h"
#include "tests/unit/login/methods.h"

namespace lanyard::test::login_threads_test {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr size_t kWaiting = 10;  // threads
constexpr size_t kLooping = 6;
constexpr size_t kInFlight = 6;  // of each loop
constexpr uint32_t kPartition = 1 << 20;

Clock::duration howLong() {
    const char *seconds = std::getenv("LANYARD_THREADS_SECONDS");
    return std::chrono::seconds(seconds != nullptr ? std::atoi(seconds) : 1);
}

// A user of a thread's own, who is let in or not.
struct User {
    uint32_t number;
    bool mayIn;

    [[nodiscard]] std::string name() const {
        return (mayIn ? "user-" : "stranger-") + std::to_string(number);
    }
    [[nodiscard]] std::string password() const { return "password of " + std::to_string(number); }
    [[nodiscard]] Limits limits() const { return {.idle = number + 1, .session = number + 100}; }
};

User userOf(const std::string &name) {
    const size_t dash = name.find('-');
    return {.number = static_cast<uint32_t>(std::stoul(name.substr(dash + 1))),
            .mayIn = name.starts_with("user")};
}

std::optional<Bytes> judge(ByteView request) {
    if (request[0] == RAD_CODE_ACCOUNTING_REQUEST) {
        return makeReply(5, request, kSecret);
    }
    const User user = userOf(toText(attributeValue(request, 1)));
    const bool hasPassword = !attributeValues(request, 2).empty();
    if (!user.mayIn || (hasPassword && revealPassword(request, kSecret) != user.password())) {
        return makeReply(3, request, kSecret, Attributes().addMessageAuthenticator());
    }
    return makeReply(2, request, kSecret,
                     Attributes()
                         .addInteger(28, user.limits().idle * 60)
                         .addInteger(27, user.limits().session * 60)
                         .addMessageAuthenticator());
}

class Crowd {
  public:
    // In all ways, until the time is over.
    void waitForReplies(uint32_t thread) {
        for (size_t i = 0; goesOn(); ++i) {
            const User user{thread, i % 3 != 0};
            const Method &method = methods()[i % methods().size()];
            Limits limits;
            EXPECT_EQ(user.mayIn ? 0 : -1,
                      method.login(user.name().c_str(), user.password().c_str(), &limits.idle,
                                   &limits.session))
                << method.name;
            if (user.mayIn && method.handsOutLimits) {
                EXPECT_EQ(user.limits(), limits) << method.name;
            }
            EXPECT_EQ(0, radAcct(1));
            ended_ += 2;
        }
    }

    void runALoop(uint32_t thread) {
        RadLoop *loop = radLoopCreate();
        ASSERT_NE(nullptr, loop);
        for (size_t i = 0; goesOn(); ++i) {
            std::array<Flight, kInFlight> flights;
            for (size_t at = 0; at < flights.size(); ++at) {
                flights[at] = {.crowd = this, .user = {thread, at % 3 != 0}};
                EXPECT_NE(nullptr, start(loop, i + at, flights[at]));
            }
            // One that is given up meanwhile.
            Flight given{.crowd = this, .user = {thread, true}};
            radRequestCancel(start(loop, i, given));
            while (radLoopRun(loop, -1) > 0) {
            }
            EXPECT_EQ(0, given.times);
            for (const Flight &flight : flights) {
                EXPECT_EQ(1, flight.times);
            }
        }
        radLoopDestroy(loop);
    }

    // What any thread may do at any time.
    void changeOptions() {
        for (int i = 0; goesOn(); ++i) {
            radOptionSet(RAD_OPTION_RESILIENT, i & 1);
            radOptionSet(RAD_OPTION_BUILTIN_NT_RESPONSE, i % 4 != 0 ? 1 : 0);
            radOptionSet(RAD_OPTION_REQUIRE_MESSAGE_AUTHENTICATOR, i >> 1 & 1);
            RadServerStatus status{};
            for (int at = 0; radServerStatusAt(at, &status) == 0; ++at) {
                EXPECT_GT(status.port, 0);
            }
            std::this_thread::sleep_for(5ms);
        }
        radOptionSet(RAD_OPTION_RESILIENT, 0);
        radOptionSet(RAD_OPTION_BUILTIN_NT_RESPONSE, 0);
        radOptionSet(RAD_OPTION_REQUIRE_MESSAGE_AUTHENTICATOR, 0);
    }

    [[nodiscard]] size_t ended() const { return ended_; }

  private:
    struct Flight {
        Crowd *crowd = nullptr;
        User user{};
        int times = 0;

        static void note(void *context, RadRequest * /*request*/, const RadLogin *login) {
            Flight &flight = *static_cast<Flight *>(context);
            ++flight.times;
            ++flight.crowd->ended_;
            EXPECT_EQ(flight.user.mayIn ? 0 : -1, login->result);
            if (flight.user.mayIn) {
                EXPECT_EQ(flight.user.limits(),
                          (Limits{login->idleMinutes, login->sessionMinutes}));
            }
        }
    };

    static RadRequest *start(RadLoop *loop, size_t way, Flight &flight) {
        const std::string name = flight.user.name();
        const std::string password = flight.user.password();
        if (way % 4 == 3) {
            const Bytes challenge(RAD_CHAP_CHALLENGE_SIZE, 7);
            Bytes response(RAD_CHAP_RESPONSE_SIZE);
            radChapRespMake(response.data(), reinterpret_cast<const uint8_t *>(password.data()),
                            static_cast<int>(password.size()), challenge.data());
            return radChapAuthStart(loop, name.c_str(), response.data(), RAD_CHAP_RESPONSE_SIZE,
                                    challenge.data(), RAD_CHAP_CHALLENGE_SIZE, Flight::note,
                                    &flight);
        }
        constexpr std::array kStarts = {radAuthStart, radMschapStart, radMschapv2Start};
        return kStarts[way % 4](loop, name.c_str(), password.c_str(), Flight::note, &flight);
    }

    [[nodiscard]] bool goesOn() const { return Clock::now() < end_; }

    const Clock::time_point end_ = Clock::now() + howLong();
    std::atomic<size_t> ended_{0};
};

TEST(LoginThreads, AllMethodsAtOnce_EachGetsItsOwn) {
    const TirelessServer server(judge);
    ServerEntry entry;
    entry.port = server.port();
    entry.timeout = kPatience;
    entry.retries = 2;
    entry.secret = kSecret;
    const ConfiguredLibrary library(
        {.authServers = {entry}, .acctServers = {entry}, .partition = kPartition});
    const InstalledProgram program(library.root());
    const size_t room = roomIn(radMemPartId);
    StdoutCapture output;
    Crowd crowd;
    std::vector<std::thread> threads;
    for (uint32_t thread = 0; thread < kWaiting; ++thread) {
        threads.emplace_back([&crowd, thread] { crowd.waitForReplies(thread); });
    }
    for (uint32_t thread = kWaiting; thread < kWaiting + kLooping; ++thread) {
        threads.emplace_back([&crowd, thread] { crowd.runALoop(thread); });
    }
    threads.emplace_back([&crowd] { crowd.changeOptions(); });
    for (std::thread &thread : threads) {
        thread.join();
    }
    output.finish();
    EXPECT_LE(crowd.ended(), server.requests());
    EXPECT_LT(kWaiting + kLooping * kInFlight, crowd.ended());
    EXPECT_EQ(room, roomIn(radMemPartId));
    RecordProperty("ended", std::to_string(crowd.ended()));
}

}  // namespace
}  // namespace lanyard::test::login_threads_test
