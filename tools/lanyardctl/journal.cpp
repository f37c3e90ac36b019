#include "journal.h"

#include <algorithm>
#include <array>
#include <string_view>

#include <lanyard/radius/mgmt.h>

namespace lanyardctl {

namespace {

constexpr std::string_view kOldPrefix = "old.";
constexpr std::array<const char *, 5> kNeededColumns = {"authserver", "authport", "authsecret",
                                                        "authtimeout", "authretries"};

using Names = std::vector<std::string>;

Names columnsOf(const Database &db, const std::string &table) {
    Statement statement = db.prepare("SELECT name FROM pragma_table_info(?1) ORDER BY cid");
    statement.bind(1, table);
    Names names;
    while (statement.step()) {
        names.push_back(statement.text(0).value_or(""));
    }
    return names;
}

std::string oldColumn(const std::string &column) {
    return quoted(std::string(kOldPrefix) + column);
}

// The columns of lanyardChange that keep the row as it was.
Names recordedColumns(const Database &db) {
    Names names;
    for (const std::string &name : columnsOf(db, "lanyardChange")) {
        if (name.starts_with(kOldPrefix)) {
            names.push_back(name.substr(kOldPrefix.size()));
        }
    }
    return names;
}

std::string recordChange(const Names &columns, const std::string &operation, const std::string &row,
                         bool withOldValues, const std::string &condition) {
    std::string names = "operation, row";
    std::string values = operation + ", " + row;
    if (withOldValues) {
        for (const std::string &column : columns) {
            names += ", " + oldColumn(column);
            values += ", OLD." + quoted(column);
        }
    }
    return "INSERT INTO lanyardChange(" + names + ") SELECT " + values + condition + "; ";
}

// OR IGNORE would not do: inside of a trigger the conflict clause of the program's own statement
// takes its place.
constexpr const char *kRecordHost =
    "INSERT INTO lanyardHost(name) SELECT NEW.authserver WHERE NEW.authserver IS NOT NULL AND "
    "NOT EXISTS(SELECT 1 FROM lanyardHost WHERE name = NEW.authserver); ";

struct Trigger {
    std::string name;
    std::string sql;
};

std::vector<Trigger> triggersFor(const Names &columns) {
    const std::string inserted = std::to_string(RAD_DB_INSERT);
    const std::string updated = std::to_string(RAD_DB_UPDATE);
    const std::string deleted = std::to_string(RAD_DB_DELETE);
    const std::string standIn = std::to_string(kStandInRow);
    const auto trigger = [&standIn](const std::string &name, const std::string &event,
                                    const std::string &row, const std::string &body) {
        return Trigger{name, "CREATE TRIGGER " + name + " AFTER " + event +
                                 " ON radiusClient WHEN " + row + ".rowid <> " + standIn +
                                 " BEGIN " + body + "END"};
    };
    return {
        trigger("lanyardInserted", "INSERT", "NEW",
                recordChange(columns, inserted, "NEW.rowid", false, "") + kRecordHost),
        // A row that gets another id is another row.
        trigger(
            "lanyardUpdated", "UPDATE", "OLD",
            recordChange(columns, updated, "OLD.rowid", true, " WHERE NEW.rowid = OLD.rowid") +
                recordChange(columns, deleted, "OLD.rowid", true, " WHERE NEW.rowid <> OLD.rowid") +
                recordChange(columns, inserted, "NEW.rowid", false,
                             " WHERE NEW.rowid <> OLD.rowid") +
                kRecordHost),
        trigger("lanyardDeleted", "DELETE", "OLD",
                recordChange(columns, deleted, "OLD.rowid", true, ""))};
}

bool triggersAreThere(const Database &db, const Names &columns) {
    const auto triggers = triggersFor(columns);
    return std::all_of(triggers.begin(), triggers.end(), [&db](const Trigger &trigger) {
        Statement statement =
            db.prepare("SELECT 1 FROM sqlite_master WHERE type='trigger' AND name=?1 AND sql=?2");
        statement.bind(1, trigger.name).bind(2, trigger.sql);
        return statement.step();
    });
}

void makeTables(const Database &db) {
    db.run("CREATE TABLE IF NOT EXISTS environment(name TEXT, value TEXT)");
    db.run("CREATE TABLE IF NOT EXISTS networkInterface(interfaceName TEXT, ipaddr TEXT)");
    db.run(
        "CREATE TABLE IF NOT EXISTS radiusClient(authserver TEXT, authport TEXT, "
        "authsecret TEXT, authtimeout TEXT, authretries TEXT)");
    // Numbers of changes are never used again, so that a number tells what was delivered.
    db.run(
        "CREATE TABLE IF NOT EXISTS lanyardChange(number INTEGER PRIMARY KEY AUTOINCREMENT, "
        "operation INTEGER NOT NULL, row INTEGER NOT NULL)");
    db.run("CREATE TABLE IF NOT EXISTS lanyardHost(name TEXT PRIMARY KEY)");
}

void checkColumns(const Names &columns) {
    for (const char *needed : kNeededColumns) {
        if (std::find(columns.begin(), columns.end(), needed) == columns.end()) {
            throw Failure(std::string("the table radiusClient has no column ") + needed);
        }
    }
}

void makeTriggers(const Database &db, const Names &columns) {
    const Names recorded = recordedColumns(db);
    for (const std::string &column : columns) {
        if (std::find(recorded.begin(), recorded.end(), column) == recorded.end()) {
            db.run("ALTER TABLE lanyardChange ADD COLUMN " + oldColumn(column));
        }
    }
    for (const Trigger &trigger : triggersFor(columns)) {
        db.run("DROP TRIGGER IF EXISTS " + trigger.name);
        db.run(trigger.sql);
    }
    db.run(
        "INSERT OR IGNORE INTO lanyardHost SELECT authserver FROM radiusClient "
        "WHERE authserver IS NOT NULL");
    db.run("INSERT INTO lanyardChange(operation, row) SELECT " + std::to_string(RAD_DB_INSERT) +
           ", rowid FROM radiusClient WHERE rowid <> " + std::to_string(kStandInRow) +
           " ORDER BY rowid");
}

void setDictionary(const Database &db, const std::optional<std::string> &dictionary) {
    if (dictionary) {
        db.run("DELETE FROM environment WHERE name='RADIUS_DICTIONARY'");
    }
    db.prepare(
          "INSERT INTO environment(name, value) SELECT 'RADIUS_DICTIONARY', ?1 WHERE NOT EXISTS"
          "(SELECT 1 FROM environment WHERE name='RADIUS_DICTIONARY')")
        .bind(1, std::string_view(dictionary ? *dictionary : kDefaultDictionary))
        .run();
}

}  // namespace

const std::string *Change::oldValue(const std::string &name) const {
    const auto found = std::find(names.begin(), names.end(), name);
    return found == names.end() ? nullptr : &oldValues[static_cast<size_t>(found - names.begin())];
}

void prepareDatabase(const Database &db, const std::optional<std::string> &dictionary) {
    WriteTransaction transaction(db);
    makeTables(db);
    const Names columns = columnsOf(db, "radiusClient");
    checkColumns(columns);
    if (!triggersAreThere(db, columns)) {
        makeTriggers(db, columns);
    }
    setDictionary(db, dictionary);
    transaction.commit();
}

std::string readDictionary(const Database &db) {
    Statement statement =
        db.prepare("SELECT value FROM environment WHERE name='RADIUS_DICTIONARY'");
    return statement.step() ? statement.text(0).value_or("") : "";
}

void checkJournal(const Database &db) {
    const Names columns = columnsOf(db, "radiusClient");
    if (columns.empty() || !triggersAreThere(db, columns)) {
        throw Failure("the database " + db.file() +
                      " does not record changes of radiusClient; run 'lanyardctl db init' on it");
    }
}

std::vector<std::string> readColumns(const Database &db) {
    return columnsOf(db, "radiusClient");
}

std::vector<Change> readChanges(const Database &db, int64_t behind) {
    const Names columns = columnsOf(db, "radiusClient");
    std::string sql = "SELECT number, operation, row";
    for (const std::string &column : columns) {
        sql += ", " + oldColumn(column);
    }
    Statement statement =
        db.prepare(sql + " FROM lanyardChange WHERE number > ?1 AND operation > 0 ORDER BY number");
    statement.bind(1, behind);
    std::vector<Change> changes;
    while (statement.step()) {
        Change change{.number = statement.number(0),
                      .operation = static_cast<int>(statement.number(1)),
                      .row = statement.number(2)};
        if (change.operation == RAD_DB_UPDATE || change.operation == RAD_DB_DELETE) {
            change.names = columns;
            for (int column = 3; column < statement.columns(); ++column) {
                change.oldValues.push_back(statement.text(column).value_or(""));
            }
        }
        changes.push_back(std::move(change));
    }
    return changes;
}

int64_t lastChange(const Database &db) {
    return db.number("SELECT max(number) FROM lanyardChange WHERE operation > 0");
}

void forgetChanges(const Database &db, int64_t upTo) {
    db.prepare("DELETE FROM lanyardChange WHERE number <= ?1 AND operation > 0")
        .bind(1, upTo)
        .run();
}

int64_t askForReplay(const Database &db) {
    db.prepare("INSERT INTO lanyardChange(operation, row) VALUES(?1, 0)")
        .bind(1, int64_t{kReplayAsked})
        .run();
    return db.lastRow();
}

void answerReplays(const Database &db, std::optional<int> answer) {
    if (answer) {
        db.prepare("UPDATE lanyardChange SET operation=?1 WHERE operation=?2")
            .bind(1, int64_t{*answer})
            .bind(2, int64_t{kReplayAsked})
            .run();
    } else {
        db.prepare("DELETE FROM lanyardChange WHERE operation=?1")
            .bind(1, int64_t{kReplayAsked})
            .run();
    }
}

bool replayAsked(const Database &db) {
    return db.number("SELECT count(*) FROM lanyardChange WHERE operation=" +
                     std::to_string(kReplayAsked)) != 0;
}

std::optional<int> replayState(const Database &db, int64_t number) {
    Statement statement = db.prepare("SELECT operation FROM lanyardChange WHERE number=?1");
    statement.bind(1, number);
    return statement.step() ? std::optional<int>(static_cast<int>(statement.number(0)))
                            : std::nullopt;
}

void forgetReplay(const Database &db, int64_t number) {
    db.prepare("DELETE FROM lanyardChange WHERE number=?1").bind(1, number).run();
}

void forgetAnswers(const Database &db) {
    db.run("DELETE FROM lanyardChange WHERE operation < 0");
}

std::vector<std::string> readHosts(const Database &db) {
    Statement statement = db.prepare("SELECT name FROM lanyardHost ORDER BY name");
    std::vector<std::string> hosts;
    while (statement.step()) {
        hosts.push_back(statement.text(0).value_or(""));
    }
    return hosts;
}

void setHosts(const Database &db, const std::vector<Server> &servers) {
    db.run("DELETE FROM lanyardHost");
    for (const Server &server : servers) {
        if (server.host) {
            db.prepare("INSERT OR IGNORE INTO lanyardHost(name) VALUES(?1)")
                .bind(1, server.host)
                .run();
        }
    }
}

std::optional<Server> standInRow(const Database &db) {
    const std::vector<Server> servers = readServers(db);
    const auto found = std::find_if(servers.begin(), servers.end(),
                                    [](const Server &server) { return server.id == kStandInRow; });
    return found == servers.end() ? std::nullopt : std::optional<Server>(*found);
}

void addStandInRow(const Database &db) {
    // A name that no resolver knows (RFC 2606): the relay sends nothing there.
    constexpr std::string_view kHost = "lanyardctl.invalid";
    db.prepare(
          "INSERT INTO radiusClient(rowid, authserver, authport, authsecret, authtimeout, "
          "authretries) VALUES(?1, ?2, '9', 'none', '1', '0')")
        .bind(1, kStandInRow)
        .bind(2, kHost)
        .run();
    db.prepare("INSERT OR IGNORE INTO lanyardHost(name) VALUES(?1)").bind(1, kHost).run();
}

void removeStandInRow(const Database &db) {
    db.prepare("DELETE FROM radiusClient WHERE rowid=?1").bind(1, kStandInRow).run();
}

}  // namespace lanyardctl
