// Between an EAP packet and a RADIUS request, for both ways of serving them: one after the other
// (relay.cpp), and many in flight (in_flight.cpp).
#ifndef LANYARD_RELAY_RELAY_H
#define LANYARD_RELAY_RELAY_H

#include <lanyard/radius/attr.h>

#include "attr/pair_list.h"
#include "relay/conversation.h"

namespace lanyard {

// Whether a packet is an EAP-Response of the length that it says; the log has what is wrong.
bool isRelayable(std::span<const uint8_t> packet);

// Makes the Access-Request of the packet that waits, and notes the identity in it. The State moves
// into the request. False when the packet is to be dropped.
bool makeRequest(RadEapQueueEntry &entry, PairList &request);

// Answers Pnac with what the servers said, and after a verdict forgets identity and State.
// `response` is the head of the response that is answered, `failureReason` one of the
// RAD_EAP_FAILED_ values.
// @return whether that was a verdict.
bool answer(RadEapQueueEntry &entry, const uint8_t *response, int code, RadPair *reply,
            uint8_t failureReason);

// Ends a conversation, with EAP-Failure for a packet that waits, or else for the response in flight.
void expire(RadEapQueueEntry &entry);

// Sends EAP-Failure for a response.
void sendFailure(const RadEapQueueEntry &entry, const uint8_t *response, uint8_t reason);

}  // namespace lanyard

#endif
