// The authenticator and the relay: which packets the relay has, and what becomes of its answers.
#include <algorithm>
#include <utility>

#include <lanyard/radius/eap.h>

#include "tools/pnac_wired/authenticator.h"

namespace lanyard::pnac {
namespace {

// How many attempts pass before a cookie may come again: more than the relay remembers.
constexpr size_t kCookiesRemembered = 65536;

// As many as the relay has conversations.
constexpr size_t kRemnantsMax = RAD_EAP_LIFE;

// The relay counts a conversation's age in passes: one for each packet, and one for each tenth of a
// second without any. One that has lived for half of its time has enough left for a login.
constexpr Duration kIdlePass = std::chrono::milliseconds(100);
constexpr uint64_t kYoungPasses = RAD_EAP_LIFE / 2;

Reason reasonOf(FailureReason failure) {
    switch (failure) {
        case FailureReason::kNoServer:
            return Reason::kNoServer;
        case FailureReason::kNotSent:
            return Reason::kNotSent;
        case FailureReason::kExpired:
            return Reason::kExpired;
        default:
            return Reason::kRejected;
    }
}

}  // namespace

// What the relay has of attempts that were given up

bool Authenticator::isYoung(const Birth &birth, Time now) const {
    const auto idlePasses = static_cast<uint64_t>((now - birth.since) / kIdlePass);
    return counters_.recordsSent - birth.recordsSent + idlePasses <= kYoungPasses;
}

Authenticator::Remnant *Authenticator::findRemnant(const Mac &address) {
    const auto found = remnants_.find(address);
    return found == remnants_.end() ? nullptr : &found->second;
}

void Authenticator::forgetRemnant(const Mac &address) {
    if (const Remnant *remnant = findRemnant(address)) {
        cookies_.erase(remnant->cookie);
        remnantsByAge_.erase(remnant->place);
        remnants_.erase(address);
    }
}

void Authenticator::leaveRemnant(const Conversation &conversation) {
    if (remnants_.size() >= kRemnantsMax) {
        forgetRemnant(Mac(remnantsByAge_.front()));
    }
    remnants_[conversation.address] = {
        .cookie = conversation.cookie,
        .birth = *conversation.birth,
        .packetSent = conversation.packetSent,
        .owedUntil = conversation.phase == Phase::kRelay ? conversation.phaseEnd : std::nullopt,
        .place = remnantsByAge_.insert(remnantsByAge_.end(), conversation.address)};
}

// To the relay

uint32_t Authenticator::newCookie() {
    uint32_t cookie = 0;
    do {
        cookie = random_();
    } while (cookie == 0 || !usedCookies_.insert(cookie).second);
    recentCookies_.push_back(cookie);
    if (recentCookies_.size() > kCookiesRemembered) {
        usedCookies_.erase(recentCookies_.front());
        recentCookies_.pop_front();
    }
    return cookie;
}

// A cookie for an attempt that has none.
void Authenticator::takeCookie(Conversation &conversation, Time now) {
    const Remnant *remnant = findRemnant(conversation.address);
    if (remnant && !remnant->owedUntil && isYoung(remnant->birth, now)) {
        conversation.cookie = remnant->cookie;
        conversation.birth = remnant->birth;
    } else {
        conversation.cookie = newCookie();
    }
    forgetRemnant(conversation.address);
    cookies_[conversation.cookie] = conversation.address;
}

void Authenticator::forward(Conversation &conversation, const EapPacket &eap, Time now) {
    noteAnswered(conversation);
    conversation.underway = conversation.cookie != 0;
    conversation.identifier = eap.identifier;
    conversation.packet.assign(eap.bytes.begin(), eap.bytes.end());
    const Remnant *remnant = findRemnant(conversation.address);
    if (remnant && remnant->owedUntil && *remnant->owedUntil > now) {
        conversation.phaseEnd = remnant->owedUntil;
        setPhase(conversation, Phase::kHeld);
        ++counters_.recordsDelayed;
        return;
    }
    enqueue(conversation, now);
    counters_.recordsDelayed += conversation.phase == Phase::kBacklog ? 1U : 0U;
}

// Offers the conversation's packet to the relay, when its turn comes.
void Authenticator::enqueue(Conversation &conversation, Time now) {
    if (conversation.cookie == 0) {
        takeCookie(conversation, now);
    }
    const Bytes port =
        settings_.port ? portInformation(conversation.address, *settings_.port) : Bytes();
    conversation.packet = buildRecord(conversation.cookie, conversation.packet, port);
    conversation.phaseEnd = now + settings_.relayTimeout;
    setPhase(conversation, Phase::kBacklog);
    if (!handOverAt_) {
        drainBacklog(now);
    }
}

bool Authenticator::handOver(Conversation &conversation, Time now) {
    lastHandOver_ = outlet_.sendRecord(conversation.packet);
    if (lastHandOver_ != HandOver::kTaken) {
        handOverAt_ = now + handOverRetry_;
        handOverRetry_ = std::min(handOverRetry_ * 2, settings_.handOverRetryMax);
        return false;
    }
    if (!conversation.birth) {
        conversation.birth = Birth{.since = now, .recordsSent = counters_.recordsSent};
    }
    ++counters_.recordsSent;
    handOverRetry_ = settings_.handOverRetryMin;
    conversation.packet.clear();
    conversation.packetSent = load_.sent();
    conversation.phaseEnd = now + settings_.relayTimeout;
    setPhase(conversation, Phase::kRelay);
    settle(conversation);
    return true;
}

bool Authenticator::handOverFirst(const std::list<Mac> &backlog, Time now) {
    return handOver(*find(backlog.front()), now);
}

void Authenticator::drainBacklog(Time now) {
    handOverAt_.reset();
    while (!underway_.empty()) {
        if (!handOverFirst(underway_, now)) {
            return;
        }
    }
    while (!newcomers_.empty() && !load_.isFull()) {
        if (!handOverFirst(newcomers_, now)) {
            return;
        }
    }
    if (newcomers_.empty()) {
        stalledAt_.reset();
    } else if (!stalledAt_) {
        stalledAt_ = now + settings_.relayLoad.slow;
    }
}

// A packet has waited for so long. What the relay has not been handed is not its silence while it
// answers others.
void Authenticator::expireRelay(Conversation &conversation, Time now) {
    const bool isWaiting = conversation.phase == Phase::kBacklog;
    if (isWaiting && lastAnswer_ + settings_.relayTimeout > now) {
        conversation.phaseEnd = lastAnswer_ + settings_.relayTimeout;
        settle(conversation);
        return;
    }
    if (!isWaiting) {
        load_.late(conversation.packetSent);
    }
    const bool isNobody = isWaiting && lastHandOver_ == HandOver::kNobody;
    failWith(eapFailure(conversation.identifier), conversation,
             isNobody ? Reason::kRelayNotRunning : Reason::kRelaySilent, now);
}

// From the relay

void Authenticator::receiveRecord(ByteView bytes, Time now) {
    ++counters_.recordsReceived;
    stalledAt_.reset();
    if (const auto record = parseRecord(bytes)) {
        lastAnswer_ = now;
        takeRecord(*record, now);
    } else {
        ++counters_.recordsMalformed;
    }
    drainBacklog(now);
}

void Authenticator::takeRecord(const RelayRecord &record, Time now) {
    Conversation *conversation = findCookie(record.cookie);
    if (!conversation || conversation->phase != Phase::kRelay) {
        ++counters_.recordsUnexpected;
        takeLateAnswer(record, now);
        return;
    }
    load_.answered(conversation->packetSent,
                   now - (*conversation->phaseEnd - settings_.relayTimeout));
    if (record.eap.code != EapCode::kRequest) {
        conversation->birth.reset();  // the relay forgets it with its verdict
    }
    switch (record.eap.code) {
        case EapCode::kRequest:
            sendEap(*conversation, record.eap.bytes);
            relayRequest(*conversation, record, now);
            settle(*conversation);
            break;
        case EapCode::kSuccess:
            sendEap(*conversation, record.eap.bytes);
            if (conversation->loggedOff) {
                beginAttempt(*conversation, now);
                identify(*conversation, now);
                noteUnanswered(*conversation);
            } else {
                authorize(*conversation, record, now);
            }
            settle(*conversation);
            break;
        default:
            failWith(record.eap.bytes, *conversation, reasonOf(record.keyInfo.failure), now);
            break;
    }
}

// An answer to an attempt that was given up: the next one of that address need not wait any more.
void Authenticator::takeLateAnswer(const RelayRecord &record, Time now) {
    const auto owner = cookies_.find(record.cookie);
    if (owner == cookies_.end()) {
        return;
    }
    const Mac address = owner->second;
    Remnant *remnant = findRemnant(address);
    if (!remnant || remnant->cookie != record.cookie) {
        return;
    }
    if (remnant->owedUntil) {
        load_.answered(remnant->packetSent, now - (*remnant->owedUntil - settings_.relayTimeout));
    }
    if (record.eap.code == EapCode::kRequest) {
        remnant->owedUntil.reset();
    } else {
        forgetRemnant(address);
    }
    Conversation *conversation = find(address);
    if (conversation && conversation->phase == Phase::kHeld) {
        enqueue(*conversation, now);
        settle(*conversation);
    }
}

void Authenticator::relayRequest(Conversation &conversation, const RelayRecord &record, Time now) {
    // Whoever still answers that goes on to answer this.
    conversation.probeIdentifier.reset();
    conversation.identifier = record.eap.identifier;
    conversation.packet.assign(record.eap.bytes.begin(), record.eap.bytes.end());
    conversation.repeatsLeft = settings_.repeats;
    conversation.interval = settings_.interval;
    const auto &session = record.keyInfo.session;
    if (session && session->rule == SessionRule::kChallengeWait) {
        // RFC 3580 section 3.17: how long to wait before the request is sent again.
        conversation.interval =
            std::clamp<Duration>(std::chrono::seconds(session->seconds), std::chrono::seconds(1),
                                 settings_.challengeWaitMax);
    }
    conversation.phaseEnd = now + conversation.interval;
    setPhase(conversation, Phase::kRequest);
}

void Authenticator::authorize(Conversation &conversation, const RelayRecord &record, Time now) {
    const bool again = conversation.session.has_value();
    const ByteView vlan = record.keyInfo.vlan;
    Session session{.identity = conversation.identity,
                    .vlan = Bytes(vlan.begin(), vlan.end()),
                    .since = again ? conversation.session->since : now};
    const auto &timeout = record.keyInfo.session;
    if (timeout && timeout->rule != SessionRule::kChallengeWait) {
        session.end = now + std::chrono::seconds(std::max(timeout->seconds, uint32_t{1}));
        session.rule = timeout->rule;
    }
    conversation.session = std::move(session);
    ++counters_.authorized;
    outlet_.report({.kind = EventKind::kAuthorized,
                    .reason = Reason::kAccepted,
                    .address = conversation.address,
                    .identity = conversation.identity,
                    .duration = now - conversation.startedAt,
                    .reauthentication = again,
                    .keyInfo = record.keyInfo});
    endAttempt(conversation);
}

}  // namespace lanyard::pnac
