#include "tests/interop/silent_server.h"

#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <netinet/in.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

namespace lanyard::test {

SilentServer::SilentServer(const char *address)
    : socket_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in place = {};
    place.sin_family = AF_INET;
    place.sin_addr.s_addr = inet_addr(address);
    socklen_t length = sizeof place;
    auto *generic = reinterpret_cast<sockaddr *>(&place);
    if (socket_ < 0 || bind(socket_, generic, length) != 0 ||
        getsockname(socket_, generic, &length) != 0) {
        const int reason = errno;
        close(socket_);
        throw std::system_error(reason, std::generic_category(), "silent server");
    }
    port_ = ntohs(place.sin_port);
}

SilentServer::~SilentServer() {
    close(socket_);
}

int SilentServer::packets() const {
    std::array<char, 1> start;
    int count = 0;
    while (recv(socket_, start.data(), start.size(), MSG_DONTWAIT | MSG_TRUNC) > 0) {
        ++count;
    }
    return count;
}

}  // namespace lanyard::test
