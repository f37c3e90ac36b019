// The tables that the service keeps beside the device's own, and the triggers that fill them.
//
//     lanyardChange  one row for each change of "radiusClient" that is not yet delivered: number,
//                    operation, row id, and the row as it was in columns named "old.<column>"
//     lanyardHost    every host name that the relay may know
//
// The triggers run in whatever program changes "radiusClient", in the same transaction as the
// change; they use nothing that an old SQLite does not have.
#ifndef LANYARDCTL_JOURNAL_H
#define LANYARDCTL_JOURNAL_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "database.h"
#include "servers.h"

namespace lanyardctl {

// A row that the service itself puts into "radiusClient" for a moment; see delivery.h. The triggers
// do not record it, and it is no server.
inline constexpr int64_t kStandInRow = 0;

// What a change in lanyardChange says, beside RAD_DB_DELETE, RAD_DB_INSERT and RAD_DB_UPDATE.
enum {
    kReplayFailed = -2,   // answer to kReplayAsked: the relay could not be brought up to date
    kReplayNoRelay = -1,  // answer to kReplayAsked: there is no relay
    kReplayAsked = 0      // somebody wants the relay to get everything again
};

struct Change {
    int64_t number = 0;
    int operation = 0;
    int64_t row = 0;
    // Names and values of the row as it was, in column order; empty for an insert. A NULL is the
    // empty text: a row with NULL in a column that is looked at was never delivered.
    std::vector<std::string> names = {};
    std::vector<std::string> oldValues = {};

    [[nodiscard]] const std::string *oldValue(const std::string &name) const;
};

// Makes what is missing of tables and triggers. Rows of "radiusClient" that the triggers have not
// seen count as inserted. A dictionary replaces the one in "environment"; without one that is left
// alone, or set to kDefaultDictionary where there is none.
inline constexpr const char *kDefaultDictionary = "/nexa2.0/etc/radius.dict";
void prepareDatabase(const Database &db, const std::optional<std::string> &dictionary);

// The dictionary in "environment"; "" when none is named.
std::string readDictionary(const Database &db);

// Throws a Failure unless every change of "radiusClient" is recorded with all its columns.
void checkJournal(const Database &db);

// The columns of "radiusClient" in their order.
std::vector<std::string> readColumns(const Database &db);

// The changes behind a number, in order.
std::vector<Change> readChanges(const Database &db, int64_t behind);
int64_t lastChange(const Database &db);
// Drops changes up to a number; requests stay.
void forgetChanges(const Database &db, int64_t upTo);

// Requests that the relay gets everything again. A request is known by its number; answered, it is
// gone when that was done, and has an answer for its operation when not.
int64_t askForReplay(const Database &db);
bool replayAsked(const Database &db);
void answerReplays(const Database &db, std::optional<int> answer);
std::optional<int> replayState(const Database &db, int64_t number);
void forgetReplay(const Database &db, int64_t number);
void forgetAnswers(const Database &db);

std::vector<std::string> readHosts(const Database &db);
// The relay knows these and no others.
void setHosts(const Database &db, const std::vector<Server> &servers);

// That row; none when it is not there.
std::optional<Server> standInRow(const Database &db);
void addStandInRow(const Database &db);
void removeStandInRow(const Database &db);

}  // namespace lanyardctl

#endif
