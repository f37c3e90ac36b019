#include "tests/unit/client/system_calls.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <map>
#include <netdb.h>
#include <optional>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <unistd.h>
#include <utility>

#include "tests/support/failing_call.h"

namespace lanyard::test {
namespace {

std::optional<std::string> hostName;
std::map<std::string, std::string> resolverEntries;
int resolverCallCount = 0;

constexpr int64_t kNanoseconds = 1000000000;
constinit thread_local int64_t clockAhead = 0;  // nanoseconds
int64_t furthestAhead = 0;

timespec shifted(const timespec &time, int64_t by) {
    const int64_t sum = time.tv_sec * kNanoseconds + time.tv_nsec + by;
    return {.tv_sec = static_cast<time_t>(sum / kNanoseconds),
            .tv_nsec = static_cast<long>(sum % kNanoseconds)};
}

bool isDotted(const char *name) {
    in_addr address{};
    return inet_pton(AF_INET, name, &address) == 1;
}

}  // namespace

HostName::HostName(const std::string &name) {
    hostName = name;
}

HostName::~HostName() {
    hostName.reset();
}

ResolverEntry::ResolverEntry(const std::string &name, const std::string &dotted) : name_(name) {
    resolverEntries[name] = dotted;
}

ResolverEntry::~ResolverEntry() {
    resolverEntries.erase(name_);
}

int resolverCalls() {
    return resolverCallCount;
}

ClockAhead::ClockAhead() {
    clockAhead = furthestAhead;
}

ClockAhead::~ClockAhead() {
    furthestAhead = std::exchange(clockAhead, 0);
}

void ClockAhead::advance(double seconds) const {
    clockAhead += static_cast<int64_t>(seconds * static_cast<double>(kNanoseconds));
}

}  // namespace lanyard::test

using lanyard::test::following;
using lanyard::test::strikes;

int socket(int domain, int type, int protocol) noexcept {
    static auto *const real = following<decltype(socket)>("socket");
    return strikes("socket") ? -1 : real(domain, type, protocol);
}

int bind(int fd, const sockaddr *addr, socklen_t len) noexcept {
    static auto *const real = following<decltype(bind)>("bind");
    return strikes("bind") ? -1 : real(fd, addr, len);
}

int getsockname(int fd, sockaddr *addr, socklen_t *len) noexcept {
    static auto *const real = following<decltype(getsockname)>("getsockname");
    return strikes("getsockname") ? -1 : real(fd, addr, len);
}

ssize_t sendto(int fd, const void *buf, size_t n, int flags, const sockaddr *addr,
               socklen_t addr_len) {
    static auto *const real = following<decltype(sendto)>("sendto");
    return strikes("sendto") ? -1 : real(fd, buf, n, flags, addr, addr_len);
}

ssize_t recvfrom(int fd, void *buf, size_t n, int flags, sockaddr *addr, socklen_t *addr_len) {
    static auto *const real = following<decltype(recvfrom)>("recvfrom");
    return strikes("recvfrom") ? -1 : real(fd, buf, n, flags, addr, addr_len);
}

int connect(int fd, const sockaddr *addr, socklen_t len) {
    static auto *const real = following<decltype(connect)>("connect");
    return strikes("connect") ? -1 : real(fd, addr, len);
}

ssize_t send(int fd, const void *buf, size_t n, int flags) {
    static auto *const real = following<decltype(send)>("send");
    return strikes("send") ? -1 : real(fd, buf, n, flags);
}

ssize_t recv(int fd, void *buf, size_t n, int flags) {
    static auto *const real = following<decltype(recv)>("recv");
    return strikes("recv") ? -1 : real(fd, buf, n, flags);
}

int epoll_create1(int flags) noexcept {
    static auto *const real = following<decltype(epoll_create1)>("epoll_create1");
    return strikes("epoll_create1") ? -1 : real(flags);
}

int epoll_ctl(int epfd, int op, int fd, epoll_event *event) noexcept {
    static auto *const real = following<decltype(epoll_ctl)>("epoll_ctl");
    return strikes("epoll_ctl") ? -1 : real(epfd, op, fd, event);
}

int epoll_wait(int epfd, epoll_event *events, int maxevents, int timeout) {
    static auto *const real = following<decltype(epoll_wait)>("epoll_wait");
    return strikes("epoll_wait") ? -1 : real(epfd, events, maxevents, timeout);
}

int timerfd_create(int clock_id, int flags) noexcept {
    static auto *const real = following<decltype(timerfd_create)>("timerfd_create");
    return strikes("timerfd_create") ? -1 : real(clock_id, flags);
}

int timerfd_settime(int ufd, int flags, const itimerspec *utmr, itimerspec *otmr) noexcept {
    static auto *const real = following<decltype(timerfd_settime)>("timerfd_settime");
    if (strikes("timerfd_settime")) {
        return -1;
    }
    itimerspec set = *utmr;
    set.it_value = lanyard::test::shifted(set.it_value, -lanyard::test::clockAhead);
    if (set.it_value.tv_sec < 0 || (set.it_value.tv_sec == 0 && set.it_value.tv_nsec <= 0)) {
        set.it_value = {.tv_sec = 0, .tv_nsec = 1};
    }
    return real(ufd, flags, &set, otmr);
}

int clock_gettime(clockid_t clock_id, timespec *tp) noexcept {
    static auto *const real = following<decltype(clock_gettime)>("clock_gettime");
    const int status = real(clock_id, tp);
    if (status == 0 && clock_id == CLOCK_MONOTONIC) {
        *tp = lanyard::test::shifted(*tp, lanyard::test::clockAhead);
    }
    return status;
}

int gethostname(char *name, size_t len) noexcept {
    static auto *const real = following<decltype(gethostname)>("gethostname");
    if (strikes("gethostname")) {
        return -1;
    }
    if (!lanyard::test::hostName) {
        return real(name, len);
    }
    std::strncpy(name, lanyard::test::hostName->c_str(), len);
    return 0;
}

int gethostbyname_r(const char *name, hostent *result_buf, char *buf, size_t buflen,
                    hostent **result, int *h_errnop) {
    static auto *const real = following<decltype(gethostbyname_r)>("gethostbyname_r");
    ++lanyard::test::resolverCallCount;
    if (strikes("gethostbyname_r")) {
        *result = nullptr;
        *h_errnop = TRY_AGAIN;
        return errno;
    }
    const auto entry = lanyard::test::resolverEntries.find(name);
    if (entry != lanyard::test::resolverEntries.end()) {
        return real(entry->second.c_str(), result_buf, buf, buflen, result, h_errnop);
    }
    if (lanyard::test::isDotted(name) || std::strcmp(name, "localhost") == 0) {
        return real(name, result_buf, buf, buflen, result, h_errnop);
    }
    *result = nullptr;
    *h_errnop = HOST_NOT_FOUND;
    return 0;
}
