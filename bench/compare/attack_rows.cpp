// Attacks at the port while people log in: who stays out, and for how long.
#include <algorithm>
#include <chrono>
#include <numeric>
#include <optional>
#include <stdexcept>

#include "bench/compare/rows.h"
#include "bench/compare/siege.h"

namespace lanyard::bench {

namespace {

using std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

// Who has not got in by then knocks again.
constexpr Seconds kPatience{10};

using Begin = std::function<AttackStep(const test::VirtualWire &, const Addresses &)>;

struct Attack {
    Begin begin;
    unsigned stepsASecond = 0;  // 0 for as many as go
};

// Two people with PEAP and two with MD5, all of them logged in.
std::vector<size_t> gather(Round &round) {
    const test::RealServer &server = round.stage().server;
    const size_t count = round.begin({.servers = {at(server)}},
                                     {peap(server), md5(server), peap(server), md5(server)});
    for (const Login &login : round.logIn(count)) {
        if (!login.success) {
            throw std::runtime_error("they do not even log in without an attack");
        }
    }
    std::vector<size_t> who(count);
    std::iota(who.begin(), who.end(), size_t{0});
    return who;
}

// The logins during an attack.
class Diary {
  public:
    explicit Diary(size_t people) : outSince_(people) {}

    void note(const std::vector<Login> &logins, Moment begun) {
        for (size_t i = 0; i < logins.size(); ++i) {
            const Login &login = logins[i];
            ++all_;
            // Where not even the EAPOL-Start got through, there is no start.
            const Moment start = login.start == Moment{} ? begun : login.start;
            outSince_[i] = outSince_[i].value_or(start);
            if (login.success) {
                times_.push_back((*login.success - start).count());
                noteOut((*login.success - *outSince_[i]).count());
                outSince_[i].reset();
            }
        }
    }

    // Those who are out at the end were so until then at least.
    void addTo(Round &round, Moment end) {
        const auto out =
            static_cast<size_t>(std::count_if(outSince_.begin(), outSince_.end(),
                                              [](const auto &since) { return since.has_value(); }));
        for (const auto &since : outSince_) {
            noteOut(since ? (end - *since).count() : 0);
        }
        round.addCount("logins that succeeded", times_.size(), all_);
        round.addCount("people out at its end", out, outSince_.size());
        std::sort(times_.begin(), times_.end());
        round.add("median login, s",
                  times_.empty() ? std::nullopt : std::optional(times_[times_.size() / 2]));
        round.add("longest that one was out, s", longest_);
    }

  private:
    void noteOut(double seconds) { longest_ = std::max(longest_, seconds); }

    std::vector<std::optional<Moment>> outSince_;
    std::vector<double> times_;
    size_t all_ = 0;
    double longest_ = 0;
};

Moment now() {
    return std::chrono::system_clock::now().time_since_epoch();
}

std::function<void(Round &)> besiegedBy(const Attack &attack) {
    return [attack](Round &round) {
        const std::vector<size_t> who = gather(round);
        Audience &audience = round.audience();
        audience.overlook(kInvented);
        const Usage before = round.usage();
        const auto start = steady_clock::now();
        Siege siege(attack.begin(round.stage().wire, audience.addresses()), attack.stepsASecond);
        Diary diary(who.size());
        while (steady_clock::now() - start < round.limits().attack) {
            const Moment begun = now();
            diary.note(audience.logIn(who, std::min(kPatience, round.limits().login)), begun);
        }
        const uint64_t frames = siege.end();
        const Seconds took = steady_clock::now() - start;
        diary.addTo(round, now());
        const Usage after = round.usage();
        std::optional<double> slowest = 0;
        for (const Login &login : audience.logIn(who, round.limits().login)) {
            slowest = slowest && login.success ? std::optional(std::max(*slowest, *login.seconds()))
                                               : std::nullopt;
        }
        round.add("all in again after it, s", slowest);
        round.add("frames of the attack a second", static_cast<double>(frames) / took.count());
        round.add("CPU, % of one", 100 * (after.cpuSeconds - before.cpuSeconds) / took.count());
        round.add("memory before it, MiB", before.mebibytes);
        round.add("memory after it, MiB", after.mebibytes);
    };
}

// One EAPOL-Logoff in the name of each, who all would like to stay in.
void loggedOffOnce(Round &round) {
    const std::vector<size_t> who = gather(round);
    const Moment begun = now();
    {
        AttackStep step = logOffOthers(round.stage().wire, round.audience().addresses());
        for (size_t i = 0; i < who.size(); ++i) {
            step();
        }
    }
    size_t back = 0;
    double slowest = 0;
    for (const Login &login : round.audience().watch(who, round.limits().attack, begun)) {
        back += login.success ? 1 : 0;
        slowest = std::max(slowest, login.seconds().value_or(0));
    }
    round.addCount("back by themselves", back, who.size());
    round.add("slowest of those, s", back > 0 ? std::optional(slowest) : std::nullopt);
}

Begin withoutVictims(AttackStep (*attack)(const test::VirtualWire &)) {
    return [attack](const test::VirtualWire &wire, const Addresses &) { return attack(wire); };
}

}  // namespace

const std::vector<Row> &attackRows() {
    constexpr unsigned kLogins = 500;   // a second
    constexpr unsigned kLogoffs = 100;  // likewise
    constexpr unsigned kReplays = 1000;
    static const std::vector<Row> kRows = {
        {"attack-frames", "broken frames at full speed",
         besiegedBy({.begin = withoutVictims(sendJunk)})},
        {"attack-addresses", "an EAPOL-Start of another address each, at full speed",
         besiegedBy({.begin = withoutVictims(inventAddresses)})},
        {"attack-identities", "500 logins a second with identities of all lengths",
         besiegedBy({.begin = withoutVictims(giveIdentities), .stepsASecond = kLogins})},
        {"attack-half-open", "500 logins a second with a right identity, given up at the challenge",
         besiegedBy({.begin = [](const test::VirtualWire &wire,
                                 const Addresses &) { return leaveHalfOpen(wire, "alice"); },
                     .stepsASecond = kLogins})},
        {"attack-logoffs", "100 EAPOL-Logoffs a second in the names of those who log in",
         besiegedBy({.begin = logOffOthers, .stepsASecond = kLogoffs})},
        {"attack-replay", "1000 frames a second of what those who log in have sent",
         besiegedBy({.begin = replay, .stepsASecond = kReplays})},
        {"attack-logoff-once", "one EAPOL-Logoff in the name of each, who is logged in",
         loggedOffOnce},
    };
    return kRows;
}

}  // namespace lanyard::bench
