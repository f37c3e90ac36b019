// What becomes of supplicants: events, and whom the authenticator tells them.
#ifndef LANYARD_TOOLS_PNAC_WIRED_EVENT_H
#define LANYARD_TOOLS_PNAC_WIRED_EVENT_H

#include <chrono>
#include <optional>

#include "tools/pnac_wired/eapol.h"
#include "tools/pnac_wired/relay_record.h"

namespace lanyard::pnac {

using Clock = std::chrono::steady_clock;
using Time = Clock::time_point;
using Duration = Clock::duration;

// Of two points in time, where there are any.
inline std::optional<Time> earlier(std::optional<Time> one, std::optional<Time> other) {
    return !one || (other && *other < *one) ? other : one;
}

enum class EventKind {
    kAuthorized,   // logged in, for the first time or again
    kFailed,       // not logged in; an attempt that ends before it has a name is no event
    kUnauthorized  // the session is over
};

enum class Reason {
    kAccepted,
    kRejected,
    kSupplicantSilent,
    kRelaySilent,
    kRelayNotRunning,
    kNoServer,
    kNotSent,
    kExpired,
    kIdentityTooLong,
    kLogoff,
    kSessionTimeout,
    kNotReauthenticated,
    kLinkDown,
    kShutdown
};

// What the outside is told. All that it refers to ends with the call.
struct Event {
    EventKind kind = EventKind::kFailed;
    Reason reason = Reason::kRejected;
    Mac address = {};
    ByteView identity = {};
    Duration duration = {};         // of the attempt; of the session when it is over
    bool reauthentication = false;  // the supplicant was authorized before
    KeyInfo keyInfo = {};           // with kAuthorized
};

// What becomes of a record for the relay.
enum class HandOver {
    kTaken,
    kBusy,    // there is no room for it now
    kNobody,  // no relay is running
};

class Outlet {
  public:
    virtual void sendFrame(ByteView frame) = 0;
    virtual HandOver sendRecord(ByteView record) = 0;
    virtual void report(const Event &event) = 0;

  protected:
    ~Outlet() = default;
};

}  // namespace lanyard::pnac

#endif
