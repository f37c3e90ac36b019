// The authenticator and the relay: which packets the relay has, and what becomes of its answers.
#include <algorithm>
#include <utility>

#include "tools/pnac_wired/authenticator.h"

namespace lanyard::pnac {
namespace {

// How many attempts pass before a cookie may come again: more than the relay remembers.
constexpr size_t kCookiesRemembered = 65536;

}  // namespace

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

void Authenticator::forward(Conversation &conversation, const EapPacket &eap, Time now) {
    noteAnswered(conversation);
    conversation.underway = conversation.cookie != 0;
    if (conversation.cookie == 0) {
        conversation.cookie = newCookie();
        cookies_[conversation.cookie] = conversation.address;
    }
    conversation.identifier = eap.identifier;
    conversation.packet = buildRecord(conversation.cookie, eap.bytes);
    conversation.phaseEnd = now + settings_.relayTimeout;
    setPhase(conversation, Phase::kBacklog);
    if (!handOverAt_) {
        drainBacklog(now);
    }
    counters_.recordsDelayed += conversation.phase == Phase::kBacklog ? 1U : 0U;
}

bool Authenticator::handOver(Conversation &conversation, Time now) {
    if (!outlet_.sendRecord(conversation.packet)) {
        handOverAt_ = now + handOverRetry_;
        handOverRetry_ = std::min(handOverRetry_ * 2, settings_.handOverRetryMax);
        return false;
    }
    ++counters_.recordsSent;
    ++inWindow_;
    handOverRetry_ = settings_.handOverRetryMin;
    conversation.packet.clear();
    setPhase(conversation, Phase::kRelay);
    return true;
}

Authenticator::Conversation *Authenticator::firstOfBacklog() {
    const auto &backlog = underway_.empty() ? newcomers_ : underway_;
    return backlog.empty() ? nullptr : find(backlog.front());
}

void Authenticator::drainBacklog(Time now) {
    handOverAt_.reset();
    inWindow_ = std::min(inWindow_, withRelay_);
    while (Conversation *conversation = firstOfBacklog()) {
        if (inWindow_ >= settings_.relayWindow) {
            handOverAt_ = now + settings_.relayStall;
            return;
        }
        if (!handOver(*conversation, now)) {
            return;
        }
    }
}

// From the relay

void Authenticator::receiveRecord(ByteView bytes, Time now) {
    ++counters_.recordsReceived;
    inWindow_ -= std::min<size_t>(inWindow_, 1);
    if (const auto record = parseRecord(bytes)) {
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
        return;
    }
    sendEap(*conversation, record.eap.bytes);
    switch (record.eap.code) {
        case EapCode::kRequest:
            relayRequest(*conversation, record, now);
            settle(*conversation);
            break;
        case EapCode::kSuccess:
            authorize(*conversation, record, now);
            settle(*conversation);
            break;
        default:
            fail(*conversation, Reason::kRejected, now);
            break;
    }
}

void Authenticator::relayRequest(Conversation &conversation, const RelayRecord &record, Time now) {
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
    Session session{.identity = conversation.identity,
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
