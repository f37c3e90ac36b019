// Queries to the configuration database.
//
// Parts of a query's text may come off the bus. A query is therefore checked twice before it runs:
// SQLite asks an authorizer about everything that the statement would do, and what the authorizer
// is not asked about (VACUUM) must leave the database file as it is.
#include <memory>

#include <dbaccess.h>
#include <palcore.h>

#include "platform/export.h"

namespace lanyard::port {
namespace {

struct DatabaseCloser {
    void operator()(sqlite3 *db) const { sqlite3_close(db); }
};
using Database = std::unique_ptr<sqlite3, DatabaseCloser>;

struct StatementFinalizer {
    void operator()(sqlite3_stmt *statement) const { sqlite3_finalize(statement); }
};
using Statement = std::unique_ptr<sqlite3_stmt, StatementFinalizer>;

int allowReading(void * /*context*/, int action, const char * /*first*/, const char *second,
                 const char * /*database*/, const char * /*trigger*/) {
    switch (action) {
        case SQLITE_SELECT:
        case SQLITE_READ:
        case SQLITE_RECURSIVE:
            return SQLITE_OK;
        case SQLITE_FUNCTION:
            return sqlite3_stricmp(second, "load_extension") == 0 ? SQLITE_DENY : SQLITE_OK;
        default:
            return SQLITE_DENY;
    }
}

// While one exists a connection can read and do nothing else, and no other thread can use it.
class ReadingOnly {
  public:
    explicit ReadingOnly(sqlite3 *db) : db_(db) {
        sqlite3_mutex_enter(sqlite3_db_mutex(db_));
        isSet_ = sqlite3_set_authorizer(db_, allowReading, nullptr) == SQLITE_OK;
    }
    ~ReadingOnly() {
        (void)sqlite3_set_authorizer(db_, nullptr, nullptr);
        sqlite3_mutex_leave(sqlite3_db_mutex(db_));
    }
    ReadingOnly(const ReadingOnly &) = delete;
    ReadingOnly &operator=(const ReadingOnly &) = delete;
    ReadingOnly(ReadingOnly &&) = delete;
    ReadingOnly &operator=(ReadingOnly &&) = delete;

    bool isSet() const { return isSet_; }

  private:
    sqlite3 *db_;
    bool isSet_ = false;
};

// Has a result and leaves the database as it is. (A REINDEX without any index does the latter.)
bool isReading(sqlite3_stmt *statement) {
    return sqlite3_stmt_readonly(statement) != 0 && sqlite3_column_count(statement) > 0;
}

// One reading statement; blanks, comments and semicolons may stand around it.
bool isOneReadingStatement(sqlite3 *db, const char *sql) {
    int statements = 0;
    while (*sql != '\0') {
        sqlite3_stmt *prepared = nullptr;
        const char *rest = nullptr;
        if (sqlite3_prepare_v2(db, sql, -1, &prepared, &rest) != SQLITE_OK) {
            return false;
        }
        const Statement statement(prepared);
        if (statement != nullptr && (++statements > 1 || !isReading(statement.get()))) {
            return false;
        }
        sql = rest;
    }
    return statements == 1;
}

char **query(sqlite3 *db, const char *sql, int &columns, int &rows) {
    const ReadingOnly readingOnly(db);
    char **table = nullptr;
    if (!readingOnly.isSet() || !isOneReadingStatement(db, sql) ||
        sqlite3_get_table(db, sql, &table, &rows, &columns, nullptr) != SQLITE_OK) {
        return nullptr;
    }
    return table;
}

Database openReadOnly(const char *path) {
    sqlite3 *opened = nullptr;
    const int status = sqlite3_open_v2(path, &opened, SQLITE_OPEN_READONLY, nullptr);
    Database db(opened);  // SQLite leaves a connection also when it could not open the file.
    if (status != SQLITE_OK ||
        sqlite3_busy_handler(db.get(), sqliteBusyHandler, nullptr) != SQLITE_OK) {
        return nullptr;
    }
    return db;
}

}  // namespace
}  // namespace lanyard::port

using namespace lanyard::port;

PAL_EXPORT char **sqlite3QueryResGet(sqlite3 *db, const char *dbFile, const char *sql,
                                     int32_t *columnCount, int32_t *rowCount) {
    if (columnCount == nullptr || rowCount == nullptr) {
        return nullptr;
    }
    *columnCount = 0;
    *rowCount = 0;
    // An empty name would stand for a temporary database.
    if (sql == nullptr || (db == nullptr && (dbFile == nullptr || *dbFile == '\0'))) {
        return nullptr;
    }
    Database own;
    if (db == nullptr) {
        own = openReadOnly(dbFile);
        if (own == nullptr) {
            return nullptr;
        }
        db = own.get();
    }
    int columns = 0;
    int rows = 0;
    char **table = query(db, sql, columns, rows);
    if (table != nullptr) {
        *columnCount = columns;
        *rowCount = rows;
    }
    return table;
}

PAL_EXPORT int sqliteBusyHandler(void * /*context*/, int count) {
    constexpr int kLongest = 100;
    constexpr int kDoublings = 7;  // 1, 2, 4 ... 64 ms: 127 ms in all.
    constexpr int kAttempts = kDoublings + 49;
    if (count < 0 || count >= kAttempts) {
        return 0;
    }
    (void)palTaskDelay(count < kDoublings ? 1 << count : kLongest);
    return 1;
}
