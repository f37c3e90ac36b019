// What a running pnac-wired knows of its supplicants: taken from the authenticator, told as a JSON
// object, and shown as a table.
#ifndef LANYARD_TOOLS_PNAC_WIRED_STATUS_H
#define LANYARD_TOOLS_PNAC_WIRED_STATUS_H

#include <optional>
#include <string>
#include <vector>

#include "tools/pnac_wired/event.h"
#include "tools/pnac_wired/report.h"
#include "tools/pnac_wired/settings.h"

namespace lanyard::pnac {

// Views are valid until the authenticator's next call.
struct Status {
    struct Session {
        Mac address = {};
        ByteView identity = {};
        ByteView vlan = {};
        Time since = {};
        std::optional<Time> until = {};
        SessionRule rule = SessionRule::kTerminate;  // what comes then
    };

    enum class AwaitedBy { kIdentity, kRoom, kRelay, kSupplicant };
    struct Attempt {
        Mac address = {};
        ByteView identity = {};  // empty before it is known
        Time since = {};
        AwaitedBy awaited = AwaitedBy::kIdentity;
    };

    struct Quiet {
        Mac address = {};
        Time until = {};
    };

    std::vector<Session> sessions = {};
    std::vector<Attempt> attempts = {};
    std::vector<Quiet> quiet = {};
};

// The object is a line of at most about that many bytes; entries beyond that are left out and counted.
constexpr size_t kStatusMax = size_t{1} << 20U;

// `wallNow` is `now` by the wall clock, in seconds since 1970.
struct StatusContext {
    std::string interface = {};
    Mac address = {};
    Time now = {};
    int64_t wallNow = 0;
};

std::string statusLine(const StatusContext &context, const Status &status, const Counters &counters,
                       const ProgramCounters &more);

// The table for a person; nothing for what is no status.
std::optional<std::string> statusTable(const std::string &line);

}  // namespace lanyard::pnac

#endif
