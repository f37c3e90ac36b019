// The steps of an exchange.
#include "client/exchange.h"

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <cstring>
#include <utility>

#include <lanyard/radius/attr.h>
#include <palcore.h>

#include "base/clock.h"
#include "base/log.h"
#include "base/text.h"
#include "client/receive.h"
#include "client/server_table.h"

namespace lanyard {
namespace {

// RFC 5080 section 2.2.1: the first wait, and the share of a wait that is left to chance.
constexpr int64_t kFirstWait = 2 * kSecond;
constexpr int64_t kJitterShare = 10;
// A wait doubles no further: it is longer than any time-out of a server by then.
constexpr int kDoublingsMax = 20;

// Sends to a server while a living one is still to be asked.
constexpr int kSendsBeforeNext = 2;

// Identifier of the next try, whichever thread makes it.
std::atomic<uint8_t> radReqIdCounter{0};

// The wait after a send, between 90 and 110 % of its length by a byte of chance.
int64_t waitAfter(int sends, int32_t timeout, uint8_t chance) {
    const int64_t wait = kFirstWait << std::min(sends, kDoublingsMax);
    const int64_t jittered = wait + wait / kJitterShare * (2 * chance - UINT8_MAX) / UINT8_MAX;
    return std::clamp<int64_t>(jittered, 0, std::max(timeout, 0) * kSecond);
}

// Whether a server is worth asking: it has an address, and is not known to be dead.
bool mayAnswer(const sockaddr_in &server) {
    return server.sin_addr.s_addr != 0 && isAlive(server);
}

}  // namespace

Exchange::Exchange(const char *function, int code, RadPair *pairs, const ServerChoice &choice,
                   int32_t *results)
    : function_(function), pairs_(pairs), results_(results), choice_(choice) {
    desc_.code = static_cast<uint8_t>(code);
}

Exchange::Exchange(const RadRequestDesc &desc, const RadPair *pairs)
    : complete_(pairs), desc_(desc) {}

Exchange::Exchange(Resilient request)
    : set_(std::move(request.servers)),
      before_(request.outcome),
      resilient_(true),
      isComplete_(request.isComplete),
      probesDead_(request.probesDead) {
    desc_.code = static_cast<uint8_t>(request.code);
    if (set_) {
        choice_ = set_->choice();
    }
    isOneOfMany_ = request.only >= 0;
    if (isOneOfMany_) {
        choice_.order[0] = static_cast<uint8_t>(request.only);
        choice_.count = 1;
    }
}

Exchange::~Exchange() {
    leave();
    radPairListFree(reply_);
}

bool Exchange::copyPairs(const RadPair *pairs) {
    auto *list = const_cast<RadPair *>(pairs);  // only read
    isEap_ = radPairGet(list, RAD_ATTR_EAP_MESSAGE) != nullptr;
    if (desc_.code == RAD_CODE_ACCOUNTING_REQUEST) {
        delayed_ = radPairGet(list, RAD_ATTR_ACCT_DELAY_TIME) != nullptr;
    }
    const RadPair *state = radPairGet(list, RAD_ATTR_STATE);
    sockaddr_in origin{};
    if (state && findStateOrigin({reinterpret_cast<const uint8_t *>(state->strValue),
                                  std::min<size_t>(state->numValue, RAD_VALUE_MAX)},
                                 origin)) {
        for (const uint8_t index : candidates()) {
            if (isSame(set_->address(index), origin)) {
                stateOrigin_ = index;
            }
        }
    }
    return copy_.assign(pairs);
}

// Orders the servers: the one that gave the State, else one whose time has come to be asked again;
// the living ones; the dead ones.
void Exchange::choose() {
    enum Rank : uint8_t { kFirst, kAlive, kDead, kRanks };
    const auto given = choice_.order;
    const auto servers = std::span(given).first(choice_.count);
    const int64_t now = monotonicMicroseconds();
    // Once for all: other threads may learn more meanwhile.
    std::array<Rank, RAD_SERVERS_MAX> ranks{};
    bool anyAlive = false;
    for (const uint8_t index : servers) {
        ranks[index] = isAlive(set_->address(index)) ? kAlive : kDead;
        anyAlive |= mayAnswer(set_->address(index));
    }
    if (stateOrigin_ >= 0) {
        Rank &rank = ranks[static_cast<size_t>(stateOrigin_)];
        rank = rank == kAlive ? kFirst : rank;
    } else if (anyAlive && probesDead_) {
        const auto due = std::find_if(servers.begin(), servers.end(), [&](uint8_t index) {
            return claimProbe(set_->address(index), now);
        });
        if (due != servers.end()) {
            ranks[*due] = kFirst;
            probesFirst_ = true;
        }
    }
    uint8_t place = 0;
    for (uint8_t rank = 0; rank < kRanks; ++rank) {
        for (const uint8_t index : servers) {
            if (ranks[index] == rank) {
                choice_.order[place++] = index;
            }
        }
    }
}

Next Exchange::start() {
    if (resilient_) {
        started_ = monotonicMicroseconds();
        choose();
    }
    if (complete_) {
        asked_ = 1;
        return resolve();
    }
    return Next::kServer;
}

Next Exchange::nextServer() {
    if (std::exchange(again_, false)) {
        return Next::kOpen;
    }
    if (asked_ == choice_.count) {
        return Next::kEnd;
    }
    // Only the last reply reaches the caller; nobody else could release the one before it.
    radPairListFree(takeReply());
    const uint8_t index = choice_.order[asked_++];
    const RadServer &server = choice_.servers[index];
    result_ = -1;
    sends_ = 0;
    strayReason_ = 0;
    desc_ = {.code = desc_.code,
             .identifier = 0,
             .host = server.host,
             .port = server.port,
             .timeout = server.timeout == -1 ? choice_.timeout : server.timeout,
             .retries = server.retries == -1 ? choice_.retries : server.retries,
             .secret = server.secret};
    if (!desc_.secret) {
        radLogAs(function_, kLogError, "radBuildAndSendReq: Server %s:%d Has No Secret\n",
                 desc_.host, server.port);
        failAt(outcome(), RAD_STEP_PREPARE, RAD_REASON_NO_SECRET);
        return Next::kEnd;
    }
    nasIdentifier_ = server.extra;
    if (resilient_) {
        return reach(set_->address(index));
    }
    if (!addNasIdentity(pairs_, nasIdentifier_, nullptr, outcome())) {
        return Next::kEnd;
    }
    desc_.identifier = radReqIdCounter.fetch_add(1, std::memory_order_relaxed);
    return addSignaturePlace(pairs_, desc_.code) ? resolve() : Next::kEnd;
}

Next Exchange::resolve() {
    sockaddr_in server{};
    server.sin_family = AF_INET;
    server.sin_port = htons(static_cast<uint16_t>(desc_.port));
    if (desc_.host && *desc_.host) {
        server.sin_addr.s_addr = radGetIPByName(desc_.host);
    }
    return reach(server);
}

Next Exchange::reach(const sockaddr_in &server) {
    address_ = server;
    outcome().timeout = desc_.timeout;
    failAt(outcome(), RAD_STEP_RESOLVE, RAD_REASON_HOST_UNKNOWN);
    if (server.sin_addr.s_addr == 0) {
        return endTry(-1);
    }
    radLogAs("radSendtoServer", kLogTrace, "Server found: %s, secret: %s\n", desc_.host,
             shownSecret(desc_.secret));
    return Next::kOpen;
}

Next Exchange::opened() {
    return pack(complete_ ? complete_ : pairs_);
}

Next Exchange::opened(uint8_t identifier) {
    desc_.identifier = identifier;
    PairList list;
    if (!copy_.appendTo(list)) {
        failAt(outcome(), RAD_STEP_PREPARE, RAD_REASON_NO_MEMORY);
        return endTry(-1);
    }
    if (delayed_) {
        RadPair *delay = radPairGet(list.head(), RAD_ATTR_ACCT_DELAY_TIME);
        delay->numValue += static_cast<uint32_t>((monotonicMicroseconds() - started_) / kSecond);
    }
    if (!isComplete_ &&
        !(addNasIdentity(list.head(), nasIdentifier_, &set_->ownAddress(), outcome()) &&
          addSignaturePlace(list.head(), desc_.code))) {
        return endTry(-1);
    }
    return pack(list.head());
}

Next Exchange::pack(const RadPair *pairs) {
    int status = 0;
    request_ = {};  // one packet at a time
    request_ = packRequest(desc_, pairs, status, outcome());
    return request_.packet ? Next::kSend : endTry(status);
}

Packet Exchange::sending() {
    const auto bytes = packet().bytes();
    radLogAs("radSendtoServer", kLogTrace, "Sending Packet to %x:%d ....\n",
             ntohl(address_.sin_addr.s_addr), ntohs(address_.sin_port));
    palModuleDebugHex(kModuleLibrary, kLogDump, "RADIUS Tx Buffer", bytes.data(),
                      static_cast<int>(bytes.size()));
    outcome().tries = sends_ + 1;
    return packet();
}

Next Exchange::sent() {
    if (resilient_) {
        const int64_t now = monotonicMicroseconds();
        noteSent(address_, sends_ > 0);
        if (firstSend_ == 0) {
            firstSend_ = now;
        }
        choosePatience(now);
    }
    return Next::kWait;
}

// How long to wait after a send.
void Exchange::choosePatience(int64_t now) {
    const auto &chance = packet().record().authenticator;
    patience_ =
        waitAfter(sends_, desc_.timeout, chance[static_cast<size_t>(sends_) % sizeof(chance)]);
    // The last server gets its whole time-out once, however few its retries are.
    if (sends_ >= desc_.retries && !hasLivingNext()) {
        patience_ = std::max(patience_, firstSend_ + desc_.timeout * kSecond - now);
    }
}

bool Exchange::mustBeSigned() const {
    if (desc_.code != RAD_CODE_ACCESS_REQUEST) {
        return false;
    }
    const int option = radOptionGet(RAD_OPTION_REQUIRE_MESSAGE_AUTHENTICATOR);
    return option > 0 || (option == 0 && resilient_ && isEap_);
}

Next Exchange::received(std::span<uint8_t> datagram) {
    outcome().attribute = 0;  // of a stray before this one
    const int result =
        readReply(datagram, packet().record(), desc_.secret, mustBeSigned(), &reply_, outcome());
    if (!resilient_) {
        return endTry(result);
    }
    const int32_t reason = outcome().reason;
    if (reason != 0 && reason != RAD_REASON_REPLY_HOOK) {
        noteStray(address_, reason);
        strayReason_ = reason;
        return Next::kWait;
    }
    noteReply(address_, datagram[0], monotonicMicroseconds() - firstSend_);
    const RadPair *state =
        result == RAD_CODE_ACCESS_CHALLENGE ? radPairGet(reply_, RAD_ATTR_STATE) : nullptr;
    if (state) {
        noteState({reinterpret_cast<const uint8_t *>(state->strValue),
                   std::min<size_t>(state->numValue, RAD_VALUE_MAX)},
                  address_);
    }
    return endTry(result);
}

// A server that is still to be asked is worth the time that more sends to this one would take.
bool Exchange::hasLivingNext() const {
    const auto servers = candidates().subspan(asked_);
    return std::any_of(servers.begin(), servers.end(), [&](uint8_t index) {
        const sockaddr_in &next = set_->address(index);
        return !isSame(next, address_) && mayAnswer(next);
    });
}

int Exchange::sendsAllowed() const {
    if (probesFirst_ && asked_ == 1) {
        return 1;
    }
    const int configured = 1 + std::max(desc_.retries, 0);
    return desc_.code == RAD_CODE_STATUS_SERVER || hasLivingNext()
               ? std::min(configured, kSendsBeforeNext)
               : configured;
}

Next Exchange::timedOut() {
    const bool isLast = resilient_ ? sends_ + 1 >= sendsAllowed() : sends_ >= desc_.retries;
    if (resilient_) {
        noteTimeout(address_);
    }
    if (!isLast) {
        ++sends_;
        // A later Acct-Delay-Time makes another packet, with another identifier (RFC 2866 section
        // 5.2).
        again_ = delayed_;
        return again_ ? Next::kServer : Next::kSend;
    }
    if (resilient_) {
        noteSilence(address_, firstSend_, monotonicMicroseconds());
    }
    radLogAs("radSendtoServer", kLogError, "radSendtoServer: No reply from RADIUS server %s:%u\n",
             desc_.host, desc_.port);
    if (strayReason_ < 0) {
        failAt(outcome(), RAD_STEP_REPLY, strayReason_);
    } else if (strayReason_ > 0) {
        failAt(outcome(), RAD_STEP_WAIT, strayReason_);
    } else {
        failAt(outcome(), RAD_STEP_WAIT, RAD_REASON_NO_REPLY);
    }
    return endTry(-1);
}

Next Exchange::failed(int32_t step, int32_t reason) {
    failAt(outcome(), step, reason);
    // Given: a name that is in neither the resolver nor a readable hosts file is sent to as
    // 255.255.255.255. The reason is the name, not what the system says of that address.
    if (address_.sin_addr.s_addr == INADDR_NONE && step == RAD_STEP_SEND &&
        std::strcmp(desc_.host, "255.255.255.255") != 0) {
        failAt(outcome(), RAD_STEP_RESOLVE, RAD_REASON_HOST_UNKNOWN);
    }
    return endTry(-1);
}

Next Exchange::refused(int error) {
    if (asked_ < choice_.count || firstSend_ == 0) {
        return unreachable(error);
    }
    // There is no other server, and this one may be back in a second.
    const int64_t now = monotonicMicroseconds();
    noteSilence(address_, firstSend_, now);
    strayReason_ = error;
    choosePatience(now);
    return Next::kWait;
}

Next Exchange::unreachable(int error) {
    const int64_t now = monotonicMicroseconds();
    noteSilence(address_, firstSend_ == 0 ? now : firstSend_, now);
    return failed(firstSend_ == 0 ? RAD_STEP_SEND : RAD_STEP_WAIT, error);
}

void Exchange::leave() {
    if (std::exchange(firstSend_, 0) != 0) {
        noteLeft(address_);
    }
}

Next Exchange::endTry(int result) {
    leave();
    request_ = {};
    result_ = result;
    if (complete_) {
        return Next::kEnd;
    }
    if (results_) {
        results_[asked_ - 1] = result;
        return Next::kServer;
    }
    return reply_ || result != -1 ? Next::kEnd : Next::kServer;
}

void Exchange::publishOutcomes() const {
    if (!isOneOfMany_) {
        forgetOutcomes();
    }
    if (before_.reason != 0) {
        noteOutcome("", 0, before_);
    }
    for (uint8_t place = 0; place < asked_; ++place) {
        const RadServer *server = complete_ ? nullptr : &choice_.servers[choice_.order[place]];
        const char *host = server ? server->host : desc_.host;
        noteOutcome(host ? host : "", server ? server->port : desc_.port, outcomes_[place]);
    }
}

}  // namespace lanyard
