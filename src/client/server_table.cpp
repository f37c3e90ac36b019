// The table of servers.
#include "client/server_table.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cstdlib>

#include <lanyard/radius/engine.h>
#include <lanyard/radius/error.h>
#include <lanyard/radius/frame.h>
#include <lanyard/radius/status.h>

#include "base/clock.h"
#include "base/lock.h"

namespace lanyard {
namespace {

constexpr size_t kServersMax = 32;
constexpr size_t kRoundTripsMax = 64;
constexpr size_t kStatesMax = 4096;
constexpr int kDefaultDeadTime = 60;  // seconds
constexpr size_t kSlowestPercentile = 95;

struct Server {
    uint32_t address = 0;  // network order; 0 for a free place
    uint16_t port = 0;     // network order
    bool dead = false;
    bool wasHeard = false;
    int64_t deadSince = 0;
    int64_t askAgain = 0;  // while dead
    int64_t lastUse = 0;
    int64_t lastHeard = 0;
    uint32_t answered = 0;  // round trips noted so far
    std::array<uint32_t, kRoundTripsMax> roundTrips{};
    RadServerStatus counters{};
};

// Where a State came from: a part of its hash, and the server's place plus 1.
struct StateOrigin {
    uint32_t check = 0;
    uint32_t place = 0;
};

struct Table {
    std::array<Server, kServersMax> servers;
    std::array<StateOrigin, kStatesMax> states;
};

constinit Mutex mutex;
// Made with the first server that is noted: 46 KiB that a program without resilient requests never
// needs. It outlives every partition, so it is not of one.
Table *table = nullptr;

std::span<Server> servers() {
    return table ? std::span<Server>(table->servers) : std::span<Server>();
}

Server *find(const sockaddr_in &address) {
    for (Server &server : servers()) {
        if (server.address == address.sin_addr.s_addr && server.port == address.sin_port) {
            return &server;
        }
    }
    return nullptr;
}

// The server's place, or a new one: a free one, else that of the server which was asked longest ago.
// Null when memory is exhausted: nothing is known of servers then.
Server *placeOf(const sockaddr_in &address) {
    if (!table) {
        table = static_cast<Table *>(std::calloc(1, sizeof(Table)));
        if (!table) {
            return nullptr;
        }
    }
    Server *known = find(address);
    if (!known) {
        known = std::min_element(
            table->servers.begin(), table->servers.end(),
            [](const Server &one, const Server &other) { return one.lastUse < other.lastUse; });
        const auto place = static_cast<uint32_t>(known - table->servers.data()) + 1;
        for (StateOrigin &state : table->states) {
            if (state.place == place) {
                state = {};
            }
        }
        *known = {.address = address.sin_addr.s_addr, .port = address.sin_port};
    }
    known->lastUse = monotonicMicroseconds();
    return known;
}

// 0 for none.
int64_t deadTime() {
    const int seconds = radOptionGet(RAD_OPTION_DEAD_TIME);
    return (seconds == 0 ? kDefaultDeadTime : std::max(0, seconds)) * kSecond;
}

// FNV-1a, 64 bits: fast, and a State that is made to collide only costs its own conversation the
// right server.
uint64_t hashOf(std::span<const uint8_t> bytes) {
    uint64_t hash = 0xcbf29ce484222325;
    for (const uint8_t byte : bytes) {
        hash = (hash ^ byte) * 0x100000001b3;
    }
    return hash;
}

StateOrigin &originOf(uint64_t hash) {
    return table->states[hash % kStatesMax];
}

uint32_t checkOf(uint64_t hash) {
    return static_cast<uint32_t>(hash >> 32);
}

uint64_t &counterOf(RadServerStatus &counters, uint8_t code) {
    switch (code) {
        case RAD_CODE_ACCESS_ACCEPT:
            return counters.accepts;
        case RAD_CODE_ACCESS_REJECT:
            return counters.rejects;
        case RAD_CODE_ACCESS_CHALLENGE:
            return counters.challenges;
        default:
            return counters.responses;
    }
}

uint64_t &strayCounterOf(RadServerStatus &counters, int32_t reason) {
    switch (reason) {
        case RAD_REASON_REPLY_IDENTIFIER:
            return counters.strays;
        case RAD_REASON_REPLY_AUTHENTICATOR:
        case RAD_REASON_REPLY_SIGNATURE:
        case RAD_REASON_REPLY_UNSIGNED:
            return counters.badAuthenticators;
        default:
            return counters.malformed;
    }
}

// For qsort(), which the C library has already: std::sort() is a kilobyte of code.
int compareNumbers(const void *one, const void *other) {
    const auto first = *static_cast<const uint32_t *>(one);
    const auto second = *static_cast<const uint32_t *>(other);
    return (first > second) - (first < second);
}

void describe(const Server &server, RadServerStatus &status) {
    status = server.counters;
    inet_ntop(AF_INET, &server.address, status.host, sizeof(status.host));
    status.port = ntohs(server.port);
    status.alive = server.dead ? 0 : 1;
    if (server.dead) {
        status.deadSeconds =
            static_cast<uint32_t>((monotonicMicroseconds() - server.deadSince) / kSecond);
    }
    auto sorted = server.roundTrips;
    const size_t count = std::min<size_t>(server.answered, sorted.size());
    if (count > 0) {
        std::qsort(sorted.data(), count, sizeof(uint32_t), compareNumbers);
        status.medianMicroseconds = sorted[count / 2];
        // The nearest rank: never less than the median.
        status.slowMicroseconds = sorted[(count * kSlowestPercentile + 99) / 100 - 1];
    }
}

}  // namespace

bool isAlive(const sockaddr_in &server) {
    const Lock lock(mutex);
    const Server *known = find(server);
    return !known || !known->dead;
}

bool claimProbe(const sockaddr_in &server, int64_t now) {
    const Lock lock(mutex);
    Server *known = find(server);
    if (!known || !known->dead || now < known->askAgain) {
        return false;
    }
    known->askAgain = now + std::max(deadTime(), kSecond);
    return true;
}

void noteSent(const sockaddr_in &server, bool again) {
    const Lock lock(mutex);
    Server *known = placeOf(server);
    if (known && again) {
        ++known->counters.retransmissions;
    } else if (known) {
        ++known->counters.requests;
        ++known->counters.pending;
    }
}

void noteLeft(const sockaddr_in &server) {
    const Lock lock(mutex);
    Server *known = find(server);
    if (known && known->counters.pending > 0) {
        --known->counters.pending;
    }
}

void noteHeard(const sockaddr_in &server, int64_t now) {
    const Lock lock(mutex);
    if (Server *known = placeOf(server)) {
        known->wasHeard = true;
        known->lastHeard = now;
    }
}

void noteReply(const sockaddr_in &server, uint8_t code, int64_t roundTrip) {
    const Lock lock(mutex);
    if (Server *known = placeOf(server)) {
        known->dead = false;
        ++counterOf(known->counters, code);
        known->roundTrips[known->answered++ % kRoundTripsMax] = static_cast<uint32_t>(roundTrip);
    }
}

void noteStray(const sockaddr_in &server, int32_t reason) {
    const Lock lock(mutex);
    if (Server *known = placeOf(server)) {
        ++strayCounterOf(known->counters, reason);
    }
}

void noteTimeout(const sockaddr_in &server) {
    const Lock lock(mutex);
    if (Server *known = placeOf(server)) {
        ++known->counters.timeouts;
    }
}

void noteSilence(const sockaddr_in &server, int64_t since, int64_t now) {
    const int64_t life = deadTime();
    const Lock lock(mutex);
    Server *known = placeOf(server);
    if (!known || (known->wasHeard && known->lastHeard >= since) || life == 0) {
        return;
    }
    if (!known->dead) {
        known->dead = true;
        known->deadSince = now;
    }
    known->askAgain = now + life;
}

void noteState(std::span<const uint8_t> state, const sockaddr_in &server) {
    const uint64_t hash = hashOf(state);
    const Lock lock(mutex);
    if (const Server *known = placeOf(server)) {
        originOf(hash) = {.check = checkOf(hash),
                          .place = static_cast<uint32_t>(known - table->servers.data()) + 1};
    }
}

bool findStateOrigin(std::span<const uint8_t> state, sockaddr_in &server) {
    const uint64_t hash = hashOf(state);
    const Lock lock(mutex);
    const StateOrigin origin = table ? originOf(hash) : StateOrigin();
    if (origin.place == 0 || origin.check != checkOf(hash)) {
        return false;
    }
    const Server &known = table->servers[origin.place - 1];
    server.sin_addr.s_addr = known.address;
    server.sin_port = known.port;
    return true;
}

}  // namespace lanyard

using namespace lanyard;

int radServerStatusAt(int index, RadServerStatus *status) {
    if (!status || index < 0) {
        return -1;
    }
    const Lock lock(mutex);
    for (const Server &server : servers()) {
        if (server.address != 0 && index-- == 0) {
            describe(server, *status);
            return 0;
        }
    }
    return -1;
}
