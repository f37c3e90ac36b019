// A management bus with the relay alone on it, whose other members the target plays.
//
//     bus = {.listen = [] { ... },                       // each wait; false ends the relay
//            .sent = [](uint32_t module, ByteView record) { ... }};
//     radEapInit();
#ifndef LANYARD_FUZZ_BUS_H
#define LANYARD_FUZZ_BUS_H

#include <functional>
#include <string_view>

#include "fuzz/environment.h"

namespace lanyard::fuzz {

inline constexpr uint32_t kPnac = 6;

struct Bus {
    std::function<bool()> listen = {};
    std::function<void(uint32_t module, ByteView record)> sent = {};
};

extern Bus bus;

// A record from Pnac: words in host order, the packet, and what follows it.
Bytes busRecord(uint32_t cookie, uint32_t command, uint32_t length, ByteView packet,
                ByteView behind = {});

// An EAP-Response; the length field counts what is there.
Bytes eapResponse(uint8_t identifier, uint8_t type, ByteView data);
Bytes identityResponse(std::string_view name);

// Hands the relay a message that ends where its block ends.
int hand(uint32_t command, Bytes message);

}  // namespace lanyard::fuzz

#endif
