// The authenticator's table: who is in it, who has to make room, and who is woken when.
#include <algorithm>

#include "tools/pnac_wired/authenticator.h"

namespace lanyard::pnac {

Authenticator::Conversation *Authenticator::find(const Mac &address) {
    const auto found = conversations_.find(address);
    return found == conversations_.end() ? nullptr : &found->second;
}

Authenticator::Conversation *Authenticator::findCookie(uint32_t cookie) {
    const auto found = cookies_.find(cookie);
    Conversation *conversation = found == cookies_.end() ? nullptr : find(found->second);
    return conversation && conversation->cookie == cookie ? conversation : nullptr;
}

Authenticator::Conversation *Authenticator::findOrAdd(const EapolFrame &frame) {
    Conversation *conversation = find(frame.source);
    if (!conversation) {
        if (!makeRoom()) {
            ++counters_.refused;
            return nullptr;
        }
        conversation = &conversations_[frame.source];
        conversation->address = frame.source;
        conversation->identifier = static_cast<uint8_t>(random_());
        noteUnanswered(*conversation);
    }
    conversation->version = frame.version;
    return conversation;
}

// Whoever has answered once is real; a flood of invented addresses only displaces itself and those
// who would have answered next. Only after them come the quiet ones: to be heard before its time, an
// address needs others that fill the table with answers, not with starts.
bool Authenticator::makeRoom() {
    if (conversations_.size() < settings_.supplicantsMax) {
        return true;
    }
    const auto &leaving = unanswered_.empty() ? quiet_ : unanswered_;
    if (leaving.empty()) {
        return false;
    }
    ++counters_.evicted;
    drop(*find(leaving.front()));
    return true;
}

// The quiet ones get half of the table at most, so that newcomers have room to answer in.
void Authenticator::silence(Conversation &conversation, Time now) {
    if (quiet_.size() >= std::max<size_t>(settings_.supplicantsMax / 2, 1)) {
        ++counters_.evicted;
        drop(*find(quiet_.front()));
    }
    conversation.quietUntil = now + settings_.quietPeriod;
    conversation.quiet = quiet_.insert(quiet_.end(), conversation.address);
}

void Authenticator::drop(Conversation &conversation) {
    endAttempt(conversation);
    setAlarm(conversation, std::nullopt);
    noteAnswered(conversation);
    if (conversation.quiet) {
        quiet_.erase(*conversation.quiet);
    }
    conversations_.erase(conversation.address);
}

void Authenticator::noteAnswered(Conversation &conversation) {
    if (conversation.unanswered) {
        unanswered_.erase(*conversation.unanswered);
        conversation.unanswered.reset();
    }
}

void Authenticator::noteUnanswered(Conversation &conversation) {
    if (!conversation.unanswered) {
        conversation.unanswered = unanswered_.insert(unanswered_.end(), conversation.address);
    }
}

void Authenticator::settle(Conversation &conversation) {
    std::optional<Time> alarm = earlier(conversation.phaseEnd, conversation.quietUntil);
    if (const auto &session = conversation.session) {
        alarm = earlier(alarm, earlier(session->end, session->askAt));
    }
    setAlarm(conversation, alarm);
    if (conversation.phase == Phase::kIdle && !conversation.session && !conversation.quietUntil) {
        drop(conversation);
    }
}

Status::AwaitedBy Authenticator::awaitedBy(Phase phase) {
    switch (phase) {
        case Phase::kIdentify:
            return Status::AwaitedBy::kIdentity;
        case Phase::kRequest:
            return Status::AwaitedBy::kSupplicant;
        case Phase::kBacklog:
            return Status::AwaitedBy::kRoom;
        default:
            return Status::AwaitedBy::kRelay;
    }
}

Status Authenticator::status() const {
    Status status;
    for (const auto &[address, conversation] : conversations_) {
        if (const auto &session = conversation.session) {
            status.sessions.push_back({.address = address,
                                       .identity = session->identity,
                                       .vlan = session->vlan,
                                       .since = session->since,
                                       .until = session->end,
                                       .rule = session->rule});
        }
        if (conversation.phase != Phase::kIdle) {
            status.attempts.push_back({.address = address,
                                       .identity = conversation.identity,
                                       .since = conversation.startedAt,
                                       .awaited = awaitedBy(conversation.phase)});
        }
        if (conversation.quietUntil) {
            status.quiet.push_back({.address = address, .until = *conversation.quietUntil});
        }
    }
    return status;
}

void Authenticator::setAlarm(Conversation &conversation, std::optional<Time> alarm) {
    if (conversation.alarm) {
        alarms_.erase({*conversation.alarm, conversation.address});
    }
    conversation.alarm = alarm;
    if (alarm) {
        alarms_.insert({*alarm, conversation.address});
    }
}

}  // namespace lanyard::pnac
