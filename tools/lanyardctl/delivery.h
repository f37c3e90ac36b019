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
//
// While it is not known (a new run of the service or of the relay, a notice without an answer), and
// where notices one by one would leave the servers in another order than the table has, the relay is
// brought there from any state, with a server r of the table:
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

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <lanyard/radius/conf.h>

#include "journal.h"
#include "relay.h"
#include "servers.h"

namespace lanyardctl {

// First half of the row identity, for every row.
inline constexpr int32_t kRowKey = 1;

// What the relay is to hold, as the database has it.
struct Target {
    std::vector<std::string> columns = {};  // of the table
    std::vector<Server> servers = {};       // usable ones, in the order of their ids
    std::vector<Change> changes = {};       // since the last delivery
    std::vector<std::string> hosts = {};    // all names that the relay may know
    std::optional<Server> standIn = {};     // the borrowed row, where it is in the table
};

struct Outcome {
    enum Kind {
        upToDate,
        failed,       // the relay refused a notice or did not answer
        needsStandIn  // call again with the borrowed row in the table
    };

    Kind kind = failed;
    int notices = 0;
    bool afresh = false;  // from any state
};

class Delivery {
  public:
    explicit Delivery(Relay &relay) : relay_(relay) {}

    // Whether a relay answers. It may be slow; so ask before locking the database.
    bool answers();

    // Whether it is known what this run of the relay holds.
    bool knows();
    void forget();

    // Brings the relay to hold the servers. When that fails it is not known any more what it holds.
    Outcome deliver(const Target &target);

  private:
    struct Step {
        int operation;
        int64_t row;
        std::string oldValues;
    };

    using Slots = std::array<std::optional<Server>, RAD_SERVERS_MAX>;

    bool send(const Step &step);
    bool sendUpdate(const Server &server, const std::string &oldHost);

    static std::optional<std::vector<Step>> plan(Slots &slots, const Target &target);
    std::optional<int> fill(const Server &server);
    bool restart(const std::vector<Server> &servers, const std::vector<std::string> &hosts);
    Outcome deliverAfresh(const Target &target, int instance);
    Outcome done(const Slots &slots, int instance, bool afresh);

    Relay &relay_;
    std::optional<Slots> held_;
    int instance_ = 0;
    int notices_ = 0;
    std::vector<std::string> columns_;
};

// Old values as a notice carries them: texts with their NULs laid end to end, names, then values.
std::string layOut(const std::vector<std::string> &names, const std::vector<std::string> &values);

}  // namespace lanyardctl

#endif
