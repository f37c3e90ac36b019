#include "tests/support/udp_proxy.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <csignal>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/timerfd.h>

namespace lanyard::test {
namespace {

constexpr size_t kDatagramMax = 65536;
constexpr int kRoom = 8 << 20;  // for a burst
constexpr int kAtOnce = 64;     // datagrams of a socket before others have their turn
constexpr size_t kClientsMost = 4096;

sockaddr_in addressOf(const UdpProxy::Place &place) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(place.port);
    if (inet_pton(AF_INET, place.host.c_str(), &address.sin_addr) != 1) {
        throw std::invalid_argument("no IPv4 address: " + place.host);
    }
    return address;
}

const sockaddr *generic(const sockaddr_in &address) {
    return reinterpret_cast<const sockaddr *>(&address);
}

FileDescriptor newSocket() {
    FileDescriptor made(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0), "socket");
    // The first goes beyond the system's limit, and needs the right to.
    if (setsockopt(made.get(), SOL_SOCKET, SO_RCVBUFFORCE, &kRoom, sizeof kRoom) != 0) {
        checked(setsockopt(made.get(), SOL_SOCKET, SO_RCVBUF, &kRoom, sizeof kRoom), "SO_RCVBUF");
    }
    return made;
}

sockaddr_in ownAddress(int socket) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    checked(getsockname(socket, reinterpret_cast<sockaddr *>(&address), &size), "getsockname");
    return address;
}

FileDescriptor listenAt(sockaddr_in address) {
    const bool anyPort = address.sin_port == 0;
    for (int tries = 0;; ++tries) {
        if (anyPort) {
            const FileDescriptor finder = newSocket();
            address.sin_port = 0;
            checked(bind(finder.get(), generic(address), sizeof address), "bind");
            address.sin_port = ownAddress(finder.get()).sin_port;
        }
        // Only a socket that was bound to a number keeps it when it is disconnected, see refuse().
        FileDescriptor made = newSocket();
        if (bind(made.get(), generic(address), sizeof address) == 0) {
            return made;
        }
        // Somebody else may have taken a free port meanwhile.
        if (!anyPort || errno != EADDRINUSE || tries == 10) {
            checked(-1, "bind");
        }
    }
}

// A share of the descriptors that this process may have.
size_t clientsThatFit() {
    rlimit limit{};
    checked(getrlimit(RLIMIT_NOFILE, &limit), "getrlimit");
    return std::clamp<size_t>(limit.rlim_cur / 2, 16, kClientsMost);
}

std::optional<std::string_view> userName(std::span<const uint8_t> request) {
    constexpr size_t kAttributes = 20;  // after the header
    constexpr uint8_t kUserName = 1;
    for (size_t at = kAttributes; at + 2 <= request.size();) {
        const size_t length = request[at + 1];
        if (length < 2 || at + length > request.size()) {
            break;
        }
        if (request[at] == kUserName) {
            return std::string_view(reinterpret_cast<const char *>(&request[at]) + 2, length - 2);
        }
        at += length;
    }
    return std::nullopt;
}

timespec toTimespec(std::chrono::nanoseconds time) {
    const auto seconds = std::chrono::floor<std::chrono::seconds>(time);
    return {.tv_sec = static_cast<time_t>(seconds.count()),
            .tv_nsec = static_cast<long>((time - seconds).count())};
}

}  // namespace

