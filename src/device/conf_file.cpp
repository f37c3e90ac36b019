// The configuration file, written from the table "radiusClient".
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <lanyard/radius/mgmt.h>
#include <palcore.h>

#include "base/descriptor.h"
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
constexpr const char *kFolder = "/var";
constexpr const char *kDictionary = LANYARD_DEFAULT_DICTIONARY;

// Opens a file for writing. It carries shared secrets and is its owner's alone, also where it was
// there before with another mode.
Descriptor openPrivate(const char *path, int flags = 0) {
    constexpr mode_t kOwnerOnly = S_IRUSR | S_IWUSR;
    Descriptor file(palOpen(path, O_WRONLY | O_CREAT | flags, kOwnerOnly));
    if (file.isOpen() && fchmod(file.get(), kOwnerOnly) != 0) {
        file.reset();
    }
    return file;
}

// Opens the file that is to take the place of the configuration file. Where that could not be
// written itself it is not replaced either.
Descriptor openNewFile() {
    const Descriptor there(palOpen(kConfFile, O_WRONLY, 0));
    if (!there.isOpen() && errno != ENOENT) {
        return Descriptor();
    }
    palUnlink(kNewFile);
    return openPrivate(kNewFile, O_EXCL);
}

// Whether the file can be replaced whole. Where the configuration file is a link, an administrator
// wants what it leads to written, and perhaps has no place for another file beside that.
bool canReplace() {
    struct stat status {};
    const Descriptor there(palOpen(kConfFile, O_PATH | O_NOFOLLOW, 0));
    const bool isLink =
        there.isOpen() && fstat(there.get(), &status) == 0 && S_ISLNK(status.st_mode);
    return &palFileRename != nullptr && !isLink;
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
// can replace a file, a reader sees the file before or the file afterwards and nothing between, also
// after a power failure.
int writeConfFile(const QueryResult &result) {
    if (result.rows == 0) {
        palUnlink(kConfFile);
        return 0;
    }
    // One writer at a time; a file to be locked would have to be left there.
    const Descriptor folder(palOpen(kFolder, O_RDONLY | O_DIRECTORY, 0));
    flock(folder.get(), LOCK_EX);

    const bool replaces = canReplace();
    const Descriptor opened = replaces ? openNewFile() : openPrivate(kConfFile);
    FILE *file = opened.isOpen() ? palFileOpen(replaces ? kNewFile : kConfFile, "w") : nullptr;
    if (!file) {
        if (replaces) {
            palUnlink(kNewFile);
        }
        radDeviceLogAs(kTag, kLogTrace, "Couldn't open file for writing: %s \n", kConfFile);
        return -1;
    }
    // A buffer of the stream's own would keep shared secrets after the file is closed.
    std::array<char, 1024> buffer{};
    std::setvbuf(file, buffer.data(), _IOFBF, buffer.size());
    const int status = writeServers(file, result);
    const bool isClosed = palFileClose(file) == 0;
    explicit_bzero(buffer.data(), buffer.size());
    const bool written = isClosed && fsync(opened.get()) == 0;
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
