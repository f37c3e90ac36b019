// The device's database: the connection, start-up and shutdown, and reading of query results.
#include "mgmt/database.h"

#include <array>
#include <cstring>

#include <lanyard/radius/conf.h>
#include <lanyard/radius/dict.h>
#include <lanyard/radius/mgmt.h>

#include "frame/log.h"

namespace lanyard {

sqlite3 *database = nullptr;

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

namespace {

using lanyard::columnValue;
using lanyard::database;
using lanyard::kLogError;
using lanyard::runQuery;

// What the busy handler is told of who waits.
std::array<char, 32> busyContext{};

// Loads the dictionary that the database names.
int radiusDictionaryLoad() {
    const auto result =
        runQuery(database, nullptr, "SELECT value from environment WHERE name='RADIUS_DICTIONARY'");
    if (!result) {
        radDeviceLog(kLogError, "sqlite3QueryResGet failed\n");
        return -1;
    }
    if (result.empty()) {
        radDeviceLog(kLogError, "empty result. nRows=%d nCols=%d\n", result.rows, result.columns);
        return -1;
    }
    const char *path = columnValue(result.table.get(), result.columns, 0, "value");
    return path ? radDictLoad(path) : -1;
}

}  // namespace

int radiusMgmtInit(const char *dbFile, const char *callerName) {
    if (!dbFile || !callerName) {
        return -1;
    }
    busyContext.fill('\0');
    std::strncpy(busyContext.data(), callerName, busyContext.size() - 1);

    radiusMgmtDeInit();
    if (sqlite3_open(dbFile, &database) != SQLITE_OK) {
        radDeviceLog(kLogError, "unable to open the DB file %s\n", dbFile);
        radiusMgmtDeInit();
        return -1;
    }
    sqlite3_busy_handler(database, sqliteBusyHandler, busyContext.data());
    radDeconfigure();
    radDictLoad(nullptr);
    if (radiusDictionaryLoad() != 0) {
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
    sqlite3_close(database);
    database = nullptr;
    return 0;
}
