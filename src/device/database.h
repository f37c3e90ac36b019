// What the files of this folder share: connections to the device's database, and query results.
#ifndef LANYARD_DEVICE_DATABASE_H
#define LANYARD_DEVICE_DATABASE_H

#include <cstdint>
#include <memory>
#include <span>

#include <dbaccess.h>

namespace lanyard {

// A connection to the database, for one call.
//
// None outlives a call, because SQLite forbids to carry one through a fork(), and the relay becomes a
// daemon after its start: in the child the locks are gone that SQLite believes to hold, and other
// programs delete a write-ahead log that is in use.
class Connection {
  public:
    // Opens the file, which has to be there; logs under `tag` when it does not open.
    Connection(const char *tag, const char *file);
    // Opens the database of radiusMgmtInit(); says nothing when there is none.
    explicit Connection(const char *tag);

    // Null when it is not open.
    [[nodiscard]] sqlite3 *get() const { return db_.get(); }

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
