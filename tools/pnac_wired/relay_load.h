// How much the relay has to do, and whether it may have a new login as well.
//
// Some relays work on many packets at once, others on one after the other, and the bus does not tell.
// The second kind shows by its answers: they come in the order of the packets, and late when there are
// many. So a new login waits while too many packets are ahead of it. A packet that was overtaken by a
// later one's answer is not ahead of anybody: its server is slow, not the relay.
//
// Logins that are under way never wait here: they end the sooner, and the relay ends a conversation
// after RAD_EAP_LIFE packets, whosever they are.
#ifndef LANYARD_TOOLS_PNAC_WIRED_RELAY_LOAD_H
#define LANYARD_TOOLS_PNAC_WIRED_RELAY_LOAD_H

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>

#include <lanyard/radius/eap.h>

namespace lanyard::pnac {

class RelayLoad {
  public:
    using Duration = std::chrono::steady_clock::duration;

    // How many packets may be ahead of a new login. Two dozen rounds of a login have to fit into the
    // life of a conversation.
    struct Settings {
        size_t least = 4;
        size_t first = 64;
        size_t most = RAD_EAP_LIFE / 24;
        // An answer after that came late, and a new login waits no longer for any.
        Duration slow = std::chrono::seconds(4);
    };

    explicit RelayLoad(const Settings &settings) : settings_(settings), limit_(settings.first) {}

    // The number of a packet that the relay has taken, from 1.
    uint64_t sent() { return ++sent_; }

    // The relay has answered that packet after that time.
    void answered(uint64_t number, Duration after) {
        if (after > settings_.slow) {
            late(number);
        } else if (number > answered_) {
            limit_ = std::min(limit_ + 1, settings_.most);
        }
        answered_ = std::max(answered_, number);
    }

    // That packet's answer comes late, if at all.
    void late(uint64_t number) {
        if (number > answered_ && number > reducedAt_) {
            limit_ = std::max(limit_ / 2, settings_.least);
            reducedAt_ = sent_;  // those that it has by now come late too
        }
    }

    // Nothing is ahead any more: what the relay has is lost.
    void forget() { answered_ = sent_; }

    bool isFull() const { return sent_ - answered_ >= limit_; }

  private:
    Settings settings_;
    size_t limit_;
    uint64_t sent_ = 0;
    uint64_t answered_ = 0;   // the latest of them
    uint64_t reducedAt_ = 0;  // the latest that was sent when the limit was reduced
};

}  // namespace lanyard::pnac

#endif
