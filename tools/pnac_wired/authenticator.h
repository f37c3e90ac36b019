// The port-access authenticator (IEEE 802.1X-2004 section 8) without its surroundings: frames,
// records and the time come in through calls, frames, records and events go out through an Outlet.
//
// An address that was rejected is not heard for a while (quietWhile of the standard), so that passwords
// cannot be tried in quick succession. Then it is asked who it is.
//
// Every supplicant is a conversation, named by its address:
//
//     EAPOL-Start, or an answer to the request to the group
//       |
//       v        Response/Identity        Request of the server
//     identify ------------------> relay <---------------------+
//       | silent                    |  \                       |
//       v                           |   +-> request -----------+
//     gone                          |         |       Response
//                 Success, Failure, |         | silent
//                 relay silent      v         v
//                                 idle, with a session or gone
//
// A session (the supplicant is authorized) lives beside that: it stays while the supplicant logs in
// again, and ends with a failure of that, with EAPOL-Logoff, its Session-Timeout or the link. A login
// that the server has not decided ends no session; the supplicant is asked again later. After an
// EAPOL-Logoff it is asked at once, as the standard has it.
//
// Anybody can send EAPOL-Start and EAPOL-Logoff in another's name, and a supplicant in the middle of a method
// hears no Identity request (RFC 4137 section 4). So both leave the method alone and ask beside it: whoever
// gives a name before the method's next request begins anew, whoever answers the method goes on with it. After a
// Logoff its Success opens no port; the supplicant is asked again.
//
// The relay is handed packets as soon as it takes them, those of logins that are under way before those
// of newcomers, which wait while it has much to do (relay_load.h).
//
// It forgets a conversation with its verdict. An attempt that is given up before leaves one behind for
// minutes, so the next attempt of that address goes on in it: a new identity has the relay begin it
// anew. Whoever starts over and over has one conversation there, or two when the first is old. No
// late answer is taken for one to the new attempt, for that waits until the relay has answered what it
// had of the earlier one. In all other cases an attempt has a cookie of its own.
#ifndef LANYARD_TOOLS_PNAC_WIRED_AUTHENTICATOR_H
#define LANYARD_TOOLS_PNAC_WIRED_AUTHENTICATOR_H

#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <map>
#include <optional>
#include <set>
#include <utility>

#include "tools/pnac_wired/eapol.h"
#include "tools/pnac_wired/event.h"
#include "tools/pnac_wired/relay_record.h"
#include "tools/pnac_wired/settings.h"
#include "tools/pnac_wired/status.h"

namespace lanyard::pnac {

class Authenticator {
  public:
    // `random` yields 32 unpredictable bits a call.
    Authenticator(const Settings &settings, Outlet &outlet, std::function<uint32_t()> random);

    // The link: asks who is there; ends all sessions.
    void linkUp(Time now);
    void linkDown(Time now);

    void receiveFrame(ByteView bytes, Time now);
    void receiveRecord(ByteView bytes, Time now);

    // Does what is due.
    void tick(Time now);

    // When something is due next.
    std::optional<Time> nextDeadline() const;

    // The relay has a packet that somebody waits for, and has not answered it.
    bool awaitsRelay() const { return withRelay_ + held_ > 0; }

    // Ends all sessions for good.
    void shutDown(Time now);

    // All supplicants, by their addresses.
    Status status() const;

    const Counters &counters() const { return counters_; }
    size_t supplicants() const { return conversations_.size(); }

  private:
    enum class Phase {
        kIdle,
        kIdentify,  // the Identity request is out
        kHeld,      // a response waits for the relay's answer to an earlier attempt
        kBacklog,   // a response waits for the relay to take it
        kRelay,     // the relay has a response
        kRequest    // a request of the server is out
    };

    struct Session {
        Bytes identity = {};
        Bytes vlan = {};
        Time since = {};
        std::optional<Time> end = {};
        SessionRule rule = SessionRule::kTerminate;
        std::optional<Time> askAt = {};  // after a login without a verdict
    };

    // When the relay got to know a conversation.
    struct Birth {
        Time since = {};
        uint64_t recordsSent = 0;  // the relay counts them as well
    };

    // What the relay has of an attempt that was given up.
    struct Remnant {
        uint32_t cookie = 0;
        Birth birth = {};
        uint64_t packetSent = 0;
        std::optional<Time> owedUntil = {};  // an answer may come until then
        std::list<Mac>::iterator place = {};
    };

    struct Conversation {
        Mac address = {};
        uint8_t version = kEapolVersionMin;
        Phase phase = Phase::kIdle;
        uint32_t cookie = 0;              // of the attempt; 0 before the relay is involved
        std::optional<Birth> birth = {};  // while the relay knows the cookie
        uint8_t identifier = 0;           // of the last request
        Bytes packet = {};                // to be sent again, or waiting for the relay
        std::optional<uint8_t> probeIdentifier = {};  // of an Identity request beside a method
        bool loggedOff = false;                       // in the middle of the method
        Duration interval = {};
        unsigned repeatsLeft = 0;
        Bytes identity = {};
        Time startedAt = {};
        std::optional<Time> phaseEnd = {};
        std::optional<Session> session = {};
        std::optional<Time> quietUntil = {};                      // it was rejected
        std::optional<Time> alarm = {};                           // its entry in alarms_
        std::optional<std::list<Mac>::iterator> unanswered = {};  // its places in the lists
        std::optional<std::list<Mac>::iterator> waiting = {};
        std::optional<std::list<Mac>::iterator> quiet = {};
        bool underway = false;    // which of them: the relay knows it
        uint64_t packetSent = 0;  // the relay's number of it
    };

