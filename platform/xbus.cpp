// The management bus over Unix-domain sockets.
//
// Nothing of it runs on its own: there is no thread and nothing is cleaned up at the end of a
// process. A module that registers and then becomes a daemon is the same module afterwards.
//
// The queue is the kernel's: a message stays in its sender's connection until its turn has come, so
// that messages of one sender keep their order. Sockets never block.
#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <map>
#include <memory>
#include <new>
#include <poll.h>
#include <span>
#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <vector>

#include <palcore.h>
#include <xbus.h>

#include "platform/descriptor.h"
#include "platform/export.h"
#include "platform/poison.h"
#include "platform/xbus_folder.h"
#include "platform/xbus_message.h"

// A registered module. Its lock is released last.
struct XbusCtx {
    uint32_t module;
    XbusHandler handler;
    void *argument;

    lanyard::port::bus::Folder folder{};
    lanyard::port::Descriptor lock{};

    // What comes in.
    lanyard::port::Descriptor events{};  // an epoll set of listener, retry and senders
    lanyard::port::Descriptor listener{};
    lanyard::port::Descriptor retry{};  // a timer that runs while the listener is left alone
    bool accepts = true;                // the listener is not left alone
    std::vector<lanyard::port::Descriptor> senders{};

    // What goes out.
    std::map<uint32_t, lanyard::port::Descriptor> links{};  // connections to modules, by number
    uint64_t lastCall = 0;

    // A handler may call: what it works on and the answer that it waits for need a place each.
    std::unique_ptr<uint8_t[]> received{new uint8_t[lanyard::port::bus::kPartsMax]};
    std::unique_ptr<uint8_t[]> answer{new uint8_t[lanyard::port::bus::kPartMax]};
};

