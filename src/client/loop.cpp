// The steps of a loop: many exchanges in flight, over connected sockets and one descriptor.
#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <limits>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <unistd.h>
#include <utility>

#include <palcore.h>

#include "base/clock.h"
#include "base/log.h"
#include "base/partition.h"
#include "client/loop_state.h"
#include "client/server_table.h"

using namespace lanyard;

namespace lanyard {
namespace {

constexpr int64_t kNever = std::numeric_limits<int64_t>::max();
constexpr int64_t kChannelLife = 30 * kSecond;  // without a request
constexpr int kEventsMax = 16;
constexpr int kDatagramsMax = 256;  // of one channel, before the others have their turn

bool isUnreachable(int error) {
    return error == ECONNREFUSED || error == ENETUNREACH || error == EHOSTUNREACH ||
           error == ENETDOWN || error == EHOSTDOWN;
}

// A full queue loses datagrams as the network does.
bool isLoss(int error) {
    return error == EAGAIN || error == ENOBUFS || error == ENOMEM;
}

// The nodes of a list, each of which may leave it when its turn has come.
template <typename Visit>
void forEach(const PalList &list, Visit visit) {
    for (PalListNode *node = list.first; node;) {
        PalListNode *next = node->next;
        visit(node);
        node = next;
    }
}

}  // namespace
}  // namespace lanyard

RadLoop::~RadLoop() {
    forEach(inFlight_, [this](PalListNode *node) { destroy(static_cast<RadRequest *>(node)); });
    forEach(ended_, [this](PalListNode *node) { destroy(static_cast<RadRequest *>(node)); });
    forEach(channels_, [this](PalListNode *node) { destroy(static_cast<Channel *>(node)); });
}

void RadLoop::destroy(RadRequest *request) {
    palListNodeRemove(request->hasEnded ? &ended_ : &inFlight_, request);
    awaited_ -= request->listener.tell ? 1 : 0;
    ObjectDeleter<RadRequest>()(request);
}

void RadLoop::destroy(Channel *channel) {
    // A child of this process may hold the socket open: closing it would not be enough.
    epoll_ctl(events_.get(), EPOLL_CTL_DEL, channel->socket(), nullptr);
    palListNodeRemove(&channels_, channel);
    ObjectDeleter<Channel>()(channel);
}

// The servers as configured now; those of earlier requests while nothing has changed.
ServerSet::Owner RadLoop::servers(const ServerChoice &choice, int code) {
    ServerSet::Owner &set = sets_[code == RAD_CODE_ACCOUNTING_REQUEST ? 1 : 0];
    if (!set || !set->isCopyOf(choice, monotonicMicroseconds())) {
        set = ServerSet::copy(choice);
    }
    return set ? set->share() : nullptr;
}

void RadLoop::start(RadRequest *request) {
    palListNodeAppend(&inFlight_, request);
    awaited_ += request->listener.tell ? 1 : 0;
    drive(*request, request->exchange.start());
}

// Takes a request as far as it gets without waiting.
void RadLoop::drive(RadRequest &request, Next next) {
    for (;;) {
        switch (next) {
            case Next::kServer:
                leaveChannel(request);
                next = request.exchange.nextServer();
                break;
            case Next::kOpen:
                next = open(request);
                break;
            case Next::kSend:
                next = send(request);
                break;
            case Next::kWait:
                return;
            case Next::kEnd:
                leaveChannel(request);
                palListNodeRemove(&inFlight_, &request);
                request.hasEnded = true;
                palListNodeAppend(&ended_, &request);
                // While the loop runs, it looks there anyway.
                if (!running_) {
                    wakeAt(0);
                }
                return;
        }
    }
}

