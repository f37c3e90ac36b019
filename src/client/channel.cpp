// Opening a channel.
#include "client/channel.h"

#include <cerrno>
#include <sys/socket.h>

#include "base/log.h"
#include "base/text.h"

namespace lanyard {
namespace {

// Room for the replies to all requests of a channel, should they come at once. The kernel counts a
// small datagram as some 1,500 bytes, and gives what it may.
constexpr int kReceiveBuffer = 512 * 1024;

}  // namespace

Descriptor Channel::connect(const sockaddr_in &server) {
    Descriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket.isOpen()) {
        const int error = errno;
        radLogAs("radSendtoServer", kLogError, "radSendtoServer: socket: %s\n",
                 ErrorText(error).text());
        errno = error;
        return socket;
    }
    if (::connect(socket.get(), reinterpret_cast<const sockaddr *>(&server), sizeof(server)) != 0) {
        const int error = errno;
        socket.reset();
        errno = error;
        return socket;
    }
    setsockopt(socket.get(), SOL_SOCKET, SO_RCVBUF, &kReceiveBuffer, sizeof(kReceiveBuffer));
    return socket;
}

}  // namespace lanyard
