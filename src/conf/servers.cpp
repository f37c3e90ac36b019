// The two server lists. A new authentication server takes the lowest free slot, as they are deleted
// one by one. Accounting servers fill their slots in order.
#include <algorithm>
#include <array>
#include <cstring>
#include <netdb.h>

#include <lanyard/radius/conf.h>
#include <palcore.h>

#include "base/log.h"
#include "base/partition.h"
#include "base/secrets.h"
#include "base/text.h"
#include "conf/store.h"

namespace lanyard {
namespace {

// The UDP port of a service in the services database, else the default.
uint16_t servicePort(const char *service, uint16_t defaultPort) {
    std::array<char, 1024> buffer{};
    servent entry{};
    servent *found = nullptr;
    if (getservbyname_r(service, "udp", &entry, buffer.data(), buffer.size(), &found) != 0 ||
        !found) {
        return defaultPort;
    }
    return ntohs(static_cast<uint16_t>(found->s_port));
}

// Puts a server into a free slot. Without memory for the secret it has none, which a request reports.
void fillSlot(RadServer &server, char *host, uint16_t defaultPort, int port, int timeout,
              int retries, const char *secret, const char *extra) {
    server = {.host = host,
              .port = port >= 1 ? static_cast<uint16_t>(port) : defaultPort,
              .timeout = std::max(timeout, -1),
              .retries = std::max(retries, -1),
              .secret = copyText(secret).release(),
              .extra = extra ? copyText(extra).release() : nullptr,
              .rowKey = -1,
              .rowId = -1};
}

void logAdded(const char *function, const RadServer &server) {
    radLogAs(function, kLogTrace,
             "Added Server %s:%d with timeout: %d, retries: %d and secret: %s\n", server.host,
             server.port, server.timeout, server.retries, shownSecret(server.secret));
}

void clearSlot(RadServer &server) {
    if (server.secret) {
        explicit_bzero(server.secret, std::strlen(server.secret));
    }
    palMemPartFree(radMemPartId, server.host);
    palMemPartFree(radMemPartId, server.secret);
    palMemPartFree(radMemPartId, server.extra);
    server = kFreeSlot;
}

// Clears every slot, as after a delete that matched no server the count is lower than the number of
// slots in use.
void clearSlots(ServerSlots &servers) {
    for (RadServer &server : servers) {
        clearSlot(server);
    }
    forgetKeptSecrets();
}

// The lowest free slot; null when all are taken.
RadServer *freeSlot(ServerSlots &servers) {
    for (RadServer &server : servers) {
        if (!server.host) {
            return &server;
        }
    }
    return nullptr;
}

// The first slot that matches. Given: the last slot when none does.
template <typename Matches>
RadServer &findOrLast(Matches matches) {
    auto &servers = radConf.authServers;
    const auto found = std::find_if(servers.begin(), servers.end(), matches);
    return found == servers.end() ? servers.back() : *found;
}

RadServer &findByHost(const char *host) {
    return findOrLast([host](const RadServer &server) {
        return server.host && std::strcmp(server.host, host) == 0;
    });
}

void deleteAuthServer(RadServer &server) {
    clearSlot(server);
    forgetKeptSecrets();
    if (--radConf.authCount == 0) {
        radConf.options[RAD_CONF_AUTH_SERVERS].value = nullptr;
    }
}

bool authServersConfigured() {
    return radConf.options[RAD_CONF_AUTH_SERVERS].value != nullptr;
}

}  // namespace
}  // namespace lanyard

using namespace lanyard;

int radConfGetNumServers(int type) {
    switch (type) {
        case RAD_SERVER_AUTH:
            return static_cast<int>(radConf.authCount);
        case RAD_SERVER_ACCT:
            return static_cast<int>(radConf.acctCount);
        default:
            return -1;
    }
}