namespace lanyard::port::bus {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kAnswerTime{5};
constexpr std::chrono::milliseconds kConnectPause{2};
constexpr time_t kRetrySeconds = 1;
constexpr uint32_t kReadable = EPOLLIN;
constexpr int kAcceptMax = 256;  // connections at once
constexpr int kLookMax = 1024;   // events and late answers between two looks at the clock

// Waits at most until the deadline; looks once when it has passed. Returns as poll() does. Finer
// than epoll_wait(), which knows milliseconds only.
int waitUntil(Clock::time_point deadline, std::span<pollfd> entries = {}) {
    using std::chrono::nanoseconds;
    using std::chrono::seconds;
    const auto left = std::max<nanoseconds>(deadline - Clock::now(), nanoseconds::zero());
    const auto whole = std::chrono::duration_cast<seconds>(left);
    const timespec limit{static_cast<time_t>(whole.count()),
                         static_cast<long>((left - whole).count())};
    return ppoll(entries.data(), entries.size(), &limit, nullptr);
}

// True for the errors of sendMessage() that tell that the other end is closed.
bool isPeerGone(int error) {
    return error == EPIPE || error == ECONNRESET || error == ECONNREFUSED || error == ENOTCONN;
}

// Listening

bool watch(const XbusCtx &context, const Descriptor &descriptor, uint32_t events = kReadable,
           int operation = EPOLL_CTL_ADD) {
    epoll_event event{.events = events, .data = {.fd = descriptor.get()}};
    return epoll_ctl(context.events.get(), operation, descriptor.get(), &event) == 0;
}

// A listener that fails would keep the set readable and have a poll() loop spin: it is left alone
// until the next xbusListen(), which the timer brings about where nothing else does.
void setAccepting(XbusCtx &context, bool accepts) {
    const itimerspec limit{.it_interval = {}, .it_value = {accepts ? 0 : kRetrySeconds, 0}};
    (void)timerfd_settime(context.retry.get(), 0, &limit, nullptr);
    (void)watch(context, context.listener, accepts ? kReadable : 0, EPOLL_CTL_MOD);
    context.accepts = accepts;
}

void acceptSenders(XbusCtx &context) try {
    for (int i = 0; i < kAcceptMax; ++i) {
        Descriptor &sender = context.senders.emplace_back();  // room first: no accept in vain
        sender = context.folder.accept(context.listener);
        if (sender.isOpen() && watch(context, sender)) {
            continue;
        }
        context.senders.pop_back();
        if (errno == EAGAIN) {
            return;
        }
        if (errno != EPERM && errno != ECONNABORTED && errno != EINTR) {
            palModuleDebug(kLogModule, kLogError, "xbusListen", __LINE__,
                           "no sender can connect. errno=%d\n", errno);
            setAccepting(context, false);
            return;
        }
    }
} catch (const std::bad_alloc &) {
    setAccepting(context, false);
}

// Has a message handled. The sanitizer knows where its parts end, as handlers read what others send.
// Keys travel over the bus: nothing of a message is left behind.
void handle(const XbusCtx &context, int socket, const Head &head) {
    uint8_t *buf = context.received.get();
    uint8_t *out = buf + kPartMax;  // aligned for any type, as `buf` is
    std::memmove(out, buf + head.bufLength, head.outLength);
    ASAN_POISON_MEMORY_REGION(buf + head.bufLength, kPartMax - head.bufLength);
    ASAN_POISON_MEMORY_REGION(out + head.outLength, kPartMax - head.outLength);
    uint32_t outLength = head.outLength;
    const int result = context.handler(
        nullptr, context.argument, head.code, (head.given & Head::kBufGiven) != 0 ? buf : nullptr,
        head.bufLength, (head.given & Head::kOutGiven) != 0 ? out : nullptr, &outLength);
    const Head answer{.kind = Kind::kAnswer,
                      .id = head.id,
                      .code = static_cast<uint32_t>(result),
                      .given = head.given & Head::kOutGiven,
                      .outLength = std::min(outLength, head.outLength)};
    if (head.kind == Kind::kCall && !sendMessage(socket, {answer, nullptr, out}) &&
        !isPeerGone(errno)) {
        palModuleDebug(kLogModule, kLogError, "xbusListen", __LINE__,
                       "an answer is dropped. errno=%d\n", errno);
    }
    ASAN_UNPOISON_MEMORY_REGION(buf, kPartsMax);
    explicit_bzero(buf, head.bufLength + head.outLength);
    explicit_bzero(out, head.outLength);
    ASAN_POISON_MEMORY_REGION(buf, kPartsMax);
}

// Handles the next message of a sender; false when there is none. Who has left or talks nonsense is
// dropped.
bool handleFrom(XbusCtx &context, int socket) {
    const std::span parts(context.received.get(), kPartsMax);
    ASAN_UNPOISON_MEMORY_REGION(parts.data(), parts.size());
    Head head;
    if (receiveMessage(socket, Side::kModule, head, parts)) {
        handle(context, socket, head);
        return true;
    }
    if (errno != EAGAIN) {
        // Closing is not enough: a child of the process may have the connection open as well.
        (void)epoll_ctl(context.events.get(), EPOLL_CTL_DEL, socket, nullptr);
        std::erase_if(context.senders, [=](const auto &sender) { return sender.get() == socket; });
    }
    return false;
}

// An error must not make a loop over xbusListen() spin. A signal ends the wait all the same.
int failAt(Clock::time_point deadline) {
    return waitUntil(deadline) == -1 ? 0 : -1;
}

// Senders take turns: asked for one event, the set goes round among those who are ready.
int listen(XbusCtx &context, Clock::time_point deadline) {
    if (!context.accepts) {
        setAccepting(context, true);
    }
    for (int looks = 0; looks < kLookMax || Clock::now() < deadline; ++looks) {
        std::array<pollfd, 2> entries{{{context.events.get(), POLLIN, 0},
                                       {context.accepts ? context.listener.get() : -1, POLLIN, 0}}};
        const int ready = waitUntil(deadline, entries);
        if (ready == 0) {
            return context.accepts ? 0 : -1;
        }
        if (ready == -1) {
            return errno == EINTR ? 0 : failAt(deadline);
        }
        // Who is new must not wait until everybody else has had a turn.
        if (entries[1].revents != 0) {
            acceptSenders(context);
        }
        epoll_event event{};
        if (epoll_wait(context.events.get(), &event, 1, 0) != 1 ||
            event.data.fd == context.listener.get()) {
            continue;
        }
        if (event.data.fd == context.retry.get()) {
            setAccepting(context, true);
        } else if (handleFrom(context, event.data.fd)) {
            return 1;
        }
    }
    return 0;
}

// Sending. What fails sets `errno`.

// Makes an attempt again, while it fails with EAGAIN and there is time, when the socket is ready.
// Signals do not end the wait.
template <typename Attempt>
bool tryUntil(Clock::time_point deadline, int socket, short events, Attempt attempt) {
    while (!attempt()) {
        if (errno != EAGAIN || Clock::now() >= deadline) {
            return false;
        }
        pollfd entry{.fd = socket, .events = events, .revents = 0};
        const int ready = waitUntil(deadline, {&entry, 1});
        if (ready == 0) {
            errno = ETIMEDOUT;
        }
        if (ready == 0 || (ready == -1 && errno != EINTR)) {
            return false;
        }
    }
    return true;
}

// Sends over the connection to a module, or a new one where it is closed. All that goes to a module
// takes the same one, so that it arrives in order.
bool sendTo(XbusCtx &context, uint32_t module, const Message &message, Clock::time_point deadline) {
    Descriptor &link = context.links[module];
    const auto send = [&] { return sendMessage(link.get(), message); };
    if (link.isOpen()) {
        if (tryUntil(deadline, link.get(), POLLOUT, send)) {
            return true;
        }
        if (!isPeerGone(errno)) {
            return false;
        }
        // The module was restarted since, or is gone; it has not got the message.
    }
    link = context.folder.connect(module);
    while (!link.isOpen() && errno == EAGAIN && Clock::now() < deadline) {
        // Too many are about to connect, and there is nothing that would tell when they are not.
        (void)waitUntil(std::min(Clock::now() + kConnectPause, deadline));
        link = context.folder.connect(module);
    }
    return link.isOpen() && tryUntil(deadline, link.get(), POLLOUT, send);
}

// Receives the answer to a call. Those before it came too late for their calls and are dropped.
bool receiveAnswer(const XbusCtx &context, int socket, const Head &call, Head &answer, void *out) {
    const std::span parts(context.answer.get(), kPartMax);
    for (int looks = 0; looks < kLookMax; ++looks) {
        if (!receiveMessage(socket, Side::kSender, answer, parts)) {
            return false;
        }
        const bool isMine = answer.id == call.id;
        const bool fits = answer.outLength <= call.outLength;
        if (isMine && fits) {
            std::copy_n(parts.data(), answer.outLength, static_cast<uint8_t *>(out));
        }
        explicit_bzero(parts.data(), answer.outLength);
        if (isMine && !fits) {
            logMalformed(socket, Side::kSender);
            errno = EBADMSG;
        }
        if (isMine) {
            return fits;
        }
    }
    errno = EAGAIN;
    return false;
}

bool call(XbusCtx &context, uint32_t module, const Message &message, void *out, Head &answer) {
    const Clock::time_point deadline = Clock::now() + kAnswerTime;
    Descriptor &link = context.links[module];
    const auto receive = [&] {
        return receiveAnswer(context, link.get(), message.head, answer, out);
    };
    // Late answers must not take the room of this one.
    if (link.isOpen() && !receive() && errno != EAGAIN) {
        link.reset();
    }
    if (!sendTo(context, module, message, deadline)) {
        return false;
    }
    const bool isAnswered = tryUntil(deadline, link.get(), POLLIN, receive);
    if (!isAnswered && (errno == ECONNRESET || errno == EBADMSG)) {
        link.reset();
    }
    return isAnswered;
}

int fail(int error) {
    errno = error;
    return -1;
}

uint32_t givenOf(const void *buf, const void *out) {
    return (buf == nullptr ? 0 : Head::kBufGiven) | (out == nullptr ? 0 : Head::kOutGiven);
}

XbusCtx *registerModule(uint32_t module, XbusHandler handler, void *argument) {
    std::unique_ptr<XbusCtx> context(
        new XbusCtx{.module = module, .handler = handler, .argument = argument});
    const Folder &folder = context->folder;
    const bool isRegistered =
        folder.isOpen() && (context->lock = folder.lock(module)).isOpen() &&
        (context->events = Descriptor(epoll_create1(EPOLL_CLOEXEC))).isOpen() &&
        (context->retry = Descriptor(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC))).isOpen() &&
        (context->listener = folder.listen(module)).isOpen() &&
        watch(*context, context->listener) && watch(*context, context->retry);
    return isRegistered ? context.release() : nullptr;
}

}  // namespace
}  // namespace lanyard::port::bus

