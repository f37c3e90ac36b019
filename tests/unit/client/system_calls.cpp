#include "tests/unit/client/system_calls.h"

#include <arpa/inet.h>
#include <cstring>
#include <map>
#include <netdb.h>
#include <optional>
#include <sys/socket.h>
#include <unistd.h>

#include "tests/support/failing_call.h"

namespace lanyard::test {
namespace {

std::optional<std::string> hostName;
std::map<std::string, std::string> resolverEntries;

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
