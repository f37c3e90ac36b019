// Brings the relay to hold exactly the servers of the table, in the table's order, by change notices
// alone.
//
// The relay keeps eight slots and a count. An insert takes the lowest free slot and records the row's
// identity on the first slot with that host. An update frees the first slot that has the old host,
// takes the lowest free one for the row as it is now, and records the identity on the first slot with
// the *old* host. A delete frees the slot with the row's identity. Where no slot matches, all three
// take slot 7; and a delete or update that takes slot 7 while that is free lowers the count all the
// same, which nothing but a restart of the relay puts right: from then on it asks one server too few.
// So a notice that may miss is sent only while all eight slots are in use.
//
// What is told here holds because the sender is the only writer of the database meanwhile: the relay
// reads the row when it gets the notice, and must see what the sender saw.
//
// While it is known what the relay holds, each row that was changed makes one notice: a delete, an
// insert, or an update; a delete and an insert for a row with a new host, whose identity an update
// would record on the wrong slot. Deletes go first, so that there is room. Several changes of one row
// make one notice with the old values of the first of them, which is the row as the relay has it.
// Where a new server would take a slot in front of older ones, these are moved up first: an update of
// a row takes it to the lowest free slot, changed or not. A relay that has just started holds nothing,
// and gets an insert for each row.
//
// While it is not known (the service was killed between two notices, or one was not answered), and
// where the changes do not explain what the table holds, the relay is brought there from any state,
// with a server r of the table:
//
//     fill   insert r until it is refused, twice: all eight slots are in use
//     flood  update r with each host that the relay may know as the old one: every slot holds r
//     drain  update r and delete r, seven times, and update r: r as it is now, and nothing else
//     rest   insert the others
//
// Between two notices the relay always has a server to ask. A table without servers borrows a row for
// r and deletes it at last.
#ifndef LANYARDCTL_DELIVERY_H
#define LANYARDCTL_DELIVERY_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "journal.h"
#include "record.h"
#include "relay.h"
#include "servers.h"

namespace lanyardctl {

// First half of the row identity, for every row.
inline constexpr int32_t kRowKey = 1;

// What the relay is to hold, as the database has it.
struct Target {
    std::string instance = {};              // the run of the relay that is meant
    std::vector<std::string> columns = {};  // of the table
    std::vector<Server> servers = {};       // usable ones, in the order of their ids
    std::vector<Change> changes = {};       // since the last delivery
    std::vector<std::string> hosts = {};    // all names that the relay may know
    std::optional<Server> standIn = {};     // the borrowed row, where it is in the table
};

struct Step {
    int operation;
    int64_t row;
    std::string oldValues;
};

// The notices from what the relay holds to the target, and what it holds after them. None when the
// changes do not explain the difference or the order would not be the table's.
struct Plan {
    std::vector<Step> steps = {};
    Slots slots = {};
};
std::optional<Plan> makePlan(const Slots &held, const Target &target);

struct Outcome {
    enum Kind {
        upToDate,
        failed,       // the relay refused a notice, did not answer, or is another one by now
        needsStandIn  // call again with the borrowed row in the table
    };

    Kind kind = failed;
    Slots slots = {};  // what it holds when it is up to date
    int notices = 0;
    bool afresh = false;  // from any state
};

// Whether a relay answers. It may be slow; so ask before locking the database.
bool answers(Relay &relay);

// Brings the relay from what it holds, where that is known, to the target.
class Delivery {
  public:
    Delivery(Relay &relay, const Target &target) : relay_(relay), target_(target) {}

    Outcome run(const std::optional<Slots> &held);

  private:
    bool send(const Step &step);
    bool sendAll(const std::vector<Step> &steps);
    bool sendUpdate(const Server &server, const std::string &oldHost);
    std::optional<int> fill(const Server &server);
    bool restart(const std::vector<Server> &servers);
    Outcome runAfresh();
    [[nodiscard]] Outcome done(const Slots &slots, bool afresh) const;

    Relay &relay_;
    const Target &target_;
    int notices_ = 0;
};

// Old values as a notice carries them: texts with their NULs laid end to end, names, then values.
std::string layOut(const std::vector<std::string> &names, const std::vector<std::string> &values);

}  // namespace lanyardctl

#endif
