#include "service.h"

#include <algorithm>
#include <set>
#include <utility>

#include <lanyard/radius/mgmt.h>

#include "journal.h"
#include "servers.h"

namespace lanyardctl {

namespace {

constexpr std::chrono::seconds kTryAgain{1};

constexpr const char *kConfFile = "/var/radius.conf";

std::string counted(size_t count, const std::string &what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

// As readHosts() yields them.
std::vector<std::string> hostsOf(const std::vector<Server> &servers) {
    std::set<std::string> hosts;
    for (const Server &server : servers) {
        if (server.host) {
            hosts.insert(*server.host);
        }
    }
    return {hosts.begin(), hosts.end()};
}

// Without the row that the service itself has put there.
std::vector<Server> readTable(const Database &db) {
    std::vector<Server> servers = readServers(db);
    std::erase_if(servers, [](const Server &server) { return server.id == kStandInRow; });
    return servers;
}

}  // namespace

Service::Service(const std::string &file, Relay &relay, Report &report)
    : db_(Database::open(file)), delivery_(relay), report_(report) {
    checkJournal(db_);
    forgetAnswers(db_);
    dropStandIn();
}

void Service::look(Clock::time_point now) {
    try {
        const int64_t version = db_.dataVersion();
        const bool again = now >= nextTry_;
        if (version == seenVersion_ && !again) {
            return;
        }
        nextTry_ = now + kTryAgain;
        if (version != seenVersion_ || !delivery_.knows() || lastChange(db_) > fileHas_) {
            work();
        }
        seenVersion_ = version;
        report_.putRight("database");
    } catch (const Failure &failure) {
        report_.problem("database", failure.what());
    }
}

Service::RelayState Service::replay() {
    delivery_.forget();
    return serveRelay();
}

void Service::work() {
    checkJournal(db_);
    dropStandIn();
    writeFile();
    serveRelay();
    const int64_t done = std::min(relayHas_, fileHas_);
    if (done > forgotten_) {
        forgetChanges(db_, done);
        forgotten_ = done;
    }
}

// A service that was killed may have left its row in the table.
void Service::dropStandIn() {
    if (standInRow(db_)) {
        removeStandInRow(db_);
    }
}

void Service::writeFile() {
    if (lastChange(db_) <= fileHas_) {
        return;
    }
    const WriteTransaction transaction(db_);
    const std::vector<Change> changes = readChanges(db_, fileHas_);
    const std::vector<Server> servers = readServers(db_);
    if (const auto problem = fileProblemOf(servers)) {
        report_.problem("file", std::string(kConfFile) + " stays as it was: " + *problem);
        return;
    }
    if (radiusClientTblHandler(db_.file().c_str(), changes.back().operation) != 0) {
        report_.problem("file", std::string(kConfFile) +
                                    " could not be written and may be incomplete; "
                                    "PAL_DEBUG_LEVELS=156 shows why");
        return;
    }
    fileHas_ = changes.back().number;
    report_.putRight("file");
    report_.event("file", servers.empty() ? std::string(kConfFile) + " removed: no servers"
                                          : std::string(kConfFile) +
                                                " written: " + counted(servers.size(), "server"));
}

Service::RelayState Service::serveRelay() {
    const RelayState state = bringRelayUpToDate();
    const bool news = std::exchange(relayState_, state) != state;
    if (state == RelayState::failed) {
        report_.problem("relay",
                        "it refuses change notices or stopped answering; does it read the "
                        "database " +
                            db_.file() + "?");
        return state;
    }
    report_.putRight("relay");
    if (state == RelayState::none && news) {
        report_.event("relay", "none answers on the bus; it gets all servers once it does");
    }
    return state;
}

Service::RelayState Service::bringRelayUpToDate() {
    // Asked before the database is locked: a relay that waits for a RADIUS server answers late.
    if (!delivery_.answers()) {
        delivery_.forget();
        if (replayAsked(db_)) {
            answerReplays(db_, kReplayNoRelay);
        }
        relayHas_ = lastChange(db_);
        return RelayState::none;
    }
    Outcome::Kind kind = deliver();
    if (kind == Outcome::needsStandIn) {
        kind = deliver();
    }
    return kind == Outcome::upToDate ? RelayState::upToDate : RelayState::failed;
}

// One writer from reading the table to the last notice: the relay reads the rows that are read here.
Outcome::Kind Service::deliver() {
    WriteTransaction transaction(db_);
    const bool asked = replayAsked(db_);
    if (asked) {
        delivery_.forget();
    }
    const int64_t last = lastChange(db_);
    const std::vector<Server> table = readTable(db_);
    const Target target{.columns = readColumns(db_),
                        .servers = usableServers(table),
                        .changes = readChanges(db_, relayHas_),
                        .hosts = readHosts(db_),
                        .standIn = standInRow(db_)};
    reportRows(table);
    const Outcome outcome = delivery_.deliver(target);
    if (outcome.kind == Outcome::needsStandIn) {
        addStandInRow(db_);
    } else if (target.standIn) {
        removeStandInRow(db_);
    }
    if (outcome.kind == Outcome::upToDate && target.hosts != hostsOf(table)) {
        setHosts(db_, table);
    }
    if (outcome.kind != Outcome::needsStandIn && asked) {
        answerReplays(db_, outcome.kind == Outcome::upToDate ? std::nullopt
                                                             : std::optional<int>(kReplayFailed));
    }
    transaction.commit();
    if (outcome.kind == Outcome::upToDate) {
        relayHas_ = last;
        if (outcome.notices != 0) {
            report_.event("relay", "has " + counted(target.servers.size(), "server") +
                                       (outcome.afresh ? ", all of them afresh: " : ": ") +
                                       counted(static_cast<size_t>(outcome.notices), "notice"));
        }
    }
    return outcome.kind;
}

void Service::reportRows(const std::vector<Server> &servers) {
    const auto problems = problemsOf(servers);
    std::string text;
    for (size_t i = 0; i < servers.size(); ++i) {
        if (problems[i]) {
            text += (text.empty() ? "row " : "; row ") + std::to_string(servers[i].id) +
                    " is left out: " + *problems[i];
        }
    }
    if (text.empty()) {
        report_.putRight("table");
    } else {
        report_.problem("table", text);
    }
}

}  // namespace lanyardctl
