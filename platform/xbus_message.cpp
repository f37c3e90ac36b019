#include "xbus_message.h"

#include <array>
#include <cerrno>
#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <palcore.h>

namespace port::bus {
namespace {

/** Head, buf and out, in this order. */
std::array<iovec, 3> makeVector(const Head &head, const void *buf, const void *out) noexcept {
    // The system's vectors are the same for both directions; sending leaves the bytes alone.
    return {{{const_cast<Head *>(&head), sizeof head},
             {const_cast<void *>(buf), head.bufLength},
             {const_cast<void *>(out), head.outLength}}};
}

bool isPartSane(uint32_t length, bool given) noexcept {
    return length <= partMax && (given || length == 0);
}

bool isWellFormed(const Head &head, std::size_t packetLength) noexcept {
    return packetLength >= sizeof head && head.magic == Head::magicNumber &&
           (head.given & ~(Head::bufGiven | Head::outGiven)) == 0 &&
           isPartSane(head.bufLength, (head.given & Head::bufGiven) != 0) &&
           isPartSane(head.outLength, (head.given & Head::outGiven) != 0) &&
           packetLength == sizeof head + head.bufLength + head.outLength;
}

/** Receiving yields 0 at the end, and for a packet without any byte as well. */
bool hasEnded(int socket) noexcept {
    pollfd entry{socket, POLLRDHUP, 0};
    return poll(&entry, 1, 0) != 0;
}

}  // namespace

bool sendMessage(int socket, const Head &head, const Parts &parts) noexcept {
    auto vector = makeVector(head, parts.buf, parts.out);
    msghdr message{};
    message.msg_iov = vector.data();
    message.msg_iovlen = vector.size();
    return sendmsg(socket, &message, MSG_DONTWAIT | MSG_NOSIGNAL) != -1;
}

bool isPeerGone(int error) noexcept {
    return error == EPIPE || error == ECONNRESET || error == ECONNREFUSED || error == ENOTCONN;
}

Arrival peekMessage(const char *function, int socket, Head &head) noexcept {
    for (;;) {
        const ssize_t length =
            recv(socket, &head, sizeof head, MSG_PEEK | MSG_TRUNC | MSG_DONTWAIT);
        if (length > 0 && isWellFormed(head, static_cast<std::size_t>(length))) {
            return Arrival::message;
        }
        if (length == 0 && hasEnded(socket)) {
            return Arrival::end;
        }
        if (length >= 0) {
            logMalformed(function, socket);
            return Arrival::malformed;
        }
        if (errno == EAGAIN || errno == EINTR) {
            return Arrival::nothing;
        }
        // Said once, when the other end closes and leaves something unread. What it sent before
        // that is still to be received.
        if (errno != ECONNRESET) {
            return Arrival::end;
        }
    }
}

void logMalformed(const char *function, int socket) noexcept {
    ucred sender{};
    socklen_t size = sizeof sender;
    (void)getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &sender, &size);
    palModuleDebug(logModule, logError, function, __LINE__,
                   "a malformed or oversized message of process %d is dropped\n", sender.pid);
}

bool takeMessage(int socket, const Head &head, void *buf, void *out) noexcept {
    Head taken;
    auto vector = makeVector(head, buf, out);
    vector[0].iov_base = &taken;
    msghdr message{};
    message.msg_iov = vector.data();
    message.msg_iovlen = buf == nullptr && out == nullptr ? 1 : vector.size();
    return recvmsg(socket, &message, MSG_DONTWAIT) > 0;
}

}  // namespace port::bus
