// The change service: takes what was changed in "radiusClient" to the relay and to the configuration
// file.
//
// A change stays in lanyardChange until the relay has it, or was not there to take it, and the file
// was written. A service that is killed starts again with all that was not, and with a relay of which
// it knows nothing; so whatever was delivered twice or half does no harm.
#ifndef LANYARDCTL_SERVICE_H
#define LANYARDCTL_SERVICE_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "database.h"
#include "delivery.h"
#include "relay.h"
#include "report.h"

namespace lanyardctl {

class Service {
  public:
    using Clock = std::chrono::steady_clock;

    // Throws a Failure when the database cannot be opened or does not record changes.
    Service(const std::string &file, Relay &relay, Report &report);

    // Looks for changes and for a relay that is not up to date, and sees to them. Cheap when there
    // are none, so that it may be called ten times a second. Never throws: what fails is reported and
    // tried again a second later.
    void look(Clock::time_point now);

    enum class RelayState { upToDate, none, failed };

    // Brings the relay to hold the table, from any state.
    RelayState replay();

  private:
    void work();
    void dropStandIn();
    void writeFile();
    RelayState serveRelay();
    RelayState bringRelayUpToDate();
    Outcome::Kind deliver();
    void reportRows(const std::vector<Server> &servers);

    Database db_;
    Delivery delivery_;
    Report &report_;
    int64_t seenVersion_ = -1;
    Clock::time_point nextTry_;
    int64_t relayHas_ = 0;  // numbers of the last changes that are done with
    int64_t fileHas_ = 0;
    int64_t forgotten_ = 0;
    std::optional<RelayState> relayState_;
};

}  // namespace lanyardctl

#endif
