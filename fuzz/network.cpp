#include "fuzz/network.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <palcore.h>

namespace lanyard::fuzz {
namespace {

constexpr int64_t kSecond = 1000000;
constexpr int64_t kHour = 3600 * kSecond;

// The same in every run, and never the same twice in one.
uint32_t chance = 0;

int draw(void * /*context*/, uint8_t *out, uint32_t length) {
    for (uint32_t i = 0; i < length; ++i) {
        out[i] = static_cast<uint8_t>((++chance * 0x9e3779b1U) >> 24);
    }
    return 0;
}

int newDescriptor() {
    const int fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    require(fd >= 0, "there is a descriptor");
    return fd;
}

}  // namespace

Network network;

void Network::begin(Sent sent) {
    sent_ = std::move(sent);
    ++networks_;
    address_ = "127." + std::to_string(1 + (networks_ >> 16) % 250) + '.' +
               std::to_string(networks_ >> 8 & 255) + '.' + std::to_string(networks_ & 255);
    now_ += kHour;
    chance = 0;
    require(palRandLibInit(draw, nullptr) == 0, "chance is ours");
}

void Network::end() {
    require(sockets_.empty() && sets_.empty() && timers_.empty(), "every descriptor is closed");
    sent_ = {};
}

void Network::deliver(int socket, Bytes datagram) {
    const auto place = sockets_.find(socket);
    if (place != sockets_.end()) {
        place->second.push_back({.datagram = std::move(datagram)});
    }
}

void Network::fail(int socket, int error) {
    const auto place = sockets_.find(socket);
    if (place != sockets_.end()) {
        place->second.push_back({.datagram = {}, .error = error});
    }
}

int Network::open() {
    const int fd = newDescriptor();
    sockets_[fd] = {};
    return fd;
}

void Network::close(int fd) {
    sockets_.erase(fd);
    timers_.erase(fd);
    sets_.erase(fd);
    for (auto &[set, members] : sets_) {
        members.erase(fd);
    }
    ::close(fd);
}

int Network::send(int fd, const void *bytes, size_t size) {
    require(sockets_.contains(fd), "who sends has a socket");
    return sent_(fd, {static_cast<const uint8_t *>(bytes), size});
}

ssize_t Network::receive(int fd, void *place, size_t size, bool stays) {
    auto &arrivals = sockets_.at(fd);
    if (arrivals.empty()) {
        errno = EAGAIN;
        return -1;
    }
    const Arrival first = arrivals.front();
    if (!stays || first.error != 0) {
        arrivals.pop_front();
    }
    if (first.error != 0) {
        errno = first.error;
        return -1;
    }
    const size_t count = std::min(size, first.datagram.size());
    std::copy_n(first.datagram.begin(), count, static_cast<uint8_t *>(place));
    return static_cast<ssize_t>(count);
}

bool Network::isReadable(int fd) const {
    const auto place = sockets_.find(fd);
    return place != sockets_.end() && !place->second.empty();
}

int Network::openSet() {
    const int fd = newDescriptor();
    sets_[fd] = {};
    return fd;
}

void Network::watch(int set, int fd, void *context) {
    sets_.at(set)[fd] = context;
}

void Network::forget(int set, int fd) {
    sets_.at(set).erase(fd);
}

void Network::setTimer(int fd, int64_t due) {
    timers_[fd] = due;
}

int64_t Network::alarm(int set) const {
    int64_t due = kNever;
    for (const auto &[fd, context] : sets_.at(set)) {
        const auto timer = timers_.find(fd);
        due = timer == timers_.end() ? due : std::min(due, timer->second);
    }
    return due;
}

bool Network::wait(int set, int64_t microseconds) {
    const auto &members = sets_.at(set);
    if (std::any_of(members.begin(), members.end(),
                    [this](const auto &member) { return isReadable(member.first); })) {
        return true;
    }
    const int64_t due = alarm(set);
    const int64_t until = microseconds < 0 ? kNever : now_ + microseconds;
    require(std::min(due, until) != kNever, "nobody waits for ever");
    now_ = std::max(now_, std::min(due, until));
    return due <= now_;
}

std::vector<void *> Network::await(int set, int64_t microseconds) {
    std::vector<void *> ready;
    if (!wait(set, microseconds)) {
        return ready;
    }
    for (const auto &[fd, context] : sets_.at(set)) {
        const auto timer = timers_.find(fd);
        if (isReadable(fd)) {
            ready.push_back(context);
        } else if (timer != timers_.end() && timer->second <= now_) {
            timer->second = kNever;
            ready.push_back(context);
        }
    }
    return ready;
}

}  // namespace lanyard::fuzz

