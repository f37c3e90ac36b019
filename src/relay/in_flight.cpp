// The main loop with many requests in flight.
#include "relay/in_flight.h"

#include <algorithm>
#include <poll.h>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/eap.h>
#include <lanyard/radius/engine.h>
#include <lanyard/radius/error.h>
#include <lanyard/radius/frame.h>
#include <lanyard/radius/loop.h>
#include <xbus.h>

#include "attr/pair_list.h"
#include "base/clock.h"
#include "base/log.h"
#include "relay/relay.h"

// A vendor's bus may come without.
#pragma weak xbusDescriptor

namespace lanyard {
namespace {

constexpr int64_t kPass = kSecond / 10;  // conversations age once a pass
constexpr int kTurnMilliseconds = 10;    // where bus and servers cannot be waited for together
constexpr int kRecordsMax = 64;          // of the bus, before the servers have their turn

// The relay has one thread.
RadLoop *loop = nullptr;
int inFlight = 0;

// Why the request that has ended was no success: at best a packet went to one of the servers.
uint8_t failureReason(int code) {
    if (code == RAD_CODE_ACCESS_REJECT) {
        return RAD_EAP_FAILED_REJECTED;
    }
    const RadLastError *error = nullptr;
    for (int asked = 0; (error = radLastErrorAt(asked)); ++asked) {
        if (error->step >= RAD_STEP_SEND) {
            return RAD_EAP_FAILED_NO_SERVER;
        }
    }
    return RAD_EAP_FAILED_NOT_SENT;
}

bool isIdentity(std::span<const uint8_t> packet) {
    return packet.size() > kEapHeaderSize && packet[kEapHeaderSize] == kEapTypeIdentity;
}

// Answers a response. What came after it belongs to what a verdict has ended: an identity would have
// ended the request.
void finish(RadEapQueueEntry &entry, const EapHeadBytes &response, int code, RadPair *reply,
            uint8_t reason) {
    const bool isVerdict = answer(entry, response.data(), code, reply, reason);
    if (isVerdict || !entry.packet) {
        radEapMsgQueueRelease(&entry);
    }
}

// The request of a conversation is over.
void forgetRequest(Companion &companion) {
    companion.request = nullptr;
    --inFlight;
    if (companion.portInfo().empty()) {
        dropCompanion(&companion);
    }
}

void takeReply(void *context, RadRequest * /*request*/, int code, RadPair *reply) {
    auto &entry = *static_cast<RadEapQueueEntry *>(context);
    Companion &companion = *companionOf(entry);
    const EapHeadBytes response = companion.answered;
    forgetRequest(companion);
    finish(entry, response, code, reply, failureReason(code));
    radPairListFree(reply);
}

// Sends the packet that waits.
void start(RadEapQueueEntry &entry) {
    radDeviceLogAs("radEapMsgQueueGet", kLogTrace, "Got Packet with cookie:%p\n",
                   asPointer(entry.cookie));
    if (!isRelayable(pendingPacket(entry))) {
        radEapMsgQueueRelease(&entry);
        return;
    }
    EapHeadBytes response{};
    std::copy_n(entry.packet, response.size(), response.begin());
    PairList request;
    Companion *companion = makeRequest(entry, request) ? giveCompanion(entry) : nullptr;
    freePending(entry);
    if (companion) {
        companion->answered = response;
        companion->request =
            radRequestStart(loop, RAD_CODE_ACCESS_REQUEST, request.head(), takeReply, &entry);
    }
    if (companion && companion->request) {
        ++inFlight;
    } else {
        finish(entry, response, -1, nullptr, RAD_EAP_FAILED_NOT_SENT);
    }
}

bool hasRequest(const RadEapQueueEntry &entry) {
    const Companion *companion = companionOf(entry);
    return companion && companion->request;
}

void startWaiting() {
    const int limit = radOptionGet(RAD_OPTION_EAP_IN_FLIGHT);
    for (RadEapQueueEntry *entry = firstEntry(); entry && inFlight < limit;) {
        RadEapQueueEntry *next = nextEntry(entry);
        if (entry->packet && !hasRequest(*entry)) {
            start(*entry);
        }
        entry = next;
    }
}

// Which of them may have something. All of them where nobody says.
struct Ready {
    bool bus = true;
    bool servers = true;
};

// Waits for the bus and the servers.
Ready wait(int milliseconds) {
    if (!xbusDescriptor) {
        xbusListen(pRadEapXbusCtx, kTurnMilliseconds * 1000);
        return {};
    }
    std::array<pollfd, 2> waited{
        {{xbusDescriptor(pRadEapXbusCtx), POLLIN, 0}, {radLoopDescriptor(loop), POLLIN, 0}}};
    if (poll(waited.data(), waited.size(), milliseconds) < 1) {
        return {};
    }
    return {.bus = waited[0].revents != 0, .servers = waited[1].revents != 0};
}

}  // namespace

bool servesManyAtOnce() {
    return loop != nullptr;
}

bool serveInFlight(const std::atomic<uint32_t> &running) {
    if (radOptionGet(RAD_OPTION_EAP_IN_FLIGHT) <= 1) {
        return false;
    }
    loop = radLoopCreate();
    if (!loop) {
        return false;
    }
    int64_t nextPass = monotonicMicroseconds() + kPass;
    while (running) {
        const int64_t left = std::max<int64_t>(nextPass - monotonicMicroseconds(), 0);
        const Ready ready = wait(static_cast<int>((left + kMillisecond - 1) / kMillisecond));
        for (int records = 0;
             ready.bus && records < kRecordsMax && xbusListen(pRadEapXbusCtx, 0) == 1; ++records) {
        }
        if (ready.servers) {
            radLoopRun(loop, 0);
        }
        startWaiting();
        if (monotonicMicroseconds() >= nextPass) {
            radEapCtxTimeout();
            nextPass += kPass;
        }
    }
    radEapMsgQueueCleanUp();
    radLoopDestroy(loop);
    loop = nullptr;
    return true;
}

int requestsInFlight() {
    return inFlight;
}

bool isWanted(const RadEapQueueEntry &entry, std::span<const uint8_t> packet) {
    if (!hasRequest(entry)) {
        return true;
    }
    if (isIdentity(packet)) {
        cancelRequest(entry);
        return true;
    }
    const EapHeadBytes &answered = companionOf(entry)->answered;
    return packet.size() < answered.size() ||
           !std::equal(answered.begin(), answered.end(), packet.begin());
}

void makeRoom() {
    int count = 0;
    for (const RadEapQueueEntry *entry = firstEntry(); entry; entry = nextEntry(entry)) {
        ++count;
    }
    if (count > RAD_EAP_LIFE) {
        expire(*firstEntry());
    }
}

void cancelRequest(const RadEapQueueEntry &entry) {
    Companion *companion = companionOf(entry);
    if (companion && companion->request) {
        radRequestCancel(companion->request);
        forgetRequest(*companion);
    }
}

}  // namespace lanyard
