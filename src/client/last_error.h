// The record of what became of this thread's last request.
#ifndef LANYARD_CLIENT_LAST_ERROR_H
#define LANYARD_CLIENT_LAST_ERROR_H

#include <lanyard/radius/error.h>

namespace lanyard {

// Starts a new request: forgets what became of the one before.
void forgetOutcomes();

// A record for a request to one server, of which nothing is known yet.
RadLastError outcomeAt(const char *host, uint32_t port);

// Says where and why a request ended. @return -1, what the caller returns then.
int failAt(RadLastError &outcome, int32_t step, int32_t reason);

// Adds what became of this thread's request at one server.
void noteOutcome(const RadLastError &outcome);

}  // namespace lanyard

#endif
