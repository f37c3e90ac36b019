// What all authentication methods share.
#include "login/login.h"

#include <cstdio>
#include <cstring>

#include <lanyard/radius/engine.h>

#include "base/log.h"

namespace lanyard {
namespace {

constexpr const char *kHeading = "Attributes Received: ";

// Limits are known by the name of the attribute, whatever its number in the dictionary.
void noteLimit(const RadPair &pair, const char *name, uint32_t *minutes) {
    if (minutes && std::strncmp(pair.name, name, sizeof(pair.name)) == 0) {
        *minutes = minutesOf(pair.numValue);
    }
}

}  // namespace

bool isWithin(const char *text, size_t limit) {
    return text && strnlen(text, limit + 1) <= limit;
}

void reportOutcome(const Reporting &reporting, const char *userName, bool accepted) {
    if (!accepted) {
        radLogAs(reporting.function, reporting.failureLevel,
                 "\"%s\" RADIUS Authentication failure\n", userName);
    } else if (reporting.success == Sink::kOutput) {
        std::printf("\"%s\" RADIUS Authentication OK\n", userName);
    } else {
        radLogAs(reporting.function, kLogTrace, "\"%s\" RADIUS Authentication OK\n", userName);
    }
}

void showPairs(RadPair *reply, const SessionLimits *limits) {
    for (RadPair *pair = reply; pair; pair = radPairNext(pair)) {
        radPairShow(pair);
        if (limits) {
            noteLimit(*pair, "Idle-Timeout", limits->idleMinutes);
            noteLimit(*pair, "Session-Timeout", limits->sessionMinutes);
        }
    }
}

void showReply(const Reporting &reporting, RadPair *reply, const SessionLimits *limits) {
    if (!reply) {
        return;
    }
    if (reporting.heading == Sink::kOutput) {
        std::puts(kHeading);
    } else {
        radLogAs(reporting.function, kLogTrace, "%s\n", kHeading);
    }
    showPairs(reply, limits);
}

bool logIn(const Reporting &reporting, const char *userName, const PairList &request,
           PairList &reply) {
    const bool accepted = radBuildAndSendReq(RAD_CODE_ACCESS_REQUEST, request.head(),
                                             reply.address()) == RAD_CODE_ACCESS_ACCEPT;
    reportOutcome(reporting, userName, accepted);
    return accepted;
}

uint32_t minutesOf(uint32_t seconds) {
    const float minutes = static_cast<float>(seconds) / 60.0F;
    const auto whole = static_cast<uint32_t>(minutes);
    return static_cast<double>(whole) < static_cast<double>(minutes) ? whole + 1 : whole;
}

}  // namespace lanyard
