// What the tests of the loop share: requests that note their answer, servers that the test itself plays, and
// a clock that the test moves.
//
//     const PlayedServer server;
//     const ConfiguredLibrary library({.authServers = {server.entry()}});
//     Loop loop;
//     Answer answer;
//     loop.start(answer);
//     server.reply(server.take(), RAD_CODE_ACCESS_ACCEPT);
//     EXPECT_EQ(1, loop.run());
//     EXPECT_EQ(RAD_CODE_ACCESS_ACCEPT, answer.code);
#ifndef LANYARD_TESTS_UNIT_CLIENT_LOOP_FIXTURE_H
#define LANYARD_TESTS_UNIT_CLIENT_LOOP_FIXTURE_H

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <lanyard/radius/loop.h>
#include <lanyard/radius/status.h>

#include "tests/support/test.h"
#include "tests/unit/client/exchange_fixture.h"

namespace lanyard::test {

// An address of the loopback interface that no test before has used: what is known of servers outlives a
// test.
std::string newAddress();

// A server on an address of its own, which the test plays between two runs of the loop.
class PlayedServer {
  public:
    explicit PlayedServer(const std::string &address = newAddress()) : port_(address) {}

    // Seconds and retries as in a server list.
    [[nodiscard]] ServerEntry entry(int timeout = kPlenty, int retries = 0) const;
    [[nodiscard]] const std::string &host() const { return port_.host(); }
    [[nodiscard]] uint16_t port() const { return port_.port(); }

    // The request that has waited longest; none, or an empty one with a failed test.
    [[nodiscard]] std::optional<ReceivedRequest> poll() const;
    ReceivedRequest take() const;
    void send(const ReceivedRequest &to, const Bytes &datagram) const;
    void reply(const ReceivedRequest &to, uint8_t code, const Attributes &attributes = {},
               const ReplyFaults &faults = {}) const;

  private:
    SilentPort port_;
};

// What a request was answered, as its callback was told.
struct Answer {
    int times = 0;  // the callback was called
    int code = 0;
    PairList reply;
    RadRequest *request = nullptr;
    int32_t step = 0;  // radLastError() in the callback
    int32_t reason = 0;
    int32_t tries = 0;
    std::function<void(Answer &)> meanwhile;  // called in the callback

    static void note(void *context, RadRequest *request, int code, RadPair *reply);
};

class Loop {
  public:
    Loop() : loop_(radLoopCreate()) {}
    Loop(const Loop &) = delete;
    Loop &operator=(const Loop &) = delete;
    ~Loop() { radLoopDestroy(loop_); }

    [[nodiscard]] RadLoop *get() const { return loop_; }
    // Destroys it before its time.
    void destroy() { radLoopDestroy(std::exchange(loop_, nullptr)); }

    // Starts a request of nemo's, or with those pairs.
    RadRequest *start(Answer &answer, int code = kAccess, const RadPair *pairs = nullptr) const;
    int run(int milliseconds = 0) const { return radLoopRun(loop_, milliseconds); }
    // Runs until nothing is in flight.
    void finish() const;
    // Whether the descriptor is readable within that time.
    [[nodiscard]] bool isReadable(int milliseconds = 0) const;

  private:
    RadLoop *loop_;
};

class LoopTest : public ExchangeTest {
  protected:
    void TearDown() override;

    static PairList accounting(uint32_t delay);
    static PairList withState(const std::string &state);
    static PairList withEap();
    // What the table of servers says of one; empty when it does not know it.
    static RadServerStatus statusOf(const PlayedServer &server);
    // Runs one request that the server accepts.
    static void expectAccepted(const Loop &loop, const PlayedServer &server);
    // Runs one request that nobody answers, of two servers the first, and then the second accepts.
    static void makeDead(const Loop &loop, const PlayedServer &first, const PlayedServer &second);

    const ClockAhead clock_;
};

}  // namespace lanyard::test

#endif
