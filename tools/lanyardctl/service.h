// The change service: brings the configuration file and the relay to what the table "radiusClient" has.
//
// It remembers in memory what it has given the relay, as a list in the order of the relay's slots:
// the first n of eight are in use. An update of a row whose id and host are the same takes the slot
// that it frees; a delete of the last frees the last, and an insert takes the one after it. So rows in
// front that differ in other fields are updated, and from the first that is another row the rest is
// deleted from the end and inserted again.
//
// While it sends it is the only writer of the database: the relay reads the row when it handles the
// notice, and must see what is remembered here.
//
// When it is not known what a relay holds, it is told to end, and whoever has started it starts it
// again: a new run holds nothing.
#ifndef LANYARDCTL_SERVICE_H
#define LANYARDCTL_SERVICE_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "database.h"
#include "relay.h"
#include "report.h"
#include "servers.h"

namespace lanyardctl {

// First half of the row identity, for every row.
inline constexpr int32_t kRowKey = 1;

class Service {
  public:
    enum class State {
        upToDate,
        none,        // no relay answers
        failed,      // it refuses notices
        restarting,  // it was told to end
        busy,        // not asked yet
    };

    // Whether it stays so until something happens.
    static bool isFinal(State state) { return state != State::busy && state != State::restarting; }

    // Throws a Failure when the database cannot be opened.
    Service(const std::string &file, Relay &relay, Report &report);

    // Looks for what has changed and sees to it. Cheap when nothing has. Never throws: what fails is
    // reported and tried again with the next call.
    void look();
    // How long it may take until the next look when nothing happens.
    [[nodiscard]] std::chrono::milliseconds patience() const { return patience_; }

    // From the next look on everything is looked at again.
    void lookAgain();
    // From the next look on the relay gets everything, whatever it holds.
    void replay();

    // How it stands with the relay.
    [[nodiscard]] State state() const { return state_; }

  private:
    bool bringFile();
    State bringRelay();
    [[nodiscard]] State unheard() const;
    State restartRelay();
    State deliver();
    bool send(int operation, int64_t row, const std::string &oldValues);
    State undelivered();
    void setState(State state);
    void reportRows(const std::vector<Server> &servers);

    Database db_;
    Relay &relay_;
    Report &report_;
    std::chrono::milliseconds patience_{1};
    int64_t version_ = -1;  // of the database, at the last look
    bool fileDone_ = false;
    bool relayDone_ = false;
    State state_ = State::busy;

    std::string run_;                               // the relay that is meant
    std::optional<std::vector<Server>> held_ = {};  // what it holds; none where that is not known
    size_t notices_ = 1;                            // that it got; it may have got one before this
    std::string ended_ = {};  // that was told to end, until another one starts
};

}  // namespace lanyardctl

#endif
