/**
 * @file
 * The device's SQLite database: dictionary and defaults at the start, changes of the servers while
 * the program runs, the configuration file for the next start.
 *
 *     const char *file = "/var/lib/lanyard/config.db";
 *     if (radLibInit(NULL) != 0 || radiusMgmtInit(file, "gateway") != 0) {
 *         return 1;
 *     }
 *     // row 7 of "radiusClient" was inserted:
 *     const RadDbUpdateInfo info = {"radiusClient", 0, 7, RAD_DB_INSERT, 0};
 *     radiusMgmtDBUpdateHandler(&info, sizeof(info), NULL, 0);
 *     radiusClientTblHandler(file, RAD_DB_INSERT);
 *     radiusMgmtDeInit();
 *     radLibExit();
 *
 * docs/management.md has the tables. Messages carry module 8.
 *
 * Threads: these calls belong to the one thread that configures the library, while no request is in
 * flight.
 *
 * Forks: no call leaves the database open, so a program may fork, or become a daemon, between any
 * two of them.
 */
#ifndef LANYARD_RADIUS_MGMT_H
#define LANYARD_RADIUS_MGMT_H

#include <stdint.h>

#include <lanyard/radius/frame.h>

#ifdef __cplusplus
extern "C" {
#endif

struct sqlite3;

/** What happened to a row, in SQLite's own codes. */
enum { RAD_DB_DELETE = 9, RAD_DB_INSERT = 18, RAD_DB_UPDATE = 23 };

/** A change notice: exactly 80 bytes, numbers in host order. */
typedef struct RadDbUpdateInfo {
    char tableName[64]; /**< NUL-terminated */
    int32_t rowKey;     /**< first half of the row's identity */
    int32_t rowId;      /**< second half: SQLite rowid of the changed row */
    int32_t opCode;     /**< one of the RAD_DB_ values */
    int32_t reserved;   /**< not read */
} RadDbUpdateInfo;

/**
 * Handles the change of one row. All arguments are the caller's and end with the call.
 *
 * @param db         connection to the database of radiusMgmtInit(); NULL for a delete whose
 *                   database does not open.
 * @param opCode     one of the RAD_DB_ values.
 * @param rowKey     first half of the row's identity.
 * @param rowId      second half, the rowid.
 * @param result     the row as it is now, as from sqlite3_get_table(); NULL for a delete.
 * @param columns    number of columns.
 * @param rows       number of rows.
 * @param oldValues  the row as it was: `columns` names, then `columns` values, missing ones NULL;
 *                   NULL when no old values were given.
 * @return 0; -1 on failure.
 */
typedef int (*RadDbHandler)(struct sqlite3 *db, int opCode, int32_t rowKey, int32_t rowId,
                            char **result, int32_t columns, int32_t rows, char **oldValues);

/** A table and its handler. */
typedef struct RadDbTable {
    const char *name;     /**< name of the table; NULL ends the list */
    RadDbHandler handler; /**< called for each change of a row */
} RadDbTable;

/** The tables that are handled: "radiusClient", then one with a NULL name. */
extern LANYARD_API const RadDbTable handlers[];

/**
 * Starts from a database: empties the configuration, loads the dictionary that the table
 * "environment" names (RADIUS_DICTIONARY), sets the default time-out to 10 seconds and the retry
 * count to 3. Servers come with change notices. May be called before or after radLibInit().
 *
 * @param dbFile      path of the database, which has to exist. The calls below open this file
 *                    again, also from another working folder. It replaces an earlier one.
 * @param callerName  name for the OS layer's busy handler, copied; 31 characters count.
 * @return 0; -1 when the database or the dictionary does not open or load (logged at level 8).
 */
LANYARD_API int radiusMgmtInit(const char *dbFile, const char *callerName);

/**
 * Forgets the database. The configuration stays.
 *
 * @return 0.
 */
LANYARD_API int radiusMgmtDeInit(void);

/**
 * Takes one change notice to the handler of its table. Opens the database of radiusMgmtInit(),
 * reads the row unless it was deleted, and closes the database.
 *
 * @param info          a RadDbUpdateInfo, of any alignment.
 * @param infoSize      its bytes: 80.
 * @param oldValues     the row as it was, for updates and deletes: texts one after the other, each
 *                      with its NUL, first the column names and then the values; NULL for none.
 * @param oldValuesLen  bytes of `oldValues`.
 * @return the handler's result; 0 for a table without a handler; -1 on failure (logged at level 8,
 *         but not when memory is exhausted).
 */
LANYARD_API int radiusMgmtDBUpdateHandler(const void *info, uint32_t infoSize, char *oldValues,
                                          uint32_t oldValuesLen);

/**
 * The handler of "radiusClient", a ::RadDbHandler. An insert adds an authentication server. An
 * update replaces the one with the old host; the row's identity goes to the server that has the old
 * host's name, or to the last slot. A delete removes the server with the row's identity.
 *
 * @param db         not used.
 * @param opCode     one of the RAD_DB_ values.
 * @param rowKey     first half of the row's identity.
 * @param rowId      second half, the rowid.
 * @param result     the row as it is now: "authserver", "authport", "authsecret", "authtimeout" and
 *                   "authretries" count; NULL for a delete.
 * @param columns    number of columns.
 * @param rows       number of rows; the first one counts.
 * @param oldValues  the row as it was, of which "authserver" counts for an update.
 * @return 0; -1 on failure. The result is logged at level 8, but for a delete; all servers are
 *         logged at level 128, with their secrets.
 */
LANYARD_API int radiusAuthServerHandler(struct sqlite3 *db, int opCode, int32_t rowKey,
                                        int32_t rowId, char **result, int32_t columns, int32_t rows,
                                        char **oldValues);

/**
 * Writes "/var/radius.conf", mode 0600, from the whole table "radiusClient"; deletes it when the
 * table is empty. A file is replaced whole where the OS layer can do that; a symbolic link
 * stays one, and what it leads to is written in place. Several processes may write at the same time.
 * Everything is logged at level 128, failures too.
 *
 * @param dbFile  path of the database, opened for this call.
 * @param opCode  one of the RAD_DB_ values.
 * @return 0; -1 on failure, which may leave a partial file.
 */
LANYARD_API int radiusClientTblHandler(const char *dbFile, int opCode);

/**
 * Returns the address of the device's interface "bdg", from the table "networkInterface" of the
 * database of radiusMgmtInit(), opened for this call.
 *
 * @return the IPv4 address in network byte order; 0 when there is none (logged at level 8, but not
 *         for a row without one); 0xFFFFFFFF when the row holds something else.
 */
LANYARD_API uint32_t radGetHostIPFromDB(void);

#ifdef __cplusplus
}
#endif

#endif
