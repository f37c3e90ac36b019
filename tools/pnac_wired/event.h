// What becomes of supplicants: events, and whom the authenticator tells them.
#ifndef LANYARD_TOOLS_PNAC_WIRED_EVENT_H
#define LANYARD_TOOLS_PNAC_WIRED_EVENT_H

#include <chrono>

#include "tools/pnac_wired/eapol.h"
#include "tools/pnac_wired/relay_record.h"

namespace lanyard::pnac {

using Clock = std::chrono::steady_clock;
using Time = Clock::time_point;
using Duration = Clock::duration;

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

class Outlet {
  public:
    virtual void sendFrame(ByteView frame) = 0;
    // False when the relay does not take it now.
    virtual bool sendRecord(ByteView record) = 0;
    virtual void report(const Event &event) = 0;

  protected:
    ~Outlet() = default;
};

}  // namespace lanyard::pnac

#endif
