#include "xbus_inbox.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <sys/epoll.h>
#include <utility>

#include <palcore.h>

namespace port::bus {
namespace {

constexpr const char *logFunction = "xbusListen";

/** An error must not make a loop over xbusListen() spin. A signal ends the wait all the same. */
Inbox::Outcome failAt(Clock::time_point deadline) noexcept {
    return waitUntil({}, deadline) == -1 ? Inbox::Outcome::nothing : Inbox::Outcome::failed;
}

void answer(int socket, const Head &call, int result, const void *out,
            uint32_t outLength) noexcept {
    Head head;
    head.kind = Kind::answer;
    head.id = call.id;
    head.code = static_cast<uint32_t>(result);
    head.given = call.given & Head::outGiven;
    head.outLength = outLength;
    if (!sendMessage(socket, head, {nullptr, out}) && !isPeerGone(errno)) {
        palModuleDebug(logModule, logError, logFunction, __LINE__,
                       "an answer is dropped. errno=%d\n", errno);
    }
}

}  // namespace

Inbox::Inbox(const Folder &folder, Descriptor listener, const Receiver &receiver)
    : folder_(folder),
      listener_(std::move(listener)),
      events_(epoll_create1(EPOLL_CLOEXEC)),
      receiver_(receiver) {
    watched_.reserve(1);
    if (events_.isOpen() && !addToEvents(listener_)) {
        events_.reset();
    }
}

bool Inbox::addToEvents(const Descriptor &socket) const noexcept {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = socket.get();
    return epoll_ctl(events_.get(), EPOLL_CTL_ADD, socket.get(), &event) == 0;
}

Inbox::Outcome Inbox::handleOne(Clock::time_point deadline) noexcept {
    // A listening socket that fails is left alone until the deadline; who is connected is served.
    bool accepts = true;
    for (;;) {
        dropClosed();
        watch(accepts);
        const int ready = waitUntil(watched_, deadline);
        if (ready == -1) {
            return errno == EINTR ? Outcome::nothing : failAt(deadline);
        }
        if (ready != 0) {
            accepts = accepts && (watched_[0].revents == 0 || acceptSenders());
            const Outcome outcome = handleNext();
            if (outcome != Outcome::nothing) {
                return outcome == Outcome::handled ? outcome : failAt(deadline);
            }
        }
        if (ready == 0 || Clock::now() >= deadline) {
            return accepts ? Outcome::nothing : Outcome::failed;
        }
    }
}

void Inbox::watch(bool withListener) noexcept {
    watched_.clear();  // acceptSenders() has made room.
    watched_.push_back({withListener ? listener_.get() : -1, POLLIN, 0});
    for (const Descriptor &sender : senders_) {
        watched_.push_back({sender.get(), POLLIN, 0});
    }
}

bool Inbox::acceptSenders() noexcept {
    constexpr int atOnce = 256;
    for (int i = 0; i < atOnce; ++i) {
        try {
            senders_.reserve(senders_.size() + 1);
            watched_.reserve(senders_.size() + 2);
        } catch (const std::bad_alloc &) {
            return false;
        }
        Descriptor sender = folder_.accept(listener_);
        if (sender.isOpen() && addToEvents(sender)) {
            senders_.push_back(std::move(sender));
        } else if (errno == EAGAIN) {
            return true;
        } else if (errno != EPERM && errno != ECONNABORTED && errno != EINTR) {
            palModuleDebug(logModule, logError, logFunction, __LINE__,
                           "no sender can connect. errno=%d\n", errno);
            return false;
        }
    }
    return true;
}

void Inbox::dropClosed() noexcept {
    const auto isClosed = [](const Descriptor &sender) { return !sender.isOpen(); };
    const auto turn = senders_.begin() + static_cast<std::ptrdiff_t>(next_);
    next_ -= static_cast<std::size_t>(std::count_if(senders_.begin(), turn, isClosed));
    std::erase_if(senders_, isClosed);
}

Inbox::Outcome Inbox::handleNext() noexcept {
    const std::size_t count = senders_.size();
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t turn = (next_ + i) % count;
        // Who has just been accepted is not watched yet and may have sent something.
        if (turn + 1 < watched_.size() && watched_[turn + 1].revents == 0) {
            continue;
        }
        const int socket = senders_[turn].get();
        Head head;
        switch (peekMessage(logFunction, socket, head)) {
            case Arrival::nothing:
                continue;
            case Arrival::message:
                if (head.kind == Kind::call || head.kind == Kind::notice) {
                    next_ = turn + 1;
                    return handle(socket, head);
                }
                logMalformed(logFunction, socket);
                [[fallthrough]];
            case Arrival::malformed:
            case Arrival::end:
                senders_[turn].reset();
        }
    }
    return Outcome::nothing;
}

Inbox::Outcome Inbox::handle(int socket, const Head &head) const noexcept {
    const Block buf = allocateBlock(head.bufLength);
    const Block out = allocateBlock(head.outLength);
    if (buf == nullptr || out == nullptr) {
        return Outcome::failed;  // The message stays where it is.
    }
    if (!takeMessage(socket, head, buf.get(), out.get())) {
        return Outcome::nothing;
    }
    const bool outGiven = (head.given & Head::outGiven) != 0;
    uint32_t outLength = head.outLength;
    const int result =
        receiver_.handler(nullptr, receiver_.argument, head.code,
                          (head.given & Head::bufGiven) != 0 ? buf.get() : nullptr, head.bufLength,
                          outGiven ? out.get() : nullptr, &outLength);
    if (head.kind == Kind::call) {
        answer(socket, head, result, out.get(), std::min(outLength, head.outLength));
    }
    return Outcome::handled;
}

}  // namespace port::bus
