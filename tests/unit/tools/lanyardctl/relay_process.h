// What the relay process of the tests understands beside change notices.
#ifndef LANYARD_TESTS_LANYARDCTL_RELAY_PROCESS_H
#define LANYARD_TESTS_LANYARDCTL_RELAY_PROCESS_H

#include <cstdint>

namespace lanyard::test {

// Answers in `out`, as text: the process, how many messages it had, the number of servers and how often it
// has waited before the last notice, then one line for each slot in use: row key, row id, host, port,
// time-out, retries, secret.
inline constexpr uint32_t kTellServers = 1000;

// Has it wait for a moment, as a relay does for a RADIUS server.
inline constexpr uint32_t kWait = 1001;

}  // namespace lanyard::test

#endif
