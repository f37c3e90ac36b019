// The change service: brings the configuration file and the relay to what the table "radiusClient" has.
//
// It remembers in memory what it has given the relay, as a list in the order of the relay's slots:
// the first n of eight are in use. An update of a row whose id and host are the same takes the slot
// that it frees; a delete of the last frees the last, and an insert takes the one after it. So rows in
// front that differ in other fields are updated, and from the first that is another row the rest is
// deleted from the end and inserted again.
//
// The relay reads the row when it handles a notice. For a moment the service is the only writer of the
// database, so that a relay that listens reads what is remembered here. One that does not may read it
// minutes later, and nobody is kept from writing for so long. It is taken to hold the fields that were
// the same all the time; where others differ an update follows, and where the host does it is not
// known what the relay holds.
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
        waiting,     // it does not listen
        busy,        // not asked yet, or a moment ago
    };

    // Whether it stays so until something happens.
    static bool isFinal(State state) { return state < State::restarting; }

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
    // A notice that the relay has not answered.
    struct Notice {
        int operation;
        Server row;  // that is deleted, or that it reads, as far as it has been the same since
        size_t slot;
    };

    bool bringFile();
    State bringRelay();
    void meet(std::string run);
    State restartRelay();
    State waitFor(State state) const;
    [[nodiscard]] std::optional<Notice> nextNotice(const std::vector<Server> &target) const;
    bool queue(const Notice &notice);
    void settle(const Notice &notice, Relay::Answer answer);
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
    std::optional<Notice> pending_ = {};
    bool isNew_ = false;      // it has handled no notice
    size_t notices_ = 0;      // that it was given since it last held the table
    std::string ended_ = {};  // that was told to end, until another one starts
};

}  // namespace lanyardctl

#endif
