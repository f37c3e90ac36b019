// The text form of a server list: entries host[:port[:timeout[:retries]]]:secret[:extra].
#include <cstring>

#include <lanyard/radius/conf.h>

#include "base/log.h"
#include "base/partition.h"
#include "base/text.h"
#include "conf/store.h"

namespace lanyard {
namespace {

// The fields of one entry. Given: -1 means "not given", so a time-out or retry count of -1 leaves its
// place to the next field.
struct Entry {
    const char *host = nullptr;
    int port = -1;
    int timeout = -1;
    int retries = -1;
    const char *secret = nullptr;
    const char *extra = nullptr;
};

bool parsePort(const char *field, Entry &entry) {
    if (!startsWithDigit(field)) {
        radLogAs("radConfSetServers", kLogError,
                 "radConfSetServers: Invalid Port %s for server %s: \n", field, entry.host);
        return false;
    }
    entry.port = decimalValue(field);
    return true;
}

// A time-out or a retry count.
bool parseCount(const char *field, const char *what, const Entry &entry, int &count) {
    count = decimalValue(field);
    if (count != -1 && !startsWithDigit(field)) {
        radLogAs("radConfSetServers", kLogError,
                 "radConfSetServers: Invalid %s %s for server %s: \n", what, field, entry.host);
        return false;
    }
    return true;
}

// Takes one field. The last one is never taken for a number, as a secret may look like one.
bool parseField(const char *field, bool followedByMore, Entry &entry) {
    if (!entry.host) {
        entry.host = field;
    } else if (entry.port == -1 && followedByMore) {
        return parsePort(field, entry);
    } else if (entry.timeout == -1 && followedByMore) {
        return parseCount(field, "Timeout", entry, entry.timeout);
    } else if (entry.retries == -1 && followedByMore) {
        return parseCount(field, "Retry Count", entry, entry.retries);
    } else if (!entry.secret) {
        entry.secret = field;
    } else if (!entry.extra) {
        entry.extra = field;
    }
    return true;
}

// Splits an entry in place.
bool parseEntry(char *text, Entry &entry) {
    char *position = nullptr;
    const char *field = strtok_r(text, ":", &position);
    while (field) {
        const char *next = strtok_r(nullptr, ":", &position);
        if (!parseField(field, next != nullptr, entry)) {
            return false;
        }
        field = next;
    }
    return entry.secret != nullptr;
}

int addServer(const Entry &entry, uint32_t type) {
    return type == RAD_SERVER_AUTH ? radConfAddAuthServ(entry.host, entry.port, entry.timeout,
                                                        entry.retries, entry.secret, entry.extra)
                                   : radConfAddAcctServ(entry.host, entry.port, entry.timeout,
                                                        entry.retries, entry.secret);
}

}  // namespace
}  // namespace lanyard

using namespace lanyard;

int radConfSetServers(const char *text, uint32_t type) {
    if (!text || type > RAD_SERVER_ACCT) {
        return -1;
    }
    const size_t size = std::strlen(text) + 1;
    const auto copy = allocateSecret(size);
    if (!copy) {
        return -1;
    }
    std::memcpy(copy.get(), text, size);
    char *rest = reinterpret_cast<char *>(copy.get());
    while (char *token = strtok_r(rest, ", \t", &rest)) {
        Entry entry;
        if (!parseEntry(token, entry)) {
            return -1;
        }
        const int status = addServer(entry, type);
        if (status != 0) {
            return status;
        }
    }
    return 0;
}

// radConfSetServers() accepts the empty text; as the value of an option it is refused.
int radConfSetAuthServ(const char *text) {
    if (!text || !*text || radConf.options[RAD_CONF_AUTH_SERVERS].value) {
        return -1;
    }
    return radConfSetServers(text, RAD_SERVER_AUTH);
}

int radConfSetAcctServ(const char *text) {
    if (!text || !*text || radConf.options[RAD_CONF_ACCT_SERVERS].value) {
        return -1;
    }
    return radConfSetServers(text, RAD_SERVER_ACCT);
}
