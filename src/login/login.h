// What all authentication methods share: input limits, the request list, reporting of the outcome,
// display of the reply's attributes, and the limits that a reply grants.
#ifndef LANYARD_LOGIN_LOGIN_H
#define LANYARD_LOGIN_LOGIN_H

#include <cstddef>
#include <cstdint>

#include <lanyard/radius/attr.h>

#include "attr/pair_list.h"

namespace lanyard {

// Service-Type of a request that asks for nothing but a verdict (RFC 2865 section 5.6).
constexpr uint32_t kAuthenticateOnly = 8;

// Where a line goes that tells of success.
enum class Sink { kOutput, kTrace };

// How one public function tells of its outcome.
struct Reporting {
    const char *function;  // the public function, the tag of every message
    int refusalLevel;      // log level of refused inputs
    Sink success;
    int failureLevel;  // log level of a failed login
    Sink heading;      // the line above the attributes
};

// Where the limits of a reply go. A limit that the reply does not carry leaves its place alone.
struct SessionLimits {
    uint32_t *idleMinutes;
    uint32_t *sessionMinutes;
};

// Whether a text is there and has at most `limit` characters.
bool isWithin(const char *text, size_t limit);

void reportOutcome(const Reporting &reporting, const char *userName, bool accepted);

// Shows every attribute of a reply, and notes its limits where `limits` is given.
void showPairs(RadPair *reply, const SessionLimits *limits);

// The same below a heading, if there is a reply.
void showReply(const Reporting &reporting, RadPair *reply, const SessionLimits *limits);

// Sends the request of a login and tells of the outcome. The reply may carry attributes either way.
bool logIn(const Reporting &reporting, const char *userName, const PairList &request,
           PairList &reply);

// Whole minutes, rounded up in single precision.
uint32_t minutesOf(uint32_t seconds);

}  // namespace lanyard

#endif
