// The relay with many requests in flight: a conversation that waits for its server costs nobody else
// anything.
#ifndef LANYARD_RELAY_IN_FLIGHT_H
#define LANYARD_RELAY_IN_FLIGHT_H

#include <atomic>
#include <cstdint>
#include <span>

#include "relay/conversation.h"

namespace lanyard {

// Whether serveInFlight() is at work.
bool servesManyAtOnce();

// Serves the bus and the conversations until `running` is 0. False when the program does not ask for it
// (RAD_OPTION_EAP_IN_FLIGHT), and when there is no memory, or no descriptor, to begin with.
bool serveInFlight(const std::atomic<uint32_t> &running);

// Whether a packet of a conversation is to be queued: what repeats the response in flight is not. An
// identity begins anew and ends the request.
bool isWanted(const RadEapQueueEntry &entry, std::span<const uint8_t> packet);

// How many requests are in flight.
int requestsInFlight();

// Makes room for a new conversation: there are never more than a relay without requests in flight
// would have, whatever is sent. The oldest one ends.
void makeRoom();

// Ends the request of a conversation, if there is one.
void cancelRequest(const RadEapQueueEntry &entry);

// Writes the status (RAD_EAP_CMD_STATUS) into `size` bytes, and sets it to the bytes that it takes.
// @return 0; -1 without room.
int writeStatus(char *buffer, uint32_t *size);

}  // namespace lanyard

#endif
