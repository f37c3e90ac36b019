// Change notices of the device's database, with rows and old values that anybody may have written. First the
// failing allocation; then rows and notices.
#include <algorithm>
#include <array>
#include <cstring>
#include <sqlite3.h>
#include <string>

#include <lanyard/radius/conf.h>
#include <lanyard/radius/mgmt.h>

#include "fuzz/environment.h"

namespace {

using namespace lanyard::fuzz;

constexpr const char *kDatabase = "file:device?mode=memory&cache=shared";

sqlite3 *database = nullptr;

void run(const char *sql) {
    require(sqlite3_exec(database, sql, nullptr, nullptr, nullptr) == SQLITE_OK, sql);
}

// It stays in memory for as long as this connection to it is open.
void start() {
    sqlite3_config(SQLITE_CONFIG_URI, 1);
    require(sqlite3_open(kDatabase, &database) == SQLITE_OK, "there is a database");
    run("CREATE TABLE environment (name TEXT, value TEXT)");
    run("INSERT INTO environment VALUES ('RADIUS_DICTIONARY', '/dev/null')");
    run("CREATE TABLE radiusClient (authserver TEXT, authport TEXT, authsecret TEXT,"
        " authtimeout TEXT, authretries TEXT)");
    run("CREATE TABLE other (authserver BLOB)");
    radiusMgmtInit(kDatabase, "fuzz");
}

// A row of one of eight ids; a text is what anybody has put there, or a usual one.
void store(Script &script) {
    const int rowId = static_cast<int>(1 + script.below(8));
    const uint8_t own = script.u8();
    sqlite3_stmt *statement = nullptr;
    sqlite3_prepare_v2(
        database,
        "INSERT OR REPLACE INTO radiusClient (rowid, authserver, authport, authsecret, "
        "authtimeout, authretries) VALUES (?1, ?2, ?3, ?4, ?5, ?6)",
        -1, &statement, nullptr);
    sqlite3_bind_int(statement, 1, rowId);
    const std::array<std::string, 5> usual = {"192.0.2." + std::to_string(rowId), "1812", "secret",
                                              "3", "1"};
    for (size_t column = 0; column < usual.size(); ++column) {
        const auto place = static_cast<int>(column) + 2;
        if ((own >> column & 1) == 0) {
            sqlite3_bind_text(statement, place, usual[column].c_str(), -1, SQLITE_TRANSIENT);
        } else {
            const Bytes text = script.part();
            sqlite3_bind_text(statement, place, reinterpret_cast<const char *>(text.data()),
                              static_cast<int>(text.size()), SQLITE_TRANSIENT);
        }
    }
    sqlite3_step(statement);
    sqlite3_finalize(statement);
}

RadDbUpdateInfo infoFrom(Script &script, uint8_t how) {
    RadDbUpdateInfo info{};
    static constexpr std::array kCodes = {int{RAD_DB_INSERT}, int{RAD_DB_UPDATE},
                                          int{RAD_DB_DELETE}, 0};
    std::strncpy(info.tableName, "radiusClient", sizeof(info.tableName));
    info.opCode = kCodes[how & 3];
    info.rowId = static_cast<int32_t>(1 + script.below(9));
    info.rowKey = (how & 4) != 0 ? static_cast<int32_t>(script.u32()) : 0;
    if ((how & 8) != 0) {
        const Bytes name = script.bytes(sizeof(info.tableName));
        std::copy(name.begin(), name.end(), static_cast<char *>(info.tableName));
    }
    return info;
}

// Each notice and the old values end where their blocks end.
void notify(Script &script) {
    const uint8_t how = script.u8();
    const RadDbUpdateInfo info = infoFrom(script, how);
    Bytes notice(sizeof(info));
    std::memcpy(notice.data(), &info, sizeof(info));
    if ((how & 16) != 0) {
        notice.resize(script.u8());
        notice.shrink_to_fit();
    }
    Bytes old = script.longPart();
    const int status =
        radiusMgmtDBUpdateHandler(notice.data(), static_cast<uint32_t>(notice.size()),
                                  (how & 32) != 0 ? reinterpret_cast<char *>(old.data()) : nullptr,
                                  static_cast<uint32_t>(old.size()));
    require(status == 0 || status == -1, "a change is made or not");
}

// As radConfSetServers() leaves them, whatever a notice said.
void check(bool memoryFailed) {
    const auto *servers = static_cast<const RadServer *>(radConfGet(RAD_CONF_AUTH_SERVERS));
    int count = 0;
    for (int i = 0; servers != nullptr && i < RAD_SERVERS_MAX; ++i) {
        if (servers[i].host != nullptr) {
            ++count;
            require(servers[i].host[0] != '\0' && (servers[i].secret != nullptr || memoryFailed),
                    "a server has a host and a secret");
        }
    }
    // A delete that meets no server lowers the count all the same.
    require(count >= radConfGetNumServers(RAD_SERVER_AUTH), "there are as many servers as counted");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (database == nullptr) {
        start();
    }
    Script script(data, size);
    run("DELETE FROM radiusClient");
    radConfDelAuthServ();
    const size_t before = liveBlocks();
    failAllocation(script.u8());
    while (!script.atEnd()) {
        if (script.below(2) == 0) {
            store(script);
        } else {
            notify(script);
        }
        check(allocationFailed());
    }
    failAllocation(0);
    radConfDelAuthServ();
    require(liveBlocks() == before, "every block is freed");
    return 0;
}
