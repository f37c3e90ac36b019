// The EAP relay as the change service sees it: it takes change notices, one after the other.
#ifndef LANYARDCTL_RELAY_H
#define LANYARDCTL_RELAY_H

#include <string>

#include <lanyard/radius/mgmt.h>

namespace lanyardctl {

class Relay {
  public:
    enum class Answer {
        done,
        refused,  // it was handled and failed
        unknown   // it may be handled later, by this run of the relay or the next
    };

    Relay() = default;
    Relay(const Relay &) = delete;
    Relay &operator=(const Relay &) = delete;
    virtual ~Relay() = default;

    // Which run of the relay this is: a text that no other run has; "" when there is none. A run that
    // was killed may keep its text until the next one starts.
    virtual std::string run() = 0;

    // Whether it takes messages now. A relay that waits for a RADIUS server does not, for minutes.
    virtual bool listens() = 0;

    // Delivers one notice and waits for what becomes of it, a few seconds at most.
    virtual Answer send(const RadDbUpdateInfo &notice, std::string oldValues) = 0;

    // Tells its process to end, without waiting for that. False when there is no such process.
    virtual bool end() = 0;
};

}  // namespace lanyardctl

#endif
