// Connections to the device's database, and query results.
#ifndef LANYARD_DEVICE_DATABASE_H
#define LANYARD_DEVICE_DATABASE_H

#include <cstdint>
#include <memory>
#include <span>

#include <dbaccess.h>

namespace lanyard {

// A connection to the database, for one call.
//
// None outlives a call: the relay becomes a daemon after its start, and SQLite forbids to carry a
// connection through a fork(). The child would lose the locks, and other programs would delete a
// write-ahead log in use.
class Connection {
  public:
    // Opens the file, which has to exist; logs under `tag` when it does not open.
    Connection(const char *tag, const char *file);
    // Opens the database of radiusMgmtInit(); logs nothing when there is none.
    explicit Connection(const char *tag);

    // Null when it is not open.
    sqlite3 *get() const { return db_.get(); }

  private:
    Connection() = default;

    struct Closer {
        void operator()(sqlite3 *db) const { sqlite3_close(db); }
    };

    std::unique_ptr<sqlite3, Closer> db_;
};

struct ResultDeleter {
    void operator()(char **table) const { sqlite3_free_table(table); }
};

// A query result as from sqlite3_get_table(): the column names, then the values row by row.
struct QueryResult {
    std::unique_ptr<char *, ResultDeleter> table;
    int32_t columns = 0;
    int32_t rows = 0;

    explicit operator bool() const { return table != nullptr; }
    bool empty() const { return columns == 0 || rows == 0; }
};

// Runs a query on an open database, or when `db` is null on a database file.
[[nodiscard]] QueryResult runQuery(sqlite3 *db, const char *dbFile, const char *sql);

// The value of a column in a row of such a table, rows counted from 0; null when the column is
// missing or the value is NULL.
const char *columnValue(char *const *table, int32_t columns, int32_t row, const char *name);

// The row of an authentication server.
struct ServerRow {
    const char *host;
    const char *port;
    const char *secret;
    const char *timeout;
    const char *retries;
};

// Reads a row of "radiusClient". False when a column is missing or NULL, or when host or secret are
// empty: the server syntax would take another field for the secret then.
[[nodiscard]] bool readServerRow(char *const *table, int32_t columns, int32_t row,
                                 ServerRow &server);

}  // namespace lanyard

#endif
