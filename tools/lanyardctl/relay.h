// The EAP relay as the change service sees it: it takes change notices, one after the other.
#ifndef LANYARDCTL_RELAY_H
#define LANYARDCTL_RELAY_H

#include <chrono>
#include <string>

#include <lanyard/radius/mgmt.h>

namespace lanyardctl {

class Relay {
  public:
    enum class Answer {
        awaited,  // it waits for a RADIUS server, perhaps for minutes
        done,
        refused,  // it was handled and failed
        ended,    // the run has ended, and nobody else gets it
        unknown   // it may be handled later, by this run of the relay or the next
    };

    Relay() = default;
    Relay(const Relay &) = delete;
    Relay &operator=(const Relay &) = delete;
    virtual ~Relay() = default;

    // Which run of the relay this is: a text that no other run has; "" when there is none. A run that
    // was killed may keep its text until the next one starts.
    virtual std::string run() = 0;

    // Whether a process of the relay takes messages, now or later.
    virtual bool isThere() = 0;

    // Puts a notice into the queue of that run, without waiting. False when it cannot take it.
    virtual bool queue(const std::string &run, const RadDbUpdateInfo &notice,
                       std::string oldValues) = 0;
    // What has become of it, after that time at most. There is one at a time.
    virtual Answer answer(std::chrono::milliseconds patience) = 0;

    // Tells its process to end, without waiting for that. False when there is no such process.
    virtual bool end() = 0;
};

}  // namespace lanyardctl

#endif
