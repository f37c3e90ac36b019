// Changes of the table "radiusClient": inserts, updates and deletes of authentication servers.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <lanyard/radius/conf.h>
#include <lanyard/radius/mgmt.h>

#include "base/log.h"
#include "device/database.h"

namespace lanyard {
namespace {

constexpr const char *kTag = "radiusAuthServerHandler";

// The text of a server entry holds a secret.
struct WipingSystemDeleter {
    void operator()(char *text) const {
        explicit_bzero(text, std::strlen(text));
        std::free(text);
    }
};

using EntryText = std::unique_ptr<char, WipingSystemDeleter>;

// The entry in the syntax of the configuration file; null when memory is exhausted.
EntryText formatEntry(const ServerRow &server) {
    char *text = nullptr;
    const int length = asprintf(&text, "%s:%s:%s:%s:%s", server.host, server.port, server.timeout,
                                server.retries, server.secret);
    return EntryText(length < 0 ? nullptr : text);
}

// Applies the change to the configuration. Given: after an update the row's identity goes to the
// server with the old host, so that of a renamed server goes to the last slot.
int applyEntry(int opCode, const char *entry, const char *host, const char *oldHost, int32_t rowKey,
               int32_t rowId) {
    switch (opCode) {
        case RAD_DB_INSERT:
            break;
        case RAD_DB_UPDATE:
            if (!oldHost) {
                return -1;
            }
            radConfDelAuthServer(oldHost);
            host = oldHost;
            break;
        default:
            radDeviceLogAs(kTag, kLogError, "Invalid SQLITE operation code - %d\n", opCode);
            return -1;
    }
    if (radConfSetServers(entry, RAD_SERVER_AUTH) == -1) {
        return -1;
    }
    return radAuthServRowIdSet(host, 0, rowKey, rowId) == -1 ? -1 : 0;
}

}  // namespace
}  // namespace lanyard

using namespace lanyard;

const RadDbTable handlers[] = {{"radiusClient", radiusAuthServerHandler}, {nullptr, nullptr}};

int radiusAuthServerHandler(sqlite3 * /*db*/, int opCode, int32_t rowKey, int32_t rowId,
                            char **result, int32_t columns, int32_t rows, char **oldValues) {
    if (opCode == RAD_DB_DELETE) {
        const int status = radConfDelAuthServByRowId(rowKey, rowId);
        radConfAuthServList();
        return status;
    }
    int status = -1;
    ServerRow server{};
    if (result && rows > 0 && readServerRow(result, columns, 0, server)) {
        const EntryText entry = formatEntry(server);
        if (!entry) {
            radDeviceLog(kLogError,
                         "Failed to allocate memory for authentication server string.\n");
            return -1;
        }
        const char *oldHost =
            oldValues ? columnValue(oldValues, columns, 0, "authserver") : nullptr;
        status = applyEntry(opCode, entry.get(), server.host, oldHost, rowKey, rowId);
    }
    radDeviceLog(kLogError, "returning : %d\n", status);
    radConfAuthServList();
    return status;
}
