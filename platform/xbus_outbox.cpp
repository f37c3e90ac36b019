#include "xbus_outbox.h"

#include <algorithm>
#include <cerrno>
#include <sys/socket.h>
#include <utility>

namespace port::bus {
namespace {

constexpr const char *logFunction = "xbusIoctl";
constexpr std::chrono::seconds answerTime{5};

Head headOf(const Request &request, Kind kind, uint64_t id) noexcept {
    Head head;
    head.kind = kind;
    head.id = id;
    head.code = request.command;
    head.given = (request.parts.buf == nullptr ? 0 : Head::bufGiven) |
                 (request.parts.out == nullptr ? 0 : Head::outGiven);
    head.bufLength = request.bufLength;
    head.outLength = request.outLength;
    return head;
}

/** Waits for a socket, or for the deadline alone. Signals do not end it. */
bool awaits(int socket, short events, Clock::time_point deadline) noexcept {
    pollfd entry{socket, events, 0};
    int ready = -1;
    do {
        ready = waitUntil({&entry, 1}, deadline);
    } while (ready == -1 && errno == EINTR);
    if (ready == 0) {
        errno = ETIMEDOUT;
    }
    return ready > 0;
}

/** Drops answers that came too late for their calls. @return false when the other end is closed. */
bool dropLateAnswers(int socket) noexcept {
    Head head;
    Arrival arrival = peekMessage(logFunction, socket, head);
    while (arrival == Arrival::message && takeMessage(socket, head, nullptr, nullptr)) {
        arrival = peekMessage(logFunction, socket, head);
    }
    return arrival == Arrival::nothing;
}

bool sendBy(int socket, const Head &head, const Parts &parts,
            const Clock::time_point *deadline) noexcept {
    while (!sendMessage(socket, head, parts)) {
        if (errno != EAGAIN || deadline == nullptr || !awaits(socket, POLLOUT, *deadline)) {
            return false;
        }
    }
    return true;
}

/** Waits for the answer to a call. @return false with `errno` set: ETIMEDOUT, or the link is broken. */
bool receiveAnswer(int socket, const Head &call, void *out, Head &answer,
                   Clock::time_point deadline) noexcept {
    for (;;) {
        switch (peekMessage(logFunction, socket, answer)) {
            case Arrival::nothing:
                if (!awaits(socket, POLLIN, deadline)) {
                    return false;
                }
                break;
            case Arrival::message: {
                if (answer.kind != Kind::answer || answer.bufLength != 0 ||
                    (answer.id == call.id && answer.outLength > call.outLength)) {
                    logMalformed(logFunction, socket);
                    errno = EBADMSG;
                    return false;
                }
                const bool isMine = answer.id == call.id;
                if (!takeMessage(socket, answer, nullptr, isMine ? out : nullptr)) {
                    return false;
                }
                if (isMine) {
                    return true;
                }
                if (Clock::now() >= deadline) {
                    errno = ETIMEDOUT;
                    return false;
                }
                break;
            }
            case Arrival::end:
                errno = ECONNRESET;
                return false;
            case Arrival::malformed:
                errno = EBADMSG;
                return false;
        }
    }
}

}  // namespace

bool Outbox::notify(const Request &request) {
    return send(request, headOf(request, Kind::notice, 0), nullptr) != nullptr;
}

bool Outbox::call(const Request &request, void *out, Head &answer) {
    const Clock::time_point deadline = Clock::now() + answerTime;
    const Head head = headOf(request, Kind::call, ++lastId_);
    Link *link = find(request.module);
    if (link != nullptr && !dropLateAnswers(link->socket.get())) {
        link->socket.reset();
    }
    link = send(request, head, &deadline);
    if (link == nullptr) {
        return false;
    }
    const bool isAnswered = receiveAnswer(link->socket.get(), head, out, answer, deadline);
    if (!isAnswered && errno != ETIMEDOUT) {
        link->socket.reset();
    }
    return isAnswered;
}

Outbox::Link *Outbox::send(const Request &request, const Head &head, Patience patience) {
    Link *link = find(request.module);
    if (link != nullptr) {
        if (sendBy(link->socket.get(), head, request.parts, patience)) {
            return link;
        }
        if (!isPeerGone(errno)) {
            return nullptr;
        }
        // The module was restarted since, or is gone; it has not got the message.
        link->socket.reset();
    }
    link = open(request.module, patience);
    if (link == nullptr || !sendBy(link->socket.get(), head, request.parts, patience)) {
        return nullptr;
    }
    return link;
}

Outbox::Link *Outbox::find(uint32_t module) noexcept {
    const auto found = std::find_if(links_.begin(), links_.end(), [module](const Link &link) {
        return link.module == module && link.socket.isOpen();
    });
    return found == links_.end() ? nullptr : &*found;
}

Outbox::Link *Outbox::open(uint32_t module, Patience patience) {
    constexpr std::chrono::milliseconds pause{2};
    std::erase_if(links_, [](const Link &link) { return !link.socket.isOpen(); });
    links_.reserve(links_.size() + 1);
    Descriptor socket = folder_.connect(module);
    while (!socket.isOpen() && errno == EAGAIN && patience != nullptr && Clock::now() < *patience) {
        // Too many are about to connect, and there is nothing that would tell when they are not.
        (void)awaits(-1, 0, std::min(Clock::now() + pause, *patience));
        socket = folder_.connect(module);
    }
    if (!socket.isOpen()) {
        return nullptr;
    }
    links_.push_back({module, std::move(socket)});
    return &links_.back();
}

}  // namespace port::bus