using lanyard::fuzz::network;

namespace {

constexpr int64_t kNanosecondsPerMicrosecond = 1000;
constexpr int64_t kSecondInMicroseconds = 1000000;

int64_t inMicroseconds(const timespec &time) {
    return time.tv_sec * kSecondInMicroseconds + time.tv_nsec / kNanosecondsPerMicrosecond;
}

int64_t inMicroseconds(int milliseconds) {
    return milliseconds < 0 ? -1 : int64_t{milliseconds} * 1000;
}

int fromErrno(int error) {
    errno = error;
    return error == 0 ? 0 : -1;
}

}  // namespace

int socket(int /*domain*/, int /*type*/, int /*protocol*/) noexcept {
    return network.open();
}

int palClose(int fd) {
    network.close(fd);
    return 0;
}

int bind(int /*fd*/, const sockaddr * /*address*/, socklen_t /*size*/) noexcept {
    return 0;
}

int getsockname(int /*fd*/, sockaddr * /*address*/, socklen_t * /*size*/) noexcept {
    return 0;
}

int connect(int /*fd*/, const sockaddr * /*address*/, socklen_t /*size*/) {
    return 0;
}

ssize_t send(int fd, const void *buf, size_t n, int /*flags*/) {
    return fromErrno(network.send(fd, buf, n)) == 0 ? static_cast<ssize_t>(n) : -1;
}

ssize_t sendto(int fd, const void *buf, size_t n, int flags, const sockaddr * /*address*/,
               socklen_t /*addressSize*/) {
    return send(fd, buf, n, flags);
}

ssize_t recv(int fd, void *buf, size_t n, int flags) {
    return network.receive(fd, buf, n, (flags & MSG_PEEK) != 0);
}

ssize_t recvfrom(int fd, void *buf, size_t n, int flags, sockaddr * /*address*/,
                 socklen_t * /*addressSize*/) {
    return recv(fd, buf, n, flags);
}

// Of one socket, and not for ever.
int ppoll(pollfd *fds, nfds_t nfds, const timespec *timeout, const sigset_t * /*mask*/) {
    lanyard::fuzz::require(nfds == 1, "one socket is waited for");
    if (network.isReadable(fds->fd)) {
        fds->revents = POLLIN;
        return 1;
    }
    network.pass(inMicroseconds(*timeout));
    return 0;
}

// Of something that never waits, and a set.
int poll(pollfd *fds, nfds_t nfds, int timeout) {
    lanyard::fuzz::require(nfds == 2, "the bus and the loop are waited for");
    const bool isReadable = network.wait(fds[1].fd, inMicroseconds(timeout));
    fds[0].revents = POLLIN;
    fds[1].revents = isReadable ? POLLIN : 0;
    return isReadable ? 2 : 1;
}

int epoll_create1(int /*flags*/) noexcept {
    return network.openSet();
}

int epoll_ctl(int epfd, int op, int fd, epoll_event *event) noexcept {
    if (op == EPOLL_CTL_DEL) {
        network.forget(epfd, fd);
    } else {
        network.watch(epfd, fd, event->data.ptr);
    }
    return 0;
}

int epoll_wait(int epfd, epoll_event *events, int maxevents, int timeout) {
    int count = 0;
    for (void *context : network.await(epfd, inMicroseconds(timeout))) {
        if (count < maxevents) {
            events[count++] = {.events = EPOLLIN, .data = {.ptr = context}};
        }
    }
    return count;
}

int timerfd_create(int /*clock*/, int /*flags*/) noexcept {
    const int fd = lanyard::fuzz::newDescriptor();
    network.setTimer(fd, INT64_MAX);
    return fd;
}

int timerfd_settime(int ufd, int /*flags*/, const itimerspec *utmr, itimerspec * /*old*/) noexcept {
    network.setTimer(ufd, inMicroseconds(utmr->it_value));
    return 0;
}

int clock_gettime(clockid_t clock_id, timespec *tp) noexcept {
    if (clock_id != CLOCK_MONOTONIC) {
        return static_cast<int>(syscall(SYS_clock_gettime, clock_id, tp));
    }
    const int64_t now = network.now();
    *tp = {.tv_sec = now / kSecondInMicroseconds,
           .tv_nsec = now % kSecondInMicroseconds * kNanosecondsPerMicrosecond};
    return 0;
}
