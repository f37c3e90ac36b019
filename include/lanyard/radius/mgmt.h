/**
 * @file
 * Management by the device's SQLite database: dictionary and defaults, changes of the servers while
 * the program runs, and the configuration file for the next start.
 *
 * Messages carry module 8. Nothing here locks: these calls belong to the one thread that configures
 * the library. They must not run while requests are in flight.
 *
 * No call leaves the database open, so that the program may become a daemon, or fork in another way,
 * between any two of them (SQLite forbids to carry a connection through a fork).
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

/** A change notice: exactly 80 octets, numbers in host order. */
typedef struct RadDbUpdateInfo {
    char tableName[64]; /**< NUL-terminated */
    int32_t rowKey;     /**< first half of the row identity */
    int32_t rowId;      /**< SQLite rowid of the changed row */
    int32_t opCode;     /**< one of the RAD_DB_ values */
    int32_t reserved;   /**< not read */
} RadDbUpdateInfo;

/**
 * Handles the change of one row.
 *
 * @param db         connection to the database of radiusMgmtInit(), for this call; NULL for a delete
 *                   whose database does not open.
 * @param opCode     one of the RAD_DB_ values.
 * @param rowKey     first half of the row identity.
 * @param rowId      rowid.
 * @param result     the row as it is now, in the shape of sqlite3_get_table(); NULL for a delete.
 * @param columns    number of columns.
 * @param rows       number of rows.
 * @param oldValues  the row as it was: `columns` names, then `columns` values, missing ones NULL;
 *                   NULL when no old values were given.
 * @return 0 or -1.
 */
typedef int (*RadDbHandler)(struct sqlite3 *db, int opCode, int32_t rowKey, int32_t rowId,
                            char **result, int32_t columns, int32_t rows, char **oldValues);

/** A table and its handler. */
typedef struct RadDbTable {
    const char *name;
    RadDbHandler handler;
} RadDbTable;

/** The tables that are handled: "radiusClient", and a row whose name is NULL. */
extern LANYARD_API const RadDbTable handlers[];

/**
 * Opens the database, empties the configuration, loads the dictionary that the table "environment"
 * names (RADIUS_DICTIONARY), sets the default time-out 10 and retry count 3, and closes the database
 * again. Servers come with change notices. An earlier database is forgotten.
 *
 * It may run before or after radLibInit().
 *
 * @param dbFile      path of the database, which is never created. The calls below open this file
 *                    anew, also from another working folder.
 * @param callerName  for the busy handler; 31 characters of it are kept.
 * @return 0; -1 when the database or the dictionary fails (logged at level 8).
 */
LANYARD_API int radiusMgmtInit(const char *dbFile, const char *callerName);

/**
 * Forgets the database. The configuration stays.
 * @return 0.
 */
LANYARD_API int radiusMgmtDeInit(void);

/**
 * Takes one change notice to the handler of its table. Opens the database of radiusMgmtInit() for it,
 * and reads the row unless that was deleted.
 *
 * @param info          a RadDbUpdateInfo, of any alignment.
 * @param infoSize      its size: 80.
 * @param oldValues     the row as it was, for updates and deletes: NUL-terminated strings laid end
 *                      to end, the column names and then the values; NULL for none.
 * @param oldValuesLen  octets of `oldValues`.
 * @return the handler's result; 0 when the table has none; -1 on failure (logged at level 8).
 */
LANYARD_API int radiusMgmtDBUpdateHandler(const void *info, uint32_t infoSize, char *oldValues,
                                          uint32_t oldValuesLen);

/**
 * The handler of "radiusClient": an insert adds an authentication server, an update replaces the
 * one with the old host, a delete removes the one with the row's identity. An update records the
 * row's identity on the server that has the old host's name, or on the last slot.
 */
LANYARD_API int radiusAuthServerHandler(struct sqlite3 *db, int opCode, int32_t rowKey,
                                        int32_t rowId, char **result, int32_t columns, int32_t rows,
                                        char **oldValues);

/**
 * Writes "/var/radius.conf", mode 0600, from the whole table "radiusClient"; deletes it when the
 * table is empty. What goes wrong is told at level 128.
 *
 * @param dbFile  path of the database, which is opened for this call.
 * @param opCode  one of the RAD_DB_ values.
 * @return 0; -1 on failure, which may leave a partial file.
 */
LANYARD_API int radiusClientTblHandler(const char *dbFile, int opCode);

/**
 * @return the address of the device's interface "bdg" in network byte order, from the table
 *         "networkInterface" of the database of radiusMgmtInit(), opened for this call; 0 when there is
 *         none.
 */
LANYARD_API uint32_t radGetHostIPFromDB(void);

#ifdef __cplusplus
}
#endif

#endif
