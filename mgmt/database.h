// What the files of this folder share: the connection to the device's database, and query results.
#ifndef LANYARD_MGMT_DATABASE_H
#define LANYARD_MGMT_DATABASE_H

#include <cstdint>
#include <memory>
#include <span>

#include <dbaccess.h>

namespace lanyard {

// The connection that radiusMgmtInit() opened; null while there is none.
extern sqlite3 *database;

struct ResultDeleter {
    void operator()(char **table) const { sqlite3_free_table(table); }
};

// A whole query result in the shape of sqlite3_get_table(): the column names, then the values row
// by row.
struct QueryResult {
    std::unique_ptr<char *, ResultDeleter> table;
    int32_t columns = 0;
    int32_t rows = 0;

    explicit operator bool() const { return table != nullptr; }
    bool empty() const { return columns == 0 || rows == 0; }
};

// Runs a query on an open database, or with null on a database file.
QueryResult runQuery(sqlite3 *db, const char *dbFile, const char *sql);

// The value of a column in a row, counted from 0, of a table as above; null when the column is
// missing or the value is NULL.
const char *columnValue(char *const *table, int32_t columns, int32_t row, const char *name);

// One authentication server as its database row has it.
struct ServerRow {
    const char *host;
    const char *port;
    const char *secret;
    const char *timeout;
    const char *retries;
};

// Reads a server from a row of "radiusClient". False when a column is missing or NULL, or when host
// or secret are empty: without them the server syntax would take another field for the secret.
bool readServerRow(char *const *table, int32_t columns, int32_t row, ServerRow &server);

}  // namespace lanyard

#endif
