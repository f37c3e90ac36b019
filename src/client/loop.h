// The loop, for those in the library that need more of it than loop.h offers.
#ifndef LANYARD_CLIENT_LOOP_H
#define LANYARD_CLIENT_LOOP_H

#include <lanyard/radius/loop.h>

#include "client/exchange.h"

namespace lanyard {

// Who is told that a request has ended: a callback of the program's, called by a function that knows
// its form. Without that function, nobody.
struct Listener {
    void (*tell)(const Listener &listener, RadRequest *request, int code, RadPair *reply) = nullptr;
    void *context = nullptr;
    RadDone done = nullptr;
    RadLoginDone loginDone = nullptr;
};

// Starts a request with an exchange of the caller's making; `pairs` are copied.
RadRequest *startRequest(RadLoop &loop, Exchange::Resilient description, const RadPair *pairs,
                         const Listener &listener);
RadRequest *startRequest(RadLoop &loop, Exchange::Resilient description, const RadPair *pairs,
                         RadDone done, void *context);

// radRequestStart() for any listener.
RadRequest *startConfigured(RadLoop *loop, int code, const RadPair *pairs,
                            const Listener &listener);

// Whether the calls that wait are to be resilient.
bool isResilient();

// The calls that wait, when they are: each drives a loop of its own. Their arguments
// are there.
int askResiliently(const ServerChoice &choice, int code, const RadPair *pairs, RadPair **replyOut);
int askEachResiliently(const ServerChoice &choice, int code, const RadPair *pairs,
                       RadPair **replyOut, int32_t *results);
int sendResiliently(const RadRequestDesc &desc, const RadPair *pairs, RadPair **replyOut);

}  // namespace lanyard

#endif
