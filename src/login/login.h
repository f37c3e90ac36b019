// The frame in which every login runs: inputs are checked, the request is built, sent and answered,
// and the outcome is told, as the function's row of the contract has it.
#ifndef LANYARD_LOGIN_LOGIN_H
#define LANYARD_LOGIN_LOGIN_H

#include <cstddef>
#include <cstdint>

#include <lanyard/radius/attr.h>

#include "attr/pair_list.h"
#include "client/last_error.h"
#include "login/contract.h"

namespace lanyard {

// Service-Type of a request that asks for nothing but a verdict (RFC 2865 section 5.6).
constexpr uint32_t kAuthenticateOnly = 8;

// Where the limits of a reply go. A limit that the reply does not carry leaves its place alone.
struct SessionLimits {
    uint32_t *idleMinutes = nullptr;
    uint32_t *sessionMinutes = nullptr;
};

// One call of a login function.
struct Login {
    const LoginContract &contract;
    const char *userName;
    SessionLimits limits = {};
    int32_t *results = nullptr;  // one for each server, where every one is asked
    // What a login that was not accepted returns, by its reply; -1 without it.
    int (*resultOfRefusal)(RadPair *reply) = nullptr;
};

// Whether a text is there and has at most `limit` characters.
bool isWithin(const char *text, size_t limit);

// Starts the request with User-Name. False when an input is refused, which has been told then.
bool startRequest(const Login &login, bool inputsAreGood, PairList &request);

// Sends the request, reports the outcome and shows the reply.
int finishLogin(const Login &login, const PairList &request);

// Runs a login. `addAttributes` adds what the method sends behind User-Name.
template <typename AddAttributes>
int logIn(const Login &login, bool inputsAreGood, AddAttributes addAttributes) {
    forgetOutcomes();
    PairList request;
    return startRequest(login, inputsAreGood, request) && addAttributes(request)
               ? finishLogin(login, request)
               : -1;
}

// Notes the limits that an attribute of a reply carries.
void noteLimits(const RadPair &pair, const SessionLimits &limits);

// Shows every attribute of a reply below a heading, if there is one, and notes its limits.
void showReply(const char *function, Sink heading, RadPair *reply, const SessionLimits &limits);

}  // namespace lanyard

#endif
