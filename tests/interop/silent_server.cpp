#include "tests/interop/silent_server.h"

#include <arpa/inet.h>
#include <array>
#include <netinet/in.h>
#include <sys/socket.h>

namespace lanyard::test {

SilentServer::SilentServer(const char *address)
    : socket_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0), "silent server") {
    sockaddr_in place = {};
    place.sin_family = AF_INET;
    place.sin_addr.s_addr = inet_addr(address);
    socklen_t length = sizeof place;
    auto *generic = reinterpret_cast<sockaddr *>(&place);
    checked(bind(socket_.get(), generic, length), "silent server");
    checked(getsockname(socket_.get(), generic, &length), "silent server");
    port_ = ntohs(place.sin_port);
}

int SilentServer::packets() const {
    std::array<char, 1> start;
    int count = 0;
    while (recv(socket_.get(), start.data(), start.size(), MSG_DONTWAIT | MSG_TRUNC) > 0) {
        ++count;
    }
    return count;
}

}  // namespace lanyard::test
