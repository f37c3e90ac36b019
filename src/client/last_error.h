// The record of what became of this thread's last request.
#ifndef LANYARD_CLIENT_LAST_ERROR_H
#define LANYARD_CLIENT_LAST_ERROR_H

#include <lanyard/radius/error.h>

namespace lanyard {

// What became of a request at one server; the fields are those of RadLastError.
struct Outcome {
    int32_t step = 0;
    int32_t reason = 0;
    int32_t code = 0;
    int32_t attribute = 0;
    int32_t tries = 0;
    int32_t timeout = 0;
};

// Starts a new request: forgets what became of the one before.
void forgetOutcomes();

// Says where and why a request ended. @return -1, what the caller returns then.
int failAt(Outcome &outcome, int32_t step, int32_t reason);

// Adds what became of this thread's request at one server; "" for none.
void noteOutcome(const char *host, uint32_t port, const Outcome &outcome);
void noteOutcome(const RadLastError &record);

}  // namespace lanyard

#endif