int radConfAddAuthServ(const char *host, int port, int timeout, int retries, const char *secret,
                       const char *extra) {
    if (!host || !secret) {
        return -1;
    }
    RadServer *slot = freeSlot(radConf.authServers);
    if (radConf.authCount >= RAD_SERVERS_MAX || !slot) {
        radLog(kLogError, "radConfAddAuthServ: Cannot Add Server %s: Too Many Servers\n", host);
        return -1;
    }
    auto hostCopy = copyText(host);
    if (!hostCopy) {
        return -1;
    }
    fillSlot(*slot, hostCopy.release(), servicePort("radius", 1812), port, timeout, retries, secret,
             extra);
    ++radConf.authCount;
    radConf.options[RAD_CONF_AUTH_SERVERS].value = radConf.authServers.data();
    logAdded(__func__, *slot);
    return 0;
}

int radConfAddAcctServ(const char *host, int port, int timeout, int retries, const char *secret) {
    if (!host || !secret) {
        return -1;
    }
    if (radConf.acctCount >= RAD_SERVERS_MAX) {
        radLog(kLogError, "radConfAddAcctServ: Cannot Add Server %s: Too Many Servers\n", host);
        return -1;
    }
    auto hostCopy = copyText(host);
    if (!hostCopy) {
        return -1;
    }
    RadServer &slot = radConf.acctServers[radConf.acctCount];
    fillSlot(slot, hostCopy.release(), servicePort("radacct", 1813), port, timeout, retries, secret,
             nullptr);
    ++radConf.acctCount;
    radConf.options[RAD_CONF_ACCT_SERVERS].value = radConf.acctServers.data();
    logAdded(__func__, slot);
    return 0;
}

int radConfDelAuthServ(void) {
    radConf.options[RAD_CONF_AUTH_SERVERS].value = nullptr;
    clearSlots(radConf.authServers);
    radConf.authCount = 0;
    return 0;
}

int radConfDelAcctServ(void) {
    radConf.options[RAD_CONF_ACCT_SERVERS].value = nullptr;
    clearSlots(radConf.acctServers);
    radConf.acctCount = 0;
    return 0;
}

int radConfDelAuthServer(const char *host) {
    if (!host) {
        return -1;
    }
    if (!authServersConfigured()) {
        return 0;
    }
    RadServer &server = findByHost(host);
    radLog(kLogTrace, "Deleting Server %s:%d with timeout: %d, retries: %d and secret: %s\n",
           shownText(server.host), server.port, server.timeout, server.retries,
           shownSecret(server.secret));
    deleteAuthServer(server);
    return 0;
}

int radConfDelAuthServByRowId(int32_t rowKey, int32_t rowId) {
    if (rowKey < 0) {
        return -1;
    }
    if (!authServersConfigured()) {
        return 0;
    }
    RadServer &server = findOrLast([rowKey, rowId](const RadServer &visited) {
        radLogAs("radConfDelAuthServByRowId", kLogTrace, "rowIds: %d - %d\n", visited.rowKey,
                 visited.rowId);
        return visited.rowKey == rowKey && visited.rowId == rowId;
    });
    radLog(kLogTrace,
           "Deleting Server %s:%d with timeout: %d, retries: %d and secret: %s rowId: %d\n",
           shownText(server.host), server.port, server.timeout, server.retries,
           shownSecret(server.secret), server.rowId);
    deleteAuthServer(server);
    return 0;
}

int radAuthServRowIdSet(const char *host, int /*reserved*/, int32_t rowKey, int32_t rowId) {
    if (!host) {
        return -1;
    }
    if (!authServersConfigured()) {
        return 0;
    }
    RadServer &server = findByHost(host);
    radLog(kLogTrace,
           "Adding RowId:%d to Server %s:%d with timeout: %d, retries: %d and secret: %s\n", rowId,
           shownText(server.host), server.port, server.timeout, server.retries,
           shownSecret(server.secret));
    server.rowKey = rowKey;
    server.rowId = rowId;
    return 0;
}

void radConfAuthServList(void) {
    if (!authServersConfigured()) {
        return;
    }
    for (const RadServer &server : radConf.authServers) {
        if (server.host) {
            radLog(kLogTrace, "%d : Server %s:%d with timeout: %d, retries: %d and secret: %s\n",
                   server.rowId, server.host, server.port, server.timeout, server.retries,
                   shownSecret(server.secret));
        }
    }
}