UdpProxy::UdpProxy(const Place &server, const Place &listen, uint32_t seed)
    : host_(listen.host),
      server_(addressOf(server)),
      listener_(listenAt(addressOf(listen))),
      port_(ntohs(ownAddress(listener_.get()).sin_port)),
      events_(epoll_create1(EPOLL_CLOEXEC), "epoll_create1"),
      timer_(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK), "timerfd_create"),
      stop_(eventfd(0, EFD_CLOEXEC), "eventfd"),
      clientsMax_(clientsThatFit()),
      link_(seed),
      forger_(seed) {
    for (const int socket : {listener_.get(), timer_.get(), stop_.get()}) {
        watch(socket);
    }
    // Signals of the process are for its other threads.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    thread_ = std::thread([this] { run(); });
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

UdpProxy::~UdpProxy() {
    eventfd_write(stop_.get(), 1);
    thread_.join();
}

void UdpProxy::set(const ProxySettings &settings) {
    const std::lock_guard lock(mutex_);
    const bool refuses = settings.state == ServerState::kRefused;
    if (refuses != (settings_.state == ServerState::kRefused)) {
        refuse(refuses);
    }
    settings_ = settings;
}

ProxySettings UdpProxy::settings() const {
    const std::lock_guard lock(mutex_);
    return settings_;
}

ProxyCounters UdpProxy::counters() const {
    const std::lock_guard lock(mutex_);
    return counters_;
}

// A connected socket takes datagrams of its peer alone. With itself for a peer, all others are refused.
void UdpProxy::refuse(bool yes) {
    sockaddr_in peer = ownAddress(listener_.get());
    if (!yes) {
        peer.sin_family = AF_UNSPEC;
    }
    checked(connect(listener_.get(), generic(peer), sizeof peer), "connect");
}

void UdpProxy::watch(int socket) {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = socket;
    checked(epoll_ctl(events_.get(), EPOLL_CTL_ADD, socket, &event), "epoll_ctl");
}

void UdpProxy::run() {
    for (;;) {
        std::array<epoll_event, 64> ready{};
        const int count =
            epoll_wait(events_.get(), ready.data(), static_cast<int>(ready.size()), -1);
        const std::lock_guard lock(mutex_);
        for (int i = 0; i < count; ++i) {
            const int socket = ready[static_cast<size_t>(i)].data.fd;
            if (socket == stop_.get()) {
                return;
            }
            if (socket == listener_.get()) {
                receiveRequests();
            } else if (socket != timer_.get()) {
                receiveReplies(socket);
            }
        }
        deliverDue();
        awaitNext();
    }
}

void UdpProxy::receiveRequests() {
    std::array<uint8_t, kDatagramMax> buffer;
    for (int i = 0; i < kAtOnce; ++i) {
        sockaddr_in source{};
        socklen_t size = sizeof source;
        const ssize_t length = recvfrom(listener_.get(), buffer.data(), buffer.size(), 0,
                                        reinterpret_cast<sockaddr *>(&source), &size);
        if (length < 0) {
            // Word of a client that is gone; the next datagram waits after it.
            if (errno == ECONNREFUSED) {
                continue;
            }
            return;
        }
        const std::span<const uint8_t> request(buffer.data(), static_cast<size_t>(length));
        ++counters_.requests;
        if (settings_.state != ServerState::kAlive) {
            ++counters_.swallowed;
        } else if (!settings_.ignoredUser.empty() && userName(request) == settings_.ignoredUser) {
            ++counters_.ignored;
        } else {
            const Client client(source.sin_addr.s_addr, source.sin_port);
            flood(client, request);
            send(Way::kToServer, client, request);
        }
    }
}

void UdpProxy::flood(const Client &client, std::span<const uint8_t> request) {
    if (request.size() < 2) {
        return;
    }
    auto arrival = Clock::now() + settings_.toClient;
    for (int i = 0; i < settings_.flood; ++i) {
        ++counters_.forged;
        deliveries_.emplace(arrival, Delivery{Way::kToClient, client, forgedAccept(request[1])});
        arrival += kFloodGap;
    }
}

void UdpProxy::receiveReplies(int socket) {
    std::array<uint8_t, kDatagramMax> buffer;
    for (int i = 0; i < kAtOnce; ++i) {
        // The socket may have been closed for another client's sake since it was found ready.
        const auto client = clients_.find(socket);
        if (client == clients_.end()) {
            return;
        }
        const ssize_t length = recv(socket, buffer.data(), buffer.size(), 0);
        if (length < 0) {
            if (errno == ECONNREFUSED) {
                continue;
            }
            return;
        }
        const std::span<const uint8_t> reply(buffer.data(), static_cast<size_t>(length));
        ++counters_.replies;
        if (settings_.state != ServerState::kAlive) {
            ++counters_.swallowed;
            continue;
        }
        if (const auto forged = forger_.forge(settings_.forgery, reply, settings_.forgedShare)) {
            ++counters_.forged;
            // It comes safely and just before the reply, however bad the link is.
            deliveries_.emplace(Clock::now() + settings_.toClient,
                                Delivery{Way::kToClient, client->second, *forged});
        }
        send(Way::kToClient, client->second, reply);
    }
}

void UdpProxy::send(Way way, const Client &client, std::span<const uint8_t> datagram) {
    const auto arrival =
        Clock::now() + (way == Way::kToServer ? settings_.toServer : settings_.toClient);
    std::vector<Passing> all = link_.pass(datagram, settings_.faults);
    counters_.lost += all.empty() ? 1 : 0;
    for (Passing &passing : all) {
        deliveries_.emplace(arrival + passing.heldBack,
                            Delivery{way, client, std::move(passing.datagram)});
    }
}

void UdpProxy::deliverDue() {
    while (!deliveries_.empty() && deliveries_.begin()->first <= Clock::now()) {
        deliver(deliveries_.extract(deliveries_.begin()).mapped());
    }
}

// What cannot be sent is lost, as on any network.
void UdpProxy::deliver(const Delivery &delivery) {
    const Datagram &datagram = delivery.datagram;
    if (delivery.way == Way::kToClient) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = delivery.client.first;
        address.sin_port = delivery.client.second;
        (void)sendto(listener_.get(), datagram.data(), datagram.size(), 0, generic(address),
                     sizeof address);
        return;
    }
    const int socket = upstreamOf(delivery.client);
    // An earlier datagram may have been refused: the first call tells, and does not send.
    if (::send(socket, datagram.data(), datagram.size(), 0) < 0 && errno == ECONNREFUSED) {
        (void)::send(socket, datagram.data(), datagram.size(), 0);
    }
}

// The client's socket to the server; -1 for none.
int UdpProxy::upstreamOf(const Client &client) {
    const auto known = upstreams_.find(client);
    if (known != upstreams_.end()) {
        uses_.splice(uses_.end(), uses_, known->second.use);
        return known->second.socket.get();
    }
    if (upstreams_.size() >= clientsMax_) {
        const auto oldest = upstreams_.find(uses_.front());
        clients_.erase(oldest->second.socket.get());
        upstreams_.erase(oldest);
        uses_.pop_front();
    }
    FileDescriptor made = newSocket();
    if (connect(made.get(), generic(server_), sizeof server_) != 0) {
        return -1;  // there is no way there; another time there may be
    }
    watch(made.get());
    const int socket = made.get();
    clients_.emplace(socket, client);
    upstreams_.emplace(client, Upstream{std::move(made), uses_.insert(uses_.end(), client)});
    return socket;
}

void UdpProxy::awaitNext() {
    // All zero disarms it; a time that is over makes it ready at once.
    itimerspec when{};
    if (!deliveries_.empty()) {
        when.it_value = toTimespec(deliveries_.begin()->first.time_since_epoch());
    }
    checked(timerfd_settime(timer_.get(), TFD_TIMER_ABSTIME, &when, nullptr), "timerfd_settime");
}

}  // namespace lanyard::test
