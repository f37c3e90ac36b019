// What the authenticator is told at its start, and what it counts.
#ifndef LANYARD_TOOLS_PNAC_WIRED_SETTINGS_H
#define LANYARD_TOOLS_PNAC_WIRED_SETTINGS_H

#include <cstdint>
#include <optional>

#include "tools/pnac_wired/event.h"
#include "tools/pnac_wired/relay_load.h"

namespace lanyard::pnac {

struct Settings {
    Mac address = {};                                // of the interface
    std::optional<Port> port = {};                   // what the relay is told of it
    Duration interval = std::chrono::seconds(3);     // before a request is sent again
    unsigned repeats = 3;                            // how often it is
    size_t supplicantsMax = 2048;                    // conversations at once
    Duration quietPeriod = std::chrono::minutes(1);  // after a rejection nothing is heard

    // The longest wait that a server may ask for with a challenge: the relay forgets it after that.
    Duration challengeWaitMax = std::chrono::minutes(5);

    Duration relayTimeout = std::chrono::seconds(30);  // for the relay's answer
    RelayLoad::Settings relayLoad = {};
    Duration askAgain = std::chrono::minutes(1);  // after a login in a session without a verdict

    // Before a packet that the relay did not take is offered again; doubles each time.
    Duration handOverRetryMin = std::chrono::milliseconds(5);
    Duration handOverRetryMax = std::chrono::milliseconds(320);
};

struct Counters {
    uint64_t framesReceived = 0;
    uint64_t framesMalformed = 0;
    uint64_t framesForeign = 0;
    uint64_t framesWhileQuiet = 0;
    uint64_t starts = 0;
    uint64_t logoffs = 0;
    uint64_t eapMalformed = 0;
    uint64_t eapUnexpected = 0;  // duplicates, wrong identifiers, answers to nothing
    uint64_t identitiesTooLong = 0;
    uint64_t refused = 0;  // no room for another supplicant
    uint64_t evicted = 0;  // gave their room to another one before they had answered
    uint64_t requestsRepeated = 0;
    uint64_t recordsSent = 0;
    uint64_t recordsDelayed = 0;  // the relay did not take them at once
    uint64_t recordsReceived = 0;
    uint64_t recordsMalformed = 0;
    uint64_t recordsUnexpected = 0;  // of an attempt that is over
    uint64_t authorized = 0;
    uint64_t failed = 0;
};

}  // namespace lanyard::pnac

#endif
