// One request to one server after the other, as a state machine: it says what is to be done next and
// is told what came of it. It never waits and has no socket.
//
// Its drivers are transport.cpp, which does one thing at a time for the calls that wait, and the loop
// (loop.cpp), which keeps many of them in flight.
#ifndef LANYARD_CLIENT_EXCHANGE_H
#define LANYARD_CLIENT_EXCHANGE_H

#include <array>
#include <cstdint>
#include <netinet/in.h>
#include <span>
#include <utility>

#include <lanyard/radius/engine.h>

#include "client/last_error.h"
#include "client/pair_copy.h"
#include "client/request.h"
#include "client/server_choice.h"

namespace lanyard {

enum class Next {
    kServer,  // leave the server that was asked last, then call nextServer()
    kOpen,    // open a way to address(), then call opened() or failed()
    kSend,    // send sending(), then call sent() or failed()
    kWait,    // wait for patience(), then call received(), timedOut(), interrupted() or failed()
    kEnd      // result() and takeReply() hold
};

class Exchange {
  public:
    // Asks the servers as they come, each for its time-out and retries; the first datagram ends the
    // try. Completes the caller's list for each server. With `results`, asks all servers and notes
    // the result of each.
    Exchange(const char *function, int code, RadPair *pairs, const ServerChoice &choice,
             int32_t *results);

    // The same for one server, with a list that is complete.
    Exchange(const RadRequestDesc &desc, const RadPair *pairs);

    // Resilient: asks those servers first that are known to answer, waits as RFC 5080 section 2.2.1
    // has it, and ignores what is no valid reply.
    struct Resilient {
        int code = 0;
        ServerSet::Owner servers = {};  // null: ends at once, with that outcome
        Outcome outcome = {};
        int only = -1;            // index of the one server to ask; -1 for all
        bool isComplete = false;  // the list of pairs
        bool probesDead = true;   // asks a dead server first when its time has come
    };
    explicit Exchange(Resilient request);

    // Copies the list, which stays the caller's. False when memory is exhausted. For a resilient
    // exchange, before start().
    [[nodiscard]] bool copyPairs(const RadPair *pairs);

    Exchange(const Exchange &) = delete;
    Exchange &operator=(const Exchange &) = delete;
    ~Exchange();

    Next start();
    Next nextServer();
    // `identifier` is the way's own; the library's next one where it has none.
    Next opened();
    Next opened(uint8_t identifier);
    Next sent();
    Next received(std::span<uint8_t> datagram);
    Next timedOut();
    // A signal came: the request is sent again, without counting as a retry, on purpose.
    static Next interrupted() { return Next::kSend; }
    // A step of the driver failed; `reason` as in RadLastError.
    Next failed(int32_t step, int32_t reason);
    // The network says that nobody is there (ICMP, no route): after a send, or instead of it.
    Next refused(int error);
    // There is no way to the server at all.
    Next unreachable(int error);

    // The server that is asked.
    const RadRequestDesc &server() const { return desc_; }
    const sockaddr_in &address() const { return address_; }
    // The packet, which is said to be sent now.
    Packet sending();
    int64_t patience() const { return patience_; }  // microseconds, of a resilient exchange
    int result() const { return result_; }
    Packet packet() const { return *request_.packet; }
    RadPair *takeReply() { return std::exchange(reply_, nullptr); }
    // Makes this thread's radLastError() tell of this exchange; of earlier ones too where the caller
    // asks one server after the other with an exchange each.
    void publishOutcomes() const;

  private:
    Next resolve();
    Next reach(const sockaddr_in &server);
    Next pack(const RadPair *pairs);
    Next endTry(int result);
    void leave();
    void choose();
    [[nodiscard]] bool hasLivingNext() const;
    void choosePatience(int64_t now);
    [[nodiscard]] int sendsAllowed() const;
    [[nodiscard]] bool mustBeSigned() const;
    [[nodiscard]] std::span<const uint8_t> candidates() const {
        return std::span(choice_.order).first(choice_.count);
    }
    Outcome &outcome() { return outcomes_[asked_ - 1]; }

    const char *function_ = "radBuildAndSendReq";
    RadPair *pairs_ = nullptr;           // the caller's, completed for each server
    const RadPair *complete_ = nullptr;  // the caller's, as it is
    int32_t *results_ = nullptr;
    ServerSet::Owner set_;
    PairCopy copy_;
    ServerChoice choice_;
    Outcome before_;                                   // why there is no server to ask
    std::array<Outcome, RAD_SERVERS_MAX> outcomes_{};  // of the servers asked so far
    uint8_t asked_ = 0;

    // The server that is asked.
    RadRequestDesc desc_{};
    const char *nasIdentifier_ = nullptr;
    sockaddr_in address_{};
    OwnedPacket request_;
    int32_t sends_ = 0;        // before the one that is waited for
    int32_t strayReason_ = 0;  // why its last datagram was not the reply
    int64_t firstSend_ = 0;    // resilient: 0 while it has not been asked
    int64_t patience_ = 0;

    int64_t started_ = 0;
    int32_t result_ = -1;
    RadPair *reply_ = nullptr;
    int stateOrigin_ = -1;  // the server that gave the State; -1 for none
    bool resilient_ = false;
    bool isComplete_ = false;
    bool isOneOfMany_ = false;
    bool isEap_ = false;
    bool delayed_ = false;  // has an Acct-Delay-Time
    bool probesDead_ = false;
    bool probesFirst_ = false;  // the first server is a dead one, which this request tries again
    bool again_ = false;        // the same server is asked with a new packet
};

}  // namespace lanyard

#endif
