// The EAP relay as the change service sees it: it takes change notices, one after the other.
#ifndef LANYARDCTL_RELAY_H
#define LANYARDCTL_RELAY_H

#include <string>

#include <lanyard/radius/mgmt.h>

namespace lanyardctl {

class Relay {
  public:
    Relay() = default;
    Relay(const Relay &) = delete;
    Relay &operator=(const Relay &) = delete;
    virtual ~Relay() = default;

    // Delivers one notice and waits for its result: 0; anything else when the relay refused it or
    // there is no answer.
    virtual int send(const RadDbUpdateInfo &notice, std::string oldValues) = 0;

    // Which run of the relay this is: a text that no other run has, whoever asks; "" when there is
    // none.
    virtual std::string instance() = 0;
};

}  // namespace lanyardctl

#endif
