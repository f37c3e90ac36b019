// Takes each change notice of the device's database to the handler of its table.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>

#include <lanyard/radius/mgmt.h>

#include "base/log.h"
#include "device/database.h"

namespace lanyard {
namespace {

constexpr const char *kTag = "radiusMgmtDBUpdateHandler";

struct SystemDeleter {
    void operator()(char **block) const { std::free(block); }
};

using TextArray = std::unique_ptr<char *, SystemDeleter>;

// The row as it was: texts one after the other, first the column names, then the values.
class OldValues {
  public:
    OldValues(char *texts, uint32_t size) : texts_(texts, texts ? size : 0) {}

    bool given() const { return !texts_.empty(); }
    bool terminated() const { return texts_.empty() || texts_.back() == '\0'; }
    int32_t count() const {
        return static_cast<int32_t>(std::count(texts_.begin(), texts_.end(), '\0'));
    }

    // Pointers to the texts, twice as many as columns; null for missing ones.
    TextArray pointers(int32_t columns) const {
        const size_t size = 2 * static_cast<size_t>(columns);
        TextArray array(
            static_cast<char **>(std::calloc(std::max<size_t>(size, 1), sizeof(char *))));
        if (!array) {
            return array;
        }
        auto left = texts_;
        for (char *&text : std::span(array.get(), size)) {
            if (left.empty()) {
                break;
            }
            text = left.data();
            left = left.subspan(std::strlen(text) + 1);
        }
        return array;
    }

  private:
    std::span<char> texts_;
};

// Reads the changed row.
QueryResult readRow(sqlite3 *db, const RadDbUpdateInfo &info) {
    char *sql = sqlite3_mprintf("SELECT * from %s WHERE rowid=%d", info.tableName, info.rowId);
    QueryResult result;
    if (sql) {
        result = runQuery(db, nullptr, sql);
        sqlite3_free(sql);
    }
    if (!result) {
        radDeviceLogAs(kTag, kLogError, "sqlite3QueryResGet failed\n");
    }
    return result;
}

// Calls the handler of the table, if there is one.
int dispatch(sqlite3 *db, const RadDbUpdateInfo &info, const QueryResult &result,
             char **oldValues) {
    for (const RadDbTable *table = handlers; table->name; ++table) {
        if (std::strcmp(table->name, info.tableName) == 0) {
            const int status =
                table->handler(db, info.opCode, info.rowKey, info.rowId, result.table.get(),
                               result.columns, result.rows, oldValues);
            if (status == -1) {
                radDeviceLogAs(kTag, kLogError, "Error in executing DB update handler\n");
            }
            return status;
        }
    }
    return 0;
}

}  // namespace
}  // namespace lanyard

using namespace lanyard;

int radiusMgmtDBUpdateHandler(const void *info, uint32_t infoSize, char *oldValues,
                              uint32_t oldValuesLen) {
    RadDbUpdateInfo update{};
    if (!info || infoSize != sizeof(update)) {
        radDeviceLog(kLogError, "ERROR: incomplete DB update information.\n");
        return -1;
    }
    std::memcpy(&update, info, sizeof(update));
    if (!std::memchr(update.tableName, '\0', sizeof(update.tableName))) {
        radDeviceLog(kLogError, "ERROR: incomplete DB update information.\n");
        return -1;
    }
    radDeviceLog(kLogTrace, "DBUpdate event: Table: %s opCode:%d rowId:%d\n", update.tableName,
                 update.opCode, update.rowId);

    const bool deleted = update.opCode == RAD_DB_DELETE;
    const OldValues old(oldValues, oldValuesLen);
    if (!old.terminated() || (deleted && old.count() % 2 != 0)) {
        radDeviceLog(kLogError, "old values result does not contain 2 rows\n");
        return -1;
    }
    const Connection connection(kTag);
    QueryResult result;
    if (deleted) {
        result.columns = old.count() / 2;
        result.rows = 1;
    } else {
        result = readRow(connection.get(), update);
        if (!result) {
            return -1;
        }
    }
    const TextArray pointers = old.given() ? old.pointers(result.columns) : nullptr;
    if (old.given() && !pointers) {
        return -1;
    }
    if (result.empty() && !deleted) {
        radDeviceLog(kLogError, "empty update. nRows=%d nCols=%d\n", result.rows, result.columns);
        return -1;
    }
    return dispatch(connection.get(), update, result, pointers.get());
}