Channel *RadLoop::channelTo(const sockaddr_in &server) {
    for (PalListNode *node = channels_.first; node; node = node->next) {
        auto *channel = static_cast<Channel *>(node);
        if (!channel->isFull() && isSame(channel->server(), server)) {
            return channel;
        }
    }
    Descriptor socket = Channel::connect(server);
    if (!socket.isOpen()) {
        return nullptr;
    }
    const int fd = socket.get();
    auto channel = allocateObject<Channel>(std::move(socket), server);
    if (!channel) {
        errno = ENOMEM;
        return nullptr;
    }
    epoll_event event{.events = EPOLLIN, .data = {.ptr = channel.get()}};
    if (epoll_ctl(events_.get(), EPOLL_CTL_ADD, fd, &event) != 0) {
        return nullptr;
    }
    palListNodeAppend(&channels_, channel.get());
    return channel.release();
}

void RadLoop::leaveChannel(RadRequest &request) {
    Channel *channel = std::exchange(request.channel, nullptr);
    if (channel) {
        const int64_t now = monotonicMicroseconds();
        channel->leave(request.identifier, now);
        if (channel->isIdle()) {
            wakeAt(now + kChannelLife);
        }
    }
}

Next RadLoop::open(RadRequest &request) {
    request.channel = channelTo(request.exchange.address());
    if (!request.channel) {
        const int error = errno;
        return isUnreachable(error) ? request.exchange.unreachable(error)
                                    : request.exchange.failed(RAD_STEP_SOCKET, error);
    }
    request.identifier = request.channel->enter(&request);
    return request.exchange.opened(request.identifier);
}

