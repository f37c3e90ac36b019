// The servers of a request.
#ifndef LANYARD_CLIENT_SERVER_CHOICE_H
#define LANYARD_CLIENT_SERVER_CHOICE_H

#include <array>
#include <cstdint>
#include <memory>
#include <netinet/in.h>

#include <lanyard/radius/conf.h>
#include <lanyard/radius/engine.h>

#include "client/last_error.h"

namespace lanyard {

inline bool isSame(const sockaddr_in &one, const sockaddr_in &other) {
    return one.sin_addr.s_addr == other.sin_addr.s_addr && one.sin_port == other.sin_port;
}

// Which of the servers are asked, in this order.
struct ServerChoice {
    const RadServer *servers = nullptr;
    std::array<uint8_t, RAD_SERVERS_MAX> order = {};
    uint8_t count = 0;
    int32_t timeout = 0;  // defaults, for servers that have none of their own
    int32_t retries = 0;
};

// What servers have that have none of their own; null while it is not configured.
struct ServerDefaults {
    const int32_t *timeout;
    const int32_t *retries;
};
ServerDefaults serverDefaults();

// The configured servers for a request code, as they stand in the configuration. False, with the
// reason logged and in `outcome`, when there is none to ask.
bool findServers(const char *function, int code, const ServerDefaults &defaults,
                 ServerChoice &choice, Outcome &outcome);

// A copy of servers with their addresses, for requests that outlive a change of the configuration.
// Requests share it. It lives in one block of the partition, texts and secrets included.
class ServerSet {
  public:
    struct Release {
        void operator()(ServerSet *set) const { set->release(); }
    };
    using Owner = std::unique_ptr<ServerSet, Release>;

    // Null when memory is exhausted. Names are resolved here; this device's own one too, where requests
    // are to say who asks and a server is told no NAS-Identifier.
    static Owner copy(const ServerChoice &choice, bool addsIdentity = true);

    Owner share() {
        ++owners_;
        return Owner(this);
    }

    // Whether a copy of that would be the same. One with addresses of names is not for ever, and one
    // that leaves nobody to ask for a second only.
    [[nodiscard]] bool isCopyOf(const ServerChoice &choice, int64_t now) const;

    const ServerChoice &choice() const { return choice_; }
    // This device's, for servers that are told no NAS-Identifier.
    const uint32_t &ownAddress() const { return ownAddress_; }
    // 0.0.0.0 when the name has none.
    const sockaddr_in &address(size_t index) const { return addresses_[index]; }

    ServerSet(const ServerSet &) = delete;
    ServerSet &operator=(const ServerSet &) = delete;

  private:
    ServerSet() = default;
    void release();

    uint32_t owners_ = 1;
    size_t size_ = 0;  // bytes of the block
    int64_t expiry_ = 0;
    uint32_t ownAddress_ = 0;
    ServerChoice choice_;
    std::array<RadServer, RAD_SERVERS_MAX> servers_{};
    std::array<sockaddr_in, RAD_SERVERS_MAX> addresses_{};
};

}  // namespace lanyard

#endif
