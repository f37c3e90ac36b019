// Tells the service manager how a service does (sd_notify(3)): one datagram to the socket that
// NOTIFY_SOCKET names. Where there is none, or nobody listens, nothing happens.
#ifndef LANYARD_TOOLS_NOTIFY_H
#define LANYARD_TOOLS_NOTIFY_H

#include <array>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace lanyard {

// `state`: assignments, one a line, such as "READY=1\nSTATUS=serves".
inline void notifyManager(const char *state) {
    const char *path = secure_getenv("NOTIFY_SOCKET");
    const size_t length = path ? std::strlen(path) : 0;
    sockaddr_un address = {};
    if (length < 2 || length >= sizeof(address.sun_path) || (path[0] != '/' && path[0] != '@')) {
        return;
    }
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path, length);
    if (path[0] == '@') {
        address.sun_path[0] = '\0';  // an abstract name
    }
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return;
    }
    (void)sendto(fd, state, std::strlen(state), MSG_NOSIGNAL,
                 reinterpret_cast<const sockaddr *>(&address),
                 static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length));
    close(fd);
}

// The answer to SIGHUP; "READY=1" follows when all is read.
inline void notifyReloading() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    std::array<char, 64> state = {};
    (void)std::snprintf(state.data(), state.size(), "RELOADING=1\nMONOTONIC_USEC=%lld",
                        static_cast<long long>(now.tv_sec) * 1'000'000 + now.tv_nsec / 1'000);
    notifyManager(state.data());
}

}  // namespace lanyard

#endif
