// The device's database: connections, start and end, reading of query results.
#include "device/database.h"

#include <array>
#include <cstring>

#include <lanyard/radius/conf.h>
#include <lanyard/radius/dict.h>
#include <lanyard/radius/mgmt.h>

#include "base/log.h"

namespace lanyard {
namespace {

struct SqliteFree {
    void operator()(char *text) const { sqlite3_free(text); }
};

// Path of the database; null while there is none.
std::unique_ptr<char, SqliteFree> databaseFile;

// Who waits, for the busy handler.
std::array<char, 32> busyContext{};

// The full path, because a daemon has another working folder.
const char *wholeName(sqlite3 *db, const char *file) {
    const char *whole = sqlite3_db_filename(db, "main");
    return whole && *whole ? whole : file;
}

// Loads the dictionary that the database names.
int loadDictionary(sqlite3 *db) {
    constexpr const char *kTag = "radiusDictionaryLoad";
    const auto result =
        runQuery(db, nullptr, "SELECT value from environment WHERE name='RADIUS_DICTIONARY'");
    if (!result) {
        radDeviceLogAs(kTag, kLogError, "sqlite3QueryResGet failed\n");
        return -1;
    }
    if (result.empty()) {
        radDeviceLogAs(kTag, kLogError, "empty result. nRows=%d nCols=%d\n", result.rows,
                       result.columns);
        return -1;
    }
    const char *path = columnValue(result.table.get(), result.columns, 0, "value");
    return path ? radDictLoad(path) : -1;
}

}  // namespace

// Opened for writing, so that SQLite can roll back the transaction of a writer that was killed.
Connection::Connection(const char *tag, const char *file) {
    sqlite3 *db = nullptr;
    const int status = sqlite3_open_v2(file, &db, SQLITE_OPEN_READWRITE, nullptr);
    db_.reset(db);  // to be closed also after a failure
    if (status != SQLITE_OK) {
        radDeviceLogAs(tag, kLogError, "unable to open the DB file %s\n", file);
        db_.reset();
        return;
    }
    sqlite3_busy_handler(db, sqliteBusyHandler, busyContext.data());
}

Connection::Connection(const char *tag)
    : Connection(databaseFile ? Connection(tag, databaseFile.get()) : Connection()) {}

QueryResult runQuery(sqlite3 *db, const char *dbFile, const char *sql) {
    QueryResult result;
    result.table.reset(sqlite3QueryResGet(db, dbFile, sql, &result.columns, &result.rows));
    return result;
}

const char *columnValue(char *const *table, int32_t columns, int32_t row, const char *name) {
    for (int32_t column = 0; column < columns; ++column) {
        if (table[column] && std::strcmp(table[column], name) == 0) {
            return table[(row + 1) * columns + column];
        }
    }
    return nullptr;
}

bool readServerRow(char *const *table, int32_t columns, int32_t row, ServerRow &server) {
    server = {.host = columnValue(table, columns, row, "authserver"),
              .port = columnValue(table, columns, row, "authport"),
              .secret = columnValue(table, columns, row, "authsecret"),
              .timeout = columnValue(table, columns, row, "authtimeout"),
              .retries = columnValue(table, columns, row, "authretries")};
    return server.host && server.port && server.secret && server.timeout && server.retries &&
           *server.host && *server.secret;
}

}  // namespace lanyard

using namespace lanyard;

int radiusMgmtInit(const char *dbFile, const char *callerName) {
    if (!dbFile || !callerName) {
        return -1;
    }
    busyContext.fill('\0');
    std::strncpy(busyContext.data(), callerName, busyContext.size() - 1);

    radiusMgmtDeInit();
    const Connection connection("radiusMgmtInit", dbFile);
    if (connection.get()) {
        databaseFile.reset(sqlite3_mprintf("%s", wholeName(connection.get(), dbFile)));
    }
    if (!databaseFile) {
        return -1;
    }
    radDeconfigure();
    radDictLoad(nullptr);
    if (loadDictionary(connection.get()) != 0) {
        radDeviceLogAs("radiusDictionaryLoad", kLogError, "radius dictionary loading failed\n");
        return -1;
    }
    if (radConfSetTimeout("10") != 0) {
        radDeviceLog(kLogError, "Failed to set default timeout value\n");
    }
    if (radConfSetRetries("3") != 0) {
        radDeviceLog(kLogError, "Failed to set default retries value\n");
    }
    return 0;
}

int radiusMgmtDeInit(void) {
    databaseFile.reset();
    return 0;
}
