#include "bench/compare/rows.h"

#include <algorithm>
#include <numeric>
#include <stdexcept>
#include <thread>

#include "bench/compare/guesser.h"
#include "tests/interop/child_process.h"
#include "tests/support/udp_proxy.h"

namespace lanyard::bench {

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using test::Account;
using test::ProxySettings;
using test::RealServer;
using test::ServerState;
using test::UdpProxy;

constexpr const char *kUser = "alice";
constexpr const char *kPassword = "wonderland";
// The database takes one server for each host.
constexpr const char *kFirstHost = "127.0.0.2";
constexpr const char *kSecondHost = "127.0.0.3";
// What goes there is heard of nowhere.
constexpr const char *kHole = "192.0.2.9";
constexpr Waiting kShortWaiting = {.timeout = 3, .retries = 1};

Account tls(const RealServer &server) {
    return test::tlsAccount(server, kUser);
}
Account ttls(const RealServer &server) {
    return test::ttlsAccount(server, kUser, kPassword);
}
using Method = Account (*)(const RealServer &);

ServerPlace through(const UdpProxy &proxy, const RealServer &server) {
    return {proxy.host(), proxy.port(), server.secret()};
}

ProxySettings away(milliseconds roundTrip) {
    return {.toServer = roundTrip / 2, .toClient = roundTrip / 2};
}

// A first login and, when that succeeds, a second of the same person.
void logInTwice(Round &round, const Setup &setup, Method method) {
    round.begin(setup, {method(round.stage().server)});
    const Login first = round.logIn(1)[0];
    round.add("first login, s", first.seconds());
    if (first.success) {
        round.add("second login, s", round.logIn(1)[0].seconds());
    }
}

std::function<void(Round &)> firstServerIs(ServerState state, Method method,
                                           std::optional<Waiting> waiting = {}) {
    return [=](Round &round) {
        const RealServer &server = round.stage().server;
        UdpProxy first({"127.0.0.1", server.eapPort()}, {kFirstHost, 0});
        first.set({.state = state});
        logInTwice(round, {.servers = {through(first, server), at(server)}, .waiting = waiting},
                   method);
    };
}

void firstServerIsHole(Round &round) {
    const RealServer &server = round.stage().server;
    logInTwice(round, {.servers = {{kHole, 1812, server.secret()}, at(server)}}, md5);
}

// All at once, at a server behind a proxy.
std::function<void(Round &)> crowd(size_t people, Method method, const ProxySettings &settings) {
    return [=](Round &round) {
        const RealServer &server = round.stage().server;
        UdpProxy proxy({"127.0.0.1", server.eapPort()}, {kFirstHost, 0}, round.seed());
        proxy.set(settings);
        const size_t count = round.begin({.servers = {through(proxy, server)}},
                                         std::vector<Account>(people, method(server)));
        round.addLogins(round.logIn(count));
    };
}

// All at once, at a server that is near.
std::function<void(Round &)> nearCrowd(Method method) {
    return [=](Round &round) {
        constexpr size_t kPeople = 10;
        const RealServer &server = round.stage().server;
        const size_t count =
            round.begin({.servers = {at(server)}}, std::vector<Account>(kPeople, method(server)));
        const std::vector<Login> logins = round.logIn(count);
        Moment begin = logins[0].start;
        Moment end{};
        bool all = true;
        for (const Login &login : logins) {
            begin = std::min(begin, login.start);
            end = std::max(end, login.success.value_or(end));
            all = all && login.success;
        }
        round.add(
            "logins a second",
            all ? std::optional(static_cast<double>(count) / (end - begin).count()) : std::nullopt);
    };
}

// Four people log in again and again, while a fifth is never answered.
void oneIsNeverAnswered(Round &round) {
    constexpr size_t kOthers = 4;
    constexpr int kTimes = 5;
    constexpr const char *kGhost = "ghost";
    const RealServer &server = round.stage().server;
    UdpProxy proxy({"127.0.0.1", server.eapPort()}, {kFirstHost, 0});
    proxy.set({.ignoredUser = kGhost});
    std::vector<Account> accounts(kOthers, peap(server));
    accounts.insert(accounts.begin(), test::md5Account(kGhost, kPassword));
    const size_t others = round.begin({.servers = {through(proxy, server)}}, accounts) - 1;

    std::vector<size_t> who(others);
    std::iota(who.begin(), who.end(), size_t{1});
    const auto begun = round.audience().logIn(who, round.limits().login);
    if (!std::all_of(begun.begin(), begun.end(),
                     [](const Login &login) { return login.success; })) {
        throw std::runtime_error("they do not even log in alone");
    }
    const auto ghostAsked = [&] { return proxy.counters().ignored > 0; };
    (void)round.audience().logIn({0}, std::chrono::seconds(1));
    if (!ghostAsked()) {
        throw std::runtime_error("the server is not asked for the one without an answer");
    }
    std::optional<double> slowest = 0;
    size_t lost = 0;
    size_t again = 0;
    size_t all = 0;
    for (int i = 0; i < kTimes && slowest; ++i) {
        for (const Login &login :
             round.audience().logIn(who, round.limits().login, Until::kVerdict)) {
            ++all;
            again += login.success ? 1 : 0;
            lost += login.failures > 0 ? 1 : 0;
            slowest = slowest && login.success ? std::optional(std::max(*slowest, *login.seconds()))
                                               : std::nullopt;
        }
    }
    round.add("slowest login of the others, s", slowest);
    round.addCount("the others logged in again", again, all);
    round.addCount("sessions that ended", lost, others);
}

// The second server has a conversation when the first one comes alive again.
void firstServerRevives(Round &round) {
    constexpr uint64_t kReplies = 3;  // of eleven
    const RealServer &server = round.stage().server;
    const RealServer &other = round.stage().second();
    UdpProxy first({"127.0.0.1", server.eapPort()}, {kFirstHost, 0});
    UdpProxy second({"127.0.0.1", other.eapPort()}, {kSecondHost, 0});
    first.set({.state = ServerState::kSilent});
    second.set(away(milliseconds(50)));
    // Without an authority: each server has its own.
    const Account account = "eap=PEAP\nidentity=\"" + std::string(kUser) + "\"\npassword=\"" +
                            kPassword + "\"\nphase2=\"auth=MSCHAPV2\"\n";
    round.begin(
        {.servers = {through(first, server), through(second, other)}, .waiting = kShortWaiting},
        {account});
    const Login login = round.logIn(1, Until::kSuccess, [&] {
        if (second.counters().replies >= kReplies) {
            first.set({});
        }
    })[0];
    round.add("login, s", login.seconds());
    round.add("failures on the way", static_cast<double>(login.failures));
}

void junkComesFirst(Round &round) {
    const RealServer &server = round.stage().server;
    UdpProxy proxy({"127.0.0.1", server.eapPort()}, {kFirstHost, 0});
    proxy.set({.forgery = test::Forgery::kJunk});
    round.begin({.servers = {through(proxy, server)}}, {md5(server)});
    round.add("login, s", round.logIn(1, Until::kVerdict)[0].seconds());
}

void passwordsAreGuessed(Round &round) {
    const RealServer &server = round.stage().server;
    round.begin({.servers = {at(server)}}, {});
    round.add(
        "guesses in " + std::to_string(static_cast<int>(round.limits().guessing.count())) + " s",
        static_cast<double>(guess(round.stage().wire, kUser, round.limits().guessing)));
}

void ip(const std::vector<std::string> &arguments) {
    std::vector<std::string> command = {"/sbin/ip"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    const test::ProgramResult result = test::runProgram(command, {});
    if (result.status != 0) {
        throw std::runtime_error("ip: " + result.err);
    }
}

}  // namespace

ServerPlace at(const RealServer &server) {
    return {"127.0.0.1", server.eapPort(), server.secret()};
}
Account md5(const RealServer & /*server*/) {
    return test::md5Account(kUser, kPassword);
}
Account peap(const RealServer &server) {
    return test::peapAccount(server, kUser, kPassword);
}

// The hole: a cable whose other end takes nothing, and no address is asked for.
Stage::Stage() {
    ip({"link", "add", "hole", "type", "veth", "peer", "name", "bottom"});
    ip({"link", "set", "hole", "arp", "off", "up"});
    ip({"link", "set", "bottom", "up"});
    ip({"address", "add", "192.0.2.1/24", "dev", "hole"});
}

const RealServer &Stage::second() {
    if (!second_) {
        // With another secret hostapd would begin the login anew, not ask again.
        second_ = std::make_unique<RealServer>(RealServer::Eap::kYes, server.secret());
    }
    return *second_;
}

size_t Round::begin(const Setup &setup, std::vector<test::Account> accounts) {
    accounts.resize(std::min(accounts.size(), limits_.people));
    audience().invite(accounts);
    contestant_ = side_ == Side::kOurs ? startOurs(setup, options_) : startOther(setup);
    audience().letIn();
    return accounts.size();
}

std::vector<Login> Round::logIn(size_t count, Until until, const std::function<void()> &meanwhile) {
    std::vector<size_t> who(count);
    std::iota(who.begin(), who.end(), size_t{0});
    return audience().logIn(who, limits_.login, until, meanwhile);
}

void Round::addLogins(const std::vector<Login> &logins) {
    std::vector<double> times;
    for (const Login &login : logins) {
        if (login.success) {
            times.push_back(*login.seconds());
        }
    }
    std::sort(times.begin(), times.end());
    addCount("logged in", times.size(), logins.size());
    if (times.empty()) {
        add("median login, s", std::nullopt);
        add("slowest of those, s", std::nullopt);
    } else {
        add("median login, s", times[times.size() / 2]);
        add("slowest of those, s", times.back());
    }
}

const std::vector<Row> &rows() {
    static const std::vector<Row> kRows = {
        {"dead-silent", "first server silent, defaults, MD5",
         firstServerIs(ServerState::kSilent, md5)},
        {"dead-refused", "first server's port closed, defaults, MD5",
         firstServerIs(ServerState::kRefused, md5)},
        {"dead-hole", "first server's host gone, defaults, MD5", firstServerIsHole},
        {"dead-3s-md5", "first server silent, time-out 3 s and 1 retry, MD5",
         firstServerIs(ServerState::kSilent, md5, kShortWaiting)},
        {"dead-3s-peap", "first server silent, time-out 3 s and 1 retry, PEAP",
         firstServerIs(ServerState::kSilent, peap, kShortWaiting)},
        {"unanswered", "one identity never answered, four others with PEAP", oneIsNeverAnswered},
        {"loss-peap-20", "20 PEAP at once, server 4 ms away, 1 % of the datagrams lost",
         crowd(
             20, peap,
             {.toServer = milliseconds(2), .toClient = milliseconds(2), .faults = {.loss = 0.01}})},
        {"peap-10-50ms", "10 PEAP at once, server 50 ms away",
         crowd(10, peap, away(milliseconds(50)))},
        {"peap-24-100ms", "24 PEAP at once, server 100 ms away",
         crowd(24, peap, away(milliseconds(100)))},
        {"peap-48-100ms", "48 PEAP at once, server 100 ms away",
         crowd(48, peap, away(milliseconds(100)))},
        {"md5-48-700ms", "48 MD5 at once, server 700 ms away",
         crowd(48, md5, away(milliseconds(700)))},
        {"near-md5", "10 MD5 at once, server near", nearCrowd(md5)},
        {"near-peap", "10 PEAP at once, server near", nearCrowd(peap)},
        {"near-tls", "10 TLS at once, server near", nearCrowd(tls)},
        {"near-ttls", "10 TTLS at once, server near", nearCrowd(ttls)},
        {"revived", "first server alive again in mid-conversation, 3 s and 1 retry, PEAP",
         firstServerRevives},
        {"junk", "a junk datagram before each reply, MD5", junkComesFirst},
        {"guesses", "a wrong password again and again at one port, MD5", passwordsAreGuessed},
    };
    return kRows;
}

}  // namespace lanyard::bench
