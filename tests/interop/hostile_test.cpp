// Logins over networks that lose, delay, repeat, reorder, cut, change and forge, against the real server:
// nobody gets in who may not, nobody is told Reject who may, every call ends in time, nothing is left behind.
// How many right logins do not get through is a figure; LANYARD_HOSTILE_LOGINS asks for so many logins of
// each mix and way, and has the figures printed.
#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <tuple>
#include <unistd.h>
#include <vector>

#include <lanyard/radius/engine.h>
#include <lanyard/radius/error.h>
#include <lanyard/radius/frame.h>
#include <lanyard/radius/loop.h>
#include <lanyard/radius/methods.h>

#include "tests/interop/fixture.h"
#include "tests/interop/hostile_mixes.h"
#include "tests/support/footprint.h"

namespace lanyard::test::hostile_test {
namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

constexpr uint32_t kPartition = 16 << 20;
constexpr size_t kFew = 100;  // logins of each mix and way, unless it is told otherwise
constexpr int kTimeout = 1;   // seconds
constexpr int kRetries = 3;

// What a login may take: every send to every server, and a busy machine's own time.
Seconds boundOf(const Mix &mix) {
    return Seconds((mix.silentServers + 1) * kTimeout * (kRetries + 1) + 10);
}

size_t loginsAsked() {
    const char *text = std::getenv("LANYARD_HOSTILE_LOGINS");
    return text != nullptr ? std::strtoul(text, nullptr, 10) : 0;
}

constexpr std::array<uint8_t, RAD_CHAP_CHALLENGE_SIZE> kChallenge = {3, 1, 4, 1, 5, 9, 2, 6,
                                                                     5, 3, 5, 8, 9, 7, 9, 3};

using ChapResponse = std::array<uint8_t, RAD_CHAP_RESPONSE_SIZE>;

ChapResponse chapResponse(const char *password) {
    ChapResponse response{};
    EXPECT_EQ(RAD_CHAP_RESPONSE_SIZE,
              radChapRespMake(response.data(), reinterpret_cast<const uint8_t *>(password),
                              static_cast<int>(std::strlen(password)), kChallenge.data()));
    return response;
}

int logInByChap(const char *userName, const char *password) {
    const ChapResponse response = chapResponse(password);
    return radChapAuth(userName, response.data(), RAD_CHAP_RESPONSE_SIZE, kChallenge.data(),
                       RAD_CHAP_CHALLENGE_SIZE);
}

RadRequest *startByChap(RadLoop *loop, const char *userName, const char *password,
                        RadLoginDone done, void *context) {
    const ChapResponse response = chapResponse(password);
    return radChapAuthStart(loop, userName, response.data(), RAD_CHAP_RESPONSE_SIZE,
                            kChallenge.data(), RAD_CHAP_CHALLENGE_SIZE, done, context);
}

struct Method {
    int (*logIn)(const char *userName, const char *password);
    RadRequest *(*start)(RadLoop *loop, const char *userName, const char *password,
                         RadLoginDone done, void *context);
};
constexpr std::array<Method, 4> kMethods = {{{radAuth, radAuthStart},
                                             {logInByChap, startByChap},
                                             {radMschap, radMschapStart},
                                             {radMschapv2, radMschapv2Start}}};

// A quarter with a wrong password, of every method.
struct Login {
    size_t number;

    [[nodiscard]] bool isRight() const { return number % 4 != 3; }
    [[nodiscard]] const char *password() const { return isRight() ? "wonderland" : "wonderlanD"; }
    [[nodiscard]] const Method &method() const { return kMethods[number / 4 % kMethods.size()]; }
};

struct Tally {
    size_t logins = 0;
    size_t right = 0;
    size_t rightWithoutAnswer = 0;
    size_t rightRejected = 0;
    size_t wrongLetIn = 0;
    Seconds longest{0};

