// Opening a channel.
#include "client/channel.h"

#include <cerrno>
#include <sys/socket.h>

#include "base/log.h"
#include "base/text.h"

namespace lanyard {

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
    }
    return socket;
}

}  // namespace lanyard
