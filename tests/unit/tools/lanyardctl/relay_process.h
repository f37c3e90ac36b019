// What the relay process of the tests understands beside change notices.
#ifndef LANYARD_TESTS_LANYARDCTL_RELAY_PROCESS_H
#define LANYARD_TESTS_LANYARDCTL_RELAY_PROCESS_H

#include <cstdint>

namespace lanyard::test {

// Answers in `out`, as text: the process, how many messages it had and the number of servers, then one line for each slot in use: row key, row
// id, host, port, time-out, retries, secret.
inline constexpr uint32_t kTellServers = 1000;

}  // namespace lanyard::test

#endif
