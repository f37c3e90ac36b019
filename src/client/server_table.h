// What is known of the servers, beside the configuration: which of them answer, how fast, and how
// often (RFC 4668, RFC 4670). One table for the process, by address and port; a server that stays
// in the configuration keeps its place when that changes.
//
// Threads: all of it from any thread.
#ifndef LANYARD_CLIENT_SERVER_TABLE_H
#define LANYARD_CLIENT_SERVER_TABLE_H

#include <cstdint>
#include <netinet/in.h>
#include <span>

namespace lanyard {

// Times are monotonicMicroseconds().

bool isAlive(const sockaddr_in &server);

// Takes it on to ask a server that has been dead for long enough. False for others; to everybody else it
// stays dead meanwhile.
bool claimProbe(const sockaddr_in &server, int64_t now);

void noteSent(const sockaddr_in &server, bool again);

// The end of waiting for a server: answered or given up.
void noteLeft(const sockaddr_in &server);

// Something came from it, whatever it is worth.
void noteHeard(const sockaddr_in &server, int64_t now);

// A valid reply: it is alive.
void noteReply(const sockaddr_in &server, uint8_t code, int64_t roundTrip);

// What came was no valid reply; RAD_REASON_ says why.
void noteStray(const sockaddr_in &server, int32_t reason);

// No answer to one send.
void noteTimeout(const sockaddr_in &server);

// No answer to all sends since `since`. A server of which nothing at all came since then is dead.
void noteSilence(const sockaddr_in &server, int64_t since, int64_t now);

// Which server gave a State (RFC 2865 section 5.24): it is forgotten in time. @return whether it
// is known.
void noteState(std::span<const uint8_t> state, const sockaddr_in &server);
bool findStateOrigin(std::span<const uint8_t> state, sockaddr_in &server);

}  // namespace lanyard

#endif
