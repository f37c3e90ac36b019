// The change service: takes what was changed in "radiusClient" to the relay and to the configuration
// file.
//
// A change stays in lanyardChange until the relay has it, or is not there to take it, and the file was
// written. All that the service knows of the relay stands in the database (see record.h), so a service
// that is killed and started again goes on where it was.
#ifndef LANYARDCTL_SERVICE_H
#define LANYARDCTL_SERVICE_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "database.h"
#include "delivery.h"
#include "record.h"
#include "relay.h"
#include "report.h"
#include "servers.h"

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

    // Has the next look() read the table, write the file and bring the relay up to date, also where
    // nothing seems to have changed.
    void readAgain();

    enum class RelayState { upToDate, none, failed };

    // Brings the relay to hold the table, whatever it holds.
    RelayState replay();

  private:
    // What the database says at one moment.
    struct View {
        int64_t last = 0;           // number of the last change
        std::vector<Server> table;  // all rows but the stand-in
        Target target;
        bool replayAsked = false;
    };

    void work();
    void dropStandIn();
    void writeFile();
    RelayState serveRelay();
    RelayState bringRelayUpToDate();
    [[nodiscard]] View read(const RelayRecord &before, const std::string &instance) const;
    bool nothingToSend(const RelayRecord &before, const std::string &instance);
    Outcome::Kind deliver(const RelayRecord &before, const std::string &instance);
    void record(const View &view, const Slots &slots);
    void forget(int64_t upTo);
    void reportRows(const std::vector<Server> &servers);

    Database db_;
    Relay &relay_;
    Report &report_;
    int64_t seenVersion_ = -1;
    std::string seenInstance_;
    Clock::time_point nextTry_;
    int64_t fileHas_ = 0;  // number of the last change that is in the file
    bool writeAgain_ = false;
    std::optional<RelayState> relayState_;
};

}  // namespace lanyardctl

#endif