using namespace lanyard::port::bus;

PAL_EXPORT int xbusInit(void) try {
    return Folder::prepare() ? 0 : -1;
} catch (const std::bad_alloc &) {
    return fail(ENOMEM);
}

PAL_EXPORT XbusCtx *xbusRegister(uint32_t module, uint32_t /*mode*/, XbusHandler handler,
                                 void *arg) try {
    if (handler == nullptr) {
        errno = EINVAL;
        return nullptr;
    }
    return registerModule(module, handler, arg);
} catch (const std::bad_alloc &) {
    errno = ENOMEM;
    return nullptr;
}

PAL_EXPORT int xbusListen(XbusCtx *ctx, uint32_t timeoutMicroseconds) {
    const auto deadline = Clock::now() + std::chrono::microseconds(timeoutMicroseconds);
    return ctx == nullptr ? failAt(deadline) : listen(*ctx, deadline);
}

PAL_EXPORT int xbusDescriptor(XbusCtx *ctx) {
    return ctx == nullptr ? fail(EINVAL) : ctx->events.get();
}

PAL_EXPORT int xbusIoctl(XbusCtx *ctx, uint32_t destModule, uint32_t cmd, const void *buf,
                         uint32_t len, void *out, uint32_t *outLen, uint32_t flags,
                         uint32_t /*reserved1*/, uint32_t /*reserved2*/) try {
    const uint32_t outLength = outLen == nullptr ? 0 : *outLen;
    if (ctx == nullptr || (flags != XBUS_WAIT && flags != XBUS_NO_WAIT)) {
        return fail(EINVAL);
    }
    if (len > kPartMax || outLength > kPartMax) {
        palModuleDebug(kLogModule, kLogError, "xbusIoctl", __LINE__,
                       "a message of %u and %u bytes is oversized\n", len, outLength);
        return fail(EMSGSIZE);
    }
    if ((buf == nullptr && len != 0) || (out == nullptr && outLength != 0)) {
        return fail(EINVAL);
    }
    const bool waits = flags == XBUS_WAIT;
    const Message message{.head = {.kind = waits ? Kind::kCall : Kind::kNotice,
                                   .id = waits ? ++ctx->lastCall : 0,
                                   .code = cmd,
                                   .given = givenOf(buf, out),
                                   .bufLength = len,
                                   .outLength = outLength},
                          .buf = buf,
                          .out = out};
    if (!waits) {
        return sendTo(*ctx, destModule, message, Clock::time_point::min()) ? 0 : -1;
    }
    Head answer;
    if (!call(*ctx, destModule, message, out, answer)) {
        return -1;
    }
    if (outLen != nullptr) {
        *outLen = answer.outLength;
    }
    return static_cast<int>(answer.code);
} catch (const std::bad_alloc &) {
    return fail(ENOMEM);
}

