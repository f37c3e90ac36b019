// The frame in which every login runs.
#include "login/login.h"

#include <cstdio>
#include <cstring>
#include <string_view>

#include <lanyard/radius/engine.h>
#include <lanyard/radius/methods.h>

#include "base/output.h"

namespace lanyard {
namespace {

constexpr const char *kHeading = "Attributes Received: ";
constexpr std::string_view kOk = "\" RADIUS Authentication OK\n";

// Whole minutes, rounded up in single precision.
uint32_t minutesOf(uint32_t seconds) {
    const float minutes = static_cast<float>(seconds) / 60.0F;
    const auto whole = static_cast<uint32_t>(minutes);
    return static_cast<double>(whole) < static_cast<double>(minutes) ? whole + 1 : whole;
}

// Limits are known by the name of the attribute, whatever its number in the dictionary.
void noteLimit(const RadPair &pair, const char *name, uint32_t *minutes) {
    if (minutes && std::strncmp(pair.name, name, sizeof(pair.name)) == 0) {
        *minutes = minutesOf(pair.numValue);
    }
}

int send(const Login &login, const PairList &request, PairList &reply) {
    return login.contract.asksEveryServer
               ? radBuildAndSendReqCheckAllServer(RAD_CODE_ACCESS_REQUEST, request.head(),
                                                  reply.address(), login.results)
               : radBuildAndSendReq(RAD_CODE_ACCESS_REQUEST, request.head(), reply.address());
}

void tellOutcome(const Login &login, bool accepted) {
    const LoginContract &contract = login.contract;
    if (!accepted) {
        radLogAs(contract.function, contract.failureLevel, "\"%s\" RADIUS Authentication failure\n",
                 login.userName);
    } else if (contract.success == Sink::kOutput) {
        OutputLine<RAD_USER_NAME_MAX + kOk.size() + 1> line;
        line.add('"');
        line.add(login.userName);
        line.add(kOk);
        line.print();
    } else {
        radLogAs(contract.function, kLogTrace, "\"%s\" RADIUS Authentication OK\n", login.userName);
    }
}

}  // namespace

bool isWithin(const char *text, size_t limit) {
    return text && strnlen(text, limit + 1) <= limit;
}

bool startRequest(const Login &login, bool inputsAreGood, PairList &request) {
    if (!inputsAreGood || !isWithin(login.userName, RAD_USER_NAME_MAX)) {
        const Refusal &refusal = login.contract.refusal;
        if (refusal.text) {
            radLogAs(login.contract.function, refusal.level, "%s", refusal.text);
        }
        return false;
    }
    return request.addText(RAD_ATTR_USER_NAME, login.userName);
}

int finishLogin(const Login &login, const PairList &request) {
    PairList reply;
    const bool accepted = send(login, request, reply) == RAD_CODE_ACCESS_ACCEPT;
    tellOutcome(login, accepted);
    const LoginContract &contract = login.contract;
    if (contract.shown == Shown::kAll || (contract.shown == Shown::kAccepted && accepted)) {
        showReply(contract.function, contract.heading, reply.head(), login.limits);
    }
    if (accepted) {
        return 0;
    }
    return login.resultOfRefusal ? login.resultOfRefusal(reply.head()) : -1;
}

void noteLimits(const RadPair &pair, const SessionLimits &limits) {
    noteLimit(pair, "Idle-Timeout", limits.idleMinutes);
    noteLimit(pair, "Session-Timeout", limits.sessionMinutes);
}

void showReply(const char *function, Sink heading, RadPair *reply, const SessionLimits &limits) {
    if (reply && heading == Sink::kOutput) {
        std::puts(kHeading);
    } else if (reply && heading == Sink::kTrace) {
        radLogAs(function, kLogTrace, "%s\n", kHeading);
    }
    for (RadPair *pair = reply; pair; pair = radPairNext(pair)) {
        radPairShow(pair);
        noteLimits(*pair, limits);
    }
}

}  // namespace lanyard
