// Queries that read, and the readiness of MD5.
#include <openssl/evp.h>

#include <ciph.h>
#include <dbaccess.h>
#include <palcore.h>

int ciphMD5Init(void) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    return EVP_Digest("", 0, digest, NULL, EVP_md5(), NULL) == 1 ? 0 : -1;
}

static int allowReading(void *context, int action, const char *first, const char *second,
                        const char *database, const char *trigger) {
    (void)context, (void)first, (void)database, (void)trigger;
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

static int isOneStatement(sqlite3 *db, const char *sql) {
    int count = 0;
    while (*sql != '\0') {
        sqlite3_stmt *statement = NULL;
        if (sqlite3_prepare_v2(db, sql, -1, &statement, &sql) != SQLITE_OK) {
            return 0;
        }
        count += statement != NULL;
        sqlite3_finalize(statement);
    }
    return count == 1;
}

char **sqlite3QueryResGet(sqlite3 *db, const char *dbFile, const char *sql, int32_t *columnCount,
                          int32_t *rowCount) {
    if (columnCount == NULL || rowCount == NULL) {
        return NULL;
    }
    *columnCount = 0;
    *rowCount = 0;
    if (sql == NULL || (db == NULL && (dbFile == NULL || *dbFile == '\0'))) {
        return NULL;
    }
    sqlite3 *own = NULL;
    char **table = NULL;
    if (db != NULL || sqlite3_open_v2(dbFile, &own, SQLITE_OPEN_READONLY, NULL) == SQLITE_OK) {
        sqlite3 *used = db != NULL ? db : own;
        int rows = 0;
        int columns = 0;
        sqlite3_mutex_enter(sqlite3_db_mutex(used));
        if (own != NULL) {
            sqlite3_busy_handler(own, sqliteBusyHandler, NULL);
        }
        if (sqlite3_set_authorizer(used, allowReading, NULL) == SQLITE_OK &&
            isOneStatement(used, sql) &&
            sqlite3_get_table(used, sql, &table, &rows, &columns, NULL) == SQLITE_OK) {
            *columnCount = columns;
            *rowCount = rows;
        }
        sqlite3_set_authorizer(used, NULL, NULL);
        sqlite3_mutex_leave(sqlite3_db_mutex(used));
    }
    sqlite3_close(own);
    return table;
}

int sqliteBusyHandler(void *context, int count) {
    (void)context;
    if (count < 0 || count >= 56) {  // 127 ms, then 49 times 100 ms
        return 0;
    }
    (void)palTaskDelay(count < 7 ? 1 << count : 100);
    return 1;
}
