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

// Answers what a request carried. What came meanwhile belongs to what a verdict has ended: an identity
// would have ended the request.
void finish(Conversation &conversation, int code, RadPair *reply, uint8_t reason) {
    const bool isVerdict = answer(conversation, conversation.answered.data(), code, reply, reason);
    if (isVerdict || !conversation.packet) {
        radEapMsgQueueRelease(&conversation);
    }
}

void takeReply(void *context, RadRequest * /*request*/, int code, RadPair *reply) {
    auto &conversation = *static_cast<Conversation *>(context);
    conversation.request = nullptr;
    --inFlight;
    finish(conversation, code, reply, failureReason(code));
    radPairListFree(reply);
}

// Sends the packet that waits.
void start(Conversation &conversation) {
    radDeviceLogAs("radEapMsgQueueGet", kLogTrace, "Got Packet with cookie:%p\n",
                   asPointer(conversation.cookie));
    PairList request;
    if (!isRelayable(conversation.pending())) {
        radEapMsgQueueRelease(&conversation);
        return;
    }
    std::copy_n(conversation.packet, conversation.answered.size(), conversation.answered.begin());
    const bool isMade = makeRequest(conversation, request);
    freePending(conversation);
    if (isMade) {
        conversation.request = radRequestStart(loop, RAD_CODE_ACCESS_REQUEST, request.head(),
                                               takeReply, &conversation);
    }
    if (conversation.request) {
        ++inFlight;
    } else {
        finish(conversation, -1, nullptr, RAD_EAP_FAILED_NOT_SENT);
    }
}

void startWaiting() {
    const int limit = radOptionGet(RAD_OPTION_EAP_IN_FLIGHT);
    for (Conversation *conversation = firstConversation(); conversation && inFlight < limit;) {
        Conversation *next = nextConversation(conversation);
        if (conversation->packet && !conversation->request) {
            start(*conversation);
        }
        conversation = next;
    }
}

// Waits for the bus and the servers.
void wait(int milliseconds) {
    if (!xbusDescriptor) {
        xbusListen(pRadEapXbusCtx, kTurnMilliseconds * 1000);
        return;
    }
    std::array<pollfd, 2> waited{
        {{xbusDescriptor(pRadEapXbusCtx), POLLIN, 0}, {radLoopDescriptor(loop), POLLIN, 0}}};
    poll(waited.data(), waited.size(), milliseconds);
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
        wait(static_cast<int>((left + 999) / 1000));
        for (int records = 0; records < kRecordsMax && xbusListen(pRadEapXbusCtx, 0) == 1;
             ++records) {
        }
        radLoopRun(loop, 0);
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

bool supersedes(Conversation &conversation, std::span<const uint8_t> packet) {
    if (isIdentity(packet)) {
        cancelRequest(conversation);
        return true;
    }
    return packet.size() < kEapHeaderSize ||
           !std::equal(conversation.answered.begin(), conversation.answered.end(), packet.begin());
}

void makeRoom() {
    int count = 0;
    for (const Conversation *conversation = firstConversation(); conversation;
         conversation = nextConversation(conversation)) {
        ++count;
    }
    if (count > RAD_EAP_LIFE) {
        expire(*firstConversation());
    }
}

void cancelRequest(Conversation &conversation) {
    if (conversation.request) {
        radRequestCancel(conversation.request);
        conversation.request = nullptr;
        --inFlight;
    }
}

}  // namespace lanyard
