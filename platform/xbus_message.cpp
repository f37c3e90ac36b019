#include "platform/xbus_message.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <palcore.h>

namespace lanyard::port::bus {
namespace {

bool isPartSound(const Head &head, uint32_t length, uint32_t given) {
    return length <= kPartMax && (length == 0 || (head.given & given) != 0);
}

bool isExpected(const Head &head, Side side) {
    return side == Side::kModule ? head.kind == Kind::kCall || head.kind == Kind::kNotice
                                 : head.kind == Kind::kAnswer && head.bufLength == 0;
}

bool isSound(const Head &head, Side side, size_t packetLength) {
    return packetLength >= sizeof head && head.magic == Head::kMagic && isExpected(head, side) &&
           (head.given & ~(Head::kBufGiven | Head::kOutGiven)) == 0 &&
           isPartSound(head, head.bufLength, Head::kBufGiven) &&
           isPartSound(head, head.outLength, Head::kOutGiven) &&
           packetLength == sizeof head + head.bufLength + head.outLength;
}

// Receiving returns 0 at the end, and for a packet without any byte as well.
bool hasEnded(int socket) {
    pollfd entry{.fd = socket, .events = POLLRDHUP, .revents = 0};
    return poll(&entry, 1, 0) != 0;
}

}  // namespace

bool sendMessage(int socket, const Message &message) {
    // The system's vectors serve both directions; sending leaves the bytes alone.
    std::array<iovec, 3> vector{{{const_cast<Head *>(&message.head), sizeof message.head},
                                 {const_cast<void *>(message.buf), message.head.bufLength},
                                 {const_cast<void *>(message.out), message.head.outLength}}};
    msghdr packet{};
    packet.msg_iov = vector.data();
    packet.msg_iovlen = vector.size();
    return sendmsg(socket, &packet, MSG_DONTWAIT | MSG_NOSIGNAL) != -1;
}

bool receiveMessage(int socket, Side side, Head &head, std::span<uint8_t> parts) {
    std::array<iovec, 2> vector{{{&head, sizeof head}, {parts.data(), parts.size()}}};
    msghdr packet{};
    packet.msg_iov = vector.data();
    packet.msg_iovlen = vector.size();
    ssize_t length = -1;
    do {
        // The length is the packet's, also where it is more than there is room for.
        length = recvmsg(socket, &packet, MSG_DONTWAIT | MSG_TRUNC);
        // ECONNRESET is said once, when the other end closes and leaves something unread. What it
        // sent before that is still to be received.
    } while (length == -1 && (errno == ECONNRESET || errno == EINTR));
    if (length == -1) {
        errno = errno == EAGAIN ? EAGAIN : ECONNRESET;
        return false;
    }
    if (length == 0 && hasEnded(socket)) {
        errno = ECONNRESET;
        return false;
    }
    const auto packetLength = static_cast<size_t>(length);
    if (!isSound(head, side, packetLength)) {
        explicit_bzero(parts.data(), std::min(packetLength, parts.size()));
        logMalformed(socket, side);
        errno = EBADMSG;
        return false;
    }
    return true;
}

void logMalformed(int socket, Side side) {
    ucred sender{};
    socklen_t size = sizeof sender;
    (void)getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &sender, &size);
    palModuleDebug(kLogModule, kLogError, side == Side::kModule ? "xbusListen" : "xbusIoctl",
                   __LINE__, "a malformed or oversized message of process %d is dropped\n",
                   sender.pid);
}

}  // namespace lanyard::port::bus