    void add(const Login &login, bool accepted, bool rejected, Seconds took) {
        ++logins;
        right += login.isRight() ? 1 : 0;
        rightRejected += login.isRight() && rejected ? 1 : 0;
        rightWithoutAnswer += login.isRight() && !accepted && !rejected ? 1 : 0;
        wrongLetIn += !login.isRight() && accepted ? 1 : 0;
        longest = std::max(longest, took);
    }
};

// Logins that wait, each in a thread of its own.
Tally waitInThreads(size_t logins, size_t atOnce) {
    Tally tally;
    std::mutex mutex;
    std::atomic<size_t> next{0};
    std::vector<std::thread> threads;
    for (size_t i = 0; i < std::min(atOnce, logins); ++i) {
        threads.emplace_back([&] {
            for (Login login{next++}; login.number < logins; login.number = next++) {
                const auto start = Clock::now();
                const bool accepted = login.method().logIn("alice", login.password()) == 0;
                const Seconds took = Clock::now() - start;
                const RadLastError *error = radLastError();
                const bool rejected = error != nullptr && error->code == RAD_CODE_ACCESS_REJECT;
                const std::lock_guard lock(mutex);
                tally.add(login, accepted, rejected, took);
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    return tally;
}

struct InFlight {
    Login login;
    Tally &tally;
    Clock::time_point start = Clock::now();

    static void note(void *context, RadRequest * /*request*/, const RadLogin *login) {
        const InFlight &self = *static_cast<InFlight *>(context);
        self.tally.add(self.login, login->result == 0, login->code == RAD_CODE_ACCESS_REJECT,
                       Clock::now() - self.start);
    }
};

// As many logins in flight over one loop.
Tally flyInALoop(size_t logins, size_t atOnce) {
    Tally tally;
    std::vector<InFlight> all;
    all.reserve(logins);
    RadLoop *loop = radLoopCreate();
    while (tally.logins < logins) {
        while (all.size() < logins && all.size() - tally.logins < atOnce) {
            InFlight &one = all.emplace_back(InFlight{{all.size()}, tally});
            if (one.login.method().start(loop, "alice", one.login.password(), InFlight::note,
                                         &one) == nullptr) {
                ADD_FAILURE() << "login " << one.login.number << " is not started";
                radLoopDestroy(loop);
                return tally;
            }
        }
        if (radLoopRun(loop, -1) < 0) {
            ADD_FAILURE() << "the loop does not run";
            break;
        }
    }
    radLoopDestroy(loop);
    return tally;
}

struct Way {
    const char *name;
    int resilient;
    int requiresSignature;
    Tally (*logIn)(size_t logins, size_t atOnce);
};
void PrintTo(const Way &way, std::ostream *stream) {
    *stream << way.name;
}

constexpr std::array<Way, 3> kWays = {{{"Classic", 0, 0, waitInThreads},
                                       {"Resilient", 1, 1, waitInThreads},
                                       {"Loop", 0, 1, flyInALoop}}};

class Hostile : public Interop, public testing::WithParamInterface<std::tuple<Mix, Way>> {
  protected:
    // Before the library starts, which then has no partition of its own to make.
    void SetUp() override {
        Interop::SetUp();
        ASSERT_EQ(0, radMemInit(kPartition));
        setOptions(way().resilient, way().requiresSignature, 1);
    }
    void TearDown() override {
        setOptions(0, 0, 0);
        Interop::TearDown();
    }

    static void setOptions(int resilient, int requiresSignature, int inProcess) {
        radOptionSet(RAD_OPTION_RESILIENT, resilient);
        radOptionSet(RAD_OPTION_REQUIRE_MESSAGE_AUTHENTICATOR, requiresSignature);
        radOptionSet(RAD_OPTION_BUILTIN_NT_RESPONSE, inProcess);
        radOptionSet(RAD_OPTION_STANDARD_SHA1, inProcess);
    }

    static const Mix &mix() { return std::get<0>(GetParam()); }
    static const Way &way() { return std::get<1>(GetParam()); }

    static std::string entryOf(uint16_t port) {
        return "127.0.0.1:" + std::to_string(port) + ":" + std::to_string(kTimeout) + ":" +
               std::to_string(kRetries) + ":" + server().secret();
    }

    // The partition holds afterwards what it held before.
    Tally logInOverTheNetwork(size_t logins) {
        UdpProxy proxy({"127.0.0.1", way().requiresSignature != 0 ? server().signedPort()
                                                                  : server().authPort()});
        proxy.set(mix().network);
        const SilentServer silent;
        std::string servers = "authserver";
        for (int i = 0; i < mix().silentServers; ++i) {
            servers += " " + entryOf(silent.port());
        }
        configure(servers + " " + entryOf(proxy.port()) + "\n");
        const size_t room = roomIn(radMemPartId);
        Tally tally;
        capture([&] { tally = way().logIn(logins, mix().atOnce); });
        EXPECT_EQ(room, roomIn(radMemPartId));
        return tally;
    }

    static void report(const Tally &tally) {
        const double share = 100.0 *
                             static_cast<double>(tally.rightRejected + tally.rightWithoutAnswer) /
                             static_cast<double>(tally.right);
        std::printf(
            "hostile %-16s %-9s logins=%zu right-refused=%.2f%% wrong-let-in=%zu "
            "longest=%.1fs\n",
            mix().name, way().name, tally.logins, share, tally.wrongLetIn, tally.longest.count());
    }
};

std::string nameOf(const testing::TestParamInfo<std::tuple<Mix, Way>> &info) {
    return std::string(std::get<0>(info.param).name) + std::get<1>(info.param).name;
}

INSTANTIATE_TEST_SUITE_P(Networks, Hostile,
                         testing::Combine(testing::ValuesIn(hostileMixes()),
                                          testing::ValuesIn(kWays)),
                         nameOf);

TEST_P(Hostile, Logins_LetNobodyInWhoMayNotAndLeaveNothing) {
    const size_t logins = loginsAsked() > 0 ? loginsAsked() : kFew;
    const size_t descriptors = footprintOf(getpid()).descriptors;
    const Tally tally = logInOverTheNetwork(logins);
    EXPECT_EQ(logins, tally.logins);
    EXPECT_EQ(0U, tally.wrongLetIn);
    EXPECT_EQ(0U, tally.rightRejected);
    EXPECT_GT(boundOf(mix()).count(), tally.longest.count());
    EXPECT_EQ(descriptors, footprintOf(getpid()).descriptors);
    if (loginsAsked() > 0) {
        report(tally);
    }
}

}  // namespace
}  // namespace lanyard::test::hostile_test
