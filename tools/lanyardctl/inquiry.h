// What a server says to small questions of the tool's own. They tell a wrong secret from silence, which
// one request alone cannot.
#ifndef LANYARDCTL_INQUIRY_H
#define LANYARDCTL_INQUIRY_H

#include <chrono>
#include <cstdint>
#include <string>

#include <lanyard/radius/conf.h>

#include "report.h"

namespace lanyardctl {

enum class State {
    kAnswers,      // a valid answer
    kUnsigned,     // one to a request without Message-Authenticator alone
    kWrongSecret,  // an answer that our secret does not explain
    kSilent,       // nothing came
    kClosed,       // the machine says that nobody listens there
    kUnreachable,  // the packet could not be sent; `error`
    kUnresolved,   // the name has no address
};

struct Finding {
    State state = State::kSilent;
    std::string address;        // dotted; "" when there is none
    std::string question;       // what was answered, such as "Status-Server"
    int code = 0;               // of the answer; 0 for none
    double milliseconds = 0;    // round trip
    bool isSigned = false;      // the answer carries a valid Message-Authenticator
    bool statusServer = false;  // it answers Status-Server (RFC 5997)
    int error = 0;              // an errno
};

// Asks a server: Status-Server first; then, where that is silent and `kind` is RAD_SERVER_AUTH, a login
// of "lanyardctl" with a password that nobody has, and at last the same without Message-Authenticator.
// Each question is sent twice, and waited for so long in all.
Finding inquire(const RadServer &server, int kind, std::chrono::milliseconds wait);

// The state in words, and what to look at next; "" where there is nothing to do.
std::string wordsFor(const Finding &finding);
std::string nextStepFor(const Finding &finding, const RadServer &server);

// "127.0.0.1:1812", as the configuration names it.
std::string nameOf(const RadServer &server);

// A time for people: "3.1 ms".
std::string asMilliseconds(double milliseconds);
// The same for programs: not finer than it is measured.
double inMicrosecondSteps(double milliseconds);

}  // namespace lanyardctl

#endif
