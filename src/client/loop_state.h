// A loop and its requests from the inside: loop.cpp has the steps, loop_calls.cpp the functions that
// programs call.
#ifndef LANYARD_CLIENT_LOOP_STATE_H
#define LANYARD_CLIENT_LOOP_STATE_H

#include <array>
#include <cstdint>
#include <limits>
#include <span>
#include <utility>

#include <palcore.h>

#include "base/descriptor.h"
#include "client/channel.h"
#include "client/exchange.h"
#include "client/loop.h"

struct RadRequest : PalListNode {
    RadRequest(RadLoop *itsLoop, lanyard::Exchange::Resilient description,
               const lanyard::Listener &itsListener)
        : PalListNode{}, loop(itsLoop), exchange(std::move(description)), listener(itsListener) {}

    RadLoop *const loop;
    lanyard::Exchange exchange;
    lanyard::Channel *channel = nullptr;  // while it has an identifier there
    int64_t deadline = 0;
    const lanyard::Listener listener;
    uint8_t identifier = 0;
    bool hasEnded = false;
};

struct RadLoop {
    RadLoop(lanyard::Descriptor events, lanyard::Descriptor timer)
        : events_(std::move(events)), timer_(std::move(timer)) {}
    RadLoop(const RadLoop &) = delete;
    RadLoop &operator=(const RadLoop &) = delete;

    ~RadLoop();

    int descriptor() const { return events_.get(); }
    bool isRunning() const { return running_; }
    bool isCurrent(const RadRequest *request) const { return request == current_; }
    void doom() { doomed_ = true; }
    bool isDoomed() const { return doomed_; }

    lanyard::ServerSet::Owner servers(const lanyard::ServerChoice &choice, int code);
    void start(RadRequest *request);
    int run(int64_t patience);

    void cancel(RadRequest *request) {
        leaveChannel(*request);
        destroy(request);
    }

  private:
    void drive(RadRequest &request, lanyard::Next next);
    lanyard::Next open(RadRequest &request);
    lanyard::Next send(RadRequest &request);
    lanyard::Channel *channelTo(const sockaddr_in &server);
    void leaveChannel(RadRequest &request);
    bool wait(int64_t until, bool &interrupted);
    void receive(lanyard::Channel &channel);
    void take(lanyard::Channel &channel, std::span<uint8_t> datagram);
    void refuse(lanyard::Channel &channel, int error);
    void expire();
    void wakeAt(int64_t time);
    int deliver();

    void destroy(RadRequest *request);
    void destroy(lanyard::Channel *channel);

    lanyard::Descriptor events_;
    lanyard::Descriptor timer_;
    PalList inFlight_{};
    PalList ended_{};  // their callbacks are still to come
    int awaited_ = 0;  // of both, those that somebody is to be told of
    PalList channels_{};
    std::array<lanyard::ServerSet::Owner, 2> sets_{};  // for authentication, for accounting
    // When the timer wakes: at the first deadline or before.
    int64_t wake_ = std::numeric_limits<int64_t>::max();
    RadRequest *current_ = nullptr;  // whose callback runs
    bool running_ = false;
    bool doomed_ = false;
};

static_assert(sizeof(RadRequest) < 700 && sizeof(RadLoop) < 4096);

#endif
