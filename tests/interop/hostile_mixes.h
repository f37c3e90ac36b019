// What a network may do to logins: each of them alone, and all of them together.
#ifndef LANYARD_TESTS_INTEROP_HOSTILE_MIXES_H
#define LANYARD_TESTS_INTEROP_HOSTILE_MIXES_H

#include <array>
#include <chrono>
#include <ostream>

#include "tests/support/udp_proxy.h"

namespace lanyard::test {

struct Mix {
    const char *name;
    ProxySettings network;
    size_t atOnce = 250;    // logins
    int silentServers = 0;  // ahead of the one that answers
};

inline void PrintTo(const Mix &mix, std::ostream *stream) {
    *stream << mix.name;
}

inline const std::array<Mix, 15> &hostileMixes() {
    using namespace std::chrono_literals;
    static const std::array<Mix, 15> kMixes = {{
        {"Clean", {}},
        {"Loss10", {.faults = {.loss = 0.1}}},
        {"Loss30", {.faults = {.loss = 0.3}}},
        // Later than the time-out, which is a second.
        {"Late", {.toServer = 100ms, .toClient = 1400ms}},
        {"Duplicated", {.faults = {.duplicate = 0.3}}},
        {"Reordered", {.toServer = 5ms, .toClient = 5ms, .faults = {.reorder = 0.3}}},
        {"Truncated", {.faults = {.truncate = 0.1}}},
        {"Corrupted", {.faults = {.corrupt = 0.1}}},
        {"Junk20", {.forgery = Forgery::kJunk, .forgedShare = 0.2}},
        {"ForgedAccept20", {.forgery = Forgery::kAccept, .forgedShare = 0.2}},
        {"WrongDigest20", {.forgery = Forgery::kDigest, .forgedShare = 0.2}},
        {"ReplyToAnother20", {.forgery = Forgery::kForeign, .forgedShare = 0.2}},
        // Forged accepts for as long as a login waits; of so few, that the proxy is not what drowns.
        {"Flood", {.faults = {.loss = 0.1}, .flood = 110}, 16},
        {"SilentFirst", {.faults = {.loss = 0.1}}, 250, 1},
        {"AllOfThem",
         {.toServer = 5ms,
          .toClient = 5ms,
          .faults =
              {.loss = 0.1, .duplicate = 0.1, .reorder = 0.1, .truncate = 0.02, .corrupt = 0.02},
          .forgery = Forgery::kForeign,
          .forgedShare = 0.1}},
    }};
    return kMixes;
}

}  // namespace lanyard::test

#endif
