// Finding the servers of a request, and copying them.
#include "client/server_choice.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstring>
#include <limits>
#include <new>
#include <span>

#include <palcore.h>

#include "base/clock.h"
#include "base/log.h"
#include "base/partition.h"
#include "client/resolver.h"
#include "conf/store.h"

namespace lanyard {
namespace {

constexpr int64_t kNamesLife = 60 * kSecond;
constexpr int64_t kFailureLife = kSecond;

// The texts of a server, for those that treat all of them alike.
std::array<const char *, 3> textsOf(const RadServer &server) {
    return {server.host, server.secret, server.extra};
}

size_t roomFor(const ServerChoice &choice) {
    size_t size = 0;
    for (size_t index = 0; index < choice.count; ++index) {
        for (const char *text : textsOf(choice.servers[choice.order[index]])) {
            size += text ? std::strlen(text) + 1 : 0;
        }
    }
    return size;
}

// Copies a text to the front of the room, and takes that from it.
char *copyInto(std::span<char> &room, const char *text) {
    if (!text) {
        return nullptr;
    }
    const size_t size = std::strlen(text) + 1;
    char *copy = room.data();
    std::memcpy(copy, text, size);
    room = room.subspan(size);
    return copy;
}

bool sameText(const char *one, const char *other) {
    return one && other ? std::strcmp(one, other) == 0 : one == other;
}

bool sameServer(const RadServer &one, const RadServer &other) {
    return one.port == other.port && one.timeout == other.timeout && one.retries == other.retries &&
           sameText(one.host, other.host) && sameText(one.secret, other.secret) &&
           sameText(one.extra, other.extra);
}

// 0 for what is no address of a host.
in_addr_t hostAddress(in_addr_t found) {
    return found == INADDR_NONE ? 0 : found;
}

}  // namespace

ServerDefaults serverDefaults() {
    const int32_t *timeout = defaultTimeout();
    return {.timeout = timeout, .retries = defaultRetries()};
}

bool findServers(const char *function, int code, const ServerDefaults &defaults,
                 ServerChoice &choice, Outcome &outcome) {
    if (code != RAD_CODE_ACCESS_REQUEST && code != RAD_CODE_ACCOUNTING_REQUEST) {
        radLogAs(function, kLogError, "radBuildAndSendReq: Invalid Request Code %d\n", code);
        failAt(outcome, RAD_STEP_PREPARE, RAD_REASON_REQUEST_CODE);
        return false;
    }
    const ServerList list = code == RAD_CODE_ACCOUNTING_REQUEST ? acctServers() : authServers();
    if (!list.slots || list.count < 1 || !defaults.timeout || !defaults.retries) {
        radLogAs(function, kLogError, "radBuildAndSendReq: RADIUS is not configured properly\n");
        failAt(outcome, RAD_STEP_PREPARE, RAD_REASON_NOT_CONFIGURED);
        return false;
    }
    choice = {
        .servers = list.slots->data(), .timeout = *defaults.timeout, .retries = *defaults.retries};
    // Skips empty slots; as many servers as the count says.
    for (uint8_t slot = 0; slot < list.slots->size() && choice.count < list.count; ++slot) {
        if ((*list.slots)[slot].host) {
            choice.order[choice.count++] = slot;
        }
    }
    return true;
}

ServerSet::Owner ServerSet::copy(const ServerChoice &choice, bool addsIdentity) {
    const size_t texts = roomFor(choice);
    const size_t size = sizeof(ServerSet) + texts;
    if (size > std::numeric_limits<uint32_t>::max()) {
        return nullptr;
    }
    void *block = palMemPartAlloc(radMemPartId, static_cast<uint32_t>(size));
    if (!block) {
        return nullptr;
    }
    Owner set(new (block) ServerSet);
    set->size_ = size;
    set->expiry_ = std::numeric_limits<int64_t>::max();
    set->choice_ = choice;
    set->choice_.servers = set->servers_.data();
    std::span<char> room(static_cast<char *>(block) + sizeof(ServerSet), texts);
    for (uint8_t index = 0; index < choice.count; ++index) {
        RadServer &server = set->servers_[index];
        server = choice.servers[choice.order[index]];
        server.host = copyInto(room, server.host);
        server.secret = copyInto(room, server.secret);
        server.extra = copyInto(room, server.extra);
        set->choice_.order[index] = index;

        sockaddr_in &address = set->addresses_[index];
        address.sin_family = AF_INET;
        address.sin_port = htons(server.port);
        if (!server.host || !readDotted(server.host, address.sin_addr.s_addr)) {
            address.sin_addr.s_addr = hostAddress(radGetIPByName(server.host));
            set->expiry_ = monotonicMicroseconds() + kNamesLife;
        }
    }
    const auto places = std::span(set->choice_.order).first(choice.count);
    const auto isNamed = [&](uint8_t index) { return !addsIdentity || set->servers_[index].extra; };
    if (!std::all_of(places.begin(), places.end(), isNamed)) {
        set->ownAddress_ = hostAddress(lanyard::ownAddress());
        set->expiry_ = monotonicMicroseconds() + kNamesLife;
    }
    const auto canBeAsked = [&](uint8_t index) {
        return set->addresses_[index].sin_addr.s_addr != 0 &&
               (isNamed(index) || set->ownAddress_ != 0);
    };
    // A network that comes up is not waited for longer than that.
    if (std::none_of(places.begin(), places.end(), canBeAsked)) {
        set->expiry_ = monotonicMicroseconds() + kFailureLife;
    }
    return set;
}

bool ServerSet::isCopyOf(const ServerChoice &choice, int64_t now) const {
    if (now >= expiry_ || choice.count != choice_.count || choice.timeout != choice_.timeout ||
        choice.retries != choice_.retries) {
        return false;
    }
    for (size_t index = 0; index < choice.count; ++index) {
        if (!sameServer(choice.servers[choice.order[index]], servers_[index])) {
            return false;
        }
    }
    return true;
}

void ServerSet::release() {
    if (--owners_ == 0) {
        const size_t size = size_;
        explicit_bzero(this, size);
        palMemPartFree(radMemPartId, this);
    }
}

}  // namespace lanyard
