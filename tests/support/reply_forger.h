// Datagrams that somebody who does not know the secret sends ahead of a server's reply.
#ifndef LANYARD_TESTS_SUPPORT_REPLY_FORGER_H
#define LANYARD_TESTS_SUPPORT_REPLY_FORGER_H

#include <cstdint>
#include <optional>
#include <random>
#include <span>

#include "tests/support/unreliable_link.h"

namespace lanyard::test {

enum class Forgery {
    kNone,
    kJunk,     // bytes that are no packet
    kAccept,   // a bare Access-Accept with the reply's identifier and a made-up authenticator
    kDigest,   // the reply with a wrong response authenticator
    kForeign,  // the reply to another request, with this one's identifier
};

// What kAccept sends.
Datagram forgedAccept(uint8_t identifier);

class ReplyForger {
  public:
    explicit ReplyForger(uint32_t seed = 1) : generator_(seed) {}

    // What goes ahead of a reply; nothing for kNone, and for kForeign before there was another reply.
    // `share` is that of the replies which get one.
    std::optional<Datagram> forge(Forgery forgery, std::span<const uint8_t> reply,
                                  double share = 1);

  private:
    std::mt19937 generator_;
    Datagram earlier_;
};

}  // namespace lanyard::test

#endif
