// What the program says: a line for each event, for people or as a JSON object.
#ifndef LANYARD_TOOLS_PNAC_WIRED_REPORT_H
#define LANYARD_TOOLS_PNAC_WIRED_REPORT_H

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "tools/pnac_wired/event.h"
#include "tools/pnac_wired/settings.h"

namespace lanyard::pnac {

// "authorized", "failed", "unauthorized"
std::string_view nameOf(EventKind kind);

// "rejected", "no answer from the relay", ...
std::string_view nameOf(Reason reason);

// "reauthenticate", "terminate"
std::string_view nameOf(SessionRule rule);

// Octets from outside as one word of a line: what is not printable ASCII, the quote and the
// backslash stand as \xNN.
std::string escaped(ByteView octets);

// Lower-case digits without blanks.
std::string toHex(ByteView octets);

// What the program knows beside the authenticator's counters.
struct ProgramCounters {
    size_t supplicants = 0;  // conversations that there are
    uint64_t framesNotSent = 0;
    uint64_t linesLost = 0;
};

// Calls with the name and the value of each counter.
void forEachCounter(const Counters &counters, const ProgramCounters &more,
                    const std::function<void(const char *name, uint64_t value)> &call);

class Reporter {
  public:
    enum class Format { kText, kJson };

    Reporter(std::string interface, Format format, bool showKeys)
        : interface_(std::move(interface)), format_(format), showKeys_(showKeys) {}

    // Each is one line with its end.
    std::string ready(const Mac &address) const;
    std::string event(const Event &event) const;
    std::string counters(const Counters &counters, const ProgramCounters &more) const;

  private:
    std::string eventAsText(const Event &event) const;
    std::string eventAsJson(const Event &event) const;

    std::string interface_;
    Format format_;
    bool showKeys_;
};

}  // namespace lanyard::pnac

#endif