Next RadLoop::send(RadRequest &request) {
    const auto bytes = request.exchange.sending().bytes();
    const auto trySend = [&] {
        return ::send(request.channel->socket(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    };
    // An error may be the answer to an earlier datagram of this socket.
    const bool isSent = trySend() >= 0 || (errno == ECONNREFUSED && trySend() >= 0);
    const int error = errno;
    Next next = Next::kWait;
    if (isSent || isLoss(error)) {
        next = request.exchange.sent();
    } else if (isUnreachable(error)) {
        next = request.exchange.refused(error);
    } else {
        next = request.exchange.failed(RAD_STEP_SEND, error);
    }
    if (next == Next::kWait) {
        request.deadline = monotonicMicroseconds() + request.exchange.patience();
        wakeAt(request.deadline);
    }
    return next;
}

void RadLoop::receive(Channel &channel) {
    for (int count = 0; count < kDatagramsMax; ++count) {
        std::array<uint8_t, RAD_PACKET_MAX + 1> buffer;  // NOLINT: filled by the next call
        const ssize_t size = recv(channel.socket(), buffer.data(), buffer.size(), 0);
        if (size < 0 && isUnreachable(errno)) {
            refuse(channel, errno);
        } else if (size < 0) {
            return;
        } else {
            const auto datagram = std::span(buffer).first(static_cast<size_t>(size));
            take(channel, datagram);
            explicit_bzero(datagram.data(), datagram.size());
        }
        // Nobody waits for more: what comes all the same has its turn with the next event.
        if (channel.isIdle()) {
            return;
        }
    }
}

void RadLoop::take(Channel &channel, std::span<uint8_t> datagram) {
    noteHeard(channel.server(), monotonicMicroseconds());
    palModuleDebugHex(kModuleLibrary, kLogDump, "RADIUS Rx Buffer", datagram.data(),
                      static_cast<int>(datagram.size()));
    if (datagram.size() < RAD_HEADER_SIZE) {
        noteStray(channel.server(), RAD_REASON_REPLY_SHORT);
        return;
    }
    RadRequest *request =
        channel.waiting(reinterpret_cast<const RadPacket *>(datagram.data())->identifier);
    if (request) {
        drive(*request, request->exchange.received(datagram));
    } else {
        noteStray(channel.server(), RAD_REASON_REPLY_IDENTIFIER);
    }
}

// The network says that nobody is at the server's port.
void RadLoop::refuse(Channel &channel, int error) {
    for (int identifier = 0; identifier <= UINT8_MAX; ++identifier) {
        RadRequest *request = channel.waiting(static_cast<uint8_t>(identifier));
        if (request) {
            drive(*request, request->exchange.refused(error));
        }
    }
}

// Ends the waits that are over, and channels that nobody has used for long.
void RadLoop::expire() {
    const int64_t now = monotonicMicroseconds();
    wake_ = kNever;
    int64_t wake = kNever;
    forEach(inFlight_, [&](PalListNode *node) {
        auto &request = *static_cast<RadRequest *>(node);
        if (request.deadline <= now) {
            drive(request, request.exchange.timedOut());
        } else {
            wake = std::min(wake, request.deadline);
        }
    });
    forEach(channels_, [&](PalListNode *node) {
        auto *channel = static_cast<Channel *>(node);
        const int64_t end = channel->idleSince() + kChannelLife;
        if (channel->isIdle() && end <= now) {
            destroy(channel);
        } else if (channel->isIdle()) {
            wake = std::min(wake, end);
        }
    });
    wakeAt(wake);
}

// Has the timer wake at that time or before; it is not set back.
void RadLoop::wakeAt(int64_t time) {
    if (time >= wake_) {
        return;
    }
    wake_ = time;
    // All zeros would stop the timer.
    const int64_t set = std::max<int64_t>(time, 1);
    const itimerspec alarm{.it_interval = {},
                           .it_value = {.tv_sec = static_cast<time_t>(set / kSecond),
                                        .tv_nsec = static_cast<long>(set % kSecond * 1000)}};
    timerfd_settime(timer_.get(), TFD_TIMER_ABSTIME, &alarm, nullptr);
}

// Waits for something to do, and does it. False on an error, with errno.
bool RadLoop::wait(int64_t until, bool &interrupted) {
    int64_t timeout = -1;
    // The timer alone would do, but for a system that has none left to set.
    const int64_t end = std::min(until, wake_);
    if (end != kNever) {
        const int64_t left = std::max<int64_t>(end - monotonicMicroseconds(), 0);
        timeout = std::min<int64_t>((left + kMillisecond - 1) / kMillisecond, INT_MAX);
    }
    std::array<epoll_event, kEventsMax> events;  // NOLINT: filled by the next call
    const int count =
        epoll_wait(events_.get(), events.data(), kEventsMax, static_cast<int>(timeout));
    interrupted = count < 0 && errno == EINTR;
    if (count < 0 && !interrupted) {
        return false;
    }
    bool timeIsUp = false;
    for (int index = 0; index < count; ++index) {
        auto *channel = static_cast<Channel *>(events[static_cast<size_t>(index)].data.ptr);
        if (channel) {
            receive(*channel);
        } else {
            timeIsUp = true;
        }
    }
    // Last, because it closes channels.
    if (timeIsUp || monotonicMicroseconds() >= wake_) {
        uint64_t expirations = 0;
        [[maybe_unused]] const ssize_t size = read(timer_.get(), &expirations, sizeof(expirations));
        expire();
    }
    return true;
}

// Tells as many requests as have ended so far; those that end meanwhile have their turn later.
int RadLoop::deliver() {
    size_t turns = 0;
    forEach(ended_, [&turns](PalListNode *) { ++turns; });
    int count = 0;
    for (; turns > 0 && ended_.first && !doomed_; --turns) {
        auto *request = static_cast<RadRequest *>(ended_.first);
        const Listener &listener = request->listener;
        if (listener.tell) {
            request->exchange.publishOutcomes();
            current_ = request;
            listener.tell(listener, request, request->exchange.result(),
                          request->exchange.takeReply());
            current_ = nullptr;
            ++count;
        }
        destroy(request);
    }
    if (ended_.first) {
        wakeAt(0);
    }
    return count;
}

int RadLoop::run(int64_t patience) {
    const int64_t until = patience < 0 ? kNever : monotonicMicroseconds() + patience;
    running_ = true;
    bool isGood = true;
    bool interrupted = false;
    int count = 0;
    do {
        if (until == kNever && awaited_ == 0) {
            break;
        }
        isGood = wait(ended_.first ? 0 : until, interrupted);
        count += deliver();
    } while (isGood && !interrupted && !doomed_ && count == 0 && monotonicMicroseconds() < until);
    running_ = false;
    return isGood || count > 0 ? count : -1;
}
