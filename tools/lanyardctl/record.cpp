#include "record.h"

#include <string_view>

namespace lanyardctl {

namespace {

// The table has this row alone.
void writeRun(const Database &db, const std::string &instance, bool known, int64_t change) {
    db.prepare(
          "INSERT OR REPLACE INTO lanyardRelay(id, instance, known, change) VALUES(1, ?1, ?2, ?3)")
        .bind(1, std::string_view(instance))
        .bind(2, int64_t{known})
        .bind(3, change)
        .run();
}

}  // namespace

void makeRelayRecord(const Database &db) {
    db.run(
        "CREATE TABLE IF NOT EXISTS lanyardRelay(id INTEGER PRIMARY KEY, instance TEXT NOT NULL, "
        "known INTEGER NOT NULL, change INTEGER NOT NULL)");
    db.run(
        "CREATE TABLE IF NOT EXISTS lanyardSlot(slot INTEGER PRIMARY KEY, row INTEGER NOT NULL, "
        "host TEXT NOT NULL)");
}

RelayRecord readRelayRecord(const Database &db) {
    RelayRecord record;
    Statement run = db.prepare("SELECT instance, known, change FROM lanyardRelay");
    if (run.step()) {
        record.instance = run.text(0).value_or("");
        record.known = run.number(1) != 0;
        record.change = run.number(2);
    }
    Statement slots = db.prepare("SELECT slot, row, host FROM lanyardSlot");
    while (slots.step()) {
        const int64_t slot = slots.number(0);
        if (slot < 0 || slot >= RAD_SERVERS_MAX) {
            record.known = false;  // Not what the service has written.
            break;
        }
        record.slots[static_cast<size_t>(slot)] = Slot{slots.number(1), slots.text(2).value_or("")};
    }
    return record;
}

void writeRelayRecord(const Database &db, const RelayRecord &record) {
    writeRun(db, record.instance, record.known, record.change);
    db.run("DELETE FROM lanyardSlot");
    for (size_t i = 0; i < record.slots.size(); ++i) {
        if (const auto &slot = record.slots[i]) {
            db.prepare("INSERT INTO lanyardSlot(slot, row, host) VALUES(?1, ?2, ?3)")
                .bind(1, static_cast<int64_t>(i))
                .bind(2, slot->row)
                .bind(3, slot->host)
                .run();
        }
    }
}

void markRelayUnknown(const Database &db, const std::string &instance) {
    writeRun(db, instance, false, 0);
}

}  // namespace lanyardctl
