// The configuration, as the files of this folder share it.
#ifndef LANYARD_CONF_STORE_H
#define LANYARD_CONF_STORE_H

#include <array>
#include <cstdint>

#include <lanyard/radius/conf.h>

namespace lanyard {

// One option of the configuration file. `value` is what radConfGet() returns, null while unset.
struct ConfOption {
    const char *keyword;
    void *value;
    int (*set)(const char *text);
    int (*del)();
};

// A slot that holds no server.
constexpr RadServer kFreeSlot = {.host = nullptr,
                                 .port = 0xFFFF,
                                 .timeout = -1,
                                 .retries = -1,
                                 .secret = nullptr,
                                 .extra = nullptr,
                                 .rowKey = -1,
                                 .rowId = -1};

using ServerSlots = std::array<RadServer, RAD_SERVERS_MAX>;

constexpr ServerSlots freeSlots() {
    ServerSlots slots{};
    slots.fill(kFreeSlot);
    return slots;
}

struct RadConf {
    std::array<ConfOption, 5> options;
    ServerSlots authServers;
    ServerSlots acctServers;
    uint32_t authCount;
    uint32_t acctCount;
};

extern RadConf radConf;

// What the rest of the library asks, typed: null while unset, which is logged as radConfGet() logs
// it.
const int32_t *defaultTimeout();
const int32_t *defaultRetries();

// One kind of servers: the slots, null while there is none, and how many of them hold a server.
struct ServerList {
    const ServerSlots *slots;
    uint32_t count;
};

ServerList authServers();
ServerList acctServers();

}  // namespace lanyard

#endif
