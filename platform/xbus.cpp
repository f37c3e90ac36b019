/**
 * @file
 * The management bus over Unix-domain sockets.
 *
 * Nothing of it runs on its own: there is no thread and nothing is cleaned up at the end of a
 * process. A module that registers and then becomes a daemon is the same module afterwards.
 */
#include <cerrno>
#include <memory>
#include <new>
#include <utility>

#include <palcore.h>
#include <xbus.h>

#include "export.h"
#include "xbus_descriptor.h"
#include "xbus_folder.h"
#include "xbus_inbox.h"
#include "xbus_message.h"
#include "xbus_outbox.h"
#include "xbus_wait.h"

/** A registered module. Its lock is released last. */
struct XbusCtx {
    XbusCtx(uint32_t number, port::bus::Folder opened, port::bus::Descriptor locked,
            port::bus::Descriptor listener, const port::bus::Inbox::Receiver &receiver)
        : module(number),
          folder(std::move(opened)),
          lock(std::move(locked)),
          inbox(folder, std::move(listener), receiver),
          outbox(folder) {}

    uint32_t module;
    port::bus::Folder folder;
    port::bus::Descriptor lock;
    port::bus::Inbox inbox;
    port::bus::Outbox outbox;
};

namespace port::bus {
namespace {

constexpr uint32_t waits = 0;
constexpr uint32_t doesNotWait = 2;

XbusCtx *registerModule(uint32_t module, const Inbox::Receiver &receiver) {
    Folder folder;
    if (!folder.isOpen()) {
        return nullptr;
    }
    Descriptor lock = folder.lock(module);
    if (!lock.isOpen()) {
        return nullptr;
    }
    Descriptor listener = folder.listen(module);
    if (!listener.isOpen()) {
        return nullptr;
    }
    auto context = std::make_unique<XbusCtx>(module, std::move(folder), std::move(lock),
                                             std::move(listener), receiver);
    return context->inbox.isOpen() ? context.release() : nullptr;
}

bool isSound(const Request &request) noexcept {
    if (request.bufLength > partMax || request.outLength > partMax) {
        palModuleDebug(logModule, logError, "xbusIoctl", __LINE__,
                       "a message of %u and %u bytes is oversized\n", request.bufLength,
                       request.outLength);
        errno = EMSGSIZE;
        return false;
    }
    errno = EINVAL;
    return (request.parts.buf != nullptr || request.bufLength == 0) &&
           (request.parts.out != nullptr || request.outLength == 0);
}

int call(Outbox &outbox, const Request &request, void *out, uint32_t *outLength) {
    Head answer;
    if (!outbox.call(request, out, answer)) {
        return -1;
    }
    if (outLength != nullptr) {
        *outLength = answer.outLength;
    }
    return static_cast<int>(answer.code);
}

}  // namespace
}  // namespace port::bus

PAL_EXPORT int xbusInit(void) {
    return port::bus::Folder::prepare() ? 0 : -1;
}

PAL_EXPORT XbusCtx *xbusRegister(uint32_t module, uint32_t /*mode*/, XbusHandler handler,
                                 void *arg) {
    if (handler == nullptr) {
        errno = EINVAL;
        return nullptr;
    }
    try {
        return port::bus::registerModule(module, {handler, arg});
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return nullptr;
    }
}

PAL_EXPORT int xbusListen(XbusCtx *ctx, uint32_t timeoutMicroseconds) {
    using port::bus::Inbox;
    const auto deadline = port::bus::Clock::now() + std::chrono::microseconds(timeoutMicroseconds);
    if (ctx == nullptr) {
        return port::bus::waitUntil({}, deadline) == -1 ? 0 : -1;
    }
    switch (ctx->inbox.handleOne(deadline)) {
        case Inbox::Outcome::handled:
            return 1;
        case Inbox::Outcome::nothing:
            return 0;
        default:
            return -1;
    }
}

PAL_EXPORT int xbusDescriptor(XbusCtx *ctx) {
    if (ctx == nullptr) {
        errno = EINVAL;
        return -1;
    }
    return ctx->inbox.descriptor();
}

PAL_EXPORT int xbusIoctl(XbusCtx *ctx, uint32_t destModule, uint32_t cmd, const void *buf,
                         uint32_t len, void *out, uint32_t *outLen, uint32_t flags,
                         uint32_t /*reserved1*/, uint32_t /*reserved2*/) {
    using namespace port::bus;
    if (ctx == nullptr || (flags != waits && flags != doesNotWait)) {
        errno = EINVAL;
        return -1;
    }
    const Request request{destModule, cmd, {buf, out}, len, outLen == nullptr ? 0 : *outLen};
    if (!isSound(request)) {
        return -1;
    }
    try {
        if (flags == doesNotWait) {
            return ctx->outbox.notify(request) ? 0 : -1;
        }
        return call(ctx->outbox, request, out, outLen);
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return -1;
    }
}

PAL_EXPORT int xbusUnRegister(XbusCtx *ctx) {
    if (ctx == nullptr) {
        errno = EINVAL;
        return -1;
    }
    ctx->folder.remove(ctx->module);
    delete ctx;
    return 0;
}

PAL_EXPORT int xbusDeInit(void) {
    return 0;
}