PAL_EXPORT int xbusConnect(XbusCtx *ctx, uint32_t module) {
    return ctx == nullptr ? fail(EINVAL) : ctx->folder.connect(module).release();
}

PAL_EXPORT int xbusSend(int connection, uint32_t cmd, const void *buf, uint32_t len,
                        const void *out, uint32_t outLen) {
    if ((buf == nullptr && len != 0) || (out == nullptr && outLen != 0)) {
        return fail(EINVAL);
    }
    if (len > kPartMax || outLen > kPartMax) {
        return fail(EMSGSIZE);
    }
    const Head head{.kind = Kind::kCall,
                    .code = cmd,
                    .given = givenOf(buf, out),
                    .bufLength = len,
                    .outLength = outLen};
    return sendMessage(connection, {head, buf, out}) ? 0 : -1;
}

PAL_EXPORT int xbusResult(int connection, int *result) {
    std::array<uint8_t, 1> parts{};  // what the handler left in `out` is not taken
    Head head;
    if (receiveMessage(connection, Side::kSender, head, parts)) {
        *result = static_cast<int>(head.code);
        return 1;
    }
    return errno == EAGAIN ? 0 : fail(ECONNRESET);
}

PAL_EXPORT int xbusUnRegister(XbusCtx *ctx) {
    if (ctx == nullptr) {
        return fail(EINVAL);
    }
    ctx->folder.remove(ctx->module);
    delete ctx;
    return 0;
}

PAL_EXPORT int xbusDeInit(void) {
    return 0;
}
