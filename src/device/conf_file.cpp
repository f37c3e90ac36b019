// The configuration file, written from the table "radiusClient".
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>

#include <lanyard/radius/mgmt.h>
#include <palcore.h>

#include "base/log.h"
#include "base/text.h"
#include "device/database.h"

// A vendor's OS layer may lack it.
#pragma weak palFileRename

namespace lanyard {
namespace {

constexpr const char *kTag = "radiusClientTblHandler";
constexpr const char *kConfFile = "/var/radius.conf";
constexpr const char *kNewFile = "/var/radius.conf.new";
constexpr const char *kDictionary = "/nexa2.0/etc/radius.dict";

// Opens a file for writing. It carries shared secrets and is its owner's alone, also where it was
// there before with another mode.
FILE *openConfFile(const char *path) {
    constexpr mode_t kOwnerOnly = S_IRUSR | S_IWUSR;
    const int created = palOpen(path, O_WRONLY | O_CREAT, kOwnerOnly);
    if (created < 0) {
        return nullptr;
    }
    const bool restricted = fchmod(created, kOwnerOnly) == 0;
    palClose(created);
    return restricted ? palFileOpen(path, "w") : nullptr;
}

// Opens the file that is to take the place of the configuration file. Where that could not be
// written itself it is not replaced either.
FILE *openNewFile() {
    const int there = palOpen(kConfFile, O_WRONLY, 0);
    if (there < 0 && errno != ENOENT) {
        return nullptr;
    }
    if (there >= 0) {
        palClose(there);
    }
    palUnlink(kNewFile);
    return openConfFile(kNewFile);
}

// Writes the servers up to the first row that is none.
int writeServers(FILE *file, const QueryResult &result) {
    palFilePrintf(file, "authserver        ");
    for (int32_t row = 0; row < result.rows; ++row) {
        radDeviceLogAs(kTag, kLogTrace, "Making radius.conf ... \n");
        ServerRow server{};
        if (!readServerRow(result.table.get(), result.columns, row, server)) {
            return -1;
        }
        palFilePrintf(file, "%s:%d:%d:%d:%s", server.host, decimalValue(server.port),
                      decimalValue(server.timeout), decimalValue(server.retries), server.secret);
        if (row + 1 < result.rows) {
            palFilePrintf(file, ", ");
        }
    }
    palFilePrintf(file, "\ndictionary        %s\n", kDictionary);
    return 0;
}

// A failure in the middle of the table leaves behind what was written before it. Where the OS layer
// can replace a file, a reader sees the file before or the file afterwards and nothing between.
int writeConfFile(const QueryResult &result) {
    if (result.rows == 0) {
        palUnlink(kConfFile);
        return 0;
    }
    const bool replaces = &palFileRename != nullptr;
    FILE *file = replaces ? openNewFile() : openConfFile(kConfFile);
    if (!file) {
        radDeviceLogAs(kTag, kLogTrace, "Couldn't open file for writing: %s \n", kConfFile);
        return -1;
    }
    const int status = writeServers(file, result);
    const bool written = palFileClose(file) == 0;
    if (replaces && !(written && palFileRename(kNewFile, kConfFile) == 0)) {
        palUnlink(kNewFile);
        return -1;
    }
    return written ? status : -1;
}

int generate(const char *dbFile, int opCode) {
    if (opCode != RAD_DB_INSERT && opCode != RAD_DB_UPDATE && opCode != RAD_DB_DELETE) {
        radDeviceLogAs(kTag, kLogTrace, "Invalid input opcode: %d \n", opCode);
        return -1;
    }
    constexpr const char *kQuery = "SELECT * from radiusClient ";
    const QueryResult result = runQuery(nullptr, dbFile, kQuery);
    if (!result) {
        radDeviceLogAs(kTag, kLogTrace, "sqlite query for '%s' failed \n", kQuery);
        return -1;
    }
    return writeConfFile(result);
}

}  // namespace
}  // namespace lanyard

using namespace lanyard;

int radiusClientTblHandler(const char *dbFile, int opCode) {
    const int status = generate(dbFile, opCode);
    radDeviceLog(kLogTrace, "status(radiusClientTblHandler) = %d \n", status);
    return status;
}
