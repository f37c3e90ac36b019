/**
 * @file
 * Access to the device's configuration database, an SQLite file.
 *
 * Whoever ports the library to a new device supplies these functions, with C linkage and in a
 * shared library.
 */
#ifndef LANYARD_PLATFORM_DBACCESS_H
#define LANYARD_PLATFORM_DBACCESS_H

#include <sqlite3.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Runs one query and fetches its whole result.
 *
 * Exactly one statement is run, and only one that reads: parts of its text may come off the bus. A
 * text with a second statement after the first fails as a whole, and so does one that would write,
 * attach another database, change a setting or load an extension.
 *
 * @param db           an open database; null: `dbFile` is opened, read-only, for this query. An
 *                     authorizer that the caller has set on `db` is gone afterwards.
 * @param dbFile       path of the database file as SQLite takes it, used when `db` is null.
 * @param sql          the statement; blanks, comments and semicolons may stand around it.
 * @param columnCount  set to the number of columns; 0 when there are no rows or on failure.
 * @param rowCount     set to the number of rows, the column names not counted; 0 on failure.
 * @return the result as sqlite3_get_table() shapes it: the column names, then row by row the
 *         values as text, null for NULL; without any row there are no column names either. The
 *         caller releases it with sqlite3_free_table(). Null on failure, both `db` and `dbFile`
 *         null included. Thread-safe as far as `db` is.
 */
char **sqlite3QueryResGet(sqlite3 *db, const char *dbFile, const char *sql, int32_t *columnCount,
                          int32_t *rowCount);

/**
 * A busy handler for sqlite3_busy_handler(): waits while another process has the database locked,
 * 1 ms at first and twice as long each time, up to 100 ms, and gives up after about 5 seconds.
 *
 * @param context  not looked at.
 * @param count    how often it was called for the same lock before.
 * @return 1 to try again, 0 to give up.
 */
int sqliteBusyHandler(void *context, int count);

#ifdef __cplusplus
}
#endif

#endif
