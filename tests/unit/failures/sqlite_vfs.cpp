#include "tests/unit/failures/sqlite_vfs.h"

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include "tests/support/failing_call.h"

namespace lanyard::test {
namespace {

sqlite3_vfs *below = nullptr;

// SQLite's own file follows it in memory.
struct File {
    sqlite3_file base;
};

sqlite3_file *real(sqlite3_file *file) {
    return reinterpret_cast<sqlite3_file *>(reinterpret_cast<File *>(file) + 1);
}

// The result of the function below, or that of the failure.
template <auto member, typename... Arguments>
int pass(const char *name, sqlite3_file *file, Arguments... arguments) {
    return strikes(name) ? errno : (real(file)->pMethods->*member)(real(file), arguments...);
}

int readFile(sqlite3_file *file, void *buffer, int size, sqlite3_int64 offset) {
    const bool struck = strikes("sqlite read");
    if (struck && errno != SQLITE_CORRUPT) {
        return errno;
    }
    const int status = real(file)->pMethods->xRead(real(file), buffer, size, offset);
    if (struck) {
        std::memset(buffer, 0x5a, static_cast<size_t>(size));
    }
    return status;
}

int writeFile(sqlite3_file *file, const void *buffer, int size, sqlite3_int64 offset) {
    return pass<&sqlite3_io_methods::xWrite>("sqlite write", file, buffer, size, offset);
}

int truncateFile(sqlite3_file *file, sqlite3_int64 size) {
    return pass<&sqlite3_io_methods::xTruncate>("sqlite truncate", file, size);
}

int syncFile(sqlite3_file *file, int flags) {
    return pass<&sqlite3_io_methods::xSync>("sqlite sync", file, flags);
}

int sizeOfFile(sqlite3_file *file, sqlite3_int64 *size) {
    return pass<&sqlite3_io_methods::xFileSize>("sqlite size", file, size);
}

int lockFile(sqlite3_file *file, int lock) {
    return pass<&sqlite3_io_methods::xLock>("sqlite lock", file, lock);
}

int closeFile(sqlite3_file *file) {
    return real(file)->pMethods->xClose(real(file));
}

int unlockFile(sqlite3_file *file, int lock) {
    return real(file)->pMethods->xUnlock(real(file), lock);
}

int isReserved(sqlite3_file *file, int *result) {
    return pass<&sqlite3_io_methods::xCheckReservedLock>("sqlite lock", file, result);
}

int control(sqlite3_file *file, int operation, void *argument) {
    return real(file)->pMethods->xFileControl(real(file), operation, argument);
}

int sectorSize(sqlite3_file *file) {
    return real(file)->pMethods->xSectorSize(real(file));
}

int characteristics(sqlite3_file *file) {
    return real(file)->pMethods->xDeviceCharacteristics(real(file));
}

// Without shared memory and mapped pages: nothing that would go past these functions.
constexpr sqlite3_io_methods kMethods = {.iVersion = 1,
                                         .xClose = closeFile,
                                         .xRead = readFile,
                                         .xWrite = writeFile,
                                         .xTruncate = truncateFile,
                                         .xSync = syncFile,
                                         .xFileSize = sizeOfFile,
                                         .xLock = lockFile,
                                         .xUnlock = unlockFile,
                                         .xCheckReservedLock = isReserved,
                                         .xFileControl = control,
                                         .xSectorSize = sectorSize,
                                         .xDeviceCharacteristics = characteristics,
                                         .xShmMap = nullptr,
                                         .xShmLock = nullptr,
                                         .xShmBarrier = nullptr,
                                         .xShmUnmap = nullptr,
                                         .xFetch = nullptr,
                                         .xUnfetch = nullptr};

int openFile(sqlite3_vfs * /*vfs*/, const char *name, sqlite3_file *file, int flags,
             int *outFlags) {
    file->pMethods = nullptr;
    if (strikes("sqlite open")) {
        return errno;
    }
    const int status = below->xOpen(below, name, real(file), flags, outFlags);
    file->pMethods = real(file)->pMethods != nullptr ? &kMethods : nullptr;
    return status;
}

int deleteFile(sqlite3_vfs * /*vfs*/, const char *name, int syncFolder) {
    return strikes("sqlite delete") ? errno : below->xDelete(below, name, syncFolder);
}

int accessFile(sqlite3_vfs * /*vfs*/, const char *name, int flags, int *result) {
    return strikes("sqlite access") ? errno : below->xAccess(below, name, flags, result);
}

}  // namespace

void useFailingVfs() {
    below = sqlite3_vfs_find(nullptr);
    static sqlite3_vfs vfs = *below;
    vfs.szOsFile = static_cast<int>(sizeof(File)) + below->szOsFile;
    vfs.zName = "failing";
    vfs.pNext = nullptr;
    vfs.xOpen = openFile;
    vfs.xDelete = deleteFile;
    vfs.xAccess = accessFile;
    EXPECT_EQ(SQLITE_OK, sqlite3_vfs_register(&vfs, 1));
}

}  // namespace lanyard::test

// Nobody waits for a lock that another holds.
int sqliteBusyHandler(void * /*context*/, int /*count*/) {
    return 0;
}
