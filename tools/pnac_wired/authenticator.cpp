#include "tools/pnac_wired/authenticator.h"

#include <utility>

namespace lanyard::pnac {
namespace {

// No server has said anything about that supplicant.
bool isUndecided(Reason reason) {
    switch (reason) {
        case Reason::kRelaySilent:
        case Reason::kRelayNotRunning:
        case Reason::kNoServer:
        case Reason::kNotSent:
        case Reason::kExpired:
            return true;
        default:
            return false;
    }
}

// What a User-Name has room for (RFC 2865 section 5). The relay would keep a longer one for minutes
// and could ask no server for it.
constexpr size_t kIdentityMax = 253;

}  // namespace

Authenticator::Authenticator(const Settings &settings, Outlet &outlet,
                             std::function<uint32_t()> random)
    : settings_(settings),
      outlet_(outlet),
      random_(std::move(random)),
      load_(settings.relayLoad),
      handOverRetry_(settings.handOverRetryMin) {}

// The link

void Authenticator::linkUp(Time now) {
    if (linkIsUp_) {
        return;
    }
    linkIsUp_ = true;
    group_ = GroupRequest{.identifier = static_cast<uint8_t>(random_()),
                          .repeatsLeft = settings_.repeats,
                          .startedAt = now,
                          .due = now + settings_.interval};
    sendGroupRequest();
}

void Authenticator::linkDown(Time now) {
    linkIsUp_ = false;
    endAll(Reason::kLinkDown, now);
}

void Authenticator::shutDown(Time now) {
    linkIsUp_ = false;
    endAll(Reason::kShutdown, now);
}

void Authenticator::endAll(Reason reason, Time now) {
    group_.reset();
    for (auto next = conversations_.begin(); next != conversations_.end();) {
        Conversation &conversation = (next++)->second;
        endSession(conversation, reason, now);
        // Pulling the plug must not be a way to be heard again.
        if (!conversation.quietUntil) {
            drop(conversation);
        }
    }
    load_.forget();
    stalledAt_.reset();
    handOverAt_.reset();
}

void Authenticator::sendGroupRequest() {
    // In the first version, which every supplicant reads.
    outlet_.sendFrame(buildFrame(kPaeGroup, settings_.address, kEapolVersionMin,
                                 identityRequest(group_->identifier)));
}

// Someone is there: whoever has logged in by now would have to do it again.
void Authenticator::stopGroupRequests() {
    if (group_) {
        group_->repeatsLeft = 0;
    }
}

// Frames

void Authenticator::receiveFrame(ByteView bytes, Time now) {
    ++counters_.framesReceived;
    const auto [fault, frame] = parseFrame(bytes, settings_.address);
    if (fault != FrameFault::kNone) {
        ++(fault == FrameFault::kForeign ? counters_.framesForeign : counters_.framesMalformed);
        return;
    }
    if (!linkIsUp_) {
        linkUp(now);  // a frame knows better than the news of the interface, which may be late
    }
    if (const Conversation *known = find(frame.source); known && known->quietUntil) {
        ++counters_.framesWhileQuiet;
        return;
    }
    switch (frame.type) {
        case EapolType::kStart:
            ++counters_.starts;
            receiveStart(frame, now);
            break;
        case EapolType::kLogoff:
            ++counters_.logoffs;
            receiveLogoff(frame, now);
            break;
        case EapolType::kEap:
            receiveEap(frame, now);
            break;
    }
}

void Authenticator::receiveStart(const EapolFrame &frame, Time now) {
    Conversation *conversation = findOrAdd(frame);
    if (!conversation) {
        return;
    }
    stopGroupRequests();
    if (conversation->phase == Phase::kIdentify) {
        sendEap(*conversation, conversation->packet);
        return;
    }
    if (isInMethod(*conversation)) {
        probe(*conversation);
        return;
    }
    beginAttempt(*conversation, now);
    identify(*conversation, now);
    settle(*conversation);
}

void Authenticator::receiveLogoff(const EapolFrame &frame, Time now) {
    Conversation *conversation = find(frame.source);
    if (!conversation) {
        return;
    }
    endSession(*conversation, Reason::kLogoff, now);
    // Anybody can send it in another's name: who is there all the same gets in again at once, and who has left
    // does not answer.
    if (isInMethod(*conversation)) {
        conversation->loggedOff = true;
        probe(*conversation);
        noteUnanswered(*conversation);
    } else if (conversation->phase != Phase::kIdentify) {
        beginAttempt(*conversation, now);
        identify(*conversation, now);
        noteUnanswered(*conversation);
    }
    settle(*conversation);
}

void Authenticator::receiveEap(const EapolFrame &frame, Time now) {
    const auto eap = parseEap(frame.body);
    if (!eap || eap->code != EapCode::kResponse) {
        ++counters_.eapMalformed;
        return;
    }
    Conversation *conversation = find(frame.source);
    if (conversation && conversation->probeIdentifier == eap->identifier &&
        eap->type == kEapTypeIdentity) {
        beginAttempt(*conversation, now);
    } else if (!conversation || !takesResponse(*conversation, *eap)) {
        const bool atWork = conversation && conversation->phase != Phase::kIdle &&
                            conversation->phase != Phase::kIdentify;
        if (atWork || !answersGroup(*eap)) {
            ++counters_.eapUnexpected;
            return;
        }
        conversation = findOrAdd(frame);
        if (!conversation) {
            return;
        }
        if (conversation->phase == Phase::kIdle) {
            beginAttempt(*conversation, now);
        }
        stopGroupRequests();
    }
    conversation->version = frame.version;
    // Also in the middle of an attempt: the relay begins anew with that name, and it is the one that
    // the server's verdict is about.
    if (eap->type == kEapTypeIdentity) {
        conversation->identity.assign(eap->typeData.begin(), eap->typeData.end());
        if (conversation->identity.size() > kIdentityMax) {
            refuse(*conversation, *eap, now);
            return;
        }
    }
    forward(*conversation, *eap, now);
    settle(*conversation);
}

bool Authenticator::takesResponse(const Conversation &conversation, const EapPacket &eap) {
    return eap.identifier == conversation.identifier &&
           (conversation.phase == Phase::kRequest ||
            (conversation.phase == Phase::kIdentify && eap.type == kEapTypeIdentity));
}

bool Authenticator::answersGroup(const EapPacket &eap) const {
    return group_ && eap.type == kEapTypeIdentity && eap.identifier == group_->identifier;
}

// An attempt to log in

bool Authenticator::isInMethod(const Conversation &conversation) {
    return conversation.phase == Phase::kRequest ||
           (conversation.underway &&
            (conversation.phase == Phase::kBacklog || conversation.phase == Phase::kRelay));
}

void Authenticator::beginAttempt(Conversation &conversation, Time now) {
    endAttempt(conversation);
    conversation.identity.clear();
    conversation.startedAt = now;
}

void Authenticator::endAttempt(Conversation &conversation) {
    if (conversation.birth) {
        leaveRemnant(conversation);
    } else {
        cookies_.erase(conversation.cookie);
    }
    conversation.birth.reset();
    conversation.cookie = 0;
    conversation.packet.clear();
    conversation.probeIdentifier.reset();
    conversation.loggedOff = false;
    conversation.phaseEnd.reset();
    setPhase(conversation, Phase::kIdle);
}

void Authenticator::identify(Conversation &conversation, Time now) {
    const auto request = identityRequest(++conversation.identifier);
    conversation.packet.assign(request.begin(), request.end());
    conversation.interval = settings_.interval;
    conversation.repeatsLeft = settings_.repeats;
    conversation.phaseEnd = now + conversation.interval;
    setPhase(conversation, Phase::kIdentify);
    sendEap(conversation, conversation.packet);
}

// Asks the supplicant of a method who it is.
void Authenticator::probe(Conversation &conversation) {
    if (!conversation.probeIdentifier) {
        // Far from those of the method, which go up by one.
        conversation.probeIdentifier = static_cast<uint8_t>(conversation.identifier + 128);
    }
    sendEap(conversation, identityRequest(*conversation.probeIdentifier));
}

// Ends an attempt without the relay, which has nothing to say to that identity.
void Authenticator::refuse(Conversation &conversation, const EapPacket &eap, Time now) {
    ++counters_.identitiesTooLong;
    failWith(eapFailure(eap.identifier), conversation, Reason::kIdentityTooLong, now);
}

// A supplicant whose session goes on gets no Failure: it would close the port at its own end.
void Authenticator::failWith(ByteView failure, Conversation &conversation, Reason reason,
                             Time now) {
    if (!conversation.session || !isUndecided(reason)) {
        sendEap(conversation, failure);
    }
    fail(conversation, reason, now);
}

void Authenticator::fail(Conversation &conversation, Reason reason, Time now) {
    if (!conversation.identity.empty() || conversation.cookie != 0) {
        ++counters_.failed;
        outlet_.report({.kind = EventKind::kFailed,
                        .reason = reason,
                        .address = conversation.address,
                        .identity = conversation.identity,
                        .duration = now - conversation.startedAt,
                        .reauthentication = conversation.session.has_value()});
    }
    endAttempt(conversation);
    if (conversation.session && isUndecided(reason)) {
        conversation.session->askAt = now + settings_.askAgain;
    } else {
        endSession(conversation, Reason::kNotReauthenticated, now);
    }
    if (reason == Reason::kRejected && settings_.quietPeriod > Duration::zero()) {
        silence(conversation, now);
    }
    settle(conversation);
}

void Authenticator::endSession(Conversation &conversation, Reason reason, Time now) {
    if (!conversation.session) {
        return;
    }
    const Session session = std::move(*conversation.session);
    conversation.session.reset();
    outlet_.report({.kind = EventKind::kUnauthorized,
                    .reason = reason,
                    .address = conversation.address,
                    .identity = session.identity,
                    .duration = now - session.since});
}

// Time

void Authenticator::tick(Time now) {
    // Each conversation that wakes goes, or sets an alarm later than now.
    while (!alarms_.empty() && alarms_.begin()->first <= now) {
        wake(*find(alarms_.begin()->second), now);
    }
    if (group_ && group_->due <= now) {
        repeatGroupRequest(now);
    }
    const bool isStalled = stalledAt_ && *stalledAt_ <= now;
    if (isStalled) {
        load_.forget();
        stalledAt_.reset();
    }
    if (isStalled || (handOverAt_ && *handOverAt_ <= now)) {
        drainBacklog(now);
    }
}

std::optional<Time> Authenticator::nextDeadline() const {
    std::optional<Time> next = earlier(handOverAt_, stalledAt_);
    if (!alarms_.empty()) {
        next = earlier(next, alarms_.begin()->first);
    }
    if (group_) {
        next = earlier(next, group_->due);
    }
    return next;
}

void Authenticator::wake(Conversation &conversation, Time now) {
    if (conversation.phaseEnd && *conversation.phaseEnd <= now) {
        expirePhase(conversation, now);
    } else if (conversation.quietUntil) {
        endQuiet(conversation, now);
    } else {
        expireSession(conversation, now);
    }
}

void Authenticator::expirePhase(Conversation &conversation, Time now) {
    if (conversation.phase == Phase::kHeld) {
        forgetRemnant(conversation.address);  // its answer is lost, or late for good
        enqueue(conversation, now);
        settle(conversation);
    } else if (conversation.phase == Phase::kBacklog || conversation.phase == Phase::kRelay) {
        expireRelay(conversation, now);
    } else if (conversation.repeatsLeft > 0) {
        --conversation.repeatsLeft;
        ++counters_.requestsRepeated;
        sendEap(conversation, conversation.packet);
        conversation.phaseEnd = now + conversation.interval;
        settle(conversation);
    } else {
        fail(conversation, Reason::kSupplicantSilent, now);
    }
}

// The standard has the supplicant asked then. Its own wait may be as long and have ended a moment before: that
// start was not heard.
void Authenticator::endQuiet(Conversation &conversation, Time now) {
    if (!linkIsUp_) {
        drop(conversation);
        return;
    }
    quiet_.erase(*conversation.quiet);
    conversation.quiet.reset();
    conversation.quietUntil.reset();
    beginAttempt(conversation, now);
    identify(conversation, now);
    noteUnanswered(conversation);
    settle(conversation);
}

// Either way the supplicant is asked who it is. It does not know of the end of its session, and would
// have no reason to start by itself.
void Authenticator::expireSession(Conversation &conversation, Time now) {
    Session &session = *conversation.session;
    if (!session.end || *session.end > now) {
        session.askAt.reset();
    } else if (session.rule == SessionRule::kTerminate) {
        endSession(conversation, Reason::kSessionTimeout, now);
    } else {
        session.end.reset();  // from here on the attempt decides
        session.askAt.reset();
    }
    if (conversation.phase == Phase::kIdle) {
        beginAttempt(conversation, now);
        identify(conversation, now);
    }
    settle(conversation);
}

void Authenticator::repeatGroupRequest(Time now) {
    const Time end = group_->startedAt + settings_.interval * (settings_.repeats + 1);
    if (group_->repeatsLeft > 0) {
        --group_->repeatsLeft;
        ++counters_.requestsRepeated;
        sendGroupRequest();
        group_->due = now + settings_.interval;
    } else if (now < end) {
        group_->due = end;  // answers may still come
    } else {
        group_.reset();
    }
}

void Authenticator::setPhase(Conversation &conversation, Phase phase) {
    withRelay_ -= conversation.phase == Phase::kRelay ? 1U : 0U;
    withRelay_ += phase == Phase::kRelay ? 1U : 0U;
    held_ -= conversation.phase == Phase::kHeld ? 1U : 0U;
    held_ += phase == Phase::kHeld ? 1U : 0U;
    if (conversation.waiting) {
        backlogOf(conversation).erase(*conversation.waiting);
        conversation.waiting.reset();
    }
    if (phase == Phase::kBacklog) {
        auto &backlog = backlogOf(conversation);
        conversation.waiting = backlog.insert(backlog.end(), conversation.address);
    }
    conversation.phase = phase;
}

void Authenticator::sendEap(const Conversation &conversation, ByteView eap) {
    outlet_.sendFrame(
        buildFrame(conversation.address, settings_.address, conversation.version, eap));
}

}  // namespace lanyard::pnac
