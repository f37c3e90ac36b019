// Making loops, and starting and cancelling their requests.
#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <utility>

#include "attr/pair_list.h"
#include "base/clock.h"
#include "base/partition.h"
#include "client/loop_state.h"
#include "client/server_table.h"

using namespace lanyard;

namespace lanyard {
namespace {

void tellDone(const Listener &listener, RadRequest *request, int code, RadPair *reply) {
    listener.done(listener.context, request, code, reply);
}

// Has Status-Server packets ask those servers that are due (RFC 5997).
void probe(RadLoop &loop, ServerSet &servers) {
    PairList pairs;
    // Completing a request needs a list that is not empty; this pair is replaced by that.
    if (!pairs.addNumber(RAD_ATTR_NAS_IP_ADDRESS, 0)) {
        return;
    }
    const int64_t now = monotonicMicroseconds();
    for (int index = 0; index < servers.choice().count; ++index) {
        const sockaddr_in &server = servers.address(static_cast<size_t>(index));
        if (claimProbe(server, now)) {
            startRequest(
                loop, {.code = RAD_CODE_STATUS_SERVER, .servers = servers.share(), .only = index},
                pairs.head(), {});
        }
    }
}

}  // namespace

RadRequest *startRequest(RadLoop &loop, Exchange::Resilient description, const RadPair *pairs,
                         const Listener &listener) {
    auto request = allocateObject<RadRequest>(&loop, std::move(description), listener);
    if (!request || !request->exchange.copyPairs(pairs)) {
        return nullptr;
    }
    loop.start(request.get());
    return request.release();
}

RadRequest *startRequest(RadLoop &loop, Exchange::Resilient description, const RadPair *pairs,
                         RadDone done, void *context) {
    return startRequest(loop, std::move(description), pairs,
                        {.tell = tellDone, .context = context, .done = done});
}

RadRequest *startConfigured(RadLoop *loop, int code, const RadPair *pairs,
                            const Listener &listener) {
    const ServerDefaults defaults = serverDefaults();
    if (!loop || !pairs) {
        return nullptr;
    }
    Exchange::Resilient description{.code = code};
    ServerChoice choice;
    if (findServers("radBuildAndSendReq", code, defaults, choice, description.outcome)) {
        description.servers = loop->servers(choice, code);
        if (!description.servers) {
            return nullptr;
        }
        description.probesDead = radOptionGet(RAD_OPTION_STATUS_SERVER) == 0;
        if (!description.probesDead) {
            probe(*loop, *description.servers);
        }
    }
    return startRequest(*loop, std::move(description), pairs, listener);
}

}  // namespace lanyard

RadLoop *radLoopCreate(void) {
    Descriptor events(epoll_create1(EPOLL_CLOEXEC));
    Descriptor timer(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK));
    epoll_event event{.events = EPOLLIN, .data = {.ptr = nullptr}};
    if (!events.isOpen() || !timer.isOpen() ||
        epoll_ctl(events.get(), EPOLL_CTL_ADD, timer.get(), &event) != 0) {
        return nullptr;
    }
    return allocateObject<RadLoop>(std::move(events), std::move(timer)).release();
}

int radLoopDescriptor(const RadLoop *loop) {
    return loop ? loop->descriptor() : -1;
}

int radLoopRun(RadLoop *loop, int milliseconds) {
    if (!loop || loop->isRunning()) {
        return -1;
    }
    const int count = loop->run(milliseconds * kMillisecond);
    if (loop->isDoomed()) {
        ObjectDeleter<RadLoop>()(loop);
    }
    return count;
}

void radLoopDestroy(RadLoop *loop) {
    if (loop && loop->isRunning()) {
        loop->doom();
    } else if (loop) {
        ObjectDeleter<RadLoop>()(loop);
    }
}

RadRequest *radRequestStart(RadLoop *loop, int code, const RadPair *pairs, RadDone done,
                            void *context) {
    return done ? startConfigured(loop, code, pairs,
                                  {.tell = tellDone, .context = context, .done = done})
                : nullptr;
}

void radRequestCancel(RadRequest *request) {
    if (request && !request->loop->isCurrent(request)) {
        request->loop->cancel(request);
    }
}