    // The Identity request to the group.
    struct GroupRequest {
        uint8_t identifier = 0;
        unsigned repeatsLeft = 0;
        Time startedAt = {};
        Time due = {};
    };

    void receiveStart(const EapolFrame &frame, Time now);
    void receiveLogoff(const EapolFrame &frame, Time now);
    void receiveEap(const EapolFrame &frame, Time now);
    static Status::AwaitedBy awaitedBy(Phase phase);
    static bool takesResponse(const Conversation &conversation, const EapPacket &eap);
    static bool isInMethod(const Conversation &conversation);
    bool answersGroup(const EapPacket &eap) const;

    Conversation *find(const Mac &address);
    Conversation *findCookie(uint32_t cookie);
    Conversation *findOrAdd(const EapolFrame &frame);
    bool makeRoom();
    void silence(Conversation &conversation, Time now);
    void drop(Conversation &conversation);

    void beginAttempt(Conversation &conversation, Time now);
    void endAttempt(Conversation &conversation);
    void identify(Conversation &conversation, Time now);
    void probe(Conversation &conversation);
    void refuse(Conversation &conversation, const EapPacket &eap, Time now);
    void forward(Conversation &conversation, const EapPacket &eap, Time now);
    void enqueue(Conversation &conversation, Time now);
    bool handOver(Conversation &conversation, Time now);
    bool handOverFirst(const std::list<Mac> &backlog, Time now);
    void drainBacklog(Time now);
    std::list<Mac> &backlogOf(const Conversation &conversation) {
        return conversation.underway ? underway_ : newcomers_;
    }
    void expireRelay(Conversation &conversation, Time now);
    void takeRecord(const RelayRecord &record, Time now);
    void takeLateAnswer(const RelayRecord &record, Time now);
    void relayRequest(Conversation &conversation, const RelayRecord &record, Time now);
    void authorize(Conversation &conversation, const RelayRecord &record, Time now);
    void failWith(ByteView failure, Conversation &conversation, Reason reason, Time now);
    void fail(Conversation &conversation, Reason reason, Time now);
    void endSession(Conversation &conversation, Reason reason, Time now);
    void endAll(Reason reason, Time now);
    // Sets the alarm after a change, or drops a conversation that has nothing left to wait for.
    void settle(Conversation &conversation);

    void wake(Conversation &conversation, Time now);
    void expirePhase(Conversation &conversation, Time now);
    void endQuiet(Conversation &conversation, Time now);
    void expireSession(Conversation &conversation, Time now);
    void repeatGroupRequest(Time now);

    void setPhase(Conversation &conversation, Phase phase);
    void setAlarm(Conversation &conversation, std::optional<Time> alarm);
    void noteAnswered(Conversation &conversation);
    void noteUnanswered(Conversation &conversation);
    void sendEap(const Conversation &conversation, ByteView eap);
    void sendGroupRequest();
    void stopGroupRequests();
    uint32_t newCookie();
    void takeCookie(Conversation &conversation, Time now);

    void leaveRemnant(const Conversation &conversation);
    Remnant *findRemnant(const Mac &address);
    void forgetRemnant(const Mac &address);
    bool isYoung(const Birth &birth, Time now) const;

    const Settings settings_;
    Outlet &outlet_;
    const std::function<uint32_t()> random_;
    Counters counters_;
    bool linkIsUp_ = false;
    std::optional<GroupRequest> group_;

    // Addresses come from outside, so nothing here depends on how they are spread.
    std::map<Mac, Conversation> conversations_;
    std::map<uint32_t, Mac> cookies_;
    std::set<std::pair<Time, Mac>> alarms_;
    std::list<Mac> unanswered_;  // the oldest first
    std::list<Mac> quiet_;       // likewise
    size_t withRelay_ = 0;       // how many are in Phase::kRelay
    size_t held_ = 0;            // and in Phase::kHeld

    // Those in Phase::kBacklog, the oldest first.
    std::list<Mac> underway_;
    std::list<Mac> newcomers_;
    RelayLoad load_;
    std::optional<Time> stalledAt_;   // newcomers wait no longer for an answer of the relay
    std::optional<Time> handOverAt_;  // after the relay has refused a packet
    Duration handOverRetry_;
    HandOver lastHandOver_ = HandOver::kTaken;
    Time lastAnswer_ = Time::min();

    std::map<Mac, Remnant> remnants_;  // their cookies are in cookies_ too
    std::list<Mac> remnantsByAge_;     // the oldest first

    std::deque<uint32_t> recentCookies_;
    std::set<uint32_t> usedCookies_;
};

}  // namespace lanyard::pnac

#endif
