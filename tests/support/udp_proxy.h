// A UDP proxy that stands between RADIUS clients and a server, and is as far, as unreliable, as hostile or as
// dead as it is told to be.
//
//     UdpProxy proxy({server.host(), server.port()});
//     proxy.set({.toServer = 25ms, .toClient = 25ms, .faults = {.loss = 0.01}});
//     ... the client uses proxy.host() and proxy.port() ...
//     proxy.set({.state = ServerState::kSilent});   // the server dies
//
// Every client, an address and a port, has a socket of its own to the server, so that the server tells
// clients apart as it would without the proxy. Of clients that have been silent longest the sockets are closed
// when there are too many.
//
// The proxy has a thread of its own, which ends with the object; nothing sleeps for a datagram, any number may
// be under way. It works in the network namespace of the thread that makes it. All functions may be called
// from any thread. IPv4 only.
#ifndef LANYARD_TESTS_SUPPORT_UDP_PROXY_H
#define LANYARD_TESTS_SUPPORT_UDP_PROXY_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <mutex>
#include <netinet/in.h>
#include <span>
#include <string>
#include <thread>
#include <utility>

#include "tests/support/reply_forger.h"
#include "tests/support/unreliable_link.h"
#include "tools/file_descriptor.h"

namespace lanyard::test {

enum class ServerState {
    kAlive,
    kSilent,   // swallows everything
    kRefused,  // nobody is there, and clients are told so (ICMP port unreachable)
};

struct ProxySettings {
    std::chrono::microseconds toServer{0};  // how long a datagram is under way
    std::chrono::microseconds toClient{0};
    LinkFaults faults = {};  // on both ways
    Forgery forgery = Forgery::kNone;
    double forgedShare = 1;  // of the replies, that have a forged one ahead of them
    int flood = 0;           // forged accepts that every request is answered with, kFloodGap apart
    std::string ignoredUser = {};  // its requests, by their User-Name, are swallowed; "" for nobody
    ServerState state = ServerState::kAlive;
};

struct ProxyCounters {
    uint64_t requests = 0;   // from clients
    uint64_t replies = 0;    // from the server
    uint64_t lost = 0;       // datagrams that the link lost
    uint64_t ignored = 0;    // requests of the ignored user
    uint64_t swallowed = 0;  // datagrams of either side while the server is not alive
    uint64_t forged = 0;
};

class UdpProxy {
  public:
    struct Place {
        std::string host;  // dotted
        uint16_t port = 0;
    };

    static constexpr std::chrono::milliseconds kFloodGap{10};

    // Port 0 to listen on is a free one. Throws std::system_error, and std::invalid_argument for a host that is
    // no address.
    explicit UdpProxy(const Place &server, const Place &listen = {"127.0.0.1", 0},
                      uint32_t seed = 1);
    ~UdpProxy();
    UdpProxy(const UdpProxy &) = delete;
    UdpProxy &operator=(const UdpProxy &) = delete;
    UdpProxy(UdpProxy &&) = delete;
    UdpProxy &operator=(UdpProxy &&) = delete;

    [[nodiscard]] const std::string &host() const { return host_; }
    [[nodiscard]] uint16_t port() const { return port_; }

    // Datagrams under way arrive as they were to arrive before.
    void set(const ProxySettings &settings);
    [[nodiscard]] ProxySettings settings() const;
    [[nodiscard]] ProxyCounters counters() const;

  private:
    using Clock = std::chrono::steady_clock;
    using Client = std::pair<in_addr_t, in_port_t>;  // in network byte order
    enum class Way { kToServer, kToClient };

    struct Upstream {
        FileDescriptor socket;
        std::list<Client>::iterator use;  // in uses_
    };
    struct Delivery {
        Way way = Way::kToServer;
        Client client = {};
        Datagram datagram = {};
    };

    void run();
    void receiveRequests();
    void receiveReplies(int socket);
    void flood(const Client &client, std::span<const uint8_t> request);
    void send(Way way, const Client &client, std::span<const uint8_t> datagram);
    void deliverDue();
    void deliver(const Delivery &delivery);
    void awaitNext();
    int upstreamOf(const Client &client);
    void watch(int socket);
    void refuse(bool yes);

    const std::string host_;
    const sockaddr_in server_;
    const FileDescriptor listener_;
    const uint16_t port_;
    const FileDescriptor events_;
    const FileDescriptor timer_;
    const FileDescriptor stop_;
    const size_t clientsMax_;

    mutable std::mutex mutex_;
    ProxySettings settings_;
    ProxyCounters counters_;

    // The thread's own.
    UnreliableLink link_;
    ReplyForger forger_;
    std::map<Client, Upstream> upstreams_;
    std::map<int, Client> clients_;  // by the socket to the server
    std::list<Client> uses_;         // the longest silent first
    std::multimap<Clock::time_point, Delivery> deliveries_;
    std::thread thread_;
};

}  // namespace lanyard::test

#endif
