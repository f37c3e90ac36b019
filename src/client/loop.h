// The loop, for those in the library that need more of it than loop.h offers.
#ifndef LANYARD_CLIENT_LOOP_H
#define LANYARD_CLIENT_LOOP_H

#include <lanyard/radius/loop.h>

#include "client/exchange.h"

namespace lanyard {

// radRequestStart() with an exchange of the caller's making; `pairs` are copied. Without `done` it
// ends without a word.
RadRequest *startRequest(RadLoop &loop, Exchange::Resilient description, const RadPair *pairs,
                         RadDone done, void *context);

// The calls that wait, when they are to be resilient: each drives a loop of its own. Their arguments
// are there.
int askResiliently(const ServerChoice &choice, int code, const RadPair *pairs, RadPair **replyOut);
int askEachResiliently(const ServerChoice &choice, int code, const RadPair *pairs,
                       RadPair **replyOut, int32_t *results);
int sendResiliently(const RadRequestDesc &desc, const RadPair *pairs, RadPair **replyOut);

}  // namespace lanyard

#endif
