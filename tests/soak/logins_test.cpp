// A million logins of all kinds in one process.
#include <array>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include <lanyard/radius/frame.h>
#include <lanyard/radius/loop.h>
#include <lanyard/radius/methods.h>

#include "tests/soak/soak.h"
#include "tests/support/test.h"
#include "tests/support/tireless_server.h"

namespace lanyard::test::logins_soak {
namespace {

constexpr const char *kSecret = "xyzzy5461";
constexpr const char *kStranger = "mallory";
constexpr size_t kBlock = 1000;   // logins of one way after the other
constexpr size_t kInFlight = 24;  // with their replies they fit into the 100 KiB of the library
constexpr int kPatience = 30;     // seconds
constexpr std::array<uint8_t, RAD_CHAP_CHALLENGE_SIZE> kChallenge = {2, 7, 1, 8, 2, 8, 1, 8,
                                                                     2, 8, 4, 5, 9, 0, 4, 5};

// Lets everybody in but the stranger.
std::optional<Bytes> judge(ByteView request) {
    if (request[0] == 4) {
        return makeReply(5, request, kSecret);
    }
    const bool isStranger = toText(attributeValue(request, 1)) == kStranger;
    return makeReply(isStranger ? 3 : 2, request, kSecret,
                     Attributes()
                         .addInteger(27, 3600)
                         .addInteger(28, 600)
                         .addText(18, "Hello")
                         .addMessageAuthenticator());
}

using ChapResponse = std::array<uint8_t, RAD_CHAP_RESPONSE_SIZE>;

ChapResponse chapResponse(const char *password) {
    ChapResponse response{};
    radChapRespMake(response.data(), reinterpret_cast<const uint8_t *>(password),
                    static_cast<int>(std::strlen(password)), kChallenge.data());
    return response;
}

int logInEverywhere(const char *userName, const char *password) {
    std::array<int32_t, 8> results{};
    return radAuthCheckAllServer(userName, password, results.data());
}

int logInForLimits(const char *userName, const char *password) {
    uint32_t idle = 0;
    uint32_t session = 0;
    const int result = radAuthAndGetAttributes(userName, password, &idle, &session);
    return result == 0 && (idle != 10 || session != 60) ? -2 : result;
}

int logInByChap(const char *userName, const char *password) {
    const ChapResponse response = chapResponse(password);
    return radChapAuth(userName, response.data(), RAD_CHAP_RESPONSE_SIZE, kChallenge.data(),
                       RAD_CHAP_CHALLENGE_SIZE);
}

// An accounting record, which is for everybody.
int account(const char *userName, const char * /*password*/) {
    const int result = radAcct(1);
    return userName == kStranger && result == 0 ? -1 : result;
}

constexpr std::array kLogins = {radAuth,   logInEverywhere, logInForLimits, logInByChap,
                                radMschap, radMschapv2,     account};

RadRequest *startByChap(RadLoop *loop, const char *userName, const char *password,
                        RadLoginDone done, void *context) {
    const ChapResponse response = chapResponse(password);
    return radChapAuthStart(loop, userName, response.data(), RAD_CHAP_RESPONSE_SIZE,
                            kChallenge.data(), RAD_CHAP_CHALLENGE_SIZE, done, context);
}

constexpr std::array kStarts = {radAuthStart, startByChap, radMschapStart, radMschapv2Start};

const char *userOf(size_t login) {
    return login % 16 == 15 ? kStranger : "alice";
}

size_t mistakes = 0;  // logins that did not end as they should

void callOneByOne() {
    for (size_t i = 0; i < kBlock; ++i) {
        const int expected = userOf(i) == kStranger ? -1 : 0;
        const int result = kLogins[i % kLogins.size()](userOf(i), "wonderland");
        mistakes += result != expected ? 1 : 0;
    }
}

void noteLogin(void *context, RadRequest * /*request*/, const RadLogin *login) {
    const int expected = static_cast<const char *>(context) == kStranger ? -1 : 0;
    mistakes += login->result != expected || login->sessionMinutes != 60 ? 1 : 0;
}

void flyInALoop() {
    RadLoop *loop = radLoopCreate();
    size_t inFlight = 0;
    for (size_t started = 0; started < kBlock || inFlight > 0;) {
        for (; started < kBlock && inFlight < kInFlight; ++started, ++inFlight) {
            const char *user = userOf(started);
            mistakes += kStarts[started % kStarts.size()](loop, user, "wonderland", noteLogin,
                                                          const_cast<char *>(user)) == nullptr
                            ? 1
                            : 0;
        }
        const int ended = radLoopRun(loop, -1);
        ASSERT_LT(0, ended);
        inFlight -= static_cast<size_t>(ended);
    }
    radLoopDestroy(loop);
}

// Each way once: the calls as they are, the calls with resilience, a loop.
void logInEachWay() {
    callOneByOne();
    radOptionSet(RAD_OPTION_RESILIENT, 1);
    callOneByOne();
    radOptionSet(RAD_OPTION_RESILIENT, 0);
    flyInALoop();
}

// What the logins print is no part of this.
class Hushed {
  public:
    Hushed() : before_(dup(STDOUT_FILENO), "dup") {
        std::fflush(stdout);
        const FileDescriptor nothing(open("/dev/null", O_WRONLY | O_CLOEXEC), "/dev/null");
        checked(dup2(nothing.get(), STDOUT_FILENO), "dup2");
    }
    ~Hushed() {
        std::fflush(stdout);
        dup2(before_.get(), STDOUT_FILENO);
    }
    Hushed(const Hushed &) = delete;
    Hushed &operator=(const Hushed &) = delete;
    Hushed(Hushed &&) = delete;
    Hushed &operator=(Hushed &&) = delete;

  private:
    FileDescriptor before_;
};

TEST(LoginsSoak, MillionOfAllKinds_LeaveNothing) {
    const size_t rounds = isWholeSoak() ? 334 : 2;
    const TirelessServer server(judge);
    ServerEntry entry;
    entry.port = server.port();
    entry.timeout = kPatience;
    entry.secret = kSecret;
    const ConfiguredLibrary library({.authServers = {entry}, .acctServers = {entry}});
    radOptionSet(RAD_OPTION_BUILTIN_NT_RESPONSE, 1);
    radOptionSet(RAD_OPTION_STANDARD_SHA1, 1);
    mistakes = 0;
    Footprint early;
    Footprint late;
    size_t roomEarly = 0;
    size_t roomLate = 0;
    {
        const Hushed hushed;
        logInEachWay();
        early = footprintOf(getpid());
        roomEarly = roomIn(radMemPartId);
        for (size_t round = 1; round < rounds; ++round) {
            logInEachWay();
        }
        late = footprintOf(getpid());
        roomLate = roomIn(radMemPartId);
    }
    radOptionSet(RAD_OPTION_BUILTIN_NT_RESPONSE, 0);
    radOptionSet(RAD_OPTION_STANDARD_SHA1, 0);
    EXPECT_EQ(0U, mistakes);
    EXPECT_LE(rounds * 3 * kBlock, server.requests());
    EXPECT_LT(0U, roomEarly);
    EXPECT_EQ(roomEarly, roomLate);
    expectNoMore(std::to_string(rounds * 3 * kBlock) + " logins", early, late);
}

}  // namespace
}  // namespace lanyard::test::logins_soak
