// What the service remembers of the relay, in the database, so that it goes on where it was after
// whatever has ended it.
//
//     lanyardRelay  one row: the run of the relay that was served last, whether it is known what that
//                   run holds, and the number of the last change that it has
//     lanyardSlot   what it holds: a row for each slot in use
//
// That it is not known is committed before the first notice of a delivery, and that it is known after
// the last answer. So a run that is known holds what stands here, whoever was killed when.
#ifndef LANYARDCTL_RECORD_H
#define LANYARDCTL_RECORD_H

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include <lanyard/radius/conf.h>

#include "database.h"

namespace lanyardctl {

// A server in one of the relay's slots.
struct Slot {
    int64_t row = 0;
    std::string host = {};
};

using Slots = std::array<std::optional<Slot>, RAD_SERVERS_MAX>;

struct RelayRecord {
    std::string instance = {};  // see Relay::instance()
    bool known = false;
    int64_t change = 0;
    Slots slots = {};
};

// Makes the tables where they are missing.
void makeRelayRecord(const Database &db);

// Without an instance when no relay was ever served.
RelayRecord readRelayRecord(const Database &db);
// One change of the database inside of a transaction.
void writeRelayRecord(const Database &db, const RelayRecord &record);
// Only that it is not known any more what this run holds.
void markRelayUnknown(const Database &db, const std::string &instance);

}  // namespace lanyardctl

#endif
